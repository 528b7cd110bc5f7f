// The command line of citp-mediaserver: what it explains, what it refuses and with which status.
#include <QRegularExpression>

#include "mediaserver_fixture.h"

namespace {
// Wrong use and failures: nothing on standard output, one line that says what to do, and the status.
void expectRefusal(const QStringList& arguments, const char* hint, int status = 2)
{
    const Outcome outcome = runToEnd(arguments);
    SCOPED_TRACE(arguments.join(' ').toStdString());
    EXPECT_EQ(outcome.status, status);
    EXPECT_EQ(outcome.output.toStdString(), "");
    EXPECT_EQ(outcome.errors.count('\n'), 1) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.startsWith("citp-mediaserver: ")) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.contains(hint)) << outcome.errors.toStdString();
}
} // namespace

TEST(MediaserverUsage, VersionIsTheProjects)
{
    const Outcome outcome = runToEnd({"--version"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output.toStdString(), "citp-mediaserver " CITP_VERSION "\n");
    EXPECT_EQ(outcome.errors.toStdString(), "");
}

TEST(MediaserverUsage, HelpExplainsEveryOption)
{
    const Outcome outcome = runToEnd({"--help"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.errors.toStdString(), "");
    for (const char* const option :
         {"help", "version", "count", "name", "adapter", "address", "port", "interval", "msex", "product",
          "product-version", "layers", "uuid", "die-after", "revive-after", "die-server", "seconds", "quiet"}) {
        const QRegularExpression explained(QString("^  (-\\w, )?--%1( <[^>]+>)?  +\\w").arg(option),
                                           QRegularExpression::MultilineOption);
        EXPECT_TRUE(outcome.output.contains(explained)) << option;
    }
}

TEST(MediaserverUsage, WrongUseIsOneLineAndStatusTwo)
{
    expectRefusal({"--bogus"}, "'bogus'");
    expectRefusal({"stray"}, "'stray'");
    expectRefusal({"--port"}, "--port");
    expectRefusal({"--port", "0"}, "from 1 to 65535");
    expectRefusal({"--port", "70000"}, "from 1 to 65535");
    expectRefusal({"--port", "65535", "--count", "2"}, "lower port");
    expectRefusal({"--count", "0"}, "from 1 to 200");
    expectRefusal({"--count", "two"}, "from 1 to 200");
    expectRefusal({"--interval", "9"}, "from 10 to 3600000");
    expectRefusal({"--address", "::1"}, "IPv4");
    expectRefusal({"--msex", "1.3"}, "1.0, 1.1 or 1.2");
    expectRefusal({"--product-version", "1"}, "MAJOR.MINOR");
    expectRefusal({"--product-version", "1.256"}, "0 to 255");
    expectRefusal({"--layers", "256"}, "from 0 to 255");
    expectRefusal({"--name", ""}, "empty");
    expectRefusal({"--uuid", "no-uuid"}, "36 characters");
    expectRefusal({"--uuid", "6ba7b810-9dad-11d1-80b4-00c04fd430c8", "--count", "2"}, "leave it out");
    expectRefusal({"--revive-after", "5"}, "--die-after");
    expectRefusal({"--die-server", "1"}, "--die-after");
    expectRefusal({"--die-after", "5", "--die-server", "2"}, "from 1 to 1");
    expectRefusal({"--seconds", "0"}, "from 1 to 86400");
}

TEST(MediaserverUsage, ControlCharactersOfAnArgumentStayOnOneLine)
{
    expectRefusal({"stray\n\x1b[2J"}, "\\u001b");
}

TEST(MediaserverUsage, AnAdapterThatIsNotThereIsAFailure)
{
    expectRefusal({"--adapter", "nowhere0"}, "'nowhere0'", 1);
    expectRefusal({"--adapter", "lo", "--address", "198.51.100.7"}, "127.0.0.0/8", 1);
}

TEST(MediaserverUsage, APortThatIsTakenIsAFailure)
{
    Program first({"--adapter", "lo"});
    first.waitForLine("listens on 127.0.0.2:4811");
    expectRefusal({"--adapter", "lo"}, "127.0.0.2:4811", 1);
}

TEST(MediaserverUsage, EndsOnSignalsWithStatusZero)
{
    for (const char* const signal : {"INT", "TERM"}) {
        Program program({"--adapter", "lo"});
        program.waitForLine("listens on");
        EXPECT_EQ(QProcess::execute("kill", {QString("-") + signal, QString::number(program.process().processId())}),
                  0);
        EXPECT_EQ(program.waitForEnd(), 0) << signal;
        program.waitForLine("ends");
    }
}

TEST(MediaserverUsage, EndsAfterItsSecondsAndIsQuietWhenAsked)
{
    const Outcome outcome = runToEnd({"--adapter", "lo", "--seconds", "1", "--quiet"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output.toStdString(), "");
    EXPECT_EQ(outcome.errors.toStdString(), "");
}
