// citp-console capture beside a simulated media server and a console, and what decode makes of its file.
// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <linux/if.h>
#include <linux/if_tun.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <cstring>

#include "capture_writer.h"
#include "console_fixture.h"
#include "network.h"

namespace {
QStringList capture(const QString& file, const QStringList& more = {})
{
    return QStringList{"capture", "--adapter", "lo", "--write", file} + more;
}

/// The adapter "odd", 2.0.0.9, whose packets come as on bare Wi-Fi; it goes with this object.
class OddAdapter
{
public:
    OddAdapter() : m_device(open("/dev/net/tun", O_RDWR | O_CLOEXEC))
    {
        ifreq request{};
        request.ifr_flags = IFF_TUN | IFF_NO_PI;
        std::strcpy(request.ifr_name, "odd");
        m_isThere = m_device >= 0 && ioctl(m_device, TUNSETIFF, &request) == 0 &&
                    ioctl(m_device, TUNSETLINK, ARPHRD_IEEE80211) == 0 &&
                    QProcess::execute("ip", {"addr", "add", "2.0.0.9/8", "dev", "odd"}) == 0 &&
                    QProcess::execute("ip", {"link", "set", "odd", "up"}) == 0;
    }
    ~OddAdapter() { close(m_device); }
    OddAdapter(const OddAdapter&) = delete;
    OddAdapter& operator=(const OddAdapter&) = delete;

    bool isThere() const { return m_isThere; }

private:
    const int m_device;
    bool m_isThere = false;
};
} // namespace

TEST(ConsoleCapture, RecordsWhatDecodeShows)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace";
    const cap::Files files;
    const QString file = files.path("show.pcap");
    Console recorder(capture(file));
    EXPECT_TRUE(recorder.waitForLine("capturing on ").contains("capturing on lo, 127.0.0.1 for 600 s"));
    {
        // Neither of the two is CITP's.
        QTcpServer other;
        ASSERT_TRUE(other.listen(QHostAddress::LocalHost));
        QTcpSocket client;
        client.connectToHost(QHostAddress::LocalHost, other.serverPort());
        ASSERT_TRUE(client.waitForConnected(TestTimeout));
        client.write("nothing of interest");
        ASSERT_TRUE(client.waitForBytesWritten(TestTimeout));

        const Server server({"--name", "Stage"});
        Console console({"watch", "--adapter", "lo"});
        console.waitForLine("up ");
        const Outcome libraries = runConsole({"libraries", "Stage", "--adapter", "lo"});
        EXPECT_EQ(libraries.status, 0) << libraries.errors.toStdString();
        console.interrupt();
        EXPECT_EQ(console.waitForEnd(), 0);
    }
    recorder.interrupt();
    EXPECT_EQ(recorder.waitForEnd(), 0);
    EXPECT_EQ(recorder.errors().toStdString(), "");
    const QStringList lines = recorder.output().split('\n');
    ASSERT_GE(lines.size(), 2) << recorder.output().toStdString();
    const QString& report = lines.at(1);
    EXPECT_TRUE(report.endsWith(QString(" packets written to %1, 0 dropped").arg(file))) << report.toStdString();

    const Outcome decoded = runConsole({"decode", file, "--json"});
    EXPECT_EQ(decoded.status, 0);
    EXPECT_EQ(decoded.errors.toStdString(), "");
    QStringList said;
    for (const QJsonObject& event : jsonLines(decoded.output)) {
        EXPECT_EQ(event.value("server").toString().toStdString(), "127.0.0.2:4811");
        EXPECT_FALSE(event.contains("problem")) << event.value("problem").toString().toStdString();
        EXPECT_NE(event.value("record").toString().toStdString(), "error")
            << event.value("text").toString().toStdString();
        EXPECT_NE(event.value("record").toString().toStdString(), "gap")
            << event.value("text").toString().toStdString();
        said << event.value("direction").toString() + ' ' + event.value("code").toString();
    }
    for (const char* const expected : {"discovery PLoc", "to server PNam", "to server CInf", "to server SPtc",
                                       "from server SInf", "to server GELI", "from server ELIn"})
        EXPECT_TRUE(said.contains(expected)) << expected << " in:\n" << said.join('\n').toStdString();
}

TEST(ConsoleCapture, EndsAfterItsPacketsAndReportsThem)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace";
    const cap::Files files;
    const Server server;
    const QString file = files.path("three.pcap");
    const Outcome outcome = runConsole(capture(file, {"--count", "3"}));
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.output.contains("\n3 packets written to ")) << outcome.output.toStdString();
    EXPECT_EQ(jsonLines(runConsole({"decode", file, "--json"}).output).size(), 3u);
}

TEST(ConsoleCapture, EndsAfterItsSeconds)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace";
    const cap::Files files;
    const Outcome outcome = runConsole(capture(files.path("quiet.pcap"), {"--seconds", "1"}));
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.output.contains("\n0 packets written to ")) << outcome.output.toStdString();
}

