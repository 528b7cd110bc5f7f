// citp-browser as a program: its options, what it says where it cannot run, and what it shows and remembers.
// SPDX-License-Identifier: Apache-2.0
#include <QProcessEnvironment>
#include <QSettings>

#include "browser_fixture.h"

namespace {
class BrowserProgram : public ::testing::Test
{
protected:
    BrowserProgram() : m_environment(QProcessEnvironment::systemEnvironment())
    {
        for (const char* const name : {"DISPLAY", "WAYLAND_DISPLAY", "WAYLAND_SOCKET", "ARTNET_ADAPTER"})
            m_environment.remove(name);
        m_environment.insert("QT_QPA_PLATFORM", "offscreen");
        // Its settings are its own.
        m_environment.insert("HOME", m_home.path());
        m_environment.insert("XDG_CONFIG_HOME", m_home.path());
    }
    ~BrowserProgram() override
    {
        m_process.kill();
        m_process.waitForFinished(Patience);
    }

    void start(const QStringList& arguments)
    {
        m_process.setProcessEnvironment(m_environment);
        m_process.start(BROWSER_PROGRAM, arguments);
        ASSERT_TRUE(m_process.waitForStarted(Patience)) << m_process.errorString().toStdString();
    }
    /// Runs it to its end.
    /// @return its exit status; -1 if it crashed or did not end
    int run(const QStringList& arguments)
    {
        start(arguments);
        const bool isOver = m_process.waitForFinished(Patience);
        m_errors = QString::fromLocal8Bit(m_process.readAllStandardError());
        return isOver && m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    }
    std::string remembered(const QString& key)
    {
        return QSettings(m_home.filePath("citp/citp-browser.conf"), QSettings::IniFormat)
            .value(key)
            .toString()
            .toStdString();
    }

    QTemporaryDir m_home;
    QProcessEnvironment m_environment;
    QProcess m_process;
    QString m_errors; ///< of the last run
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
        {{"--server", "002.0.0.10:4811"}, "--server: '002"}};
    // Where it would be taken it ends all the same.
    m_environment.insert("QT_QPA_PLATFORM", "nosuchplatform");
    for (const auto& [arguments, expected] : wrong) {
        EXPECT_EQ(run(arguments), 2) << arguments.join(' ').toStdString();
        EXPECT_TRUE(m_errors.startsWith("citp-browser: " + expected)) << m_errors.toStdString();
        EXPECT_EQ(m_errors.count('\n'), 1) << m_errors.toStdString();
    }
}

TEST_F(BrowserProgram, FailsWhereThereIsNoDisplay)
{
    m_environment.remove("QT_QPA_PLATFORM");
    EXPECT_EQ(run({}), 1);
    EXPECT_TRUE(m_errors.startsWith("citp-browser: there is no display")) << m_errors.toStdString();
    EXPECT_EQ(m_errors.count('\n'), 1) << m_errors.toStdString();
}

TEST_F(BrowserProgram, ShowsTheServerThatItIsToldAndRemembersTheAdapter)
{
    MediaServer first;
    MediaServer second({"--address", "127.0.0.3", "--port", "4812"});
    start({"--adapter", "lo", "--server", "127.0.0.3:4812"});
    // The media of the server on show are asked for.
    EXPECT_EQ(second.count("GELI", 1), 1);
    EXPECT_EQ(first.count("GELI"), 0);
    EXPECT_EQ(remembered("adapter"), "lo");
}
