// citp-console stats beside simulated media servers: what is counted and timed, as text and as JSON.
// SPDX-License-Identifier: Apache-2.0
#include <QJsonArray>
#include <QRegularExpression>

#include "console_fixture.h"

namespace {
const QStringList statsOfServer{"stats", "127.0.0.2:4811", "--adapter", "lo"};

// The object in @p list whose @p member is @p value.
QJsonObject find(const QJsonValue& list, const QString& member, const QString& value)
{
    for (const QJsonValue& entry : list.toArray()) {
        if (entry.toObject().value(member).toString() == value)
            return entry.toObject();
    }
    return {};
}
} // namespace

TEST(ConsoleStats, CountsSizesAndTimesAnswers)
{
    const Server server({"--layer-rate", "10", "--layers", "3"});
    const Outcome outcome = runConsole(statsOfServer + QStringList{"--seconds", "5", "--interval", "2", "--json"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    const std::vector<QJsonObject> blocks = jsonLines(outcome.output);
    ASSERT_GE(blocks.size(), 2U);
    EXPECT_FALSE(blocks.front().value("final").toBool());
    const QJsonObject last = blocks.back();
    EXPECT_TRUE(last.value("final").toBool());

    const QJsonObject states = find(last.value("messages"), "message", "LSta");
    EXPECT_GT(states.value("count").toInt(), 0);
    // Three states of one size, told by the header of each message.
    EXPECT_GT(states.value("largest").toInt(), 26 + 1 + 3 * 20);
    EXPECT_GE(states.value("largest").toInt() * states.value("count").toInt(), states.value("bytes").toInt());
    EXPECT_GT(states.value("bytesPerSecond").toDouble(), 0);

    for (const auto& [request, answer] : {std::pair("GELI", "ELIn"), {"GEIn", "MEIn"}, {"GETh", "EThn"}}) {
        const QJsonObject asked = find(last.value("requests"), "request", request);
        EXPECT_GT(asked.value("answered").toInt(), 0) << request;
        EXPECT_LE(asked.value("sent").toInt(), 5) << request << ": a few a second, in turn";
        EXPECT_EQ(asked.value("unanswered").toInt(), 0) << request;
        // The last answer may have come and not been timed when the seconds are over.
        const int received = find(last.value("messages"), "message", answer).value("count").toInt();
        EXPECT_GE(received, asked.value("answered").toInt()) << request;
        EXPECT_LE(received, asked.value("sent").toInt()) << request;
        EXPECT_EQ(asked.value("lossPercent").toDouble(), 0) << request;
        EXPECT_GT(asked.value("min").toDouble(), 0) << request;
        EXPECT_LE(asked.value("min").toDouble(), asked.value("avg").toDouble()) << request;
        EXPECT_LE(asked.value("avg").toDouble(), asked.value("max").toDouble()) << request;
        EXPECT_LE(asked.value("min").toDouble(), asked.value("p50").toDouble()) << request;
        EXPECT_LE(asked.value("p50").toDouble(), asked.value("p95").toDouble()) << request;
        EXPECT_LE(asked.value("p95").toDouble(), asked.value("max").toDouble()) << request;
    }
}

TEST(ConsoleStats, PrintsATableEachIntervalAndASummary)
{
    const Server server({"--name", "Stage"});
    const Outcome outcome = runConsole({"stats", "stage", "--adapter", "lo", "--duration", "5", "--interval", "2"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    EXPECT_GE(outcome.output.count("server 127.0.0.2:4811  \"Stage\"  after "), 1) << outcome.output.toStdString();
    EXPECT_EQ(outcome.output.count("\"Stage\"  all of "), 1) << outcome.output.toStdString();
    static const QRegularExpression messages("\nELIn +\\d+ +\\d+\\.\\d +\\d+\\.\\d +\\d+\\.\\d +\\d+\n");
    static const QRegularExpression requests("\nGELI +\\d+ +\\d+ +0 +0\\.0( +\\d+\\.\\d){5}\n");
    EXPECT_TRUE(messages.match(outcome.output).hasMatch()) << outcome.output.toStdString();
    EXPECT_TRUE(requests.match(outcome.output).hasMatch()) << outcome.output.toStdString();
    EXPECT_FALSE(outcome.output.contains('\x1b'));
}

TEST(ConsoleStats, CountsRequestsThatAreNotAnswered)
{
    const Server server({"--fault", "silence"});
    const Outcome outcome = runConsole(statsOfServer + QStringList{"--seconds", "4", "--timeout", "0.5", "--json"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    const QJsonObject asked = find(jsonLines(outcome.output).back().value("requests"), "request", "GELI");
    EXPECT_GT(asked.value("unanswered").toInt(), 0);
    EXPECT_EQ(asked.value("answered").toInt(), 0);
    EXPECT_EQ(asked.value("lossPercent").toDouble(), 100);
    EXPECT_FALSE(asked.contains("p50"));
}

TEST(ConsoleStats, GivesItsLastFiguresOnCtrlCAndWhenTheServerGoes)
{
    Console console(statsOfServer + QStringList{"--interval", "1"});
    Console other(statsOfServer + QStringList{"--interval", "1"});
    {
        const Server server;
        console.waitForLine("after ");
        other.waitForLine("after ");
        other.interrupt();
        EXPECT_EQ(other.waitForEnd(), 0);
        EXPECT_EQ(other.output().count("all of "), 1) << other.output().toStdString();
    }
    EXPECT_EQ(console.waitForEnd(), 1);
    EXPECT_EQ(console.output().count("all of "), 1) << console.output().toStdString();
    EXPECT_TRUE(console.errors().contains("went down")) << console.errors().toStdString();
}

TEST(ConsoleStats, EndsAsAskedWhileTheServerIsStillSearched)
{
    Console console(statsOfServer + QStringList{"--log", "CITP.*=31"});
    // The library's first words come once it is at work, and so once Ctrl-C is waited for.
    ASSERT_TRUE(waitFor([&] { return !console.errors().isEmpty(); }));
    console.interrupt();
    EXPECT_EQ(console.waitForEnd(), 0);
    EXPECT_FALSE(console.errors().contains("citp-console: ")) << console.errors().toStdString();
}

TEST(ConsoleStats, RefusesWrongUse)
{
    EXPECT_EQ(runConsole({"stats"}).status, 2);
    EXPECT_EQ(runConsole({"stats", "x", "--interval", "0"}).status, 2);
}
