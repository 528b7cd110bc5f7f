// The command "test" of citp-console: that a healthy server passes every test, and which fault fails which test.
// SPDX-License-Identifier: Apache-2.0
#include <QDir>
#include <QFile>
#include <QImage>
#include <QJsonArray>
#include <QMap>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QUdpSocket>

#include <memory>

#include "console_fixture.h"
#include "odd_server.h"
#include "wire.h"

namespace {
// They mostly wait.
constexpr int Concurrent = 48;
constexpr int OperatorsTest = 821;

// A test, the simulator's faults that it must find, and what it then says. Where answers are waited for in vain, the
// server offers one MSEX version alone, because it takes time.
struct Proof
{
    int test;
    const char* faults;
    const char* verdict = "failed";
};

const std::vector<Proof>& proofs()
{
    static const std::vector<Proof> all{
        {101, "--group none"},
        {102, "--group new"},
        {103, "--interval 60000"},
        {104, "--fault storm"},
        {105, "--fault unterminated --fault-on PLoc"},
        {106, "--fault ploc-type"},
        {107, "--fault nameless --fault-on PLoc"},
        {108, "--fault ploc-state"},
        {109, "--fault ploc-port"},
        {110, "--fault ploc-changing"},
        {111, "--fault refuse"},
        {111, "--fault ploc-changing"},
        {201, "--fault mute"},
        {202, "--fault needs-name"},
        {203, "--fault needs-client"},
        {204, "--fault needs-name"},
        {205, "--fault needs-whole"},
        {206, "--fault needs-whole"},
        {207, "--fault first-only"},
        {208, "--fault once"},
        {209, "--fault early"},
        {210, "--fault late-sinf --fault-delay 1500"},
        {301, "--fault odd-sinf"},
        {302, "--fault lying-sinf"},
        {302, "--fault trailing --fault-on SInf", "warning"},
        {303, "--fault nameless --fault-on SInf"},
        {304, "--fault sinf-versions"},
        {305, "--fault own-version"},
        {306, "--fault sinf-types"},
        {307, "--fault sinf-formats"},
        {308, "--fault sinf-uuid"},
        {309, "--fault sinf-changing"},
        {310, "--fault sinf-layers"},
        {310, "--fault lying-sinf", "not run"},
        {310, "--fault truncate --fault-on LSta", "not run"},
        {310, "--fault trailing --fault-on SInf", "passed"},
        {401, "--fault citp-version"},
        {401, "--fault silence --fault-on GELI --msex 1.1", "not run"},
        {402, "--fault zero-size"},
        {402, "--fault zero-size --fault-on EThn"},
        {403, "--fault part-count"},
        {404, "--fault layer --msex 1.1"},
        {405, "--fault code --msex 1.1"},
        {406, "--fault version"},
        {406, "--fault silence --fault-on GELI --msex 1.1", "not run"},
        {407, "--fault index"},
        {408, "--fault unterminated"},
        {409, "--fault lying-count"},
        {410, "--fault trailing", "warning"},
        {501, "--fault silence --fault-on GELI --msex 1.1"},
        {502, "--fault wrong-type"},
        {503, "--fault twin --fault-on ELIn"},
        {504, "--fault wrong-level"},
        {505, "--fault nameless --fault-on ELIn"},
        {506, "--fault dmx-range"},
        {507, "--fault sub-count"},
        {508, "--fault wrong-level"},
        {509, "--fault sub-count"},
        {510, "--fault ignores-numbers"},
        {511, "--fault first-number --msex 1.1"},
        {512, "--fault unknown-silent --msex 1.1"},
        {513, "--fault invents"},
        {514, "--fault serial-changing"},
        {601, "--fault silence --fault-on GEIn --msex 1.1"},
        {602, "--fault silence --fault-on GEIn --msex 1.1"},
        {603, "--fault silence --fault-on GEIn --msex 1.1"},
        {604, "--fault wrong-kind"},
        {605, "--fault wrong-library"},
        {606, "--fault element-count"},
        {607, "--fault twin --fault-on MEIn"},
        {608, "--fault nameless --fault-on EEIn"},
        {609, "--fault dmx-range --fault-on GLEI"},
        {610, "--fault ignores-numbers"},
        {611, "--fault first-number --msex 1.1"},
        {612, "--fault invents"},
        {613, "--fault unknown-silent --msex 1.1"},
        {614, "--fault blank-media"},
        {615, "--fault milliseconds"},
        {616, "--fault serial-changing --fault-on MEIn"},
        {701, "--fault spoil"},
        {702, "--fault wrong-format"},
        {702, "--fault sinf-png", "not run"},
        {703, "--fault sinf-png", "passed"},
        {703, "--fault silence --fault-on GETh"},
        {704, "--fault padded-rows"},
        {705, "--fault wrong-size"},
        {706, "--fault ignores-size"},
        {707, "--fault ignores-size"},
        {708, "--fault oversize"},
        {709, "--fault distort"},
        {710, "--fault wrong-element"},
        {711, "--fault wrong-library"},
        {712, "--fault wrong-type"},
        {713, "--fault first-number --msex 1.1"},
        {714, "--fault needs-numbers --msex 1.1"},
        {715, "--fault invents"},
        {716, "--fault invents"},
        {721, "--fault silence --fault-on GELT"},
        {722, "--fault ignores-size"},
        {723, "--fault first-number --msex 1.1"},
        {724, "--fault needs-numbers --msex 1.1"},
        {725, "--fault invents"},
        {801, "--fault layer-flood"},
        {802, "--fault version --fault-on LSta"},
        {803, "--fault truncate --fault-on LSta"},
        {804, "--fault layer-count"},
        {804, "--fault lying-sinf", "not run"},
        {804, "--fault trailing --fault-on SInf", "passed"},
        {805, "--fault layer-number"},
        {805, "--fault lying-sinf", "not run"},
        {805, "--fault trailing --fault-on SInf", "passed"},
        {806, "--fault twin --fault-on LSta"},
        {807, "--fault layer-position"},
        {808, "--fault layer-rate"},
        {809, "--fault layer-flags"},
        {810, "--fault layer-library"},
        {811, "--fault layer-element"},
        {812, "--fault layer-name"},
        {901, "--fault single-minded"},
        {902, "--fault single-minded"},
        {903, "--fault single-minded --msex 1.1"},
        {904, "--fault single-minded --msex 1.1"},
        {905, "--fault single-minded --msex 1.1"},
        {911, "--fault needs-whole"},
        {912, "--fault impatient"},
        {913, "--fault one-visit"},
        {914, "--fault one-visit"},
        {915, "--fault one-visit"},
        {916, "--fault one-console"},
        {917, "--fault jilts"},
        {921, "--fault idle-close --fault-delay 500"},
        {922, "--fault idle-close --fault-delay 500"},
        {931, "--fault strict"},
        {932, "--fault strict"},
        {933, "--fault strict"},
        {934, "--fault exact"},
        {934, "--fault once", "passed"},
        {935, "--fault strict"},
        {1001, "--fault needs-numbers --msex 1.1"},
        {1002, "--fault unterminated --fault-on Ptch"},
        {1003, "--fault fixture-channel"},
        {1004, "--fault fixture-count"},
        {1005, "--fault fixture-number"},
        {1006, "--fault nameless --fault-on Ptch"},
        {1007, "--fault ignores-numbers"},
        {1008, "--fault invents"},
    };
    return all;
}

// The servers of one test, each on an address of its own.
class Servers
{
public:
    Servers()
    {
        QFile patch(m_folder.filePath("patch.json"));
        EXPECT_TRUE(patch.open(QIODevice::WriteOnly));
        patch.write(R"([{"id": 7, "universe": 1, "channel": 21, "channels": 20, "make": "Acme", "name": "Wash"},
                        {"id": 8, "universe": 1, "channel": 41, "channels": 20, "make": "Acme", "name": "Wash"}])");
    }

