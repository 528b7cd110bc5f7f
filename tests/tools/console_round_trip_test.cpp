// A simulated server, recorded by citp-console capture --walk, and replayed from that: the replay says the same.
// SPDX-License-Identifier: Apache-2.0
#include <QDir>
#include <QFile>
#include <QMap>
#include <QSet>

#include "capture/capture_file.h"
#include "capture/decoder.h"
#include "capture_writer.h"
#include "console_fixture.h"
#include "network.h"

namespace {
const QString RecordedKey = "127.0.0.2:4811";

QStringList walkTo(const QString& file, const QString& server = RecordedKey)
{
    return {"capture", "--adapter", "lo", "--server", server, "--walk", "--write", file};
}

void expectWalked(const Outcome& outcome)
{
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.output.contains(", 0 dropped")) << outcome.output.toStdString();
}

// What was said in a file, each message once.
QMap<Tools::Event::Direction, QSet<QByteArray>> saidIn(const QString& file)
{
    QMap<Tools::Event::Direction, QSet<QByteArray>> said;
    const auto never = [] { return false; };
    Tools::Classifier classifier;
    Tools::readCapture(
        file, [&](const Tools::Packet& packet) { classifier.learn(packet); }, never);
    Tools::Decoder decoder(classifier, [&](const Tools::Event& event) {
        EXPECT_EQ(event.server.toStdString(), RecordedKey.toStdString());
        if (event.kind == Tools::StreamItem::Kind::Message)
            said[event.direction] << event.message;
        EXPECT_TRUE(event.kind == Tools::StreamItem::Kind::Message || event.kind == Tools::StreamItem::Kind::Note)
            << event.text.toStdString();
    });
    Tools::readCapture(
        file, [&](const Tools::Packet& packet) { decoder.add(packet); }, never);
    decoder.finish();
    return said;
}

void expectSame(const QSet<QByteArray>& recorded, const QSet<QByteArray>& replayed)
{
    EXPECT_FALSE(recorded.isEmpty());
    const auto text = [](const QByteArray& message) { return message.left(60).toHex(' ').toStdString(); };
    for (const QByteArray& message : recorded) {
        if (!replayed.contains(message))
            ADD_FAILURE() << "not replayed: " << text(message);
    }
    for (const QByteArray& message : replayed) {
        if (!recorded.contains(message))
            ADD_FAILURE() << "not recorded: " << text(message);
    }
}

// The files in a folder with their contents.
QMap<QString, QByteArray> filesIn(const QString& folder)
{
    QMap<QString, QByteArray> files;
    const QStringList names = QDir(folder).entryList(QDir::Files);
    for (const QString& name : names) {
        QFile file(QDir(folder).filePath(name));
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        files.insert(name, file.readAll());
    }
    return files;
}

enum class Pictures { AreCompared, AreRandom };

void expectRoundTrip(const QStringList& serverArguments, Pictures pictures = Pictures::AreCompared)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace";
    const cap::Files files;
    const auto thumbnailsTo = [&](const QString& name) {
        return QStringList{"thumbnails", RecordedKey, "--adapter", "lo", "--to", files.path(name)};
    };
    {
        const Server server(QStringList{"--name", "Stage", "--effects", "1", "--layer-rate", "5"} + serverArguments);
        expectWalked(runConsole(walkTo(files.path("original.pcap"))));
        // Not recorded: the walk has asked for everything.
        if (pictures == Pictures::AreCompared) {
            EXPECT_EQ(runConsole(thumbnailsTo("original")).status, 0);
        }
    }
    {
        // All recorded layer states come while the replay is recorded, because it is faster.
        const Server replay({"--replay", files.path("original.pcap"), "--speed", "20"});
        std::vector<QStringList> runs{walkTo(files.path("copy.pcap"))};
        if (pictures == Pictures::AreCompared)
            runs.push_back(thumbnailsTo("copy"));
        const std::vector<Outcome> outcomes = runConsoles(runs);
        expectWalked(outcomes.front());
        EXPECT_EQ(outcomes.back().status, 0) << outcomes.back().errors.toStdString();
    }
    const auto original = saidIn(files.path("original.pcap"));
    const auto copy = saidIn(files.path("copy.pcap"));
    using Direction = Tools::Event::Direction;
    for (const Direction direction : {Direction::Discovery, Direction::ToServer, Direction::FromServer})
        expectSame(original.value(direction), copy.value(direction));
    if (pictures == Pictures::AreCompared) {
        EXPECT_GT(filesIn(files.path("original")).size(), 20);
        EXPECT_TRUE(filesIn(files.path("original")) == filesIn(files.path("copy")));
    }
}
} // namespace

