// citp-mediaserver short of descriptors, and with output that nobody reads: it says so once, goes on, and ends when
// asked.
//
// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <csignal>
#include <memory>
#include <vector>

#include "mediaserver_fixture.h"

namespace {
// citp-mediaserver on the loopback with at most this many descriptors.
class FrugalProgram : public Child
{
public:
    explicit FrugalProgram(int descriptors, const QStringList& arguments = {})
        : Child(
              "prlimit",
              QStringList{QString("--nofile=%1").arg(descriptors), MEDIASERVER_PROGRAM, "--adapter", "lo"} + arguments)
    {
    }
};

// Changes the soft limit of a program that runs.
void limitDescriptors(pid_t process, rlim_t limit)
{
    rlimit limits{};
    ASSERT_EQ(prlimit(process, RLIMIT_NOFILE, nullptr, &limits), 0);
    limits.rlim_cur = limit;
    ASSERT_EQ(prlimit(process, RLIMIT_NOFILE, &limits, nullptr), 0);
}

// The processor time that a program has taken.
double processorSeconds(pid_t process)
{
    QFile file(QString("/proc/%1/stat").arg(process));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    const QList<QByteArray> fields = file.readAll().split(' ');
    return (fields.value(13).toDouble() + fields.value(14).toDouble()) / double(sysconf(_SC_CLK_TCK));
}
} // namespace

TEST(MediaserverResource, RaisesTheSoftLimitOfDescriptors)
{
    Child program("prlimit", {"--nofile=30:200", MEDIASERVER_PROGRAM, "--adapter", "lo", "--count", "20"});
    program.waitForLine("Server 20  listens on");
    rlimit limits{};
    ASSERT_EQ(prlimit(program.id(), RLIMIT_NOFILE, nullptr, &limits), 0);
    EXPECT_EQ(limits.rlim_cur, 200U);
}

TEST(MediaserverResource, TooFewDescriptorsForTheServersAreAFailureOfOneLine)
{
    FrugalProgram two(27, {"--count", "2"});
    const Outcome many = outcomeOf(two);
    EXPECT_EQ(many.status, 1);
    EXPECT_EQ(many.output.toStdString(), "");
    EXPECT_EQ(many.errors.toStdString(),
              "citp-mediaserver: --count 2 needs 28 descriptors, but the limit is 27: raise it "
              "(ulimit -n)\n");
    // Fewer than Qt needs to start.
    FrugalProgram one(5);
    const Outcome few = outcomeOf(one);
    EXPECT_EQ(few.status, 1);
    EXPECT_EQ(few.errors.count('\n'), 1) << few.errors.toStdString();
    EXPECT_TRUE(few.errors.contains("the limit is 5")) << few.errors.toStdString();
}

TEST(MediaserverResource, TurnsConnectionsAwayBeforeDescriptorsRunOutAndSaysItOnce)
{
    FrugalProgram program(40);
    program.waitForLine("listens on");
    std::vector<std::unique_ptr<Console>> consoles;
    for (int i = 0; i < 50; ++i)
        consoles.push_back(std::make_unique<Console>("127.0.0.2", quint16(4811)));
    program.waitForLine("too few descriptors are left");
    for (int i = 40; i < 50; ++i)
        EXPECT_TRUE(consoles[std::size_t(i)]->waitForEnd()) << i;
    consoles.front()->send(hex(Greeting));
    EXPECT_EQ(consoles.front()->nextMessage().mid(22, 4).toStdString(), "SInf");
    consoles.clear();
    program.waitForLine("has disconnected");
    Console late("127.0.0.2", 4811);
    late.send(hex(Greeting));
    EXPECT_EQ(late.nextMessage().mid(22, 4).toStdString(), "SInf");
    EXPECT_EQ(program.output().count("turns connections away"), 1);
    program.signal(SIGTERM);
    EXPECT_EQ(program.waitForEnd(), 0);
    EXPECT_EQ(program.errors().toStdString(), "");
}

