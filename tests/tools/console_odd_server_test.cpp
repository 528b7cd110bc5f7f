// citp-console before servers that no sound program would be: that lie, tell only half, send what nobody
// asked for, or never come to an end.
// SPDX-License-Identifier: Apache-2.0
#include <QDir>
#include <QJsonArray>
#include <QTemporaryDir>

#include <atomic>

#include "console_fixture.h"
#include "fake_server.h"
#include "odd_server.h"
#include "wire.h"

namespace {
QByteArray id(unsigned level, unsigned first, unsigned second = 0, unsigned third = 0)
{
    return Wire::u8(level) + Wire::u8(first) + Wire::u8(second) + Wire::u8(third);
}

// The identity in a request for libraries or elements, behind the two headers and the type.
QByteArray idIn(const QByteArray& request)
{
    return request.mid(27, 4);
}

QByteArray library(const QByteArray& id, unsigned subLibraries, unsigned elements, const char* name = "Library")
{
    return id + Wire::u32(1) + Wire::u8(0) + Wire::u8(255) + Wire::ucs2(name) + Wire::u16(subLibraries) +
           Wire::u16(elements);
}

QByteArray elin(const QList<QByteArray>& libraries)
{
    return Wire::msex(2, "ELIn", Wire::u8(1) + Wire::u16(static_cast<unsigned>(libraries.size())) + libraries.join());
}

// One element of the library, number 0.
QByteArray mein(const QByteArray& id)
{
    return Wire::msex(2, "MEIn",
                      id + Wire::u16(1) + Wire::u8(0) + Wire::u32(1) + Wire::u8(0) + Wire::u8(0) + Wire::ucs2("Clip") +
                          Wire::u32(0) + Wire::u32(0) + Wire::u16(2) + Wire::u16(2) + Wire::u32(1) + Wire::u8(25));
}

// That element's picture: one blue pixel, RGB8.
QByteArray ethn(const QByteArray& id)
{
    return Wire::msex(2, "EThn",
                      Wire::u8(1) + id + Wire::u8(0) + QByteArray("RGB8") + Wire::u16(1) + Wire::u16(1) + Wire::u16(3) +
                          QByteArray("\0\0\xff", 3));
}

Outcome run(const QString& command, const OddServer& server, const QStringList& more)
{
    return runConsole(QStringList{command, server.key(), "--adapter", "lo"} + more);
}
} // namespace

TEST(ConsoleBeforeOddServers, GivesUpOnLibrariesWithoutEnd)
{
    const OddServer server([](const QByteArray& message) {
        if (Wire::code(message) != "GELI")
            return QByteArray();
        QByteArray parent = idIn(message);
        const auto level = static_cast<int>(parent.at(0));
        QList<QByteArray> libraries;
        for (unsigned number = 0; number < 256; ++number) {
            QByteArray child = parent;
            child[0] = static_cast<char>(level + 1);
            child[level + 1] = static_cast<char>(number);
            libraries << library(child, 1, 1, "");
        }
        return elin(libraries);
    });
    const Outcome outcome = run("libraries", server, {});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output.toStdString(), "");
    EXPECT_TRUE(outcome.errors.contains("lists more than 65536 libraries")) << outcome.errors.toStdString();
}

