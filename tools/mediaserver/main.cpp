// The program citp-mediaserver: reads the command line, starts the servers, and runs until a signal or a timeout.
// SPDX-License-Identifier: Apache-2.0
#include <poll.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <QCoreApplication>
#include <QFileInfo>
#include <QSocketNotifier>
#include <QTimer>
#include <QUuid>
#include <csignal>
#include <cstdio>
#include <memory>
#include <vector>

#include "addresses.h"
#include "catalogue.h"
#include "event_log.h"
#include "options.h"
#include "patch.h"
#include "recording.h"
#include "replay.h"
#include "server.h"
#include "spool.h"

using namespace MediaServer;

namespace {
constexpr int ExitFailure = 1;
constexpr int ExitUsageError = 2;
// Descriptors of the program itself, and of each server.
constexpr rlim_t OwnDescriptors = 24;
constexpr rlim_t ServerDescriptors = 2;

int fail(const QString& text, int status)
{
    std::fprintf(stderr, "citp-mediaserver: %s\n", escapeControls(text).toUtf8().constData());
    return status;
}

// A signalfd lets the event loop handle SIGINT and SIGTERM like any other event. The signals must be blocked before any
// thread starts, because threads inherit the signal mask.
int openSignalDescriptor()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

// Whether a signal waits to be handled.
bool isSignalled(int signalDescriptor)
{
    pollfd signal{signalDescriptor, POLLIN, 0};
    return poll(&signal, 1, 0) == 1;
}

// Raises the soft limit of descriptors to the hard one. The soft limit exists for programs that use select().
void raiseDescriptorLimit()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

// Qt aborts without descriptors for itself, so they are counted before they run out.
// @param problem set to an error message of one line
bool hasDescriptors(int servers, QString& problem)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlim_t needed = OwnDescriptors + ServerDescriptors * static_cast<rlim_t>(servers);
    if (limit.rlim_cur >= needed)
        return true;
    problem = QString("--count %1 needs %2 descriptors, but the limit is %3: raise it (ulimit -n)")
                  .arg(servers)
                  .arg(needed)
                  .arg(limit.rlim_cur);
    return false;
}

// Each layer uses 20 channels, so that 25 layers fit into a universe.
QStringList layerSources(int count, int server)
{
    QStringList sources;
    for (int layer = 0; layer < count; ++layer)
        sources << QString("ArtNet/%1/%2/%3").arg(server).arg(layer / 25).arg(layer % 25 * 20 + 1);
    return sources;
}

Identity identityOf(const Options& options, int index, quint16 types)
{
    Identity identity;
    identity.name = options.count > 1 ? QString("%1 %2").arg(options.name).arg(index + 1) : options.name;
    identity.uuid = options.uuid;
    if (identity.uuid.isEmpty()) {
        static const QUuid family("5f0c2f4e-4a0c-4c7e-9a55-0d5b6f1c7a31");
        identity.uuid = QUuid::createUuidV5(family, identity.name).toByteArray(QUuid::WithoutBraces);
    }
    identity.product = options.product;
    identity.versionMajor = options.versionMajor;
    identity.versionMinor = options.versionMinor;
    identity.versionBugfix = options.versionBugfix;
    identity.msexMinor = options.msexMinor;
    identity.libraryTypes = types;
    identity.layerSources = layerSources(options.layers, index);
    return identity;
}

void scheduleStop(Server& server, const Options& options)
{
    QTimer::singleShot(options.dieAfterMs, &server, [&server, options] {
        server.stop();
        if (options.reviveAfterMs < 0)
            return;
        QTimer::singleShot(options.reviveAfterMs, &server, [&server] {
            QString problem;
            if (!server.start(problem))
                QCoreApplication::exit(fail(problem, ExitFailure));
        });
    });
}

// Redraws its line on a terminal.
void showReading(const QString& file, int percent)
{
    static const bool isTerminal = isatty(STDERR_FILENO) != 0;
    static int shown = -1;
    if (isTerminal && percent != shown)
        std::fprintf(stderr, "\rreading %s: %d %%\x1b[K", escapeControls(file).toUtf8().constData(), percent);
    shown = percent;
}

void clearReading()
{
    if (isatty(STDERR_FILENO) != 0)
        std::fputs("\r\x1b[K", stderr);
}