TEST(RoundTrip, IsTheSameInMsex10)
{
    expectRoundTrip({"--msex", "1.0"});
}

TEST(RoundTrip, IsTheSameInMsex11)
{
    expectRoundTrip({"--msex", "1.1"});
}

TEST(RoundTrip, IsTheSameInMsex12)
{
    expectRoundTrip({"--generic", "1"});
}

TEST(RoundTrip, IsTheSameOfAServerThatCollectsItsAnswers)
{
    expectRoundTrip({"--msex", "1.1", "--fault", "merge,delay", "--fault-delay", "5", "--fault-rate", "30"});
}

// Faults after which a console does not ask again: how often it would, depends on the machine.
TEST(RoundTrip, IsTheSameOfADamagedServerInMsex10)
{
    expectRoundTrip({"--msex", "1.0", "--fault", "spoil,version", "--fault-rate", "15"}, Pictures::AreRandom);
}

TEST(RoundTrip, IsTheSameOfADamagedServerInMsex11)
{
    expectRoundTrip({"--msex", "1.1", "--fault", "spoil,version", "--fault-rate", "15"}, Pictures::AreRandom);
}

TEST(RoundTrip, IsTheSameOfADamagedServerInMsex12)
{
    expectRoundTrip({"--fault", "spoil,version", "--fault-rate", "15"}, Pictures::AreRandom);
}

TEST(Walk, LeavesPicturesOutIfItIsToldTo)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace";
    const cap::Files files;
    const Server server({"--name", "Stage"});
    // Not the one that is asked.
    const Server other({"--name", "Stage 10", "--address", "127.0.0.3", "--port", "4812"});
    const Outcome outcome = runConsole(walkTo(files.path("show.pcap"), "Stage") + QStringList{"--no-pictures"});
    expectWalked(outcome);
    EXPECT_TRUE(
        outcome.output.contains("\nserver 127.0.0.2:4811  \"Stage\": 5 libraries, 40 elements, 0 layer states\n"))
        << outcome.output.toStdString();
    for (const QByteArray& message : saidIn(files.path("show.pcap")).value(Tools::Event::Direction::ToServer))
        EXPECT_NE(message.mid(22, 4).toStdString(), "GETh");
}

TEST(Walk, CanBeStrippedOfItsPicturesAndIsReplayedThen)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace";
    const cap::Files files;
    const QString whole = files.path("whole.pcap");
    const QString stripped = files.path("stripped.pcap");
    const QStringList elements{"elements", RecordedKey, "1,1,0,0", "--adapter", "lo", "--json"};
    Outcome listed;
    {
        const Server server({"--name", "Stage"});
        expectWalked(runConsole(walkTo(whole)));
        listed = runConsole(elements);
    }
    const Outcome outcome = runConsole({"decode", whole, "--no-pictures", "--write", stripped});
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    int pictures = 0; // more than there are, if a request had to be repeated
    for (const QString& line : runConsole({"decode", whole, "--message", "EThn,ELTh"}).output.split('\n'))
        pictures += line.contains("  EThn  ") || line.contains("  ELTh  ") ? 1 : 0;
    EXPECT_GE(pictures, 45);
    EXPECT_TRUE(
        outcome.output.endsWith(QString(" messages written to %1, %2 pictures left out\n").arg(stripped).arg(pictures)))
        << outcome.output.toStdString();
    EXPECT_LT(QFile(stripped).size(), QFile(whole).size() / 4);
    // Of a picture, all is kept but the bytes behind the field with their number, and the two numbers of bytes.
    const auto withoutPictures = [](const QSet<QByteArray>& messages) {
        QSet<QByteArray> kept;
        for (const QByteArray& message : messages) {
            const QByteArray code = message.mid(22, 4);
            const int describedBytes = code == "EThn" ? 40 : 39;
            kept << (code == "EThn" || code == "ELTh" ? message.left(8) + message.mid(12, describedBytes - 12)
                                                      : message);
        }
        return kept;
    };
    const auto original = saidIn(whole);
    const auto copy = saidIn(stripped);
    using Direction = Tools::Event::Direction;
    for (const Direction direction : {Direction::Discovery, Direction::ToServer, Direction::FromServer})
        expectSame(withoutPictures(original.value(direction)), withoutPictures(copy.value(direction)));
    for (const QByteArray& message : copy.value(Direction::FromServer)) {
        const QByteArray code = message.mid(22, 4);
        if (code == "EThn" || code == "ELTh") {
            EXPECT_EQ(message.size(), code == "EThn" ? 42 : 41);
            EXPECT_TRUE(message.endsWith(QByteArray(2, '\0')));
        }
    }
    const Server replay({"--replay", stripped});
    const Outcome again = runConsole(elements);
    EXPECT_EQ(again.status, 0) << again.errors.toStdString();
    EXPECT_FALSE(listed.output.isEmpty());
    EXPECT_EQ(again.output.toStdString(), listed.output.toStdString());
}