TEST(ConsoleBeforeOddServers, LeavesOutLibrariesThatAreNotBelowTheOneAskedFor)
{
    const OddServer server([](const QByteArray& message) {
        if (Wire::code(message) != "GELI")
            return QByteArray();
        if (idIn(message) == id(0, 0))
            return elin({library(id(1, 3), 1, 0), library(id(1, 4), 0, 0)});
        return elin({library(id(2, 9, 1), 0, 0), library(id(1, 5), 0, 0), library(id(2, 3, 7), 0, 0)});
    });
    const Outcome outcome = run("libraries", server, {"--json"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    QStringList listed;
    for (const QJsonObject& object : jsonLines(outcome.output))
        listed << object.value("library").toString();
    EXPECT_EQ(listed.join(' ').toStdString(), "1,3,0,0 2,3,7,0 1,4,0,0");
    EXPECT_TRUE(outcome.errors.contains(" sent an odd list of 1,3,0,0: 2 entries were left out"))
        << outcome.errors.toStdString();
}

TEST(ConsoleBeforeOddServers, SaysThatAPatchGoesOnAndOn)
{
    const OddServer server([](const QByteArray&) { return QByteArray(); }, Wire::ptch(3));
    const Outcome outcome = run("patch", server, {"--timeout", "1"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output.toStdString(), "");
    EXPECT_TRUE(outcome.errors.contains("is still sending its patch after 1 s; --timeout allows more time"))
        << outcome.errors.toStdString();
}

TEST(ConsoleBeforeOddServers, ListsAPatchThatIsLargerThanWhatMayWaitUnread)
{
    constexpr unsigned Fixtures = 6000;
    const OddServer server([](const QByteArray& message) {
        QByteArray patch;
        for (unsigned fixture = 1; Wire::code(message) == "SPtc" && fixture <= Fixtures; ++fixture)
            patch += Wire::ptch(fixture);
        return patch;
    });
    const Outcome outcome = run("patch", server, {});
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.output.contains(": 6000 fixtures\n")) << outcome.output.left(200).toStdString();
    EXPECT_EQ(outcome.errors.toStdString(), "");
}

TEST(ConsoleBeforeOddServers, TimesAnswersBesideOnesThatNobodyAskedFor)
{
    const OddServer server(
        [](const QByteArray& message) {
            const QByteArray code = Wire::code(message);
            return code == "GELI"   ? elin({library(id(1, 1), 0, 1)})
                   : code == "GEIn" ? mein(id(1, 1))
                   : code == "GETh" ? ethn(id(1, 1))
                                    : QByteArray();
        },
        elin({}));
    const Outcome outcome = run("stats", server, {"--seconds", "5", "--json"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    const std::vector<QJsonObject> blocks = jsonLines(outcome.output);
    ASSERT_FALSE(blocks.empty());
    const QJsonArray requests = blocks.back().value("requests").toArray();
    ASSERT_EQ(requests.size(), 3);
    for (const QJsonValue& request : requests) {
        const std::string name = request.toObject().value("request").toString().toStdString();
        EXPECT_GT(request.toObject().value("answered").toInt(), 0) << name;
        EXPECT_EQ(request.toObject().value("unanswered").toInt(), 0) << name;
    }
}

TEST(ConsoleBeforeOddServers, FetchesWhatThereIsBesideALibraryThatTellsNothing)
{
    const OddServer server([](const QByteArray& message) {
        const QByteArray code = Wire::code(message);
        if (code == "GELI")
            return elin({library(id(1, 1), 0, 1), library(id(1, 2), 0, 1)});
        if (code == "GEIn" && idIn(message) == id(1, 2))
            return mein(id(1, 2));
        return code == "GETh" ? ethn(id(1, 2)) : QByteArray();
    });
    const QTemporaryDir target;
    const Outcome outcome = run("thumbnails", server, {"--timeout", "3", "--to", target.path()});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.output.contains("1 of 1 thumbnails written")) << outcome.output.toStdString();
    EXPECT_EQ(outcome.errors.count("did not send the elements of library 1,1,0,0 within 3 s"), 1)
        << outcome.errors.toStdString();
    EXPECT_EQ(QDir(target.path()).entryList(QDir::Files).join(' ').toStdString(),
              "1.2.0.0-000-Clip.png contact-sheet.jpg");
}

TEST(ConsoleBeforeOddServers, ListsWhatThereIsBesideASubLibraryThatTellsNothing)
{
    const OddServer server([](const QByteArray& message) {
        if (Wire::code(message) != "GELI")
            return QByteArray();
        if (idIn(message) == id(0, 0))
            return elin({library(id(1, 1), 0, 0), library(id(1, 2), 1, 0), library(id(1, 3), 1, 0)});
        return idIn(message) == id(1, 3) ? elin({library(id(2, 3, 1), 0, 0)}) : QByteArray();
    });
    const Outcome outcome = run("libraries", server, {"--timeout", "5", "--json"});
    EXPECT_EQ(outcome.status, 1);
    QStringList listed;
    for (const QJsonObject& object : jsonLines(outcome.output))
        listed << object.value("library").toString();
    EXPECT_EQ(listed.join(' ').toStdString(), "1,1,0,0 1,2,0,0 1,3,0,0 2,3,1,0");
    EXPECT_TRUE(outcome.errors.contains("did not send the libraries below 1,2,0,0 within 5 s"))
        << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.endsWith("did not list the sub-libraries of 1 libraries\n"))
        << outcome.errors.toStdString();
}

TEST(ConsoleBeforeOddServers, AsksForNoMoreSubLibrariesAfterTwoThatTellNothing)
{
    std::atomic<int> requests{0};
    const OddServer server([&requests](const QByteArray& message) {
        if (Wire::code(message) != "GELI")
            return QByteArray();
        if (idIn(message) != id(0, 0)) {
            ++requests;
            return QByteArray();
        }
        QList<QByteArray> libraries;
        for (unsigned number = 1; number <= 50; ++number)
            libraries << library(id(1, number), 1, 0);
        return elin(libraries);
    });
    const Outcome outcome = run("libraries", server, {"--timeout", "3", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(jsonLines(outcome.output).size(), 50u);
    EXPECT_EQ(outcome.errors.count("did not send the libraries below"), 5) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.contains("\ncitp-console: server " + server.key() +
                                        "  \"Server\": 45 more lists are odd or missing\n"))
        << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.endsWith("of 50 libraries\n")) << outcome.errors.toStdString();
    // Two of them, twice. The server may count the last one later.
    EXPECT_TRUE(waitFor([&] { return requests >= 2 * 2; }));
    EXPECT_EQ(requests, 2 * 2);
}

TEST(ConsoleBeforeOddServers, FetchesWhatWasListedBeforeLibrariesThatTellNothing)
{
    const OddServer server([](const QByteArray& message) {
        const QByteArray code = Wire::code(message);
        if (code == "GELI")
            return elin(
                {library(id(1, 1), 0, 1), library(id(1, 2), 0, 1), library(id(1, 3), 0, 1), library(id(1, 4), 0, 1)});
        if (code == "GEIn" && idIn(message) == id(1, 1))
            return mein(id(1, 1));
        return code == "GETh" ? ethn(id(1, 1)) : QByteArray();
    });
    const QTemporaryDir target;
    const Outcome outcome = run("thumbnails", server, {"--timeout", "4", "--to", target.path()});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.output.contains("1 of 1 thumbnails written")) << outcome.output.toStdString();
    EXPECT_EQ(outcome.errors.count("did not send the elements of library"), 3) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.endsWith("citp-console: server " + server.key() +
                                        "  \"Server\": 3 libraries did not send their elements\n"))
        << outcome.errors.toStdString();
}