    // @return the key of a server that has everything, with @p arguments besides
    QString start(const QStringList& arguments)
    {
        const QString address = QString("127.0.%1.%2").arg(1 + m_count / 200).arg(1 + m_count % 200);
        ++m_count;
        m_servers.push_back(std::make_unique<Server>(QStringList{"--address", address, "--group", "both", "--effects",
                                                                 "1", "--generic", "1", "--layer-rate", "20", "--patch",
                                                                 m_folder.filePath("patch.json")} +
                                                     arguments));
        return address + ":4811";
    }
    QString path(const QString& name) const { return m_folder.filePath(name); }

private:
    QTemporaryDir m_folder;
    std::vector<std::unique_ptr<Server>> m_servers;
    int m_count = 0;
};

QStringList testOf(const QString& server, const QStringList& arguments)
{
    return QStringList{"test", server, "--adapter", "lo", "--load"} + arguments;
}

// The verdicts that a run has printed, by the number of the test.
QMap<int, QSet<QString>> verdictsIn(const QString& output)
{
    static const QRegularExpression line("^(passed|warning|failed|not run|broken) +(\\d{3,4}) ",
                                         QRegularExpression::MultilineOption);
    QMap<int, QSet<QString>> verdicts;
    auto match = line.globalMatch(output);
    while (match.hasNext()) {
        const QRegularExpressionMatch one = match.next();
        verdicts[one.captured(2).toInt()].insert(one.captured(1));
    }
    return verdicts;
}

