// The stack's worker thread, the callers inside the stack, and what both do when the process exits. Private; not
// installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QThread>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace CITP {
/// Whether the process is exiting. From then on no caller may use the stack, and no server is reported. Any thread.
bool isShuttingDown();

/// Counts the calling thread as inside the stack while the object lives, so that the stack is not destroyed meanwhile.
/// The caller then checks isShuttingDown(), and does not use the stack if that is true. Any thread.
class Caller
{
public:
    Caller();
    ~Caller();
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;
};

/// The stack's thread: an event loop that other threads can stop and resume. There is one in a process.
///
/// The stack lives as long as the process, and its thread never ends. But Qt must not deliver events while the
/// application object is being destroyed, and the stack must not be destroyed while its thread is working. A stopped
/// thread runs no event, no slot and no socket call.
class WorkerThread : public QThread
{
public:
    WorkerThread();

    /// Stops the event loop and waits, at most the shutdown timeout. Must not be called on the worker itself.
    /// @return whether it has stopped; if not, it stops as soon as it can
    bool stop();
    /// Stops the thread for good. It then runs @p lastWork and nothing after it; if it does not stop in time, it runs
    /// nothing at all.
    /// @return whether @p lastWork has run
    bool shutDown(std::function<void()> lastWork);
    /// Lets the thread return to its event loop.
    void resume();
    /// Whether a stop was requested. A long loop must end then.
    bool isStopRequested() const { return m_stopRequested.load(std::memory_order_relaxed); }
    /// False in a forked child, which has the object but not the thread: nobody would answer or release its lock.
    bool isOfThisProcess() const;

protected:
    void run() override;

private:
    bool waitForStop(std::unique_lock<std::mutex>& lock);

    const qint64 m_process;

    std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_changed;
    std::atomic<bool> m_stopRequested{false};
    bool m_stopped = false;
    bool m_lastWorkDone = false;
    std::function<void()> m_lastWork;
};
} // namespace CITP
