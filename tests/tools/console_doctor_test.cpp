// citp-console doctor before a healthy server and before every set-up that it is there to find, each broken for real:
// adapters, cables, the group, the port, and simulated servers with faults.
// SPDX-License-Identifier: Apache-2.0
#include <QCoreApplication>
#include <QFile>
#include <QNetworkInterface>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QUdpSocket>

#include <map>
#include <memory>

#include "console_fixture.h"
#include "network.h"
#include "odd_server.h"
#include "wire.h"

namespace {
const QStringList All{"adapter",  "address", "multicast", "port",      "heard", "tcp",
                      "greeting", "version", "library",   "thumbnail", "guards"};

// The verdict on each check, and that there is one on every check and on nothing else.
std::map<QString, QString> verdictsIn(const QString& output)
{
    std::map<QString, QString> verdicts;
    static const QRegularExpression form("^(ok|FAILED|skipped) +([a-z]+) +\\S");
    for (const QString& line : output.split('\n')) {
        const QRegularExpressionMatch match = form.match(line);
        if (match.hasMatch()) {
            EXPECT_EQ(verdicts.count(match.captured(2)), 0U) << line.toStdString();
            verdicts[match.captured(2)] = match.captured(1);
        }
    }
    QStringList checks;
    for (const QString& check : All) {
        if (verdicts.count(check))
            checks << check;
    }
    EXPECT_EQ(checks.join(' ').toStdString(), All.join(' ').toStdString()) << output.toStdString();
    EXPECT_EQ(verdicts.size(), static_cast<std::size_t>(All.size())) << output.toStdString();
    return verdicts;
}

// That exactly @p check went wrong, says @p text and gives advice, and that the checks in @p skipped were left out.
void expectFailure(const Outcome& outcome, const QString& check, const QString& text, const QStringList& skipped)
{
    const std::string all = outcome.output.toStdString() + outcome.errors.toStdString();
    EXPECT_EQ(outcome.status, 1) << all;
    for (const auto& [name, verdict] : verdictsIn(outcome.output)) {
        const char* const expected = name == check ? "FAILED" : skipped.contains(name) ? "skipped" : "ok";
        EXPECT_EQ(verdict.toStdString(), expected) << name.toStdString() << '\n' << all;
    }
    const QRegularExpression lines("FAILED +" + check + " +[^\n]*" + QRegularExpression::escape(text) +
                                   "[^\n]*\n +-> [^\n]+\n");
    EXPECT_TRUE(lines.match(outcome.output).hasMatch()) << text.toStdString() << "\nin\n" << all;
    EXPECT_TRUE(outcome.output.endsWith(QString("1 failed, %1 skipped\n").arg(skipped.size()))) << all;
}

// What cannot be checked once @p check has failed.
QStringList after(const QString& check)
{
    return All.mid(All.indexOf(check) + 1);
}

Outcome examine(const QStringList& arguments = {})
{
    return runConsole(QStringList{"doctor", "--adapter", "lo"} + arguments);
}

// For what does not come: the waiting for it is then shorter, and still long enough for what comes on a busy machine.
Outcome examineBriefly(const QStringList& arguments = {})
{
    return examine(QStringList{"--timeout", "5"} + arguments);
}

// A virtual cable from the adapter show0 of this machine to another machine, on which a media server runs.
class ConsoleDoctorOnAShowNetwork : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!hasNamespace())
            GTEST_SKIP() << "needs a network namespace to change adapters in";
        ip("link add show0 type veth peer name far0");
    }

    // The kernel reports the carrier some time after both ends of the cable are up.
    static void waitForCarrier()
    {
        ASSERT_TRUE(waitFor([] {
            return QNetworkInterface::interfaceFromName("show0").flags().testFlag(QNetworkInterface::IsRunning);
        }));
    }

    // The other machine, with this address and mask.
    void startFarServer(const QString& address)
    {
        const QString script = QString(
                                   "until ip link set far0 up 2>/dev/null; do sleep 0.05; done; "
                                   "ip addr add %1 dev far0 && ip route add 224.0.0.0/4 dev far0 && "
                                   "exec %2 --adapter far0 --interval 100 --name Far")
                                   .arg(address, SERVER_PROGRAM);
        m_far = std::make_unique<Child>("unshare", QStringList{"-n", "sh", "-c", script});
        // Only once it has left for a namespace of its own: before that, the cable would stay here.
        const auto networkOf = [](const QString& process) {
            return QFile::symLinkTarget(QString("/proc/%1/ns/net").arg(process)).section('/', -1);
        };
        ASSERT_TRUE(waitFor([&] { return networkOf(QString::number(m_far->id())) != networkOf("self"); }));
        ip("link set far0 netns " + std::to_string(m_far->id()));
        m_far->waitForLine("listens on");
        waitForCarrier();
    }

    std::unique_ptr<Child> m_far;
};
} // namespace

