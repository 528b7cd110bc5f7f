// The end of citp-console: signals while output is not read or messages arrive faster than they are printed, a reader
// that goes away, and the last line on standard error.
// SPDX-License-Identifier: Apache-2.0
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "console_fixture.h"
#include "odd_server.h"
#include "wire.h"

namespace {
// A named pipe without any room, which nobody reads.
class FullPipe
{
public:
    FullPipe() : m_path(m_folder.filePath("pipe"))
    {
        const QByteArray path = QFile::encodeName(m_path);
        EXPECT_EQ(::mkfifo(path.constData(), 0600), 0);
        m_descriptor = ::open(path.constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        while (::write(m_descriptor, "x", 1) == 1) {
        }
    }
    ~FullPipe() { ::close(m_descriptor); }
    FullPipe(const FullPipe&) = delete;
    FullPipe& operator=(const FullPipe&) = delete;

    const QString& path() const { return m_path; }

private:
    const QTemporaryDir m_folder;
    const QString m_path;
    int m_descriptor = -1;
};

QString shellCommand(const QStringList& arguments)
{
    return "exec " CONSOLE_PROGRAM " '" + arguments.join("' '") + '\'';
}

// A number of /proc/PID/FILE, e.g. "VmHWM:" in kB.
qint64 figureOf(const Child& child, const char* file, const QString& name)
{
    QFile content(QString("/proc/%1/%2").arg(child.id()).arg(file));
    if (!content.open(QIODevice::ReadOnly))
        return -1;
    const QRegularExpression line(name + "\\s+(\\d+)");
    return line.match(QString::fromLatin1(content.readAll())).captured(1).toLongLong();
}

QByteArray layerStates(int count)
{
    QByteArray states;
    for (int i = 0; i < count; ++i)
        states += Wire::lsta(1);
    return states;
}
} // namespace

TEST(ConsoleEnd, ComesOnCtrlCThoughNobodyReadsTheOutput)
{
    const FullPipe pipe;
    const OddServer server([](const QByteArray&) { return QByteArray(); }, layerStates(4000));
    Child console("sh",
                  {"-c", shellCommand({"layers", server.key(), "--adapter", "lo", "--json"}) + " >" + pipe.path()});
    // Some states have arrived: the program waits for its reader.
    ASSERT_TRUE(waitFor([&] { return figureOf(console, "io", "rchar:") > 3000000; }));
    console.interrupt();
    EXPECT_EQ(console.waitForEnd(), 0);
}

TEST(ConsoleEnd, ComesOnCtrlCThoughNobodyReadsTheLog)
{
    const FullPipe pipe;
    const Server server;
    Child console("sh", {"-c", shellCommand({"watch", "--adapter", "lo", "--log", "CITP.*=31"}) + " 2>" + pipe.path()});
    console.waitForLine("up ");
    console.interrupt();
    EXPECT_EQ(console.waitForEnd(), 0);
}

TEST(ConsoleEnd, ComesAfterItsSecondsThoughNobodyReads)
{
    const FullPipe pipe;
    const OddServer server([](const QByteArray&) { return QByteArray(); }, layerStates(10));
    Child console("sh", {"-c", shellCommand({"layers", server.key(), "--adapter", "lo", "--json", "--seconds", "1"}) +
                                   " >" + pipe.path() + " 2>" + pipe.path()});
    EXPECT_EQ(console.waitForEnd(), 0);
}

TEST(ConsoleEnd, ComesOnceWhenTheSignalIsSentTwice)
{
    const Server server;
    // Passes a signal on to the program and, once more, to the program's group.
    Child console("timeout", {"600", CONSOLE_PROGRAM, "watch", "--adapter", "lo"});
    console.waitForLine("up ");
    console.interrupt();
    EXPECT_EQ(console.waitForEnd(), 0);
    EXPECT_EQ(console.errors().toStdString(), "");
}

TEST(ConsoleEnd, KeepsNoBacklogOfLayerStates)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer keeps freed memory, which this test measures";
#endif
    constexpr qint64 Received = 60000000;
    constexpr qint64 MostKilobytes = 150000;
    const FullPipe pipe;
    const OddServer server([](const QByteArray&) { return QByteArray(); }, layerStates(40000));
    Child console("sh",
                  {"-c", shellCommand({"layers", server.key(), "--adapter", "lo", "--json"}) + " >" + pipe.path()});
    ASSERT_TRUE(waitFor([&] { return figureOf(console, "io", "rchar:") > Received; }));
    EXPECT_LT(figureOf(console, "status", "VmHWM:"), MostKilobytes);
    console.interrupt();
    EXPECT_EQ(console.waitForEnd(), 0);
}

