// citp-console watch beside simulated media servers: events, JSON, the end, silence, and names meant to do harm.
// SPDX-License-Identifier: Apache-2.0
#include <QDateTime>
#include <QUdpSocket>

#include "console_fixture.h"
#include "odd_server.h"
#include "wire.h"

namespace {
const QStringList watchLoopback{"watch", "--adapter", "lo"};

QStringList withProduct(const QStringList& more = {})
{
    return QStringList{"--product", "Test Product", "--product-version", "3.2.1", "--layers", "4"} + more;
}
} // namespace

TEST(ConsoleWatch, ReportsAServerUpDownAndUpAgain)
{
    Console console(watchLoopback);
    {
        const Server server(withProduct({"--name", "Stage"}));
        const QString up = console.waitForLine("up ");
        EXPECT_TRUE(up.simplified().endsWith("up 127.0.0.2:4811 \"Stage\" Test Product 3.2.1 MSEX 1.2 4 layers"))
            << up.toStdString();
    }
    const QString down = console.waitForLine("down ");
    EXPECT_TRUE(down.simplified().endsWith("down 127.0.0.2:4811 \"Stage\"")) << down.toStdString();
    const Server again(withProduct());
    console.waitForLine("up ");
}

TEST(ConsoleWatch, TellsOlderServersApart)
{
    Console console(watchLoopback);
    const Server server(withProduct({"--msex", "1.0", "--layers", "1"}));
    const QString up = console.waitForLine("up ");
    EXPECT_TRUE(up.endsWith("Test Product 3.2  MSEX 1.0  1 layer")) << up.toStdString();
}

TEST(ConsoleWatch, PrintsOneJsonObjectALine)
{
    Console console(watchLoopback + QStringList{"--json"});
    {
        const Server server(withProduct({"--msex", "1.1"}));
        console.waitForLine("\"up\"");
    }
    console.waitForLine("\"down\"");
    console.interrupt();
    EXPECT_EQ(console.waitForEnd(), 0);

    const std::vector<QJsonObject> events = jsonLines(console.output());
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].value("event").toString().toStdString(), "up");
    EXPECT_EQ(events[1].value("event").toString().toStdString(), "down");
    for (const QJsonObject& event : events) {
        EXPECT_EQ(event.value("server").toString().toStdString(), "127.0.0.2:4811");
        EXPECT_EQ(event.value("name").toString().toStdString(), "Simulated Server");
        EXPECT_EQ(event.value("product").toString().toStdString(), "Test Product");
        EXPECT_EQ(event.value("productVersion").toString().toStdString(), "3.2");
        EXPECT_EQ(event.value("msexVersion").toString().toStdString(), "1.1");
        EXPECT_EQ(event.value("layers").toInt(), 4);
        EXPECT_TRUE(QDateTime::fromString(event.value("time").toString(), Qt::ISODateWithMs).isValid());
    }
}

TEST(ConsoleWatch, PrintsAGuardThatActsOnStandardErrorAndGoesOn)
{
    const OddServer broken([](const QByteArray&) { return QByteArray(); }, Wire::withSize(Wire::msex(2, "ELIn"), 0));
    Console console(watchLoopback);
    ASSERT_TRUE(waitFor([&] { return console.errors().contains("guard small message"); }));
    EXPECT_TRUE(console.errors().contains("CITP.Stack: guard small message: " + broken.key() + " disconnected: "))
        << console.errors().toStdString();
    const Server sound({"--address", "127.0.0.3"});
    console.waitForLine("up    127.0.0.3:4811");
}

