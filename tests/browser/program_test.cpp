// citp-browser as a program: its options, what it says where it cannot run, and what it shows and remembers.
// SPDX-License-Identifier: Apache-2.0
#include <sys/resource.h>

#include <QSettings>

#include "browser_fixture.h"

namespace {
class BrowserProgram : public ::testing::Test
{
protected:
    /// @param platform as ChildProcess takes it
    std::vector<std::string> environment(const char* platform = "QT_QPA_PLATFORM=offscreen") const
    {
        const std::string home = m_home.path().toStdString();
        // Its settings are its own.
        return {"DISPLAY",      "WAYLAND_DISPLAY",         "WAYLAND_SOCKET", "ARTNET_ADAPTER",
                "HOME=" + home, "XDG_CONFIG_HOME=" + home, platform};
    }
    /// Runs it to its end.
    Outcome run(const QStringList& arguments, const char* platform)
    {
        Child program(BROWSER_PROGRAM, arguments, environment(platform));
        return outcomeOf(program);
    }
    std::string remembered(const QString& key)
    {
        return QSettings(m_home.filePath("citp/citp-browser.conf"), QSettings::IniFormat)
            .value(key)
            .toString()
            .toStdString();
    }

    QTemporaryDir m_home;
};
} // namespace

TEST_F(BrowserProgram, SaysInOneLineWhatIsWrongWithItsOptions)
{
    const std::vector<std::pair<QStringList, QString>> wrong{
        {{"--colour"}, "Unknown option 'colour'"},           {{"stage"}, "'stage' is not expected here"},
        {{"--adapter", "nosuch0"}, "--adapter: 'nosuch0'"},  {{"--adapter", ""}, "--adapter: ''"},
        {{"--server", "stage"}, "--server: 'stage'"},        {{"--server", "2.0.0.10"}, "--server: '2.0.0.10'"},
        {{"--server", "999.1.1.1:4811"}, "--server: '999."}, {{"--server", "2.0.0.10:99999"}, "--server: '2.0."},
        {{"--server", "2.0.0.10:0"}, "--server: '2.0."},     {{"--server", "2.0.0.10:04811"}, "--server: '2.0."},
        {{"--server", "002.0.0.10:4811"}, "--server: '002"}, {{"--group", "none"}, "--group: 'none' is not a group"},
        {{"--server-at", "stage"}, "--server-at: 'stage'"},  {{"--server-at", "2.0.0.10:0"}, "--server-at: '2.0."}};
    for (const auto& [arguments, expected] : wrong) {
        // If it accepted an option, it would end for want of a platform.
        const Outcome outcome = run(arguments, "QT_QPA_PLATFORM=nosuchplatform");
        EXPECT_EQ(outcome.status, 2) << arguments.join(' ').toStdString();
        EXPECT_TRUE(outcome.errors.startsWith("citp-browser: " + expected)) << outcome.errors.toStdString();
        EXPECT_EQ(outcome.errors.count('\n'), 1) << outcome.errors.toStdString();
    }
}

TEST_F(BrowserProgram, RaisesTheSoftLimitOfDescriptors)
{
    Child program("prlimit", {"--nofile=100:400", BROWSER_PROGRAM, "--adapter", "lo"}, environment());
    EXPECT_TRUE(waitFor([&] {
        rlimit limits{};
        return prlimit(program.id(), RLIMIT_NOFILE, nullptr, &limits) == 0 && limits.rlim_cur == 400;
    }));
}

TEST_F(BrowserProgram, FailsWhereThereIsNoDisplay)
{
    const Outcome outcome = run({}, "QT_QPA_PLATFORM");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.errors.startsWith("citp-browser: there is no display")) << outcome.errors.toStdString();
    EXPECT_EQ(outcome.errors.count('\n'), 1) << outcome.errors.toStdString();
}

TEST_F(BrowserProgram, ShowsTheServerThatItIsToldAndRemembersTheAdapter)
{
    MediaServer first;
    MediaServer second({"--address", "127.0.0.3", "--port", "4812"});
    const Child browser(BROWSER_PROGRAM, {"--adapter", "lo", "--server", "127.0.0.3:4812"}, environment());
    // The media of the server on show are asked for.
    EXPECT_EQ(second.count("GELI", 1), 1);
    EXPECT_EQ(first.count("GELI"), 0);
    EXPECT_TRUE(waitFor([this] { return remembered("adapter") == "lo"; })) << remembered("adapter");
}

TEST_F(BrowserProgram, TakesGroupAndServersFromTheCommandLine)
{
    MediaServer named({"--group", "none"});
    MediaServer young({"--address", "127.0.0.3", "--port", "4812", "--group", "new"});
    MediaServer old({"--address", "127.0.0.4", "--port", "4813"});
    const Child browser(
        BROWSER_PROGRAM,
        {"--adapter", "lo", "--group", "old", "--server-at", "127.0.0.2:4811", "--server", "127.0.0.2:4811"},
        environment());
    EXPECT_EQ(named.count("GELI", 1), 1);
    EXPECT_EQ(old.count("connected", 1), 1);
    EXPECT_EQ(young.count("connected"), 0);
}

TEST_F(BrowserProgram, ListensOnTheSavedGroupUnlessItIsToldAnother)
{
    QSettings(m_home.filePath("citp/citp-browser.conf"), QSettings::IniFormat).setValue("groups", 1);
    MediaServer young({"--group", "new"});
    MediaServer old({"--address", "127.0.0.3", "--port", "4812"});
    {
        const Child browser(BROWSER_PROGRAM, {"--adapter", "lo"}, environment());
        EXPECT_EQ(old.count("connected", 1), 1);
        EXPECT_EQ(young.count("connected"), 0);
    }
    const Child browser(BROWSER_PROGRAM, {"--adapter", "lo", "--group", "new"}, environment());
    EXPECT_EQ(young.count("connected", 1), 1);
    EXPECT_EQ(remembered("groups"), "1");
}
