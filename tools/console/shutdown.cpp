// The thread that waits for signals.
// SPDX-License-Identifier: Apache-2.0
#include "shutdown.h"

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include "commands.h"

namespace Console {
namespace {
using std::chrono::milliseconds;

constexpr milliseconds RepeatedSignal{100};
constexpr milliseconds Slice{10};
constexpr milliseconds LongGrace{20000};
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// The sanitizers report while the process ends, which takes longer.
constexpr milliseconds Grace{LongGrace};
#else
constexpr milliseconds Grace{400};
#endif
constexpr int NoStatus = -1;

std::atomic<bool> hasFiles{false};
std::atomic<bool> interrupted{false};
std::atomic<int> exitStatus{NoStatus};

[[noreturn]] void terminateNow()
{
    const int status = exitStatus;
    constexpr char Reason[] = "citp-console: interrupted\n";
    pollfd standardError{STDERR_FILENO, POLLOUT, 0};
    // With an exit status, the main thread has already printed the reason.
    if (status == NoStatus && poll(&standardError, 1, 0) == 1)
        static_cast<void>(write(STDERR_FILENO, Reason, sizeof Reason - 1) == 0);
    _exit(status == NoStatus ? ExitFailure : status);
}

[[noreturn]] void waitForSignals(const sigset_t& signals)
{
    while (sigwaitinfo(&signals, nullptr) < 0) {
    }
    interrupted = true;
    // In slices, so that a process which was stopped, or gets no processor, has the time all the same.
    const timespec timeout{0, std::chrono::nanoseconds(Slice).count()};
    for (milliseconds waited{0}; waited < (hasFiles ? LongGrace : Grace); waited += Slice) {
        if (sigtimedwait(&signals, nullptr, &timeout) > 0 && waited >= RepeatedSignal)
            break;
    }
    terminateNow();
}
} // namespace

void watchSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGALRM})
        sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([signals] { waitForSignals(signals); }).detach();
}

void interruptAfter(int seconds)
{
    alarm(static_cast<unsigned int>(seconds));
}

void allowTimeToEnd()
{
    hasFiles = true;
}

bool isInterrupted()
{
    return interrupted;
}

void setExitStatus(int status)
{
    exitStatus = status;
}
} // namespace Console