TEST(ConsoleDoctor, FindsAHealthyServerWell)
{
    const Server server({"--name", "Stage", "--product", "Test Product", "--product-version", "3.2.1"});
    const Outcome outcome = examine();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.errors.toStdString(), "");
    for (const auto& [name, verdict] : verdictsIn(outcome.output))
        EXPECT_EQ(verdict.toStdString(), "ok") << name.toStdString() << '\n' << outcome.output.toStdString();
    EXPECT_TRUE(outcome.output.endsWith("\nserver 127.0.0.2:4811  \"Stage\": all checks passed\n"));
    for (const char* const part :
         {"adapter    lo is up", "address    127.0.0.1/8", "multicast  joined 224.0.0.180 and 239.224.0.180 on lo",
          "port       UDP 4809 is free", "heard      1 server, the first after", "server 127.0.0.2:4811  \"Stage\"\n",
          "an SInf: Test Product 3.2.1, 2 layers", "version    MSEX 1.2", "library    5 media libraries",
          "element 0 \"Grey across\": JPEG, 160 x 120", "guards     none has acted"})
        EXPECT_TRUE(outcome.output.contains(part)) << part << '\n' << outcome.output.toStdString();
    EXPECT_FALSE(outcome.output.contains('\x1b'));
}

TEST_F(ConsoleDoctorOnAShowNetwork, FindsAHealthyServerWell)
{
    ip("addr add 2.0.0.1/24 dev show0");
    ip("link set show0 up");
    startFarServer("2.0.0.2/24");
    const Outcome outcome = runConsole({"doctor"});
    EXPECT_EQ(outcome.status, 0) << outcome.output.toStdString();
    EXPECT_EQ(verdictsIn(outcome.output)["thumbnail"].toStdString(), "ok");
    EXPECT_TRUE(outcome.output.contains("show0 is up and has a carrier (the first that is up with an address in 2."));
    EXPECT_TRUE(outcome.output.contains("server 2.0.0.2:4811  \"Far\""));
}

TEST_F(ConsoleDoctorOnAShowNetwork, SaysThatTheAdapterIsSwitchedOff)
{
    ip("addr add 2.0.0.1/24 dev show0");
    QStringList skipped = after("adapter");
    skipped.removeAll("address");
    skipped.removeAll("port");
    expectFailure(runConsole({"doctor", "--adapter", "show0"}), "adapter", "show0 is down", skipped);
}

TEST_F(ConsoleDoctorOnAShowNetwork, SaysThatTheCableIsOut)
{
    ip("addr add 2.0.0.1/24 dev show0");
    ip("link set show0 up");
    QStringList skipped = after("adapter");
    skipped.removeAll("address");
    skipped.removeAll("port");
    expectFailure(runConsole({"doctor"}), "adapter", "show0 has no carrier", skipped);
}

