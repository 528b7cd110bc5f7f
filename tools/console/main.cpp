// The program citp-console: reads the command line, configures the log and the adapter, runs the command, and prints
// why it failed.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/os_log.h>

#include <QGuiApplication>
#include <csignal>
#include <memory>

#include "adapters.h"
#include "commands.h"
#include "descriptors.h"
#include "log_lines.h"
#include "printing.h"
#include "shutdown.h"

using namespace Console;

namespace {
// The reason is the last line on standard error.
int fail(const QString& reason, int status)
{
    endLog();
    warn(reason);
    return status;
}

// By default, the library's log lines that repeat the program's own output are suppressed.
QString configureLog(const QString& masks)
{
    if (qEnvironmentVariableIsEmpty("OS_LOG_MASKS"))
        Os::Log::SetMask("CITP.*", Os::Log::Warning | Os::Log::Failure | Os::Log::Critical);
    const std::string problem = masks.isEmpty() ? std::string() : Os::Log::SetMasks(masks.toStdString());
    if (problem.empty())
        return {};
    return QString("--log: %1; give entries such as CITP.*=31 or CITP.Stack.Traffic=1 with commas between them")
        .arg(escapeControls(QString::fromStdString(problem)));
}

int run(const CommandLine& line)
{
    QString problem = configureLog(line.options.log);
    if (problem.isEmpty() && !line.options.adapter.isEmpty())
        problem = chooseAdapter(line.options.adapter);
    if (!problem.isEmpty())
        return fail(problem, ExitUsageError);
    const int status = line.run(line.options);
    endLog();
    return status;
}

// Qt can draw text only in a QGuiApplication. The "offscreen" platform needs no display.
std::unique_ptr<QCoreApplication> makeApplication(int& argc, char** argv, bool needsGui)
{
    if (!needsGui)
        return std::make_unique<QCoreApplication>(argc, argv);
    qputenv("QT_QPA_PLATFORM", "offscreen");
    return std::make_unique<QGuiApplication>(argc, argv);
}

CommandLine parse(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    return readCommandLine(QCoreApplication::arguments());
}

int execute(int& argc, char** argv, std::unique_ptr<QCoreApplication>& application)
{
    const CommandLine line = parse(argc, argv);
    try {
        switch (line.action) {
            case CommandLine::Action::UsageError:
                return fail(line.text + "; see --help", ExitUsageError);
            case CommandLine::Action::Help:
            case CommandLine::Action::Version:
                print(line.text);
                return 0;
            case CommandLine::Action::Run:
                break;
        }
        application = makeApplication(argc, argv, line.needsGui);
        return run(line);
    } catch (const Failure& failure) {
        return fail(failure.text, ExitFailure);
    } catch (const Interrupted&) {
        return fail("interrupted", ExitFailure);
    } catch (const OutputFailure& failure) {
        // As other programs in a pipe do.
        if (failure.isClosed) {
            std::signal(SIGPIPE, SIG_DFL);
            std::raise(SIGPIPE);
        }
        // Truncated output must not be mistaken for complete output.
        return fail("not all output could be written; is the disk full?", ExitFailure);
    }
}
} // namespace

int main(int argc, char** argv)
{
    Tools::prepareDescriptors();
    watchSignals();
    // print() reports a pipe that was closed.
    std::signal(SIGPIPE, SIG_IGN);
    // Before Qt starts, which warns of what the environment lacks, such as a runtime directory or a known locale.
    installLogHandler();
    std::unique_ptr<QCoreApplication> application;
    const int status = execute(argc, argv, application);
    setExitStatus(status);
    return status;
}