TEST(ConsoleEnd, IsAFailureIfCapturedPacketsAreLostInAPipeThatNobodyReads)
{
    if (qEnvironmentVariableIsEmpty("CITP_TEST_NAMESPACE"))
        GTEST_SKIP() << "needs a network namespace";
    const FullPipe pipe;
    Child console("sh", {"-c", shellCommand({"capture", "--adapter", "lo", "--write", "-"}) + " >" + pipe.path()});
    ASSERT_TRUE(waitFor([&] { return console.errors().contains("capturing on "); }));
    console.interrupt();
    EXPECT_EQ(console.waitForEnd(), 1);
    EXPECT_TRUE(console.errors().endsWith("\ncitp-console: interrupted\n")) << console.errors().toStdString();
}

TEST(ConsoleEnd, IsQuietWhenTheReaderGoes)
{
    const Server server;
    Child console("bash", {"-c", "set -o pipefail; " CONSOLE_PROGRAM " watch --adapter lo | head -n 1"});
    EXPECT_EQ(console.waitForEnd(), 128 + SIGPIPE);
    EXPECT_EQ(console.output().count("up "), 1) << console.output().toStdString();
    EXPECT_EQ(console.errors().toStdString(), "");
}

TEST(ConsoleEnd, ComesWithAFailureWhenStandardOutputIsClosed)
{
    const Server server;
    Child console("sh", {"-c", shellCommand({"libraries", "127.0.0.2:4811", "--adapter", "lo"}) + " >&-"});
    EXPECT_EQ(console.waitForEnd(), 1);
    EXPECT_EQ(console.errors().toStdString(), "citp-console: not all output could be written; is the disk full?\n");
}

TEST(ConsoleEnd, GivesItsReasonLast)
{
    const Server server({"--fault", "silence"});
    const Outcome outcome =
        runConsole({"libraries", "127.0.0.2:4811", "--adapter", "lo", "--timeout", "1", "--log", "CITP.*=31,Qt=31"});
    EXPECT_EQ(outcome.status, 1);
    const QStringList lines = outcome.errors.trimmed().split('\n');
    EXPECT_GT(lines.size(), 1);
    EXPECT_TRUE(lines.constLast().startsWith("citp-console: Server \"Simulated Server\" (127.0.0.2:4811) did not send"))
        << outcome.errors.toStdString();
}

TEST(ConsoleLog, CountsEqualLines)
{
    const Server server({"--fault", "refuse"});
    Console console({"watch", "--adapter", "lo"});
    static const QRegularExpression counted("CITP\\.Stack: Connection refused \\(\\d+ more\\)\n");
    ASSERT_TRUE(waitFor([&] { return counted.match(console.errors()).hasMatch(); }));
    console.interrupt();
    EXPECT_EQ(console.waitForEnd(), 0);
    // Qt warns about each refused connection.
    EXPECT_FALSE(console.errors().contains("QNativeSocketEngine")) << console.errors().toStdString();
}

TEST(ConsoleLog, WritesEachLineInOne)
{
    const Server server({"--name", "x\n12:00:00.000 CITP.Stack: added 2.0.0.9:4811 Forged (total=9)"});
    Console console({"watch", "--adapter", "lo", "--log", "CITP.*=31"});
    console.waitForLine("up ");
    console.interrupt();
    EXPECT_EQ(console.waitForEnd(), 0);
    static const QRegularExpression forged("^\\S+ CITP\\.Stack: added 2\\.0\\.0\\.9");
    static const QRegularExpression genuine("^\\d\\d:\\d\\d:\\d\\d\\.\\d{3} (CITP|NetworkAdapterMonitor)[A-Za-z.]*: ");
    const QStringList lines = console.errors().trimmed().split('\n');
    for (const QString& line : lines) {
        EXPECT_TRUE(genuine.match(line).hasMatch()) << line.toStdString();
        EXPECT_FALSE(forged.match(line).hasMatch()) << line.toStdString();
    }
}
