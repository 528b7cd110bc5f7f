// citp-console libraries, elements, layers and patch beside a simulated media server.
// SPDX-License-Identifier: Apache-2.0
#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>

#include <memory>
#include <utility>

#include "console_fixture.h"

namespace {
const QString key = "127.0.0.2:4811";

Outcome browse(const QStringList& arguments)
{
    return runConsole(arguments + QStringList{"--adapter", "lo"});
}

// Concurrently, since each run waits some seconds for the server.
std::vector<Outcome> browseAll(std::vector<QStringList> runs)
{
    for (QStringList& arguments : runs)
        arguments += QStringList{"--adapter", "lo"};
    return runConsoles(runs);
}

// The lines without their padding.
QStringList rows(const Outcome& outcome)
{
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.errors.toStdString(), "");
    QStringList lines;
    for (const QString& line : outcome.output.split('\n')) {
        if (!line.isEmpty())
            lines << line.simplified();
    }
    return lines;
}

void expectFailure(const Outcome& outcome, const QString& complaint)
{
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output.toStdString(), "");
    EXPECT_TRUE(outcome.errors.startsWith("citp-console: ")) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.contains(complaint)) << outcome.errors.toStdString();
}
} // namespace

TEST(ConsoleBrowse, ListsLibrariesWithTheirSubLibraries)
{
    const Server server({"--name", "Stage"});
    const Outcome outcome = browse({"libraries", key});
    const QStringList lines = rows(outcome);
    ASSERT_EQ(lines.size(), 7);
    EXPECT_EQ(lines[0].toStdString(), "server 127.0.0.2:4811 \"Stage\": 5 libraries of type 1");
    EXPECT_TRUE(lines[4].startsWith("1,3,0,0 3-3 10 1 ")) << lines[4].toStdString();
    EXPECT_TRUE(lines[5].startsWith("2,3,1,0 1-1 10 1 ")) << lines[5].toStdString();
    EXPECT_TRUE(lines[6].startsWith("3,3,1,1 1-1 10 0 ")) << lines[6].toStdString();
    EXPECT_TRUE(outcome.output.contains("      Twenties\n")) << outcome.output.toStdString();
}

TEST(ConsoleBrowse, KnowsTopLevelLibrariesOnlyAtMsex10)
{
    const Server server({"--msex", "1.0"});
    const std::vector<Outcome> outcomes =
        browseAll({{"libraries", key, "--json"}, {"elements", key, "1,3,0,0"}, {"elements", key, "2,3,1,0"}});
    const std::vector<QJsonObject> libraries = jsonLines(outcomes[0].output);
    ASSERT_EQ(libraries.size(), 3u);
    EXPECT_EQ(libraries[2].value("library").toString().toStdString(), "3");
    EXPECT_EQ(libraries[2].value("name").toString().toStdString(), "Numbered frames");
    EXPECT_EQ(libraries[2].value("elements").toInt(), 10);
    EXPECT_EQ(rows(outcomes[1]).size(), 12);
    expectFailure(outcomes[2], "MSEX 1.0, which has top-level libraries only");
}

TEST(ConsoleBrowse, ListsTheElementsOfEveryKindInEveryVersion)
{
    for (const char* const msex : {"1.0", "1.1", "1.2"}) {
        const Server server({"--msex", msex, "--effects", "1", "--generic", "1"});
        const bool hasGeneric = qstrcmp(msex, "1.0") != 0;
        std::vector<QStringList> runs{{"elements", key, "2"}, {"elements", key, "1", "--type", "2"}};
        if (hasGeneric)
            runs.push_back({"elements", key, "1", "--type", "3"});
        const std::vector<Outcome> outcomes = browseAll(runs);
        const QStringList media = rows(outcomes[0]);
        ASSERT_EQ(media.size(), 6) << msex;
        EXPECT_EQ(media[2].toStdString(), "0 0-0 320x240 250 25 2020-01-01 00:00:00 Colour bars") << msex;
        const QStringList effects = rows(outcomes[1]);
        ASSERT_EQ(effects.size(), 6) << msex;
        EXPECT_EQ(effects[3].toStdString(), "1 1-1 Colour (Hue, Saturation, Brightness)") << msex;
        if (!hasGeneric)
            continue;
        const QStringList generic = rows(outcomes[2]);
        ASSERT_GT(generic.size(), 2) << msex;
        EXPECT_EQ(generic[2].toStdString(), "0 0-0 2020-01-01 00:00:00 Cue 1") << msex;
    }
}

