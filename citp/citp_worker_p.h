// WorkerThread: the stack's thread, which can be brought to rest outside its event loop. Private; not installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QThread>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace CITP {
/// A thread with an event loop that others can bring to rest and wake again. There is one in a process.
///
/// The stack lives as long as the process, and its thread is never ended. But Qt's event delivery must not run while
/// the application object is being taken down, and the stack must not be taken down while its thread is at work. At
/// rest the thread is in no event, no slot and no socket.
class WorkerThread : public QThread
{
public:
    WorkerThread();

    /// Asks the thread to leave its event loop and waits for it, at most @p milliseconds. Not for the thread itself.
    /// @return whether it is at rest; if not, it will rest as soon as it can
    bool rest(int milliseconds);
    /// The same for the last time: the thread then runs @p lastWork, and nothing after it. It runs nothing if it does
    /// not come to rest in time.
    bool restForGood(int milliseconds, std::function<void()> lastWork);
    /// Lets the thread go back to its event loop.
    void resume();
    /// The process whose thread it is; a forked child has the object and not the thread.
    qint64 process() const { return m_process; }
    /// Whether a rest was asked for. A loop that may take long gives up when it sees this.
    bool isRestWanted() const { return m_restWanted.load(std::memory_order_relaxed); }

protected:
    void run() override;

private:
    bool waitForRest(std::unique_lock<std::mutex>& lock, int milliseconds);

    const qint64 m_process;

    std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_changed;
    std::atomic<bool> m_restWanted{false};
    bool m_resting = false;
    bool m_lastWorkDone = false;
    std::function<void()> m_lastWork;
};
} // namespace CITP
