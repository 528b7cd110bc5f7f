// Help, version, wrong use and the list of adapters of citp-console.
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "console_fixture.h"

namespace {
void expectRefused(const QStringList& arguments, const QString& complaint)
{
    const Outcome outcome = runConsole(arguments);
    const std::string with = arguments.join(' ').toStdString();
    EXPECT_EQ(outcome.status, 2) << with;
    EXPECT_EQ(outcome.output.toStdString(), "") << with;
    EXPECT_EQ(outcome.errors.count('\n'), 1) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.startsWith("citp-console: ")) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.contains(complaint)) << outcome.errors.toStdString();
}
} // namespace

TEST(ConsoleUsage, HelpNamesEveryCommandAndOption)
{
    const Outcome outcome = runConsole({"--help"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.errors.toStdString(), "");
    for (const char* const word :
         {"watch",      "servers", "adapters",  "doctor",    "libraries", "elements",    "layers",      "patch",
          "thumbnails", "decode",  "capture",   "stats",     "test",      "--only",      "--interval",  "--count",
          "--summary",  "--write", "--adapter", "--format",  "--json",    "--log",       "--seconds",   "--size",
          "--timeout",  "--to",    "--type",    "--version", "--group",   "--no-guards", "--server-at", "Exit status"})
        EXPECT_TRUE(outcome.output.contains(word)) << word;
}

TEST(ConsoleUsage, HelpOfACommandNamesItsOptionsAlone)
{
    const Outcome outcome = runConsole({"adapters", "--help"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(outcome.output.contains("--adapter"));
    EXPECT_TRUE(outcome.output.contains("marks the one that is used"));
    EXPECT_FALSE(outcome.output.contains("--seconds"));
}

TEST(ConsoleUsage, TellsTheProjectsVersion)
{
    const Outcome outcome = runConsole({"--version"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output.toStdString(), "citp-console " CITP_VERSION "\n");
}

TEST(ConsoleUsage, RefusesWrongUseInOneLine)
{
    expectRefused({}, "no command given");
    expectRefused({"wacth"}, "'wacth' is not a command; did you mean 'watch'?");
    expectRefused({"librarys"}, "did you mean 'libraries'?");
    expectRefused({"thumb"}, "did you mean 'thumbnails'?");
    expectRefused({"Server"}, "did you mean 'servers'?");
    expectRefused({"thumbnails", "x", "--to", "y", "--format", "jpg"}, "; did you mean 'jpeg'?");
    expectRefused({"thumbnails", "x", "--html", ""}, "--html");
    expectRefused({"decode", "x", "--full", "--json"}, "--full cannot be combined with --json or --summary");
    expectRefused({"sing"}, "'sing' is not a command; see --help");
    expectRefused({"watch", "--secods", "3"}, "did you mean '--seconds'?");
    expectRefused({"watch", "--unheard-of"}, "unheard-of");
    expectRefused({"watch", "more"}, "unexpected argument 'more'");
    expectRefused({"watch", "--seconds"}, "seconds");
    expectRefused({"watch", "--seconds", "0"}, "whole number from 1 to 86400");
    expectRefused({"watch", "--seconds", "ten"}, "whole number from 1 to 86400");
    expectRefused({"watch", "--adapter", ""}, "--adapter");
    expectRefused({"watch", "--log", "CITP.Stack"}, "NAME=MASK");
    expectRefused({"watch", "--log", "CITP.Stack=32"}, "CITP.Stack=32");
    expectRefused({"watch", "--group", "none"}, "--group: 'none' is not a group: old, new or both");
    expectRefused({"watch", "--group", ""}, "--group: '' is not a group");
    expectRefused({"watch", "--server-at", "stage"}, "--server-at: 'stage' is not an address and port such as 2.");
    expectRefused({"watch", "--server-at", "2.0.0.10"}, "--server-at: '2.0.0.10'");
    expectRefused({"watch", "--server-at", "2.0.0.10:0"}, "--server-at: '2.0.0.10:0'");
    expectRefused({"watch", "--server-at", "2.0.0.10:99999"}, "--server-at: '2.0.0.10:99999'");
    expectRefused({"watch", "--server-at", "2.0.0.10:4811", "--server-at", "2.0.0.256:4811"},
                  "--server-at: '2.0.0.256:");
    expectRefused({"watch", "--server-at", "fe80::1:4811"}, "--server-at: 'fe80::1:4811'");
    expectRefused({"adapters", "--no-guards"}, "'adapters' does not support --no-guards");
    expectRefused({"capture", "--write", "x", "--group", "old"}, "'capture' does not support --group");
    expectRefused({"adapters", "--seconds", "3"}, "'adapters' does not support --seconds");
    expectRefused({"libraries"}, "'libraries' requires SERVER");
    expectRefused({"libraries", ""}, "'libraries' requires SERVER");
    expectRefused({"libraries", "x", "--type", "0"}, "whole number from 1 to 255");
    expectRefused({"libraries", "x", "--timeout", "0"}, "0.1 to 3600");
    expectRefused({"libraries", "x", "--timeout", "nan"}, "0.1 to 3600");
    expectRefused({"elements", "x"}, "'elements' requires LIBRARY");
    expectRefused({"elements", "x", "1,2"}, "'1,2' is not a library id");
    expectRefused({"elements", "x", "1,2,0,256"}, "is not a library id");
    expectRefused({"elements", "x", "../etc"}, "'../etc' is not a library id");
    expectRefused({"decode"}, "'decode' requires FILE");
    expectRefused({"decode", "x", "y"}, "unexpected argument 'y'");
    expectRefused({"decode", "x", "--adapter", "lo"}, "'decode' does not support --adapter");
    expectRefused({"capture"}, "'capture' requires --write FILE");
    expectRefused({"capture", "--write", ""}, "--write");
    expectRefused({"capture", "-w", "x", "--count", "0"}, "whole number from 1 to");
    expectRefused({"capture", "-w", "-", "--walk", "--server", "Stage"}, "--walk requires a file");
    expectRefused({"capture", "-w", "x", "--walk"}, "--walk requires --server SERVER");
    expectRefused({"capture", "-w", "x", "--server", "Stage"}, "'capture' does not support --server without --walk");
    expectRefused({"capture", "-w", "x", "--no-pictures"}, "'capture' does not support --no-pictures without --walk");
    expectRefused({"thumbnails", "x"}, "'thumbnails' requires --to DIR");
    expectRefused({"thumbnails", "x", "--to", ""}, "--to");
    expectRefused({"thumbnails", "x", "--to", "y", "--format", "bmp"}, "jpeg, png or rgb8");
    expectRefused({"thumbnails", "x", "--to", "y", "--size", "160"}, "WIDTHxHEIGHT");
    expectRefused({"thumbnails", "x", "--to", "y", "--size", "0x10"}, "WIDTHxHEIGHT");
    expectRefused({"thumbnails", "x", "--to", "y", "--size", "200x200", "--format", "rgb8"}, "too large for rgb8");
}

TEST(ConsoleUsage, FailsWhenItsOutputCannotBeWritten)
{
    for (const char* const words : {"--help", "--version", "adapters", "adapters --json"}) {
        Child full("sh", {"-c", QString("exec " CONSOLE_PROGRAM " %1 > /dev/full").arg(words)});
        EXPECT_EQ(full.waitForEnd(), 1) << words;
        EXPECT_EQ(full.errors().toStdString(), "citp-console: not all output could be written; is the disk full?\n")
            << words;
    }
}

TEST(ConsoleUsage, RefusesAnAdapterThatThisMachineHasNot)
{
    expectRefused({"watch", "--adapter", "nosuch0"}, "'nosuch0' is no adapter or IPv4 address of this machine");
    expectRefused({"adapters", "--adapter", "203.0.113.77"}, "'203.0.113.77' is no adapter");
}

TEST(ConsoleUsage, ComplainsAboutHostileArgumentsHarmlessly)
{
    expectRefused({"\x1b[2J\nwatch"}, "\\u001b[2J\\u000awatch");
    expectRefused({"watch", "--adapter", "\x1b]0;x"}, "\\u001b]0;x");
    expectRefused({"watch", "--log", "\x1b]0;x"}, "\\u001b]0;x");
    expectRefused({"watch", "--group", "\x1b]0;x"}, "\\u001b]0;x");
    expectRefused({"watch", "--server-at", "\x1b]0;x"}, "\\u001b]0;x");
}

TEST(ConsoleAdapters, MarksTheOneThatIsUsedAndSaysWhy)
{
    const Outcome outcome = runConsole({"adapters", "--adapter", "lo"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.errors.toStdString(), "");
    QStringList marked;
    for (const QString& line : outcome.output.split('\n')) {
        if (line.startsWith('*'))
            marked << line.simplified();
    }
    EXPECT_EQ(marked.join('\n').toStdString(), "* lo up, loopback 127.0.0.1");
    EXPECT_TRUE(outcome.output.contains("used: lo, 127.0.0.1 (chosen by --adapter"));
}

TEST(ConsoleAdapters, TakesAnAddressForAnAdapter)
{
    const Outcome outcome = runConsole({"adapters", "--adapter", "127.0.0.1"});
    EXPECT_TRUE(outcome.output.contains("used: lo, 127.0.0.1")) << outcome.output.toStdString();
}

TEST(ConsoleAdapters, ListsThemAsJson)
{
    const Outcome outcome = runConsole({"adapters", "--json", "--adapter", "lo"});
    EXPECT_EQ(outcome.status, 0);
    const std::vector<QJsonObject> adapters = jsonLines(outcome.output);
    const auto lo = std::find_if(adapters.begin(), adapters.end(),
                                 [](const QJsonObject& adapter) { return adapter.value("adapter") == "lo"; });
    ASSERT_NE(lo, adapters.end());
    EXPECT_TRUE(lo->value("used").toBool());
    EXPECT_TRUE(lo->value("up").toBool());
    EXPECT_EQ(lo->value("address").toString().toStdString(), "127.0.0.1");
    EXPECT_EQ(std::count_if(adapters.begin(), adapters.end(),
                            [](const QJsonObject& adapter) { return adapter.value("used").toBool(); }),
              1);
}

TEST(ConsoleAdapters, SaysThatAnAdapterChosenByEnvironmentIsMissing)
{
    qputenv("ARTNET_ADAPTER", "nosuch0");
    const Outcome outcome = runConsole({"adapters"});
    qunsetenv("ARTNET_ADAPTER");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(outcome.output.contains("used: none, not 'nosuch0'")) << outcome.output.toStdString();
}
