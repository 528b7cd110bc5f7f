// WorkerThread: the stack's thread, which can be brought to rest outside its event loop.
// SPDX-License-Identifier: Apache-2.0
#include "citp_worker_p.h"

#include <QCoreApplication>

#include <chrono>
#include <utility>

namespace CITP {
namespace {
std::atomic<WorkerThread*> worker{nullptr};

/// This process's worker; none in a forked child, where nobody would answer or give back its lock.
WorkerThread* ownWorker()
{
    WorkerThread* const thread = worker;
    return thread && thread->process() == QCoreApplication::applicationPid() ? thread : nullptr;
}

constexpr int Patience = 2000; // ms

void restWithoutApplication()
{
    WorkerThread* const thread = ownWorker();
    if (thread && QThread::currentThread() != thread) {
        thread->rest(Patience);
    }
}

void followApplication()
{
    qAddPostRoutine(restWithoutApplication);
    if (WorkerThread* const thread = ownWorker()) {
        thread->resume();
    }
}

// Qt runs no event loop and delivers no event in any thread while there is no application object, and breaks if it
// delivers one while that object is being destroyed. So the thread rests until there is one, and when it goes.
Q_COREAPP_STARTUP_FUNCTION(followApplication)
} // namespace

WorkerThread::WorkerThread() : m_process(QCoreApplication::applicationPid())
{
    worker = this;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_restWanted = !QCoreApplication::instance();
}

bool WorkerThread::waitForRest(std::unique_lock<std::mutex>& lock, int milliseconds)
{
    m_restWanted = true;
    if (!m_resting) {
        quit();
    }
    m_changed.notify_all();
    return m_changed.wait_for(lock, std::chrono::milliseconds(milliseconds),
                              [this] { return m_resting && (!m_lastWork || m_lastWorkDone); });
}

bool WorkerThread::rest(int milliseconds)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return waitForRest(lock, milliseconds);
}

bool WorkerThread::restForGood(int milliseconds, std::function<void()> lastWork)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_lastWork = std::move(lastWork);
    if (waitForRest(lock, milliseconds)) {
        return true;
    }
    // Statics that the work would need are gone when the thread rests after all.
    m_lastWork = nullptr;
    return false;
}

void WorkerThread::resume()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_restWanted = false;
    m_changed.notify_all();
}

void WorkerThread::run()
{
    for (;;) {
        if (!isRestWanted()) {
            exec();
        }
        std::unique_lock<std::mutex> lock(m_mutex);
        m_resting = true;
        m_changed.notify_all();
        // Never satisfied once there is last work: the thread then stays here until the process is gone.
        m_changed.wait(lock, [this] { return m_lastWork ? !m_lastWorkDone : !m_restWanted; });
        if (m_lastWork) {
            m_lastWork();
            m_lastWorkDone = true;
            m_changed.notify_all();
            m_changed.wait(lock, [] { return false; });
        }
        m_resting = false;
    }
}
} // namespace CITP