// All but the one that needs an operator.
QSet<int> listedTests()
{
    static const QRegularExpression line("^(\\d{3,4})  [a-z]+: ", QRegularExpression::MultilineOption);
    QSet<int> numbers;
    auto match = line.globalMatch(runConsole({"test", "--list"}).output);
    while (match.hasNext())
        numbers.insert(match.next().captured(1).toInt());
    EXPECT_TRUE(numbers.remove(OperatorsTest));
    return numbers;
}
using ProofsByFaults = QMap<QString, QList<Proof>>;

// Runs the tests of each of these settings against a server of its own.
std::vector<Outcome> outcomesWith(const QStringList& settings, const ProofsByFaults& proofsOf, const QString& timeout)
{
    Servers servers;
    std::vector<QStringList> runs;
    for (const QString& faults : settings) {
        QStringList numbers;
        for (const Proof& proof : proofsOf[faults])
            numbers << QString::number(proof.test);
        runs.push_back(testOf(servers.start(faults.split(' ')),
                              {"--only", numbers.join(','), "--timeout", timeout, "--silence", "1"}));
    }
    return runConsoles(runs);
}

bool areProven(const QList<Proof>& some, const Outcome& outcome)
{
    const QMap<int, QSet<QString>> verdicts = verdictsIn(outcome.output);
    bool hasFailure = false;
    for (const Proof& proof : some) {
        if (!verdicts.value(proof.test).contains(proof.verdict))
            return false;
        hasFailure = hasFailure || proof.verdict == QString("failed");
    }
    return outcome.status == (hasFailure ? 1 : 0);
}
} // namespace

TEST(ServerTests, EveryTestHasAFaultThatFailsIt)
{
    ProofsByFaults byFaults;
    QSet<int> proven;
    for (const Proof& proof : proofs()) {
        byFaults[proof.faults] << proof;
        proven.insert(proof.test);
    }
    EXPECT_EQ(proven, listedTests());

    // Those that are not proven on a busy machine get more time.
    QStringList left = byFaults.keys();
    for (const char* const timeout : {"2", "10"}) {
        const QStringList all = left;
        left.clear();
        QString outputs;
        for (int first = 0; first < all.size(); first += Concurrent) {
            const QStringList some = all.mid(first, Concurrent);
            const std::vector<Outcome> outcomes = outcomesWith(some, byFaults, timeout);
            for (int i = 0; i < some.size(); ++i) {
                const Outcome& outcome = outcomes[static_cast<std::size_t>(i)];
                if (!areProven(byFaults[some.at(i)], outcome)) {
                    left << some.at(i);
                    outputs += some.at(i) + '\n' + outcome.output + outcome.errors;
                }
            }
        }
        if (timeout == QString("10")) {
            EXPECT_EQ(left.join('\n').toStdString(), "") << outputs.toStdString();
        }
    }
}