TEST(ConsoleBrowse, ListsElementsAsJson)
{
    const Server server({"--effects", "1"});
    const std::vector<Outcome> outcomes =
        browseAll({{"elements", key, "1,2,0,0", "--json"}, {"elements", key, "1", "--type", "2", "--json"}});
    const std::vector<QJsonObject> media = jsonLines(outcomes[0].output);
    ASSERT_EQ(media.size(), 4u);
    EXPECT_EQ(media[3].value("element").toInt(), 3);
    EXPECT_EQ(media[3].value("name").toString().toStdString(), "Rings");
    EXPECT_EQ(media[3].value("width").toInt(), 320);
    EXPECT_EQ(media[3].value("timestamp").toString().toStdString(), "1577836800");
    const std::vector<QJsonObject> effects = jsonLines(outcomes[1].output);
    ASSERT_EQ(effects.size(), 4u);
    EXPECT_EQ(effects[0].value("parameters").toArray().size(), 2);
}

TEST(ConsoleBrowse, FindsAServerByAUniquePartOfItsName)
{
    const Server servers({"--count", "2", "--name", "Stage"});
    const std::vector<Outcome> outcomes =
        browseAll({{"libraries", "stage 2"}, {"libraries", "tage"}, {"libraries", "Backdrop", "--timeout", "1"}});
    EXPECT_TRUE(rows(outcomes[0]).first().contains("127.0.0.3:4812"));
    expectFailure(outcomes[1], "'tage' matches several servers");
    expectFailure(outcomes[2],
                  "no server 'Backdrop' within 10 s on adapter lo, 127.0.0.1; found: 127.0.0.2:4811  \"Stage 1\"");
}

TEST(ConsoleBrowse, WaitsForOtherServersOnlyIfOthersAreHeard)
{
    const Server servers({"--count", "2", "--name", "Stage"});
    const auto onATerminal = [](const char* name) {
        Child terminal(
            "script", {"-qec", QString("stty cols 120; exec " CONSOLE_PROGRAM " libraries '%1' --adapter lo").arg(name),
                       "/dev/null"});
        terminal.waitForEnd();
        return terminal.output();
    };
    const QString one = onATerminal("age 1");
    EXPECT_TRUE(one.startsWith("waiting for server 'age 1' to come up on lo, 127.0.0.1\r")) << one.toStdString();
    EXPECT_TRUE(one.contains("waiting for server 127.0.0.2:4811  \"Stage 1\"\r")) << one.toStdString();
    EXPECT_FALSE(one.contains("waiting for other servers")) << one.toStdString();
    const QString several = onATerminal("age");
    EXPECT_TRUE(several.contains("waiting for other servers that match 'age'\r")) << several.toStdString();
    EXPECT_TRUE(several.contains("'age' matches several servers")) << several.toStdString();
}

TEST(ConsoleBrowse, PrefersANameThatIsTheWhole)
{
    const Server one({"--name", "Stage"});
    const Server other({"--name", "Stage left", "--address", "127.0.0.9", "--port", "4900"});
    EXPECT_TRUE(rows(browse({"libraries", "Stage"})).first().contains(key));
}

TEST(ConsoleBrowse, SaysThatNoServerIsThere)
{
    expectFailure(browse({"libraries", key, "--timeout", "1"}), "no server was found");
}

TEST(ConsoleBrowse, SaysThatAServerDoesNotAnswer)
{
    const Server server({"--fault", "silence"});
    const std::vector<Outcome> outcomes =
        browseAll({{"libraries", key, "--timeout", "1"}, {"elements", key, "1", "--timeout", "0.5"}});
    expectFailure(outcomes[0], "did not send its libraries within 1 s");
    expectFailure(outcomes[1], "did not send the elements of library 1,1,0,0 within 0.5 s");
}

