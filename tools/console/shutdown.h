// Shutdown: the signals and the time limit that end a command, and the exceptions that commands end with.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

namespace Console {
/// Exception: a command failed.
struct Failure
{
    QString text; ///< one line, with control characters escaped
};

/// Exception: a server did not answer in time.
struct NoAnswer : Failure
{
};

/// Exception: a signal arrived or the time limit has passed.
struct Interrupted
{
};

/// Blocks SIGINT, SIGTERM and SIGALRM, and starts a thread that waits for them. Call it before any other thread starts,
/// because threads inherit the signal mask.
///
/// The first signal makes isInterrupted() return true. If the process has not ended 400 ms later, or if a second signal
/// arrives, the thread terminates it, whatever the other threads do. Signals within 100 ms of the first are ignored,
/// because timeout(1), for example, sends each signal twice.
void watchSignals();

/// Sets the time limit: @p seconds from now, the command is interrupted as by a signal.
void interruptAfter(int seconds);

/// From now on, the process is terminated 20 s after the first signal instead, because it has files to write.
void allowTimeToEnd();

/// Whether a signal arrived or the time limit has passed. Thread-safe.
bool isInterrupted();

/// Sets the exit status for the case that the process must be terminated while it ends.
void setExitStatus(int status);
} // namespace Console