TEST_F(ConsoleDoctorOnAShowNetwork, SaysThatTheAdapterHasNoAddress)
{
    ip("link set show0 up");
    ip("link set far0 up");
    waitForCarrier();
    QStringList skipped = after("address");
    skipped.removeAll("port");
    expectFailure(runConsole({"doctor", "--adapter", "show0"}), "address", "show0 has no IPv4 address", skipped);
}

TEST_F(ConsoleDoctorOnAShowNetwork, SaysThatTheServerIsInAnotherNetwork)
{
    ip("addr add 2.0.0.1/24 dev show0");
    ip("link set show0 up");
    startFarServer("10.0.0.2/24");
    const Outcome outcome = runConsole({"doctor", "--timeout", "5"});
    expectFailure(outcome, "tcp", "port 4811", after("tcp"));
    EXPECT_TRUE(outcome.output.contains("10.0.0.2 is outside of 2.0.0.1/24")) << outcome.output.toStdString();
}

TEST_F(ConsoleDoctorOnAShowNetwork, SaysThatTheServerIsHeardOnAnotherAdapter)
{
    ip("addr add 2.0.0.1/24 dev show0");
    ip("link set show0 up");
    startFarServer("2.0.0.2/24");
    const QString text = "2.0.0.2:4811  \"Far\": heard on show0, not on the adapter in use";
    expectFailure(examineBriefly(), "heard", "no media server within 5 s; heard: " + text, after("heard"));

    const Server near;
    const Outcome outcome = examine();
    EXPECT_EQ(outcome.status, 0) << outcome.output.toStdString();
    EXPECT_TRUE(outcome.output.contains("note     heard      " + text + "\n")) << outcome.output.toStdString();
    EXPECT_TRUE(outcome.output.contains("heard      1 server, ")) << outcome.output.toStdString();
    EXPECT_FALSE(outcome.output.contains("server 2.0.0.2:4811")) << outcome.output.toStdString();
}

TEST(ConsoleDoctor, SaysThatThereIsNoAdapterButTheLoopback)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace without adapters";
    const Server server;
    expectFailure(runConsole({"doctor"}), "adapter", "lo, the loopback: no other adapter is up", {});
}

TEST(ConsoleDoctor, SaysThatTheAdapterOfTheEnvironmentIsMissing)
{
    qputenv("ARTNET_ADAPTER", "nosuch0");
    const Outcome outcome = runConsole({"doctor"});
    qunsetenv("ARTNET_ADAPTER");
    QStringList skipped = after("adapter");
    skipped.removeAll("port");
    expectFailure(outcome, "adapter", "none, not 'nosuch0'", skipped);
}

TEST(ConsoleDoctor, SaysThatTheGroupCannotBeJoined)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace whose limits it may change";
    const Server server;
    QFile limit("/proc/sys/net/ipv4/igmp_max_memberships");
    ASSERT_TRUE(limit.open(QIODevice::WriteOnly) && limit.write("0\n") > 0 && limit.flush());
    QStringList skipped = after("multicast");
    skipped.removeAll("port");
    const Outcome outcome = examineBriefly();
    expectFailure(outcome, "multicast", "224.0.0.180 cannot be joined on lo", skipped);
    EXPECT_TRUE(outcome.output.contains("raise net.ipv4.igmp_max_memberships")) << outcome.output.toStdString();
}

TEST(ConsoleDoctor, NamesTheProgramThatKeepsThePortToItself)
{
    const Server server;
    QUdpSocket greedy;
    ASSERT_TRUE(greedy.bind(QHostAddress(QHostAddress::AnyIPv4), 4809, QAbstractSocket::DontShareAddress));
    QFile name("/proc/self/comm");
    ASSERT_TRUE(name.open(QIODevice::ReadOnly));
    const QString taken = QString("UDP 4809 is in use by %1 (process %2)")
                              .arg(QString::fromUtf8(name.readAll().trimmed()))
                              .arg(QCoreApplication::applicationPid());
    expectFailure(examineBriefly(), "port", taken, after("port"));
}

