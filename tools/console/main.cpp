// The program citp-console: reads the command line, configures the log and the adapter, and runs the command until it
// returns or a signal arrives.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/os_log.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <QGuiApplication>
#include <QSocketNotifier>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <thread>

#include "adapters.h"
#include "commands.h"
#include "printing.h"
#include "session.h"

using namespace Console;

namespace {
// A signalfd lets the event loop handle SIGINT and SIGTERM like any other event. The signals must be blocked before any
// thread starts, because threads inherit the signal mask.
int openSignalDescriptor()
{
    const sigset_t signals = terminationSignals();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

int reportUsageError(const QString& text)
{
    warn(text);
    return ExitUsageError;
}

// By default, the library's log lines that repeat the program's own output are suppressed.
QString configureLog(const QString& masks)
{
    installLogHandler();
    if (qEnvironmentVariableIsEmpty("OS_LOG_MASKS"))
        Os::Log::SetMask("CITP.*", Os::Log::Warning | Os::Log::Failure | Os::Log::Critical);
    const std::string problem = masks.isEmpty() ? std::string() : Os::Log::SetMasks(masks.toStdString());
    if (problem.empty())
        return {};
    return QString("--log: %1; give entries such as CITP.*=31 or CITP.Stack.Traffic=1 with commas between them")
        .arg(escapeControls(QString::fromStdString(problem)));
}

// Code that blocks outside the event loop, such as a write to a full pipe, does not see the first signal. A second
// signal therefore terminates the process immediately. Signals within one second of the first are ignored, because
// timeout(1), for example, sends each signal twice.
void terminateOnNextSignal(int signalDescriptor)
{
    std::thread([signalDescriptor] {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        signalfd_siginfo ignored{};
        while (read(signalDescriptor, &ignored, sizeof ignored) > 0) {
        }
        const sigset_t signals = terminationSignals();
        pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
        for (;;)
            pause();
    }).detach();
}

void quitOnSignal(QSocketNotifier& notifier)
{
    QObject::connect(&notifier, &QSocketNotifier::activated, &notifier, [&notifier] {
        notifier.setEnabled(false);
        terminateOnNextSignal(static_cast<int>(notifier.socket()));
        interruptSessions();
        QCoreApplication::exit(0);
    });
}

int run(const CommandLine& line)
{
    QString problem = configureLog(line.options.log);
    if (problem.isEmpty() && !line.options.adapter.isEmpty())
        problem = chooseAdapter(line.options.adapter);
    if (!problem.isEmpty())
        return reportUsageError(problem);
    try {
        return line.run(line.options);
    } catch (const Failure& failure) {
        warn(failure.text);
    } catch (const Interrupted&) {
        warn("interrupted");
    }
    return ExitFailure;
}

// Sets the exit status on write errors, so that truncated output is not mistaken for complete output.
int flushOutput(int status)
{
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return status;
    warn("not all output could be written; is the disk full?");
    return ExitFailure;
}

// During startup, Qt warns if the runtime directory of a desktop session is missing, as on a headless machine.
void printFatalOnly(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    if (type == QtFatalMsg)
        warn(escapeControls(text));
}

// Qt can draw text only in a QGuiApplication. The "offscreen" platform needs no display.
std::unique_ptr<QCoreApplication> makeApplication(int& argc, char** argv, bool needsGui)
{
    if (!needsGui)
        return std::make_unique<QCoreApplication>(argc, argv);
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QtMessageHandler previous = qInstallMessageHandler(printFatalOnly);
    auto application = std::make_unique<QGuiApplication>(argc, argv);
    qInstallMessageHandler(previous);
    return application;
}

CommandLine parse(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    return readCommandLine(QCoreApplication::arguments());
}
} // namespace

int main(int argc, char** argv)
{
    const int signalDescriptor = openSignalDescriptor();
    const CommandLine line = parse(argc, argv);
    switch (line.action) {
        case CommandLine::Action::UsageError:
            return reportUsageError(line.text + "; see --help");
        case CommandLine::Action::Help:
        case CommandLine::Action::Version:
            std::fputs(line.text.toUtf8().constData(), stdout);
            return flushOutput(0);
        case CommandLine::Action::Run:
            break;
    }
    const std::unique_ptr<QCoreApplication> application = makeApplication(argc, argv, line.needsGui);
    QSocketNotifier signalNotifier(signalDescriptor, QSocketNotifier::Read);
    quitOnSignal(signalNotifier);
    return flushOutput(run(line));
}