TEST(ConsoleCapture, SaysWhatToDoWhenItIsNotAllowed)
{
    const cap::Files files;
    Child console("setpriv", QStringList{"--bounding-set", "-net_raw", "--inh-caps", "-net_raw", CONSOLE_PROGRAM} +
                                 capture(files.path("never.pcap"), {"--seconds", "1"}));
    EXPECT_EQ(console.waitForEnd(), 1);
    EXPECT_EQ(console.output().toStdString(), "");
    EXPECT_EQ(console.errors().count('\n'), 1) << console.errors().toStdString();
    EXPECT_TRUE(console.errors().startsWith("citp-console: not allowed to capture on lo: run it with sudo, or "))
        << console.errors().toStdString();
    EXPECT_TRUE(console.errors().contains("sudo setcap cap_net_raw+ep /")) << console.errors().toStdString();
    EXPECT_FALSE(QFileInfo::exists(files.path("never.pcap")));
}

TEST(ConsoleCapture, DoesNotMixItsPacketsWithItsReport)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace";
    const Server server;
    const cap::Files files;
    const QString file = files.path("three.pcap");
    Child console("sh", {"-c", "exec " CONSOLE_PROGRAM " " + capture("-", {"--count", "3"}).join(' ') + " >" + file});
    EXPECT_EQ(console.waitForEnd(), 0);
    EXPECT_EQ(console.errors().toStdString(),
              "citp-console: capturing on lo, 127.0.0.1 for 600 s; Ctrl-C stops it earlier\n"
              "citp-console: 3 packets written to standard output, 0 dropped\n");
    EXPECT_EQ(jsonLines(runConsole({"decode", file, "--json"}).output).size(), 3u);
}

TEST(ConsoleCapture, WritesNoPacketsToATerminal)
{
    Child terminal("script",
                   {"-qec", "exec " CONSOLE_PROGRAM " " + capture("-", {"--seconds", "1"}).join(' '), "/dev/null"});
    EXPECT_EQ(terminal.waitForEnd(), 2);
    EXPECT_EQ(
        terminal.output().toStdString(),
        "citp-console: --write: packets cannot go to a terminal; give a file, or '| citp-console decode -' to read "
        "them\r\n");
}

TEST(ConsoleCapture, IsDecodedAsItArrives)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace";
    Child pipeline("bash", {"-c", "exec " CONSOLE_PROGRAM " decode - < <(exec " CONSOLE_PROGRAM " " +
                                      capture("-").join(' ') + ")"});
    ASSERT_TRUE(waitFor([&] { return pipeline.errors().contains("capturing on"); }));
    {
        const Server server({"--name", "Stage"});
        pipeline.waitForLine("PLoc");
        // The capture still runs: what comes later is decoded too.
        EXPECT_EQ(runConsole({"libraries", "Stage", "--adapter", "lo"}).status, 0);
        EXPECT_TRUE(pipeline.waitForLine("ELIn").contains("<-  127.0.0.2:4811")) << pipeline.output().toStdString();
    }
    pipeline.interrupt();
    EXPECT_EQ(pipeline.waitForEnd(), 0);
    EXPECT_FALSE(pipeline.output().contains("ERROR")) << pipeline.output().toStdString();
    // Its reader is gone: it ends quietly.
    EXPECT_TRUE(pipeline.errors().endsWith("Ctrl-C stops it earlier\n")) << pipeline.errors().toStdString();
}

TEST(ConsoleCapture, NamesALinkTypeThatItCannotRead)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace";
    const OddAdapter adapter;
    if (!adapter.isThere())
        GTEST_SKIP() << "needs /dev/net/tun";
    const cap::Files files;
    const Outcome outcome =
        runConsole({"capture", "--adapter", "odd", "--seconds", "1", "--write", files.path("never.pcap")});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors.toStdString(),
              "citp-console: cannot capture on odd: link type IEEE802_11 is not supported\n");
}

TEST(ConsoleCapture, SaysThatTheFileCannotBeWritten)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace";
    const Outcome outcome = runConsole(capture("/nowhere/at/all.pcap"));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors.count('\n'), 1) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.contains("/nowhere/at/all.pcap")) << outcome.errors.toStdString();

    // Replacing a device would do harm.
    const Outcome device = runConsole(capture("/dev/null"));
    EXPECT_EQ(device.status, 1);
    EXPECT_EQ(device.errors.toStdString(), "citp-console: '/dev/null' cannot be written: it is not a regular file\n");

    const Server server;
    const cap::Files files;
    const QString file = files.path("limited.pcap");
    Child full("sh", {"-c", "trap '' XFSZ; ulimit -f 1; exec " CONSOLE_PROGRAM " " + capture(file).join(' ')});
    EXPECT_EQ(full.waitForEnd(), 1);
    EXPECT_TRUE(full.errors().contains("cannot be written: is the disk full?")) << full.errors().toStdString();
    EXPECT_FALSE(QFileInfo::exists(file));
}

TEST(ConsoleCapture, LeavesTheFileAloneUntilItIsComplete)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace";
    const cap::Files files;
    const QString file = files.write("show.pcap", "old");
    Console recorder(capture(file));
    recorder.waitForLine("capturing on ");
    EXPECT_EQ(QFileInfo(file).size(), 3);
    recorder.interrupt();
    EXPECT_EQ(recorder.waitForEnd(), 0);
    EXPECT_GT(QFileInfo(file).size(), 3);
}