TEST(ConsoleDoctor, NamesTheProgramThatSharesThePort)
{
    const Server server;
    Console other({"watch", "--adapter", "lo"});
    other.waitForLine("up ");
    const Outcome outcome = examine();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(outcome.output.contains(QString("UDP 4809 is shared with citp-console (process %1)").arg(other.id())))
        << outcome.output.toStdString();
}

TEST(ConsoleDoctor, SaysThatNothingIsHeard)
{
    expectFailure(examineBriefly(), "heard", "nothing within 5 s", after("heard"));
}

TEST(ConsoleDoctor, SaysWhoElseIsHeardWhenNoServerIs)
{
    // A console announces itself without a port.
    const QByteArray body =
        QByteArray::fromHex("504C6F63 0000") + QByteArray("LightingConsole\0Desk\x1b\0Running\0", 30);
    QByteArray message = QByteArray::fromHex("43495450 01 00 0000 00000000 0100 0000 50494E46") + body;
    message[8] = static_cast<char>(message.size());
    Console doctor({"doctor", "--adapter", "lo", "--timeout", "3"});
    QUdpSocket desk;
    ASSERT_TRUE(desk.bind(QHostAddress("127.0.0.9"), 0));
    for (int i = 0; i < TestTimeout / 50 && doctor.waitForEnd(50) == -1; ++i) {
        desk.writeDatagram(message, QHostAddress("224.0.0.180"), 4809);
        desk.writeDatagram("something", QHostAddress("224.0.0.180"), 4809);
    }
    const Outcome outcome = outcomeOf(doctor);
    expectFailure(outcome, "heard",
                  "no media server within 3 s; heard: LightingConsole (Desk\\u001b) at 127.0.0.9, without a port; ",
                  after("heard"));
    EXPECT_TRUE(outcome.output.contains("other datagrams")) << outcome.output.toStdString();
}

TEST(ConsoleDoctor, SaysWhoIsHeardWhenTheServerIsNot)
{
    const Server server({"--name", "Stage"});
    const Outcome outcome = examineBriefly({"Balcony"});
    expectFailure(outcome, "heard", "no server 'Balcony' within 5 s; heard: 127.0.0.2:4811  \"Stage\"", after("heard"));
    EXPECT_TRUE(outcome.output.endsWith("\nserver 'Balcony': 1 failed, 6 skipped\n")) << outcome.output.toStdString();
}

TEST(ConsoleDoctor, KeepsNoMoreOfAFloodOfAnnouncementsThanAnyShowHas)
{
    const QByteArray name(300, 'x');
    Console doctor({"doctor", "Balcony", "--adapter", "lo", "--timeout", "5"});
    QUdpSocket flood;
    ASSERT_TRUE(flood.bind(QHostAddress("127.0.0.9"), 0));
    unsigned port = 0;
    for (int i = 0; i < TestTimeout / 50 && doctor.waitForEnd(50) == -1; ++i) {
        for (int datagram = 0; datagram < 100; ++datagram) {
            port = port % 2000 + 1;
            flood.writeDatagram(Wire::ploc(port, "MediaServer", name.constData()), QHostAddress("224.0.0.180"), 4809);
        }
    }
    EXPECT_EQ(doctor.waitForEnd(), 1);
    // How many of the flood reach a busy machine's program is not for this test to say.
    EXPECT_LE(doctor.output().count("127.0.0.9:"), 1024);
    EXPECT_TRUE(doctor.output().contains('"' + QString(256, 'x') + '"')) << "no announcement was heard";
    EXPECT_FALSE(doctor.output().contains(QString(257, 'x')));
}

TEST(ConsoleDoctor, TellsAServerThatIsNotHeardFromOneThatIsNotThere)
{
    const Server server({"--group", "none"});
    expectFailure(examineBriefly({"127.0.0.2:4811"}), "heard", "nothing within 5 s", after("tcp"));
    const Outcome gone = examineBriefly({"127.0.0.2:4899"});
    EXPECT_EQ(verdictsIn(gone.output)["tcp"].toStdString(), "FAILED");
    EXPECT_TRUE(gone.output.contains("port 4899 refuses connections")) << gone.output.toStdString();
}