TEST(ServerTests, AHealthyServerPassesEveryTestInEveryVersion)
{
    Servers servers;
    std::vector<QStringList> runs;
    const QStringList versions{"1.0", "1.1", "1.2"};
    for (const QString& version : versions)
        runs.push_back(testOf(servers.start({"--msex", version}), {"--silence", "1", "--timeout", "60"}));
    const std::vector<Outcome> outcomes = runConsoles(runs);
    QSet<int> passed;
    for (const Outcome& outcome : outcomes) {
        EXPECT_EQ(outcome.status, 0) << outcome.output.toStdString();
        EXPECT_EQ(outcome.errors.toStdString(), "");
        const QMap<int, QSet<QString>> verdicts = verdictsIn(outcome.output);
        for (auto test = verdicts.begin(); test != verdicts.end(); ++test) {
            for (const QString& verdict : *test)
                EXPECT_TRUE(verdict == "passed" || verdict == "not run") << outcome.output.toStdString();
            if (test->contains("passed"))
                passed.insert(test.key());
        }
    }
    EXPECT_EQ(passed, listedTests());
}

TEST(ServerTests, TheReportsAreComplete)
{
    Servers servers;
    const QString server = servers.start({"--fault", "nameless", "--fault-on", "SInf"});
    const QString json = servers.path("report.json");
    const QString html = servers.path("report.html");
    const Outcome outcome =
        runConsole(testOf(server, {"--only", "303,501", "--json", json, "--html", html, "--timeout", "60"}));
    EXPECT_EQ(outcome.status, 1) << outcome.errors.toStdString();
    EXPECT_TRUE(
        outcome.output.contains("failed   303      it names its product\n"
                                "                  the product name is empty\n"))
        << outcome.output.toStdString();
    EXPECT_TRUE(outcome.output.contains("server " + server + ": 3 passed, 1 failed\n")) << outcome.output.toStdString();

    QFile lines(json);
    ASSERT_TRUE(lines.open(QIODevice::ReadOnly));
    const std::vector<QJsonObject> records = jsonLines(QString::fromUtf8(lines.readAll()));
    ASSERT_EQ(records.size(), 6U);
    EXPECT_EQ(records.front().value("record").toString().toStdString(), "server");
    EXPECT_EQ(records[1].value("verdict").toString().toStdString(), "failed");
    EXPECT_EQ(records.back().value("failed").toInt(), 1);

    QFile file(html);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QString page = QString::fromUtf8(file.readAll());
    for (const char* const part :
         {"<h2 id=\"test-303-\">303, it names its product</h2>", "the product name is empty",
          "&quot;product&quot;: &quot;&quot;", "0000000000  43 49 54 50", "data:image/jpeg;base64,"})
        EXPECT_TRUE(page.contains(part)) << part;
    EXPECT_FALSE(page.contains("<script"));

    // The healthy server is better, and the other way round.
    const QString better = servers.path("better.json");
    const Outcome second =
        runConsole(testOf(servers.start({}), {"--only", "303", "--compare", json, "--json", better}));
    EXPECT_EQ(second.status, 0) << second.errors.toStdString();
    EXPECT_TRUE(second.output.contains("better: 303, it names its product: passed, was failed\n"))
        << second.output.toStdString();
    EXPECT_EQ(second.errors.toStdString(), "");
    QFile damaged(better);
    ASSERT_TRUE(damaged.open(QIODevice::Append));
    damaged.write("{\"record\": \"te\n");
    damaged.close();
    const Outcome third = runConsole(testOf(server, {"--only", "303", "--compare", better}));
    EXPECT_EQ(third.errors.toStdString(),
              "citp-console: " + better.toStdString() + " is damaged; lines that are left out: 1\n");
    EXPECT_TRUE(third.output.contains("worse: 303, it names its product: failed, was passed\n"))
        << third.output.toStdString();
}