TEST(MediaserverResource, AConnectionThatCannotBeAcceptedWaitsForADescriptor)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer itself needs descriptors";
#endif
    GroupListener group;
    Program program({"--adapter", "lo", "--interval", "100"});
    program.waitForLine("listens on");
    // Connections take the lowest free numbers. Without gaps, the next one is the limit.
    std::vector<std::unique_ptr<Console>> greeted;
    rlim_t free = 0;
    for (rlim_t highest = 1; free < highest && greeted.size() < 20;) {
        greeted.push_back(std::make_unique<Console>("127.0.0.2", quint16(4811)));
        greeted.back()->send(hex(Greeting));
        EXPECT_EQ(greeted.back()->nextMessage().mid(22, 4).toStdString(), "SInf");
        free = 0;
        for (rlim_t number = 0; number < 100; ++number) {
            if (!QFileInfo(QString("/proc/%1/fd/%2").arg(program.id()).arg(number)).isSymLink())
                continue;
            free += free == number ? 1 : 0;
            highest = number;
        }
    }
    limitDescriptors(program.id(), free);
    Console first("127.0.0.2", 4811);
    Console second("127.0.0.2", 4811);
    program.waitForLine("cannot accept connections: ");
    // Until it has tried again, and without trying all the time.
    const double before = processorSeconds(program.id());
    group.drain();
    for (int i = 0; i < 25; ++i)
        EXPECT_FALSE(group.next().data.isEmpty());
    EXPECT_LT(processorSeconds(program.id()) - before, 0.5);
    limitDescriptors(program.id(), 100);
    for (Console* console : {&first, &second}) {
        console->send(hex(Greeting));
        EXPECT_EQ(console->nextMessage().mid(22, 4).toStdString(), "SInf");
    }
    EXPECT_EQ(program.output().count("cannot accept"), 1) << program.output().toStdString();
}

TEST(MediaserverResource, OutputThatNobodyReadsHoldsUpNothing)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath("log");
    ASSERT_EQ(mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    const int fifo = open(QFile::encodeName(path).constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(fifo, 0);
    ASSERT_GT(fcntl(fifo, F_SETPIPE_SZ, 4096), 0);
    Child program("sh", {"-c", "exec \"$0\" --adapter lo >\"$1\"", MEDIASERVER_PROGRAM, path});
    char text[8192];
    std::string start;
    // Waits for the first line, from which on nothing is read.
    EXPECT_TRUE(waitFor([&] {
        const ssize_t size = read(fifo, text, sizeof text);
        start.append(text, size > 0 ? std::size_t(size) : 0);
        return start.find("listens on") != std::string::npos;
    }));
    Console console("127.0.0.2", 4811);
    for (int i = 0; i < 200; ++i)
        console.send(hex(UnknownMessage));
    console.send(hex(Greeting));
    EXPECT_EQ(console.nextMessage().mid(22, 4).toStdString(), "SInf");
    // Once somebody reads, the next line says what is missing.
    EXPECT_GT(read(fifo, text, sizeof text), 0);
    console.send(hex(UnknownMessage) + hex(Greeting));
    EXPECT_EQ(console.nextMessage().mid(22, 4).toStdString(), "SInf");
    const ssize_t size = read(fifo, text, sizeof text);
    ASSERT_GT(size, 0);
    EXPECT_NE(std::string(text, std::size_t(size)).find(" lines are missing here, because nobody has read them\n"),
              std::string::npos);
    for (int i = 0; i < 200; ++i)
        console.send(hex(UnknownMessage));
    console.send(hex(Greeting));
    EXPECT_EQ(console.nextMessage().mid(22, 4).toStdString(), "SInf");
    program.signal(SIGTERM);
    EXPECT_EQ(program.waitForEnd(), 0);
    close(fifo);
}

TEST(MediaserverResource, ALineOfTheLogIsBounded)
{
    Program program({"--adapter", "lo"});
    program.waitForLine("listens on");
    Console console("127.0.0.2", 4811);
    const QByteArray name(100000, '\x1b');
    QByteArray message = hex("43495450 01 00 0000 00000000 0100 0000 50494E46 504E616D") + name + '\0';
    const auto size = static_cast<quint32>(message.size());
    for (int i = 0; i < 4; ++i)
        message[8 + i] = static_cast<char>(size >> (8 * i));
    console.send(message);
    const QString line = program.waitForLine("PNam: its name is '\\u001b");
    EXPECT_TRUE(line.endsWith("...")) << line.size();
    EXPECT_LT(line.size(), 4096);
}