TEST(ConsoleDoctor, SaysThatAServerAnnouncesItselfToTheNewGroupOnly)
{
    const QString text = "heard on 239.224.0.180 only: a console that listens on 224.0.0.180 alone will not see it";
    const Server server({"--name", "New", "--group", "new"});
    const Outcome outcome = examine();
    EXPECT_EQ(outcome.status, 0) << outcome.output.toStdString();
    EXPECT_TRUE(outcome.output.contains("server 127.0.0.2:4811  \"New\"\nnote     heard      " + text + '\n'))
        << outcome.output.toStdString();
    EXPECT_TRUE(outcome.output.endsWith("all checks passed\n")) << outcome.output.toStdString();
    expectFailure(examineBriefly({"--group", "old"}), "heard",
                  "no media server within 5 s; heard: 127.0.0.2:4811  \"New\": " + text, after("heard"));
    EXPECT_EQ(examine({"--group", "new"}).status, 0);
}

TEST(ConsoleDoctor, SaysNothingOfGroupsWhenTheServerUsesTheOldOneOrBoth)
{
    const Server old;
    const Server both({"--address", "127.0.0.3", "--group", "both"});
    const Outcome outcome = examine();
    EXPECT_EQ(outcome.status, 0) << outcome.output.toStdString();
    EXPECT_TRUE(outcome.output.contains("2 servers, the first after")) << outcome.output.toStdString();
    EXPECT_FALSE(outcome.output.contains("note ")) << outcome.output.toStdString();
}

TEST(ConsoleDoctor, ChecksAServerNamedByHandThatIsNotHeard)
{
    const Server server({"--group", "none"});
    const Outcome outcome = examineBriefly({"--server-at", "127.0.0.2:4811"});
    EXPECT_EQ(outcome.status, 0) << outcome.output.toStdString();
    for (const auto& [check, verdict] : verdictsIn(outcome.output))
        EXPECT_EQ(verdict.toStdString(), check == "heard" ? "skipped" : "ok") << outcome.output.toStdString();
}

TEST(ConsoleDoctor, NamesTheGuardThatActedAndGoesOn)
{
    const OddServer broken([](const QByteArray& message) {
        return Wire::code(message) == "GELI" ? Wire::withSize(Wire::msex(2, "ELIn"), 0) : QByteArray();
    });
    const Server sound({"--address", "127.0.0.3"});
    const Outcome outcome = examine();
    EXPECT_EQ(outcome.status, 1);
    const QStringList parts = outcome.output.split("server 127.0.0.3:4811");
    ASSERT_EQ(parts.size(), 2) << outcome.output.toStdString();
    EXPECT_TRUE(parts[0].contains("FAILED   guards     guard small message: " + broken.key() +
                                  " disconnected: a message states 0 bytes (minimum 20)\n"))
        << outcome.output.toStdString();
    EXPECT_TRUE(parts[0].contains("FAILED   library ")) << outcome.output.toStdString();
    EXPECT_TRUE(parts[1].contains("ok       thumbnail ")) << outcome.output.toStdString();
    EXPECT_TRUE(parts[1].contains("ok       guards     none has acted\n2 servers: 2 failed, 1 skipped (server " +
                                  broken.key() + "  \"Server\")\n"))
        << outcome.output.toStdString();
}

TEST(ConsoleDoctor, LeavesOutTheGuardsThatAreSwitchedOff)
{
    const Server server;
    const Outcome outcome = examine({"--no-guards"});
    EXPECT_EQ(outcome.status, 0) << outcome.output.toStdString();
    EXPECT_EQ(verdictsIn(outcome.output)["guards"].toStdString(), "skipped");
    EXPECT_TRUE(outcome.output.endsWith("no check failed, 1 skipped\n")) << outcome.output.toStdString();
}