TEST(Walk, EndsWithTheRecording)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace";
    const cap::Files files;
    const Server server({"--name", "Stage"});
    const Outcome outcome = runConsole(walkTo(files.path("show.pcap")) + QStringList{"--count", "20"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.output.contains("\n20 packets written to ")) << outcome.output.toStdString();
    EXPECT_TRUE(outcome.errors.endsWith("citp-console: the recording ended before everything was asked for\n"))
        << outcome.errors.toStdString();
    Child full("sh", {"-c", "trap '' XFSZ; ulimit -f 8; exec " CONSOLE_PROGRAM " " +
                                walkTo(files.path("limited.pcap")).join(' ')});
    EXPECT_EQ(full.waitForEnd(), 1);
    EXPECT_TRUE(full.errors().endsWith("cannot be written: is the disk full?\n")) << full.errors().toStdString();
    EXPECT_FALSE(full.output().contains(" pictures, ")) << full.output().toStdString();
}

TEST(Walk, DoesNotWaitForEachPictureOfAServerThatHasNone)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace";
    const cap::Files files;
    const Server server({"--name", "Stage", "--fault", "silence", "--fault-on", "GETh"});
    const Outcome outcome = runConsole(walkTo(files.path("show.pcap")) + QStringList{"--timeout", "3"});
    expectWalked(outcome);
    EXPECT_TRUE(outcome.errors.contains(": 40 pictures were not received\n")) << outcome.errors.toStdString();
    // Two elements, each asked for twice.
    EXPECT_LE(server.output().count("fault: silence"), 4) << server.output().toStdString();
}

TEST(Walk, KeepsWhatItHasWhenItIsInterrupted)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace";
    const cap::Files files;
    const QString file = files.path("show.pcap");
    const Server server({"--name", "Stage", "--fault", "silence", "--fault-on", "GETh"});
    Console console(walkTo(file));
    console.waitForLine("asking server ");
    console.interrupt();
    EXPECT_EQ(console.waitForEnd(), 1);
    EXPECT_TRUE(console.errors().endsWith("citp-console: interrupted before everything was asked for\n"))
        << console.errors().toStdString();
    EXPECT_FALSE(saidIn(file).value(Tools::Event::Direction::FromServer).isEmpty());
    // Its reader has gone.
    Child pipeline(
        "sh", {"-c", CONSOLE_PROGRAM " " + walkTo(files.path("piped.pcap")).join(' ') + " --no-pictures | head -1"});
    EXPECT_EQ(pipeline.waitForEnd(), 0);
    EXPECT_FALSE(saidIn(files.path("piped.pcap")).value(Tools::Event::Direction::FromServer).isEmpty());
}

TEST(Walk, KeepsWhatItHasWhenTheServerGoes)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace";
    const cap::Files files;
    const QString file = files.path("show.pcap");
    auto server = std::make_unique<Server>(QStringList{"--name", "Stage", "--fault", "delay", "--fault-delay", "500"});
    Console console(walkTo(file));
    console.waitForLine("asking server ");
    server.reset();
    EXPECT_EQ(console.waitForEnd(), 1);
    EXPECT_TRUE(console.errors().endsWith("citp-console: server 127.0.0.2:4811  \"Stage\" went down\n"))
        << console.errors().toStdString();
    EXPECT_TRUE(console.output().contains(" packets written to ")) << console.output().toStdString();
    EXPECT_FALSE(saidIn(file).value(Tools::Event::Direction::FromServer).isEmpty());
}
