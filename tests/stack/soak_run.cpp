// SoakRun: measuring, and the verdict.
// SPDX-License-Identifier: Apache-2.0
#include "soak_run.h"

#include <citp/citp_stack.h>
#include <citp_system/artnet_adapter.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using CITP::citp_stack;

namespace {
constexpr int SampleInterval = 10000; // ms

/// Switches the stack off and lets the sockets go that it has left to the event loop.
void switchOff()
{
    citp_stack::Get()->setEnabled(false);
    Soak::tick();
    Soak::pass(200);
    Soak::tick();
}

std::string change(int before, int after)
{
    return std::to_string(before) + " before, " + std::to_string(after) + " after";
}
} // namespace

void Soak::pass(int milliseconds)
{
    QElapsedTimer time;
    time.start();
    while (time.elapsed() < milliseconds) {
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents,
                                        static_cast<int>(milliseconds - time.elapsed()));
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
}

void Soak::tick()
{
    QMetaObject::invokeMethod(citp_stack::Get(), "timepop", Qt::BlockingQueuedConnection);
}

bool Soak::say(bool good, const std::string& what)
{
    std::printf("%-4s %s\n", good ? "yes" : "NO", what.c_str());
    return good;
}

SoakRun::SoakRun()
{
    ArtNet::Adapter::Choose("lo");
    QProcess first;
    first.start(QStringLiteral("/bin/true"), QStringList());
    first.waitForFinished();
    citp_stack::Get()->setEnabled(true);
    Soak::tick();
    switchOff();
    m_before = ProcessFigures::now();
    citp_stack::Get()->setEnabled(true);
    Soak::tick();
}

void SoakRun::pass(double minutes, const char* heading, const std::function<std::string()>& figures)
{
    QElapsedTimer time;
    time.start();
    std::printf("%8s %13s %10s %12s %8s %s\n", "minutes", "resident KiB", "heap KiB", "descriptors", "threads",
                heading);
    const auto length = static_cast<qint64>(minutes * 60000);
    while (time.elapsed() < length) {
        Soak::pass(static_cast<int>(std::min<qint64>(SampleInterval, length - time.elapsed())));
        const ProcessFigures now = ProcessFigures::now();
        const double passed = static_cast<double>(time.elapsed()) / 60000;
        m_samples.add(passed, now);
        std::printf("%8.2f %13ld %10ld %12d %8d %s\n", passed, now.residentKiB, now.heapKiB, now.descriptors,
                    now.threads, figures().c_str());
        std::fflush(stdout);
    }
    m_samples.settle(minutes);
}

bool SoakRun::isAsBefore()
{
    switchOff();
    Soak::pass(200);
    const ProcessFigures after = ProcessFigures::now();
    std::printf("after the first minutes: %s\n", m_samples.summary().c_str());
    const bool isFlat = Soak::say(
        m_samples.residentGrowth() <= SoakSamples::GrowthBound && m_samples.heapGrowth() <= SoakSamples::GrowthBound,
        "memory is flat: it grows by at most 20 KiB a minute");
    const bool areAllClosed = Soak::say(after.descriptors == m_before.descriptors,
                                        "no descriptor is lost: " + change(m_before.descriptors, after.descriptors));
    const bool haveAllEnded =
        Soak::say(after.threads == m_before.threads, "no thread is added: " + change(m_before.threads, after.threads));
    return isFlat && areAllClosed && haveAllEnded;
}

int soakMain(int argc, char** argv, const char* option,
             const std::function<bool(double minutes, const QString& program, bool isOptionGiven)>& soak)
{
    const bool isOptionGiven = argc == 4 && option && std::strcmp(argv[3], option) == 0;
    const double minutes = argc == 3 || isOptionGiven ? std::atof(argv[1]) : 0;
    if (minutes <= 0 || minutes > 24 * 60) {
        std::fprintf(stderr, "usage: %s MINUTES MEDIASERVER-PROGRAM%s%s\n", argv[0], option ? " " : "",
                     option ? option : "");
        return 2;
    }
    std::signal(SIGPIPE, SIG_IGN);
    const QCoreApplication application(argc, argv);
    const bool good = soak(minutes, QString::fromLocal8Bit(argv[2]), isOptionGiven);
    std::printf("soak: %s\n", good ? "passed" : "FAILED");
    return good ? 0 : 1;
}
