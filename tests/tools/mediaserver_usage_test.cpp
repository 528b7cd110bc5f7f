// The command line of citp-mediaserver: what it explains, what it refuses and with which status.
// SPDX-License-Identifier: Apache-2.0
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryFile>

#include <csignal>

#include "faults.h"
#include "mediaserver_fixture.h"

namespace {
// Wrong use and failures: nothing on standard output, one line that says what to do, and the status.
void expectRefusal(const QStringList& arguments, const char* hint, int status = 2)
{
    const Outcome outcome = runToEnd(arguments);
    SCOPED_TRACE(arguments.join(' ').toStdString());
    EXPECT_EQ(outcome.status, status);
    EXPECT_EQ(outcome.output.toStdString(), "");
    EXPECT_EQ(outcome.errors.count('\n'), 1) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.startsWith("citp-mediaserver: ")) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.contains(hint)) << outcome.errors.toStdString();
}
} // namespace

TEST(MediaserverUsage, VersionIsTheProjects)
{
    const Outcome outcome = runToEnd({"--version"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output.toStdString(), "citp-mediaserver " CITP_VERSION "\n");
    EXPECT_EQ(outcome.errors.toStdString(), "");
}

TEST(MediaserverUsage, HelpExplainsEveryOption)
{
    const Outcome outcome = runToEnd({"--help"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.errors.toStdString(), "");
    for (const char* const option :
         {"help",      "version",      "count",      "name",        "adapter",         "address",     "port",
          "group",     "interval",     "msex",       "product",     "product-version", "layers",      "uuid",
          "die-after", "revive-after", "die-server", "media",       "effects",         "generic",     "layer-rate",
          "patch",     "fault",        "fault-rate", "fault-delay", "forged",          "forged-from", "seed",
          "seconds",   "quiet",        "replay",     "server",      "unknown",         "speed"}) {
        const QRegularExpression explained(QString("^  (-\\w, )?--%1( <[^>]+>)?  +\\w").arg(option),
                                           QRegularExpression::MultilineOption);
        EXPECT_TRUE(outcome.output.contains(explained)) << option;
    }
}

TEST(MediaserverUsage, WrongUseIsOneLineAndStatusTwo)
{
    expectRefusal({"--bogus"}, "'bogus'");
    expectRefusal({"stray"}, "'stray'");
    expectRefusal({"--port"}, "--port");
    expectRefusal({"--port", "0"}, "from 1 to 65535");
    expectRefusal({"--port", "70000"}, "from 1 to 65535");
    expectRefusal({"--port", "65535", "--count", "2"}, "lower port");
    expectRefusal({"--count", "0"}, "from 1 to 200");
    expectRefusal({"--count", "two"}, "from 1 to 200");
    expectRefusal({"--interval", "9"}, "from 10 to 3600000");
    expectRefusal({"--group", "newer"}, "not one of old, new, both, none");
    expectRefusal({"--address", "::1"}, "IPv4");
    expectRefusal({"--msex", "1.3"}, "1.0, 1.1 or 1.2");
    expectRefusal({"--product-version", "1"}, "MAJOR.MINOR");
    expectRefusal({"--product-version", "1.256"}, "0 to 255");
    expectRefusal({"--layers", "256"}, "from 0 to 255");
    expectRefusal({"--name", ""}, "empty");
    expectRefusal({"--uuid", "no-uuid"}, "36 characters");
    expectRefusal({"--uuid", "6ba7b810-9dad-11d1-80b4-00c04fd430c8", "--count", "2"}, "several servers");
    expectRefusal({"--revive-after", "5"}, "--die-after");
    expectRefusal({"--die-server", "1"}, "--die-after");
    expectRefusal({"--die-after", "5", "--die-server", "2"}, "from 1 to 1");
    expectRefusal({"--effects", "51"}, "from 0 to 50");
    expectRefusal({"--generic", "-1"}, "from 0 to 50");
    expectRefusal({"--layer-rate", "101"}, "from 0 to 100");
    expectRefusal({"--fault", "sloth"}, "delay, silence, split");
    expectRefusal({"--fault", "delay,"}, "''");
    expectRefusal({"--fault-rate", "0"}, "from 1 to 100");
    expectRefusal({"--fault-delay", "0"}, "from 1 to 600000");
    expectRefusal({"--fault", "unplug"}, "--fault unplug requires --die-after");
    expectRefusal({"--fault", "long-name"}, "--fault long-name requires --patch");
    expectRefusal({"--fault", "storm", "--group", "none"}, "--fault storm requires announcements");
    expectRefusal({"--fault", "forge", "--group", "none"}, "--fault forge requires announcements");
    expectRefusal({"--forged", "60001"}, "from 1 to 60000");
    expectRefusal({"--forged-from", "::1"}, "not an IPv4 address");
    expectRefusal({"--seed", "x"}, "from 0 to 2147483647");
    expectRefusal({"--seconds", "0"}, "from 1 to 86400");
}

TEST(MediaserverUsage, ControlCharactersOfAnArgumentStayOnOneLine)
{
    expectRefusal({"stray\n\x1b[2J"}, "\\u001b");
}

TEST(MediaserverUsage, AnAdapterThatIsNotThereIsAFailure)
{
    expectRefusal({"--adapter", "nowhere0"}, "'nowhere0'", 1);
    expectRefusal({"--adapter", "lo", "--address", "198.51.100.7"}, "127.0.0.0/8", 1);
}

TEST(MediaserverUsage, ExplainsEveryFault)
{
    const QString help = runToEnd({"--help"}).output.simplified();
    QFile document(CITP_SOURCES "docs/integrating.md");
    ASSERT_TRUE(document.open(QIODevice::ReadOnly));
    const QString table = QString::fromUtf8(document.readAll());
    for (const MediaServer::FaultDescription& fault : MediaServer::faultDescriptions()) {
        EXPECT_TRUE(help.contains(QRegularExpression(QString("[.;] %1: \\w").arg(fault.name)))) << fault.name;
        EXPECT_EQ(table.count(QString("\n| `%1` | ").arg(fault.name)), 1) << fault.name;
    }
}

TEST(MediaserverUsage, AMediaFolderOrPatchThatCannotBeReadIsAFailure)
{
    expectRefusal({"--adapter", "lo", "--media", "/nowhere"}, "'/nowhere'", 1);
    expectRefusal({"--adapter", "lo", "--patch", "/nowhere"}, "/nowhere", 1);
    QTemporaryFile patch;
    ASSERT_TRUE(patch.open());
    const auto refusePatch = [&](const char* content, const char* hint) {
        patch.resize(0);
        patch.seek(0);
        patch.write(content);
        patch.flush();
        expectRefusal({"--adapter", "lo", "--patch", patch.fileName()}, hint, 1);
    };
    refusePatch("{}", "not a JSON array");
    refusePatch("[", "not a JSON array");
    refusePatch("[{\"id\": 65536}]", "fixture 1: \"id\" must be a whole number from 0 to 65535");
    refusePatch("[{\"id\": 1, \"universe\": 256}]", "\"universe\" must be a whole number from 0 to 255");
    refusePatch("[{\"id\": 1, \"universe\": 0, \"channel\": 1, \"channels\": 2, \"make\": 5}]",
                "\"make\" must be a string");
}

TEST(MediaserverUsage, APortThatIsTakenIsAFailure)
{
    Program first({"--adapter", "lo"});
    first.waitForLine("listens on 127.0.0.2:4811");
    expectRefusal({"--adapter", "lo"}, "127.0.0.2:4811", 1);
}

TEST(MediaserverUsage, EndsOnSignalsWithStatusZero)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        Program program({"--adapter", "lo"});
        program.waitForLine("listens on");
        program.signal(signal);
        EXPECT_EQ(program.waitForEnd(), 0) << signal;
        program.waitForLine("ends");
    }
}

TEST(MediaserverUsage, EndsAfterItsSecondsAndIsQuietWhenAsked)
{
    const Outcome outcome = runToEnd({"--adapter", "lo", "--seconds", "1", "--quiet"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output.toStdString(), "");
    EXPECT_EQ(outcome.errors.toStdString(), "");
}