// Reads the recording, and sets the options that it decides.
// @param problem set to an error message of one line; empty after a signal
// @return null on failure and after a signal
std::unique_ptr<Replay> prepareReplay(Options& options, Spool& spool, int signalDescriptor, const EventLog& log,
                                      QString& problem)
{
    const auto isInterrupted = [signalDescriptor] { return isSignalled(signalDescriptor); };
    if (!spool.open()) {
        problem = spool.problem();
        return {};
    }
    QString notice;
    std::unique_ptr<Recording> recording = readRecording(
        {options.replay.file, options.replay.server}, spool, isInterrupted,
        [&](int percent) { showReading(options.replay.file, percent); }, notice, problem);
    clearReading();
    if (!recording)
        return {};
    options.port = options.port > 0 ? options.port : recording->port;
    if (!options.hasGroups && !recording->groups.isEmpty())
        options.groups = recording->groups;
    options.msexMinor = recording->msexMinor;
    auto replay = std::make_unique<Replay>(std::move(recording), spool, options.replay.unknown, options.replay.speed);
    options.name = replay->name();
    if (!notice.isEmpty())
        log.line(options.name, notice);
    const QStringList lines = replay->report();
    for (const QString& line : lines)
        log.line(options.name, line);
    return replay;
}

int run(Options options, int signalDescriptor)
{
    QString problem;
    const EventLog log(options.quiet);
    Spool spool;
    std::unique_ptr<Replay> replay;
    if (!options.replay.file.isEmpty()) {
        replay = prepareReplay(options, spool, signalDescriptor, log, problem);
        if (!replay)
            return problem.isEmpty() ? 0 : fail(problem, ExitFailure);
    }
    if (!hasDescriptors(options.count, problem))
        return fail(problem, ExitFailure);
    const QNetworkInterface adapter = findAdapter(options.adapter, !options.groups.isEmpty(), problem);
    if (!adapter.isValid())
        return fail(problem, ExitFailure);
    const std::vector<Endpoint> endpoints =
        assignEndpoints(adapter, options.address, options.port, options.count, problem);
    if (endpoints.empty())
        return fail(problem, ExitFailure);

    if (!options.media.isEmpty() && !QFileInfo(options.media).isDir())
        return fail(QString("--media: '%1' is not a folder").arg(options.media), ExitFailure);
    std::vector<Fixture> patch;
    if (!options.patch.isEmpty())
        patch = readPatch(options.patch, problem);
    if (!problem.isEmpty())
        return fail(problem, ExitFailure);

    // The scan of a large folder takes longer than somebody waits who wants to end it.
    const auto isStopped = [signalDescriptor] { return isSignalled(signalDescriptor); };
    const Catalogue catalogue(options.media, options.effects, options.generic, log, isStopped);
    std::vector<std::unique_ptr<Server>> servers;
    for (int i = 0; i < options.count; ++i) {
        Behaviour behaviour{options.intervalMs, options.layerRate, options.groups, options.faults};
        behaviour.faults.seed += static_cast<quint32>(i);
        // One announces for all of them: they would forge the same servers, and have no time left.
        if (i > 0)
            behaviour.faults.set(Fault::Forge, false);
        servers.push_back(std::make_unique<Server>(
            ServerContent{identityOf(options, i, catalogue.types()), patch, catalogue, replay.get()},
            endpoints[static_cast<std::size_t>(i)], adapter, behaviour, log));
        if (!servers.back()->start(problem))
            return fail(problem, ExitFailure);
    }
    if (options.dieAfterMs >= 0)
        scheduleStop(*servers[static_cast<std::size_t>(options.dieServer - 1)], options);
    if (options.seconds > 0)
        QTimer::singleShot(options.seconds * 1000, qApp, [] { QCoreApplication::exit(0); });

    QSocketNotifier signalNotifier(signalDescriptor, QSocketNotifier::Read);
    QObject::connect(&signalNotifier, &QSocketNotifier::activated, qApp, [] { QCoreApplication::exit(0); });
    const int status = QCoreApplication::exec();
    if (replay) {
        const QStringList unknown = replay->unknownQuestions();
        for (const QString& line : unknown)
            log.line(options.name, line);
    }
    log.line({}, "ends");
    return status;
}
} // namespace

int main(int argc, char** argv)
{
    raiseDescriptorLimit();
    QString problem;
    if (!hasDescriptors(1, problem))
        return fail(problem, ExitFailure);
    const int signalDescriptor = openSignalDescriptor();
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName("citp-mediaserver");
    const CommandLine line = readCommandLine(QCoreApplication::arguments());
    switch (line.action) {
        case CommandLine::Action::UsageError:
            return fail(line.text + "; see --help", ExitUsageError);
        case CommandLine::Action::Help:
        case CommandLine::Action::Version:
            std::fputs(line.text.toUtf8().constData(), stdout);
            return 0;
        case CommandLine::Action::Run:
            break;
    }
    return run(line.options, signalDescriptor);
}