TEST(ConsoleBrowse, SaysThatALibraryIsUnknown)
{
    const Server server;
    const QTemporaryDir folder;
    const std::vector<Outcome> outcomes =
        browseAll({{"elements", key, "9"}, {"thumbnails", key, "2,3,7,0", "--to", folder.path()}});
    expectFailure(outcomes[0], "has no library 1,9,0,0 of type 1; 'citp-console libraries' lists them");
    expectFailure(outcomes[1], "has no library 2,3,7,0 of type 1; 'citp-console libraries' lists them");
}

TEST(ConsoleBrowse, ShowsLayersAsTheyMove)
{
    for (const char* const msex : {"1.0", "1.1", "1.2"}) {
        const Server server({"--msex", msex, "--layers", "3", "--layer-rate", "20"});
        Console console({"layers", key, "--json", "--adapter", "lo"});
        const std::vector<QJsonObject> first = jsonLines(console.waitForLine("layers"));
        ASSERT_EQ(first.size(), 1u);
        const QJsonArray layers = first[0].value("layers").toArray();
        ASSERT_EQ(layers.size(), 3) << msex;
        EXPECT_EQ(layers[1].toObject().value("layer").toInt(), 1) << msex;
        EXPECT_EQ(layers[1].toObject().value("length").toInt(), 250) << msex;
        EXPECT_FALSE(layers[1].toObject().value("name").toString().isEmpty()) << msex;
        int position = layers[0].toObject().value("position").toInt();
        for (int i = 0; i < 50 && position == layers[0].toObject().value("position").toInt(); ++i)
            position = jsonLines(console.waitForLine("layers"))
                           .at(0)
                           .value("layers")
                           .toArray()[0]
                           .toObject()
                           .value("position")
                           .toInt();
        EXPECT_NE(position, layers[0].toObject().value("position").toInt()) << msex;
        console.interrupt();
        EXPECT_EQ(console.waitForEnd(), 0) << msex;
    }
}

TEST(ConsoleBrowse, ShowsLayersInATable)
{
    const Server server({"--layer-rate", "20"});
    Console console({"layers", key, "--adapter", "lo"});
    console.waitForLine("Grey down");
    console.interrupt();
    const QStringList lines = rows(outcomeOf(console));
    ASSERT_GE(lines.size(), 4);
    EXPECT_EQ(lines[1].toStdString(), "LAYER OUTPUT LIBRARY # POSITION LENGTH FPS FLAGS NAME");
    EXPECT_TRUE(lines[2].startsWith("0 0 1,1,0,0 0 ")) << lines[2].toStdString();
    EXPECT_TRUE(lines[2].endsWith("250 25 0x00000001 Grey across")) << lines[2].toStdString();
}

TEST(ConsoleBrowse, SaysHowManyLayersATerminalCannotShow)
{
    const Server server({"--layers", "20", "--layer-rate", "20"});
    const QString command =
        "stty rows 10 cols 60; exec " CONSOLE_PROGRAM " layers " + key + " --adapter lo --seconds 5";
    Child terminal("script", {"-qec", command, "/dev/null"});
    EXPECT_EQ(terminal.waitForEnd(), 0);
    // A heading, the titles, six of the layers, and this.
    EXPECT_TRUE(terminal.output().contains("(14 more lines: enlarge the window)")) << terminal.output().toStdString();
}

