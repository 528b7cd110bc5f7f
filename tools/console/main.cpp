// The program citp-console: reads the command line, prepares log and adapter, and runs the command until it has ended
// or a signal ends it.
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
#include "options.h"
#include "printing.h"
#include "session.h"

using namespace Console;

namespace {
constexpr int Failed = 1;
constexpr int WrongUse = 2;

sigset_t endingSignals()
{
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    return ending;
}

// SIGINT and SIGTERM arrive as bytes to read, so that ending runs like any other event. Blocked before any thread
// starts, because each thread inherits the mask.
int openSignals()
{
    const sigset_t ending = endingSignals();
    sigprocmask(SIG_BLOCK, &ending, nullptr);
    return signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK);
}

int refuse(const QString& text)
{
    complain(text);
    return WrongUse;
}

// Without a wish of the user's, the lines of the library that only repeat what the program prints stay away.
QString prepareLog(const QString& masks)
{
    printLogOnStandardError();
    if (qEnvironmentVariableIsEmpty("OS_LOG_MASKS"))
        Os::Log::SetMask("CITP.*", Os::Log::Warning | Os::Log::Failure | Os::Log::Critical);
    const std::string problem = masks.isEmpty() ? std::string() : Os::Log::SetMasks(masks.toStdString());
    if (problem.empty())
        return {};
    return QString("--log: %1; give entries such as CITP.*=31 or CITP.Stack.Traffic=1 with commas between them")
        .arg(harmless(QString::fromStdString(problem)));
}

// What runs outside of the event loop, such as printing into a pipe that nobody reads, takes no notice of the first
// signal, so one that comes later ends the program on the spot. What comes right behind the first is no second wish:
// timeout(1), for one, sends everything twice.
void endOnTheSpotIfAskedAgain(int signalDescriptor)
{
    std::thread([signalDescriptor] {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        signalfd_siginfo known{};
        while (read(signalDescriptor, &known, sizeof known) > 0) {
        }
        const sigset_t ending = endingSignals();
        pthread_sigmask(SIG_UNBLOCK, &ending, nullptr);
        for (;;)
            pause();
    }).detach();
}

// Once; the rest of the way to the end is the same as for any other end.
void endOnSignal(QSocketNotifier& notifier)
{
    QObject::connect(&notifier, &QSocketNotifier::activated, &notifier, [&notifier] {
        notifier.setEnabled(false);
        endOnTheSpotIfAskedAgain(static_cast<int>(notifier.socket()));
        interruptSessions();
        QCoreApplication::exit(0);
    });
}

int run(const CommandLine& line)
{
    QString problem = prepareLog(line.options.log);
    if (problem.isEmpty() && !line.options.adapter.isEmpty())
        problem = chooseAdapter(line.options.adapter);
    if (!problem.isEmpty())
        return refuse(problem);
    try {
        return line.run(line.options);
    } catch (const Failure& failure) {
        complain(failure.text);
    } catch (const Interrupted&) {
        complain("interrupted");
    }
    return Failed;
}

// Lines that could not be written are known of only here; nobody may take the rest for the whole.
int unlessCutShort(int status)
{
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return status;
    complain("what it printed could not all be written; is the disk full?");
    return Failed;
}

// Setting up, Qt looks for the folder of a desktop session and warns when there is none, as on a headless machine.
void onlyWhatEndsUs(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    if (type == QtFatalMsg)
        complain(harmless(text));
}

// Drawing text takes Qt's fonts, and those an application with a screen, if only a thought one.
std::unique_ptr<QCoreApplication> makeApplication(int& argc, char** argv, bool drawsText)
{
    if (!drawsText)
        return std::make_unique<QCoreApplication>(argc, argv);
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QtMessageHandler before = qInstallMessageHandler(onlyWhatEndsUs);
    auto application = std::make_unique<QGuiApplication>(argc, argv);
    qInstallMessageHandler(before);
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
    const int signalDescriptor = openSignals();
    const CommandLine line = parse(argc, argv);
    switch (line.action) {
        case CommandLine::Action::WrongUse:
            return refuse(line.text + "; --help explains everything");
        case CommandLine::Action::Help:
        case CommandLine::Action::Version:
            std::fputs(line.text.toUtf8().constData(), stdout);
            return unlessCutShort(0);
        case CommandLine::Action::Run:
            break;
    }
    const std::unique_ptr<QCoreApplication> application = makeApplication(argc, argv, line.drawsText);
    QSocketNotifier ending(signalDescriptor, QSocketNotifier::Read);
    endOnSignal(ending);
    return unlessCutShort(run(line));
}