TEST(ConsoleDoctor, ChecksEveryServerAndFailsForOne)
{
    const Server good({"--name", "Good"});
    const Server bad({"--name", "Bad", "--address", "127.0.0.3", "--fault", "refuse"});
    Console all({"doctor", "--adapter", "lo"});
    Console chosen({"doctor", "--adapter", "lo", "good"});
    const Outcome outcome = outcomeOf(all);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.output.contains("2 servers, the first after")) << outcome.output.toStdString();
    const QStringList parts = outcome.output.split("server 127.0.0.3:4811  \"Bad\"\n");
    ASSERT_EQ(parts.size(), 2) << outcome.output.toStdString();
    EXPECT_TRUE(parts[0].contains("server 127.0.0.2:4811  \"Good\"\n"));
    EXPECT_FALSE(parts[0].contains("FAILED"));
    EXPECT_TRUE(parts[1].startsWith("FAILED   tcp "));

    const Outcome one = outcomeOf(chosen);
    EXPECT_EQ(one.status, 0);
    EXPECT_TRUE(one.output.contains("1 of 2 servers")) << one.output.toStdString();
    EXPECT_FALSE(one.output.contains("Bad"));
}

TEST(ConsoleDoctor, ChecksASecondHealthyServerToo)
{
    const Server first;
    const Server second({"--address", "127.0.0.3", "--msex", "1.0"});
    const Outcome outcome = examine();
    EXPECT_EQ(outcome.status, 0) << outcome.output.toStdString();
    EXPECT_EQ(outcome.output.count("ok       thumbnail"), 2) << outcome.output.toStdString();
    EXPECT_TRUE(outcome.output.contains("MSEX 1.0\n"));
}

TEST(ConsoleDoctor, SkipsTheThumbnailOfAServerWithoutMedia)
{
    const QTemporaryDir empty;
    const Server server({"--media", empty.path()});
    const Outcome outcome = examine();
    EXPECT_EQ(outcome.status, 0) << outcome.output.toStdString();
    EXPECT_EQ(verdictsIn(outcome.output)["thumbnail"].toStdString(), "skipped");
    EXPECT_TRUE(outcome.output.endsWith("no check failed, 1 skipped\n")) << outcome.output.toStdString();
}

TEST(ConsoleDoctor, PrintsOneJsonObjectALine)
{
    const Server server({"--fault", "silence"});
    const Outcome outcome = examineBriefly({"--json"});
    EXPECT_EQ(outcome.status, 1);
    const std::vector<QJsonObject> lines = jsonLines(outcome.output);
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(All.size()) + 1);
    for (int i = 0; i < All.size(); ++i) {
        const QJsonObject& line = lines[static_cast<std::size_t>(i)];
        EXPECT_EQ(line.value("check").toString().toStdString(), All[i].toStdString());
        EXPECT_EQ(line.value("server").toString().toStdString(), i < 5 ? "" : "127.0.0.2:4811");
        EXPECT_NE(line.value("text").toString().toStdString(), "");
        EXPECT_EQ(line.value("verdict").toString().toStdString(), i == 8 ? "FAILED" : i == 9 ? "skipped" : "ok");
        EXPECT_EQ(line.contains("advice"), i == 8);
    }
    EXPECT_EQ(lines.back().value("failed").toInt(), 1);
    EXPECT_EQ(lines.back().value("skipped").toInt(), 1);
}

