// The stack's creation, its worker thread, and their end without an application object and at process exit.
// SPDX-License-Identifier: Apache-2.0
#include "citp_lifetime_p.h"

#include "citp_log_p.h"
#include "citp_stack_p.h"

#include <citp_system/artnet_adapter.h>

#include <QCoreApplication>
#include <QMetaType>
#include <QRecursiveMutex>
#include <QTcpSocket>

#include <chrono>
#include <thread>
#include <utility>

namespace CITP {
namespace {
/// How long the end of the application object or of the process waits for the worker thread, and for callers.
constexpr std::chrono::milliseconds shutdownTimeout{2000};

// These have no destructors: threads that do not know yet that the process ends can still use them.
std::atomic<bool> shuttingDown{false};
std::atomic<int> callersInside{0};
std::atomic<WorkerThread*> workerThread{nullptr};

WorkerThread* ownWorkerThread()
{
    WorkerThread* const thread = workerThread;
    return thread && thread->isOfThisProcess() ? thread : nullptr;
}

bool waitForCallers()
{
    for (std::chrono::milliseconds waited{0}; callersInside > 0; ++waited) {
        if (waited == shutdownTimeout) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

void stopWithoutApplication()
{
    WorkerThread* const thread = ownWorkerThread();
    if (thread && QThread::currentThread() != thread) {
        thread->stop();
    }
}

void followApplication()
{
    qAddPostRoutine(stopWithoutApplication);
    if (WorkerThread* const thread = ownWorkerThread()) {
        thread->resume();
    }
}

// Qt delivers no event in any thread while there is no application object, and breaks if it delivers one while that
// object is being destroyed. So the thread runs only while there is one.
Q_COREAPP_STARTUP_FUNCTION(followApplication)

/// Statics are destroyed in the reverse order of their construction. Whatever the worker thread uses is constructed
/// here, before the stack is complete, and so is destroyed after it.
void constructStaticsOfTheWorker()
{
    messageLogContext();
    plocLogContext();
    trafficLogContext();
    // Qt constructs the statics of its sockets when the first one gets a descriptor.
    QTcpSocket().setSocketDescriptor(-1);
    // Qt 5 looks into its table of converters when a socket connects.
    QMetaType::hasRegisteredConverterFunction<QString, int>();
}
} // namespace

// --- Callers ---------------------------------------------------------------------------------------------------------

bool isShuttingDown()
{
    return shuttingDown;
}

Caller::Caller()
{
    ++callersInside;
}

Caller::~Caller()
{
    --callersInside;
}

// --- The worker thread -----------------------------------------------------------------------------------------------

WorkerThread::WorkerThread() : m_process(QCoreApplication::applicationPid())
{
    workerThread = this;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_stopRequested = !QCoreApplication::instance();
}

bool WorkerThread::isOfThisProcess() const
{
    return m_process == QCoreApplication::applicationPid();
}

bool WorkerThread::waitForStop(std::unique_lock<std::mutex>& lock)
{
    m_stopRequested = true;
    if (!m_stopped) {
        quit();
    }
    m_changed.notify_all();
    return m_changed.wait_for(lock, shutdownTimeout, [this] { return m_stopped && (!m_lastWork || m_lastWorkDone); });
}

bool WorkerThread::stop()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return waitForStop(lock);
}

bool WorkerThread::shutDown(std::function<void()> lastWork)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_lastWork = std::move(lastWork);
    if (waitForStop(lock)) {
        return true;
    }
    // The statics that the work needs may be gone by the time the thread stops.
    m_lastWork = nullptr;
    return false;
}

void WorkerThread::resume()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_stopRequested = false;
    m_changed.notify_all();
}

void WorkerThread::run()
{
    for (;;) {
        if (!isStopRequested()) {
            exec();
        }
        std::unique_lock<std::mutex> lock(m_mutex);
        m_stopped = true;
        m_changed.notify_all();
        // Never satisfied once the last work is done: the thread then waits here until the process is gone.
        m_changed.wait(lock, [this] { return m_lastWork ? !m_lastWorkDone : !m_stopRequested; });
        if (m_lastWork) {
            m_lastWork();
            m_lastWorkDone = true;
            m_changed.notify_all();
            m_changed.wait(lock, [] { return false; });
        }
        m_stopped = false;
    }
}

// --- The stack -------------------------------------------------------------------------------------------------------

citp_stack* citp_stack::Get()
{
    // Destroyed at exit like any static, but only if no thread uses it any more.
    union Holder {
        citp_stack stack;
        Holder() : stack() {}
        ~Holder()
        {
            if (stack.d->shutDown()) {
                stack.~citp_stack();
            }
        }
    };
    static Holder holder;
    return &holder.stack;
}

citp_stack::Private::Private(citp_stack* stack) : q(stack), worker(new WorkerThread) {}

citp_stack::citp_stack()
    : m_udpSocket(nullptr), m_mutex(new QRecursiveMutex), m_enabled(true), m_resetPending(false), d(new Private(this))
{
    constructStaticsOfTheWorker();
    // From true to false, so that the log begins with the state and the first tick starts from a reset.
    setEnabled(false);
    registerMetaTypes();

    d->worker->setObjectName(QStringLiteral("citp-stack"));
    moveToThread(d->worker);
    connect(d->worker, &QThread::started, this, &citp_stack::process);
    // Without effect as long as run() does not return; it names the owner of the thread object.
    connect(d->worker, &QThread::finished, d->worker, &QObject::deleteLater);
    d->worker->start(QThread::InheritPriority);
    d->worker->setPriority(QThread::LowPriority);

    // The monitor starts before the adapter is chosen, so that no change is missed in between.
    Os::NetworkAdapterMonitor* const monitor = Os::NetworkAdapterMonitor::Get();
    monitor->Register(ArtNet::Adapter::Get().GetName(), 3, this);
}

/// The worker has already stopped, see shutDown(). The records and m_udpSocket are left to the end of the process:
/// serverDown() reports servers that are lost, not a console that exits.
citp_stack::~citp_stack()
{
    delete m_mutex;
    const ArtNet::Adapter adapter = ArtNet::Adapter::Get();
    Os::NetworkAdapterMonitor::Get()->Unregister(adapter.GetName(), 65535, this);
    // An adapter change in progress may have registered the stack again under another name. Later ones do not.
    Os::NetworkAdapterMonitor::Get()->Unregister(this);
}

/// Stops the thread and deletes the TCP sockets and the timer on it, because Qt allows that in no other thread.
bool citp_stack::Private::shutDown()
{
    shuttingDown = true;
    // If a receiver on the worker thread ends the process, its own calls are still in the stack.
    if (QThread::currentThread() == worker || !worker->isOfThisProcess()) {
        return false;
    }
    const auto deleteChildren = [this] {
        const QObjectList children = q->children();
        for (QObject* child : children) {
            child->blockSignals(true);
            delete child;
        }
    };
    // Callers that are inside may use the children. Later ones leave at once, but may still be inside the stack itself.
    return waitForCallers() && worker->shutDown(deleteChildren) && waitForCallers();
}
} // namespace CITP
