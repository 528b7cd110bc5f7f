// The program citp-console: reads the command line, prepares log and adapter, and runs the command until it has ended
// or a signal ends it.
#include <citp_system/os_log.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QSocketNotifier>
#include <csignal>
#include <cstdio>

#include "adapters.h"
#include "options.h"
#include "printing.h"
#include "watch.h"

using namespace Console;

namespace {
constexpr int WrongUse = 2;

// SIGINT and SIGTERM arrive as bytes to read, so that ending runs like any other event. Blocked before any thread
// starts, because each thread inherits the mask.
int openSignals()
{
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
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

int run(const CommandLine& line)
{
    QString problem = prepareLog(line.options.log);
    if (problem.isEmpty() && !line.options.adapter.isEmpty())
        problem = chooseAdapter(line.options.adapter);
    if (!problem.isEmpty())
        return refuse(problem);
    return line.action == CommandLine::Action::Adapters ? listAdapters(line.options) : watch(line.options);
}
} // namespace

int main(int argc, char** argv)
{
    const int signalDescriptor = openSignals();
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName("citp-console");
    QSocketNotifier ending(signalDescriptor, QSocketNotifier::Read);
    QObject::connect(&ending, &QSocketNotifier::activated, &application, [] { QCoreApplication::exit(0); });

    const CommandLine line = readCommandLine(QCoreApplication::arguments());
    switch (line.action) {
        case CommandLine::Action::WrongUse:
            return refuse(line.text + "; --help explains everything");
        case CommandLine::Action::Help:
        case CommandLine::Action::Version:
            std::fputs(line.text.toUtf8().constData(), stdout);
            return 0;
        default:
            return run(line);
    }
}