TEST(ConsoleWatch, HearsBothGroupsUnlessToldOtherwise)
{
    const Server young({"--name", "New", "--group", "new"});
    const Server old({"--name", "Old", "--address", "127.0.0.3", "--group", "old"});
    const auto namesIn = [](const QString& output) {
        return (output.contains("\"New\"") ? "new " : "") + std::string(output.contains("\"Old\"") ? "old" : "");
    };
    const auto expectSeen = [&namesIn](const QStringList& arguments, const char* expected) {
        const QStringList all = QStringList{"--adapter", "lo"} + arguments;
        Console console(QStringList{"watch"} + all);
        EXPECT_TRUE(waitFor([&] { return namesIn(console.output()) == expected; })) << console.output().toStdString();
        // What listens beside the stack hears the same. It listens for seconds, in which the stack hears nothing else.
        EXPECT_EQ(namesIn(runConsole(QStringList{"servers"} + all).output), expected);
        console.interrupt();
        EXPECT_EQ(console.waitForEnd(), 0);
        EXPECT_EQ(namesIn(console.output()), expected);
    };
    // One after the other: a socket of this machine receives the groups that another one has joined.
    expectSeen({}, "new old");
    expectSeen({"--group", "old"}, "old");
    expectSeen({"--group", "new"}, "new ");
}

TEST(ConsoleWatch, ConnectsToServersNamedByHand)
{
    const Server servers({"--count", "2", "--group", "none"});
    Console console(watchLoopback + QStringList{"--server-at", "127.0.0.2:4811", "--server-at", "127.0.0.3:4812"});
    ASSERT_TRUE(waitFor([&] { return console.output().count("up  ") == 2; })) << console.output().toStdString();
    for (const char* const key : {"127.0.0.2:4811", "127.0.0.3:4812"})
        EXPECT_TRUE(console.output().contains(key)) << console.output().toStdString();
}

TEST(ConsoleWatch, EndsCleanlyOnCtrlC)
{
    const Server server;
    Console console(watchLoopback);
    console.waitForLine("up ");
    console.interrupt();
    EXPECT_EQ(console.waitForEnd(), 0);
    EXPECT_EQ(console.errors().toStdString(), "");
}

TEST(ConsoleWatch, EndsAfterItsSeconds)
{
    EXPECT_EQ(runConsole(watchLoopback + QStringList{"--seconds", "1"}).status, 0);
}

TEST(ConsoleWatch, PrintsLogLinesOnStandardErrorWhenAsked)
{
    const Server server;
    Console console(watchLoopback + QStringList{"--log", "CITP.*=31"});
    console.waitForLine("up ");
    console.interrupt();
    EXPECT_EQ(console.waitForEnd(), 0);
    EXPECT_TRUE(console.errors().contains("CITP.Stack: added 127.0.0.2:4811")) << console.errors().toStdString();
    EXPECT_TRUE(console.errors().contains("CITP.Stack.Traffic: -> ")) << console.errors().toStdString();
    EXPECT_FALSE(console.output().contains("CITP.Stack"));
}

TEST(ConsoleWatch, KeepsHostileNamesFromTheTerminal)
{
    const Server server({"--name", "\x1b[2J\n\u009b31m", "--product", QString("a") + QChar(0x202e) + "b\rc"});
    Console text(watchLoopback + QStringList{"--log", "CITP.*=31"});
    Console json(watchLoopback + QStringList{"--json"});
    const QString up = text.waitForLine("up ");
    EXPECT_TRUE(up.contains("\"\\u001b[2J\\u000a\\u009b31m\"")) << up.toStdString();
    EXPECT_TRUE(up.contains("a\\u202eb\\u000dc")) << up.toStdString();
    for (const QString& shown : {text.output(), text.errors()}) {
        for (const int unit : {0x1b, 0x9b, 0x202e, 0x0d})
            EXPECT_FALSE(shown.contains(QChar(unit))) << unit;
    }

    const QString line = json.waitForLine("up");
    const std::vector<QJsonObject> events = jsonLines(line);
    EXPECT_EQ(events.front().value("name").toString(), QString("\x1b[2J\n") + QChar(0x9b) + "31m");
    for (const int unit : {0x1b, 0x9b, 0x202e})
        EXPECT_FALSE(line.contains(QChar(unit))) << unit;
}

TEST(ConsoleWatch, SaysOnceWhatToLookAtWhenNothingIsHeard)
{
    const Outcome outcome = runConsole(watchLoopback + QStringList{"--seconds", "11"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output.toStdString(), "");
    EXPECT_EQ(outcome.errors.count("no server found for 10 s"), 1) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.contains("adapter: lo, 127.0.0.1 is used")) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.contains("cable: this is the loopback")) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.contains("multicast:")) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.contains("port 4809: can be opened")) << outcome.errors.toStdString();
}

