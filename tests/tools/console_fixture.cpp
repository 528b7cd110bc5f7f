// Child processes for the tests of citp-console, and main(), which gives Qt its application object.
// SPDX-License-Identifier: Apache-2.0
#include "console_fixture.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonDocument>

#include <csignal>

Child::Child(const QString& program, const QStringList& arguments)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("LSAN_OPTIONS", "print_suppressions=0:suppressions=" LEAKS_FILE);
    m_process.setProcessEnvironment(environment);
    m_process.start(program, arguments);
    EXPECT_TRUE(m_process.waitForStarted(Patience)) << m_process.errorString().toStdString();
}

Child::~Child()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.kill();
    m_process.waitForFinished(Patience);
}

void Child::read()
{
    m_output += QString::fromUtf8(m_process.readAllStandardOutput());
    m_errors += QString::fromUtf8(m_process.readAllStandardError());
}

QString Child::waitForLine(const QString& part)
{
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        read();
        for (int end = 0; (end = static_cast<int>(m_output.indexOf('\n', m_waitedFor))) >= 0;) {
            const QString line = m_output.mid(m_waitedFor, end - m_waitedFor);
            m_waitedFor = end + 1;
            if (line.contains(part))
                return line;
        }
        if (timer.elapsed() > Patience ||
            (!m_process.waitForReadyRead(100) && m_process.state() == QProcess::NotRunning))
            break;
    }
    ADD_FAILURE() << "no line with: " << part.toStdString() << "\nafter:\n"
                  << m_output.toStdString() << m_errors.toStdString();
    return {};
}

void Child::interrupt()
{
    ::kill(static_cast<pid_t>(m_process.processId()), SIGINT);
}

int Child::waitForEnd(int milliseconds)
{
    if (m_process.state() != QProcess::NotRunning && !m_process.waitForFinished(milliseconds))
        return -1;
    return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
}

QString Child::output()
{
    read();
    return m_output;
}

QString Child::errors()
{
    read();
    return m_errors;
}

Console::Console(const QStringList& arguments) : Child(CONSOLE_PROGRAM, arguments) {}

Server::Server(const QStringList& arguments) : Child(SERVER_PROGRAM, QStringList{"--adapter", "lo"} + arguments)
{
    waitForLine("listens on");
}

Outcome runConsole(const QStringList& arguments)
{
    Console console(arguments);
    const int status = console.waitForEnd();
    return {status, console.output(), console.errors()};
}

std::vector<QJsonObject> jsonLines(const QString& output)
{
    std::vector<QJsonObject> objects;
    const QStringList lines = output.split('\n');
    for (const QString& line : lines) {
        if (line.isEmpty())
            continue;
        const QJsonDocument document = QJsonDocument::fromJson(line.toUtf8());
        EXPECT_TRUE(document.isObject()) << line.toStdString();
        objects.push_back(document.object());
    }
    return objects;
}

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