TEST(ConsoleBeforeOddServers, RefusesAPatchThatFillsTheMemory)
{
    QByteArray fixtures;
    for (unsigned fixture = 0; fixture < 140; ++fixture)
        fixtures += Wire::fptc("Ptch", Wire::u16(fixture) + Wire::u8(1) + Wire::u8(0) + Wire::u16(2) + Wire::u16(3) +
                                           QByteArray(1 << 19, 'm') + QByteArray(2, '\0'));
    const OddServer server(
        [&](const QByteArray& message) { return Wire::code(message) == "SPtc" ? fixtures : QByteArray(); });
    const Outcome outcome = run("patch", server, {"--timeout", "30"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output.toStdString(), "");
    EXPECT_TRUE(outcome.errors.endsWith("sends a patch of more than 67 million characters\n"))
        << outcome.errors.toStdString();
}

TEST(ConsoleBeforeOddServers, PrintsNoRowWiderThanTwoCells)
{
    const auto fixture = [](unsigned number, const QByteArray& make, const QByteArray& name) {
        return Wire::fptc("Ptch", Wire::u16(number) + Wire::u8(1) + Wire::u8(0) + Wire::u16(2) + Wire::u16(3) + make +
                                      '\0' + name + '\0');
    };
    QByteArray fixtures = fixture(0, QByteArray(40000, 'm'), QByteArray(40000, 'n'));
    for (unsigned number = 1; number < 2000; ++number)
        fixtures += fixture(number, "Make", "Name");
    const OddServer server(
        [&](const QByteArray& message) { return Wire::code(message) == "SPtc" ? fixtures : QByteArray(); });
    const Outcome outcome = run("patch", server, {});
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    const QStringList lines = outcome.output.split('\n');
    EXPECT_EQ(lines.size(), 2003);
    for (const QString& line : lines)
        ASSERT_LE(line.size(), 40 + 2 * 256) << line.left(100).toStdString();
}

TEST(ConsoleBeforeOddServers, GivesUpWhenLibraryAfterLibraryTellsNothing)
{
    const OddServer server([](const QByteArray& message) {
        return Wire::code(message) == "GELI"
                   ? elin({library(id(1, 1), 0, 1), library(id(1, 2), 0, 1), library(id(1, 3), 0, 1)})
                   : QByteArray();
    });
    const QTemporaryDir target;
    const Outcome outcome = run("thumbnails", server, {"--timeout", "4", "--to", target.path()});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output.toStdString(), "");
    EXPECT_EQ(outcome.errors.count("did not send the elements of library"), 3) << outcome.errors.toStdString();
}