TEST(ServerTests, AChangeMustBeTold)
{
    const struct
    {
        QStringList faults;
        const char* line;
    } runs[] = {{{}, "passed   821"},
                {{"--fault", "code", "--fault-on", "ELUp"}, "failed   821"},
                {{"--fault", "wrong-library", "--fault-on", "ELUp"}, "failed   821"}};
    for (const auto& [faults, line] : runs) {
        QTemporaryDir media;
        ASSERT_TRUE(QDir(media.path()).mkpath("Clips"));
        QImage picture(8, 8, QImage::Format_RGB32);
        picture.fill(Qt::red);
        ASSERT_TRUE(picture.save(media.filePath("Clips/one.png")));
        Servers servers;
        const QString server = servers.start(QStringList{"--media", media.path()} + faults);
        Console console(testOf(server, {"--operator", "--only", "821", "--timeout", "5", "--silence", "60"}));
        console.waitForLine("change a media library");
        ASSERT_TRUE(picture.save(media.filePath("Clips/two.png")));
        EXPECT_NE(console.waitForLine(line).toStdString(), "");
        console.waitForEnd();
    }
}

// Numbers that tests use for what does not exist: the highest ones that are not in the lists.
TEST(ServerTests, WhatDoesNotExistIsLookedUp)
{
    QTemporaryDir media;
    QImage picture(8, 8, QImage::Format_RGB32);
    picture.fill(Qt::red);
    for (int library = 1; library < 250; ++library) {
        const QString folder = media.filePath(QString::number(library));
        ASSERT_TRUE(QDir().mkpath(folder));
        for (int element = 0; element < (library == 1 ? 250 : 1); ++element)
            ASSERT_TRUE(picture.save(folder + QString("/%1.bmp").arg(element)));
    }
    Servers servers;
    const QString server = servers.start({"--media", media.path()});
    const Outcome outcome = runConsole(testOf(server, {"--only", "512,612,613,715,716,725", "--timeout", "60"}));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(outcome.output.endsWith(": 18 passed, 0 failed\n")) << outcome.output.toStdString();
}

TEST(ServerTests, AnotherPeerOnTheSameAddressIsNotTheServer)
{
    Servers servers;
    const QString server = servers.start({});
    const Server other({"--address", server.section(':', 0, 0), "--port", "4899", "--group", "both", "--name", "Other",
                        "--fault", "ploc-type,ploc-state"});
    const Outcome outcome = runConsole(testOf(server, {"--only", "announcement", "--timeout", "60"}));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(outcome.output.endsWith(": 11 passed, 0 failed\n")) << outcome.output.toStdString();
}

// What comes in one segment, versions that are listed more than once, and a greeting that fails once.
TEST(ServerTests, OddGreetingsAreUnderstood)
{
    QByteArray information = Wire::sinf("Odd");
    const QByteArray version = Wire::u8(1) + Wire::u16(0x0102);
    information.replace(information.indexOf(version + Wire::u16(7)), version.size(),
                        Wire::u8(3) + Wire::u16(0x0102) + Wire::u16(0x0102) + Wire::u16(0x0102));
    information = Wire::withSize(information, static_cast<quint32>(information.size()));
    int greetings = 0;
    const OddServer server(
        [&](const QByteArray& message) {
            if (Wire::code(message) == "GELI")
                return Wire::msex(2, "ELIn", Wire::u8(1) + Wire::u16(0));
            if (Wire::code(message) == "CInf")
                return ++greetings == 1 ? QByteArray(20, 'X') : information + Wire::lsta(0);
            return QByteArray();
        },
        {}, QByteArray());
    const Outcome outcome = runConsole(testOf(server.key(), {"--only", "209,501", "--timeout", "60"}));
    EXPECT_TRUE(outcome.output.startsWith("passed   209 ")) << outcome.output.toStdString();
    EXPECT_EQ(outcome.output.count(" 501 1.2  "), 1) << outcome.output.toStdString();
    EXPECT_EQ(outcome.output.count(" 501 "), 1) << outcome.output.toStdString();
}