TEST(ConsoleDoctor, ColoursVerdictsOnATerminalUnlessToldNotTo)
{
    const QString command = CONSOLE_PROGRAM " doctor --adapter lo --timeout 0.1";
    const auto onATerminal = [&command] {
        Child terminal("script", {"-qec", command, "/dev/null"});
        EXPECT_EQ(terminal.waitForEnd(), 1);
        return terminal.output();
    };
    qunsetenv("NO_COLOR");
    const QString coloured = onATerminal();
    EXPECT_TRUE(coloured.contains("\x1b[32mok\x1b[0m       adapter")) << coloured.toStdString();
    EXPECT_TRUE(coloured.contains("\x1b[31mFAILED\x1b[0m   heard")) << coloured.toStdString();
    qputenv("NO_COLOR", "1");
    const QString plain = onATerminal();
    EXPECT_TRUE(plain.contains("ok       adapter")) << plain.toStdString();
    EXPECT_FALSE(plain.contains('\x1b')) << plain.toStdString();
}

TEST(ConsoleDoctor, WrapsItsLinesToTheTerminal)
{
    const QString command = "stty cols 60; NO_COLOR=1 exec " CONSOLE_PROGRAM " doctor --adapter lo --timeout 0.1 2>&-";
    Child terminal("script", {"-qec", command, "/dev/null"});
    EXPECT_EQ(terminal.waitForEnd(), 1);
    const QStringList lines = terminal.output().split("\r\n");
    for (const QString& line : lines)
        EXPECT_LE(line.size(), 60) << line.toStdString();
    EXPECT_TRUE(
        terminal.output().contains("ok       multicast  joined 224.0.0.180 and 239.224.0.180 on\r\n"
                                   "                    lo\r\n"))
        << terminal.output().toStdString();
    EXPECT_TRUE(
        terminal.output().contains("                    -> the loopback reaches only servers on\r\n"
                                   "                       this machine; --adapter selects\r\n"
                                   "                       another adapter\r\n"))
        << terminal.output().toStdString();
}

TEST(ConsoleDoctor, EndsOnCtrlC)
{
    Console console({"doctor", "--adapter", "lo", "--timeout", "600"});
    console.waitForLine("port ");
    console.interrupt();
    EXPECT_EQ(console.waitForEnd(), 1);
    EXPECT_TRUE(console.errors().contains("interrupted")) << console.errors().toStdString();
}

TEST(ConsoleDoctor, RefusesWrongUse)
{
    EXPECT_EQ(runConsole({"doctor", "one", "two"}).status, 2);
    EXPECT_EQ(runConsole({"doctor", "--adapter", "nosuch0"}).status, 2);
    EXPECT_EQ(runConsole({"doctor", "--seconds", "3"}).status, 2);
}

namespace {
struct FaultCase
{
    const char* fault;
    const char* check;
    const char* text;
    int skipped;
};

void PrintTo(const FaultCase& faultCase, std::ostream* out)
{
    *out << faultCase.fault;
}

class ConsoleDoctorUnderFault : public ::testing::TestWithParam<FaultCase>
{
};
} // namespace

TEST_P(ConsoleDoctorUnderFault, NamesTheCheckThatFails)
{
    const Server server({"--fault", GetParam().fault});
    const QStringList skipped = after(GetParam().check).mid(0, GetParam().skipped);
    expectFailure(examineBriefly(), GetParam().check, GetParam().text, skipped);
}

INSTANTIATE_TEST_SUITE_P(
    EachFault, ConsoleDoctorUnderFault,
    ::testing::Values(FaultCase{"refuse", "tcp", "port 4811 is announced, but refuses connections", 5},
                      FaultCase{"mute", "greeting", "does not send an SInf within 10 s", 3},
                      FaultCase{"odd-sinf", "version", "the SInf came in MSEX 1.", 0},
                      FaultCase{"silence", "library", "did not send its libraries within 5 s", 1},
                      FaultCase{"version", "library", "which is not supported", 1},
                      FaultCase{"oversize", "thumbnail",
                                "did not send the picture of element 0 of library 1,1,0,0: its answer has no picture",
                                0},
                      FaultCase{"spoil", "thumbnail", "bytes are not a JPEG picture", 0}),
    [](const auto& test) { return QString(test.param.fault).remove('-').toStdString(); });