TEST(ConsoleBeforeOddServers, SaysThatAServerIsHeardButOwesItsSInf)
{
    const OddServer server([](const QByteArray&) { return QByteArray(); }, {}, QByteArray());
    const QString heard = server.key() + "  \"Server\" has announced itself for ";
    Console watch({"watch", "--adapter", "lo"});
    const Outcome outcome = run("libraries", server, {"--timeout", "1"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.errors.contains("on adapter lo, 127.0.0.1; " + heard)) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.contains(" s, but has sent no SInf; run 'citp-console doctor'"))
        << outcome.errors.toStdString();
    const QString problem =
        "citp-console: Server \"Server\" (" + server.key() +
        ") accepts the connection, but does not send its information (SInf); 'citp-console doctor " + server.key() +
        "' checks it\n";
    EXPECT_TRUE(waitFor([&] { return watch.errors().contains(problem); })) << watch.errors().toStdString();
    // By now it would have said that nothing is heard.
    EXPECT_FALSE(watch.errors().contains("no server found")) << watch.errors().toStdString();
    watch.interrupt();
    EXPECT_EQ(watch.waitForEnd(), 0);
}

TEST(ConsoleBeforeOddServers, SaysThatTheDescriptorsDoNotSuffice)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer needs descriptors itself";
#endif
    constexpr int Count = 64;
    Child console("sh", {"-c", "ulimit -n 40; exec " CONSOLE_PROGRAM " watch --adapter lo"});
    Child other("sh", {"-c", "ulimit -n 40; exec " CONSOLE_PROGRAM " libraries Balcony --adapter lo"});
    std::vector<std::unique_ptr<FakeServer>> servers;
    for (int i = 0; i < Count; ++i)
        servers.push_back(std::make_unique<FakeServer>());
    const QString problem = "citp-console: too many servers for 40 descriptors; ";
    EXPECT_TRUE(waitFor([&] {
        for (const auto& each : servers)
            each->announce();
        return console.errors().contains(problem);
    })) << console.errors().toStdString();
    console.interrupt();
    EXPECT_EQ(console.waitForEnd(), 0);
    EXPECT_EQ(console.errors().count(problem), 1);
    EXPECT_EQ(other.waitForEnd(), 1);
    EXPECT_TRUE(other.errors().contains(" on adapter lo, 127.0.0.1; ")) << other.errors().toStdString();
}