TEST(ServerTests, TheReportSoFarIsKept)
{
    Servers servers;
    const QString json = servers.path("report.json");
    const auto recordsOf = [&] {
        QFile lines(json);
        EXPECT_TRUE(lines.open(QIODevice::ReadOnly));
        return jsonLines(QString::fromUtf8(lines.readAll()));
    };
    // Ctrl-C during the silence.
    const QString html = servers.path("report.html");
    Console interrupted(
        testOf(servers.start({}), {"--only", "201,921", "--silence", "3600", "--json", json, "--html", html}));
    interrupted.waitForLine("passed   201");
    interrupted.interrupt();
    EXPECT_EQ(interrupted.waitForEnd(), 3);
    EXPECT_TRUE(interrupted.output().endsWith(": 1 passed, 0 failed; interrupted\n"))
        << interrupted.output().toStdString();
    ASSERT_EQ(recordsOf().size(), 3U);
    EXPECT_EQ(recordsOf().back().value("end").toString().toStdString(), "interrupted");
    EXPECT_TRUE(QFile::exists(html));

    // A server that dies in the middle: what is left is not run, and that takes no time.
    const QString dying = servers.start({"--die-after", "1000"});
    const Outcome dead = runConsole(testOf(dying, {"--json", json, "--skip", "announcement"}));
    // A test may have noticed the death itself.
    EXPECT_EQ(dead.status, dead.output.contains("\nfailed ") ? 1 : 3);
    EXPECT_TRUE(dead.output.endsWith("; the server accepts no connection any more\n")) << dead.output.toStdString();
    EXPECT_EQ(dead.errors.toStdString(),
              "citp-console: server " + dying.toStdString() +
                  " accepts no connection any more: the tests that were left were not run\n");
    EXPECT_GT(recordsOf().size(), 100U);

    // Files that cannot be written, at once or, as on a full disk, later.
    const Outcome refused = runConsole(testOf(servers.start({}), {"--only", "201", "--json", "/dev/full"}));
    EXPECT_EQ(refused.status, 3);
    EXPECT_EQ(refused.errors.toStdString(), "citp-console: cannot write /dev/full: it is not a regular file\n");
    QStringList limited{"-c", "trap '' XFSZ; ulimit -f 1; exec \"$@\"", "sh", CONSOLE_PROGRAM};
    limited += testOf(servers.start({}), {"--only", "501", "--json", json});
    Child full("/bin/sh", limited);
    const Outcome late = outcomeOf(full);
    EXPECT_EQ(late.status, 3);
    EXPECT_EQ(late.errors.toStdString(), "citp-console: " + json.toStdString() + " is not complete: File too large\n");
    EXPECT_TRUE(late.output.contains("3 passed")) << late.output.toStdString();
    EXPECT_EQ(recordsOf().front().value("record").toString().toStdString(), "server");
}

TEST(ServerTests, WrongUseIsRefused)
{
    const struct
    {
        QStringList arguments;
        const char* complaint;
    } runs[] = {
        {{"test"}, "'test' requires SERVER"},
        {{"test", "127.0.0.2:4811", "--only", "9999"}, "'9999' is neither a test nor an area"},
        {{"test", "127.0.0.2:4811", "--skip", "libary"}, "'libary' is neither a test nor an area"},
        {{"test", "127.0.0.2:4811", "--only", "headers", "--skip", "headers"}, "--only and --skip leave no test"},
        {{"test", "127.0.0.2:4811", "--json"}, "json"},
        {{"test", "127.0.0.2:4811", "--silence", "0"}, "whole number from 1 to 3600"},
        {{"libraries", "x", "--json", "y"}, "unexpected argument 'y'"}};
    for (const auto& [arguments, complaint] : runs) {
        const Outcome outcome = runConsole(arguments);
        EXPECT_EQ(outcome.status, 2) << complaint;
        EXPECT_TRUE(outcome.errors.contains(complaint)) << outcome.errors.toStdString();
    }
    const Outcome outcome = runConsole({"test", "127.0.0.2:4811", "--compare", "/nowhere"});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_TRUE(outcome.errors.startsWith("citp-console: cannot read /nowhere: ")) << outcome.errors.toStdString();
}