TEST(ConsoleBrowse, LeavesTheLeastUsefulColumnsOutOnANarrowTerminal)
{
    const Server server({"--layers", "2", "--layer-rate", "20"});
    const std::pair<int, const char*> titles[] = {{80, "LAYER OUTPUT LIBRARY # POSITION LENGTH FPS FLAGS NAME"},
                                                  {66, "LAYER OUTPUT LIBRARY # POSITION LENGTH FPS NAME"},
                                                  {40, "LAYER LIBRARY # POSITION NAME"}};
    std::vector<std::unique_ptr<Child>> terminals;
    for (const auto& [columns, expected] : titles) {
        const QString command =
            QString("stty rows 20 cols %1; exec " CONSOLE_PROGRAM " layers %2 --adapter lo --seconds 5")
                .arg(QString::number(columns), key);
        terminals.push_back(std::make_unique<Child>("script", QStringList{"-qec", command, "/dev/null"}));
    }
    for (std::size_t i = 0; i < terminals.size(); ++i) {
        EXPECT_EQ(terminals[i]->waitForEnd(), 0);
        const QString output = terminals[i]->output();
        EXPECT_EQ(output.mid(output.indexOf("LAYER")).section('\r', 0, 0).simplified().toStdString(), titles[i].second);
    }
}

TEST(ConsoleBrowse, SaysThatNoLayerStatusComes)
{
    const Server server;
    expectFailure(browse({"layers", key, "--timeout", "1"}), "did not send its layer status within 1 s");
}

TEST(ConsoleBrowse, ListsThePatchHarmlessly)
{
    const QTemporaryDir folder;
    QFile file(folder.filePath("patch.json"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(R"([{"id": 7, "universe": 1, "channel": 21, "channels": 20, "make": "Acme", "name": "Wash\u001b[2J"},
                   {"id": 2, "universe": 0, "channel": 1, "channels": 16, "make": "Acme", "name": "Spot"}])");
    file.close();
    const Server server({"--patch", file.fileName()});
    const std::vector<Outcome> outcomes = browseAll({{"patch", key}, {"patch", key, "--json"}});
    const QStringList lines = rows(outcomes[0]);
    ASSERT_EQ(lines.size(), 4);
    EXPECT_EQ(lines[2].toStdString(), "2 0 1 16 Acme Spot");
    EXPECT_EQ(lines[3].toStdString(), "7 1 21 20 Acme Wash\\u001b[2J");
    const std::vector<QJsonObject> fixtures = jsonLines(outcomes[1].output);
    ASSERT_EQ(fixtures.size(), 2u);
    EXPECT_EQ(fixtures[1].value("fixture").toInt(), 7);
    EXPECT_EQ(fixtures[1].value("channels").toInt(), 20);
}

TEST(ConsoleBrowse, KeepsFiguresApartFromANameThatLooksLikeTheirPlaces)
{
    const QTemporaryDir folder;
    QFile file(folder.filePath("patch.json"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(R"([{"id": 7, "universe": 1, "channel": 21, "channels": 20, "make": "Acme", "name": "Wash"}])");
    file.close();
    const Server server({"--name", "%1%2%3", "--patch", file.fileName()});
    const std::string start = "server 127.0.0.2:4811 \"%1%2%3\": ";
    const std::vector<Outcome> outcomes = browseAll({{"libraries", key},
                                                     {"elements", key, "2"},
                                                     {"patch", key},
                                                     {"stats", key, "--seconds", "1"},
                                                     {"thumbnails", key, "2", "--to", folder.filePath("new")}});
    EXPECT_EQ(rows(outcomes[0]).value(0).toStdString(), start + "5 libraries of type 1");
    EXPECT_EQ(rows(outcomes[1]).value(0).toStdString(), start + "4 elements in library 1,2,0,0 of type 1");
    EXPECT_EQ(rows(outcomes[2]).value(0).toStdString(), start + "1 fixtures");
    const Outcome& stats = outcomes[3];
    EXPECT_TRUE(stats.output.contains("server 127.0.0.2:4811  \"%1%2%3\"  all of ")) << stats.output.toStdString();
    const Outcome& thumbnails = outcomes[4];
    EXPECT_TRUE(thumbnails.output.startsWith("server 127.0.0.2:4811  \"%1%2%3\": 4 of 4 thumbnails written to "))
        << thumbnails.output.toStdString();
}

TEST(ConsoleBrowse, SaysThatNoFixtureComes)
{
    const Server server;
    expectFailure(browse({"patch", key, "--timeout", "1"}), "did not send any fixture within 1 s");
}