TEST(ConsoleWatch, SaysThatAnotherProgramHasTakenThePort)
{
    QUdpSocket greedy;
    ASSERT_TRUE(greedy.bind(QHostAddress(QHostAddress::AnyIPv4), 4809, QAbstractSocket::DontShareAddress));
    const Outcome outcome = runConsole(watchLoopback + QStringList{"--seconds", "11"});
    EXPECT_TRUE(outcome.errors.contains("port 4809: IN USE")) << outcome.errors.toStdString();
}

TEST(ConsoleWatch, SaysNothingOfSilenceOnceAServerWasHeard)
{
    const Server server;
    const Outcome outcome = runConsole(watchLoopback + QStringList{"--seconds", "11"});
    EXPECT_EQ(outcome.output.count("up "), 1);
    EXPECT_FALSE(outcome.errors.contains("no server found")) << outcome.errors.toStdString();
}

TEST(ConsoleServers, ListsThoseThatAreHeardAndEnds)
{
    const Server servers({"--count", "2", "--name", "Stage\x1b"});
    const std::vector<Outcome> outcomes =
        runConsoles({{"servers", "--adapter", "lo"}, {"servers", "--adapter", "lo", "--json"}});
    EXPECT_EQ(outcomes[0].status, 0) << outcomes[0].errors.toStdString();
    QStringList lines = outcomes[0].output.trimmed().split('\n');
    lines.sort();
    EXPECT_EQ(lines.join('|').toStdString(), "127.0.0.2:4811  \"Stage\\u001b 1\"|127.0.0.3:4812  \"Stage\\u001b 2\"");
    const std::vector<QJsonObject> objects = jsonLines(outcomes[1].output);
    ASSERT_EQ(objects.size(), 2u);
    EXPECT_TRUE(objects[0].value("name").toString().startsWith("Stage"));
}

TEST(ConsoleServers, PrintsEachAsSoonAsItIsHeard)
{
    Console console({"servers", "--adapter", "lo", "--timeout", "3600"});
    QUdpSocket server;
    ASSERT_TRUE(server.bind(QHostAddress("127.0.0.9"), 0));
    const auto announceUntilListed = [&](unsigned port) {
        const QString line = QString("127.0.0.9:%1  \"Stage\"\n").arg(port);
        return waitFor([&] {
            server.writeDatagram(Wire::ploc(port, "MediaServer", "Stage"), QHostAddress("224.0.0.180"), 4809);
            return console.output().contains(line);
        });
    };
    // The other one announces itself only after the first has been printed.
    EXPECT_TRUE(announceUntilListed(4811));
    EXPECT_TRUE(announceUntilListed(4812));
    EXPECT_EQ(console.waitForEnd(), 0);
}

TEST(ConsoleServers, SaysOnATerminalWhatIsWaitedFor)
{
    const Server server({"--name", "Stage"});
    Child terminal("script", {"-qec", "stty cols 80; exec " CONSOLE_PROGRAM " servers --adapter lo", "/dev/null"});
    EXPECT_EQ(terminal.waitForEnd(), 0);
    const QString line = "listening for servers on lo, 127.0.0.1; Ctrl-C ends it";
    const QString erased = '\r' + QString(line.size(), ' ') + '\r';
    // It gives way to the server and comes back below it, and nothing of it is left at the end.
    EXPECT_EQ(terminal.output().toStdString(),
              (line + erased + "127.0.0.2:4811  \"Stage\"\r\n" + line + erased).toStdString());
}

TEST(ConsoleServers, SaysThatNoneIsHeard)
{
    const Outcome outcome = runConsole({"servers", "--adapter", "lo", "--timeout", "1"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.errors.startsWith("citp-console: no server was heard within 1 s on adapter lo, 127.0.0.1; "))
        << outcome.errors.toStdString();
}