TEST(ServerTests, WhatCannotBeTestedIsNoSuccess)
{
    Servers servers;
    const Outcome mute =
        runConsole(testOf(servers.start({"--fault", "mute"}), {"--only", "pictures", "--timeout", "1"}));
    EXPECT_EQ(mute.status, 3);
    EXPECT_TRUE(mute.output.endsWith("; no test could be run\n")) << mute.output.toStdString();

    // What this machine lacks is not the server's fault: a route, and the port of the announcements.
    const Outcome away = runConsole(testOf("203.0.113.1:4811", {"--only", "201"}));
    EXPECT_EQ(away.status, 3);
    EXPECT_TRUE(away.output.startsWith("broken   201 ")) << away.output.toStdString();
    QUdpSocket socket;
    ASSERT_TRUE(socket.bind(QHostAddress::AnyIPv4, 4809, QAbstractSocket::DontShareAddress));
    const Outcome deaf = runConsole(testOf(servers.start({}), {"--only", "101,102,103"}));
    EXPECT_EQ(deaf.status, 3);
    EXPECT_EQ(deaf.output.count("broken   10"), 3) << deaf.output.toStdString();
}

TEST(ServerTests, TheFilesAreWholeWithoutOutput)
{
    Servers servers;
    const QString server = servers.start({});
    const QString json = servers.path("report.json");
    const QString html = servers.path("report.html");
    const struct
    {
        const char* script;
        const char* errors;
    } runs[] = {
        {"\"$@\" > /dev/full; echo $? >&2", "citp-console: not all output could be written; is the disk full?\n3\n"},
        {"(\"$@\"; echo $? >&2) | head -1 > /dev/null", "141\n"}};
    for (const auto& [script, errors] : runs) {
        QFile::remove(html);
        QStringList arguments{"-c", script, "sh", CONSOLE_PROGRAM};
        arguments += testOf(server, {"--only", "201,921", "--silence", "3600", "--json", json, "--html", html});
        Child shell("/bin/sh", arguments);
        EXPECT_EQ(outcomeOf(shell).errors.toStdString(), errors);
        QFile lines(json);
        ASSERT_TRUE(lines.open(QIODevice::ReadOnly));
        const QJsonObject last = jsonLines(QString::fromUtf8(lines.readAll())).back();
        EXPECT_EQ(last.value("end").toString().toStdString(), "the output could not be written");
        QFile page(html);
        ASSERT_TRUE(page.open(QIODevice::ReadOnly));
        EXPECT_TRUE(page.readAll().contains("; the output could not be written"));
    }
}

TEST(ServerTests, TheReportHasTheRequestsAndTheLastMessages)
{
    Servers servers;
    const QString json = servers.path("report.json");
    const QString server = servers.start({"--fault", "layer-flood,idle-close", "--fault-delay", "1000"});
    runConsole(testOf(server, {"--only", "921", "--silence", "60", "--json", json, "--timeout", "60"}));
    QFile lines(json);
    ASSERT_TRUE(lines.open(QIODevice::ReadOnly));
    const std::vector<QJsonObject> records = jsonLines(QString::fromUtf8(lines.readAll()));
    ASSERT_EQ(records.size(), 3U);
    const QJsonArray messages = records[1].value("messages").toArray();
    EXPECT_EQ(messages.size(), 40);
    QStringList codes;
    for (int i = 0; i < 4; ++i)
        codes << messages.at(i).toObject().value("code").toString();
    EXPECT_EQ(codes.join(' ').toStdString(), "PNam CInf SPtc LSta");
}
