// Os::NetworkAdapter and Os::NetworkAdapterMonitor: the list of adapters, and the thread that monitors their changes.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/os_network_adapter.h>

#include "os_adapter_table_p.h"

#include <citp_system/os_log.h>

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace Os {
namespace {

using Clock = std::chrono::steady_clock;

// A burst of messages about one change ends when no message has arrived for this time ...
constexpr auto quietPeriod = std::chrono::milliseconds(100);
// ... or after this time: an adapter that never settles must not delay the notification for ever.
constexpr auto maxBurstDuration = std::chrono::seconds(1);
// Space for the messages of a thousand changes, so that overruns are rare.
constexpr int socketBufferSize = 1 << 20;
constexpr std::size_t messageBufferSize = 32768;
// Limits the messages read in one batch, so that a flood of them does not delay notifications.
constexpr int maxMessagesPerBatch = 256;

void logFailure(std::string_view what, int error)
{
    // Never destroyed: the monitor thread may log during process exit.
    static auto* const context = new Log::Context("NetworkAdapterMonitor");
    if (!context->IsEnabled(Log::Failure)) {
        return;
    }
    text_base text;
    text << what << ": " << std::strerror(error);
    context->Write(Log::Failure, text, __PRETTY_FUNCTION__, "os_network_adapter.cpp", __LINE__, Thread::GetCallStack());
}

// Whether the current thread is the monitor thread.
thread_local bool onMonitorThread = false;

// The monitor if it exists: the destructor of a callback must not create one to unregister from.
std::atomic<NetworkAdapterMonitor*> instance{nullptr};

} // namespace

NetworkAdapter::NetworkAdapter(std::string name, const State& state) : m_name(std::move(name)), m_state(state) {}

std::vector<NetworkAdapter> NetworkAdapter::GetAll()
{
    std::vector<NetworkAdapter> adapters;
    if (const auto table = AdapterTable::dump()) {
        for (const AdapterTable::Entry& entry : table->entries()) {
            adapters.emplace_back(entry.name, entry.state);
        }
    }
    return adapters;
}

class NetworkAdapterMonitor::Private
{
public:
    Private();
    ~Private();

    void registerCallback(const std::string& name, int events, Callback* callback);
    template <typename Predicate>
    void unregisterCallback(Callback* callback, int events, Predicate matches);
    // Whether a registration for this name matches any adapter. Requires m_mutex.
    bool matchesAnyAdapter(const std::string& name) const;
    // Stops the thread and waits for its end, unless called on it.
    void stop();

private:
    // A forked child has no monitor thread, and nothing releases the locks that this thread held at the fork.
    bool isInForkedChild() const { return getpid() != m_process; }

    struct Registration
    {
        std::string name;
        int events;
        Callback* callback;
    };
    struct Pending
    {
        std::string name;
        int events;
        bool gained;
    };

    void run();
    // Both return false if the thread is to end.
    bool wait();
    bool readMessages();
    // Milliseconds until the pending notifications are due, rounded up; 0 if they are due.
    int timeToDelivery() const;
    void addPending(const AdapterTable::Change& change);
    // Replaces the table by a new dump and adds the differences to the pending changes, or a change of every adapter.
    void resynchronise(bool reportAll);
    void deliver();
    // The events of a pending change that a registration asks for. Requires m_mutex.
    int matchingEvents(const Registration& registration, const Pending& pending) const;

    // After construction, only the monitor thread uses these.
    mnl_socket* m_socket = nullptr;
    int m_stopEvent = -1;
    std::vector<char> m_buffer = std::vector<char>(messageBufferSize);
    std::vector<Pending> m_pending; // the adapters that changed in the current burst
    Clock::time_point m_burstBegin;
    Clock::time_point m_burstLatest;

    // Protects the following members. Not held while a callback runs; no other lock is taken while it is held.
    mutable std::mutex m_mutex;
    std::condition_variable m_callbackReturned;
    AdapterTable m_table; // written only by the monitor thread
    std::vector<Registration> m_registrations;
    Callback* m_runningCallback = nullptr;
    std::atomic<bool> m_stopping{false};

    std::thread m_thread;
    const pid_t m_process = getpid();
};

NetworkAdapterMonitor::Private::Private()
{
    m_socket = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | SOCK_NONBLOCK);
    m_stopEvent = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (!m_socket || m_stopEvent < 0) {
        logFailure("No notices of adapter changes, cannot open a netlink socket", errno);
        return;
    }
    setsockopt(mnl_socket_get_fd(m_socket), SOL_SOCKET, SO_RCVBUF, &socketBufferSize, sizeof socketBufferSize);
    if (mnl_socket_bind(m_socket, RTMGRP_LINK | RTMGRP_IPV4_IFADDR, MNL_SOCKET_AUTOPID) < 0) {
        logFailure("No notices of adapter changes, cannot subscribe to them", errno);
        return;
    }
    // Dumped after subscribing: a change in between is then reported twice instead of lost.
    if (auto table = AdapterTable::dump()) {
        m_table = std::move(*table);
    }

    // The thread inherits this mask, so the signal handlers of the application never run on it.
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    m_thread = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

NetworkAdapterMonitor::Private::~Private()
{
    stop();
    if (m_socket) {
        mnl_socket_close(m_socket);
    }
    if (m_stopEvent >= 0) {
        close(m_stopEvent);
    }
}

void NetworkAdapterMonitor::Private::stop()
{
    // A forked child shares the event with its parent and would stop the parent's thread.
    if (!m_thread.joinable() || isInForkedChild()) {
        return;
    }
    m_stopping = true;
    eventfd_write(m_stopEvent, 1);
    // A callback may have called exit().
    if (onMonitorThread) {
        m_thread.detach();
    } else {
        m_thread.join();
    }
}

void NetworkAdapterMonitor::Private::registerCallback(const std::string& name, int events, Callback* callback)
{
    if (isInForkedChild()) {
        return;
    }
    const std::lock_guard lock(m_mutex);
    const auto same =
        std::find_if(m_registrations.begin(), m_registrations.end(), [&](const Registration& registration) {
            return registration.name == name && registration.callback == callback;
        });
    if (same != m_registrations.end()) {
        same->events |= events;
    } else {
        m_registrations.push_back({name, events, callback});
    }
}

template <typename Predicate>
void NetworkAdapterMonitor::Private::unregisterCallback(Callback* callback, int events, Predicate matches)
{
    if (isInForkedChild()) {
        return;
    }
    std::unique_lock lock(m_mutex);
    const auto remove = [&] {
        for (Registration& registration : m_registrations) {
            if (registration.callback == callback && matches(registration.name)) {
                registration.events &= ~events;
            }
        }
        m_registrations.erase(std::remove_if(m_registrations.begin(), m_registrations.end(),
                                             [](const Registration& registration) { return registration.events == 0; }),
                              m_registrations.end());
    };
    remove();
    if (onMonitorThread || m_runningCallback != callback) {
        return;
    }
    m_callbackReturned.wait(lock, [&] { return m_runningCallback != callback; });
    // The callback that was running may have registered again.
    remove();
}

bool NetworkAdapterMonitor::Private::matchesAnyAdapter(const std::string& name) const
{
    const NetworkAdapter::State state = m_table.state(name);
    return !state.present || state.loopback;
}

void NetworkAdapterMonitor::Private::run()
{
    onMonitorThread = true;
    pthread_setname_np(pthread_self(), "adapter-monitor");
    while (wait() && readMessages()) {
        if (m_pending.empty() || timeToDelivery() > 0) {
            continue;
        }
        // A new dump, because the messages do not show the order of an adapter's addresses.
        resynchronise(false);
        deliver();
    }
}

bool NetworkAdapterMonitor::Private::wait()
{
    pollfd descriptors[] = {{mnl_socket_get_fd(m_socket), POLLIN, 0}, {m_stopEvent, POLLIN, 0}};
    poll(descriptors, 2, m_pending.empty() ? -1 : timeToDelivery());
    return !m_stopping;
}

int NetworkAdapterMonitor::Private::timeToDelivery() const
{
    const auto due = std::min(m_burstLatest + quietPeriod, m_burstBegin + maxBurstDuration);
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now());
    return std::max(0, static_cast<int>(left.count()));
}

bool NetworkAdapterMonitor::Private::readMessages()
{
    for (int count = 0; count < maxMessagesPerBatch; ++count) {
        const ssize_t size = mnl_socket_recvfrom(m_socket, m_buffer.data(), m_buffer.size());
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            return true;
        }
        if (size < 0 && (errno == ENOBUFS || errno == ENOSPC)) {
            // Messages were lost, and their changes may have been reverted: report every adapter as changed.
            resynchronise(true);
            continue;
        }
        if (size < 0) {
            logFailure("No more notices of adapter changes", errno);
            return false;
        }
        auto* message = reinterpret_cast<const nlmsghdr*>(m_buffer.data());
        for (int left = static_cast<int>(size); mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) {
            const std::lock_guard lock(m_mutex);
            for (const AdapterTable::Change& change : m_table.apply(message)) {
                addPending(change);
            }
        }
    }
    return true;
}

void NetworkAdapterMonitor::Private::addPending(const AdapterTable::Change& change)
{
    m_burstLatest = Clock::now();
    if (m_pending.empty()) {
        m_burstBegin = m_burstLatest;
    }
    const auto same = std::find_if(m_pending.begin(), m_pending.end(),
                                   [&](const Pending& pending) { return pending.name == change.name; });
    if (same == m_pending.end()) {
        m_pending.push_back({change.name, change.events, change.gained});
    } else {
        same->events |= change.events;
        same->gained |= change.gained;
    }
}

void NetworkAdapterMonitor::Private::resynchronise(bool reportAll)
{
    auto table = AdapterTable::dump();
    const std::lock_guard lock(m_mutex);
    if (table) {
        for (const AdapterTable::Change& change : m_table.differences(*table)) {
            addPending(change);
        }
        m_table = std::move(*table);
    }
    if (reportAll) {
        for (const AdapterTable::Entry& entry : m_table.entries()) {
            addPending({entry.name, LinkEvent | AddressEvent, entry.state.IsUsable()});
        }
    }
}

int NetworkAdapterMonitor::Private::matchingEvents(const Registration& registration, const Pending& pending) const
{
    if (registration.name == pending.name || (pending.gained && matchesAnyAdapter(registration.name))) {
        return registration.events & pending.events;
    }
    return 0;
}

void NetworkAdapterMonitor::Private::deliver()
{
    const std::vector<Pending> notifications = std::exchange(m_pending, {});
    for (const Pending& notification : notifications) {
        std::unique_lock lock(m_mutex);
        const NetworkAdapter::State state = m_table.state(notification.name);
        std::vector<Callback*> callbacks;
        for (const Registration& registration : m_registrations) {
            if (matchingEvents(registration, notification) != 0 &&
                std::find(callbacks.begin(), callbacks.end(), registration.callback) == callbacks.end()) {
                callbacks.push_back(registration.callback);
            }
        }

        for (Callback* const callback : callbacks) {
            // Evaluated again: an earlier callback or another thread may have unregistered and deleted this one.
            int events = 0;
            for (const Registration& registration : m_registrations) {
                if (registration.callback == callback) {
                    events |= matchingEvents(registration, notification);
                }
            }
            if (events == 0 || m_stopping) {
                continue;
            }
            m_runningCallback = callback;
            lock.unlock();
            callback->Changed(NetworkAdapter(notification.name, state), state, events);
            lock.lock();
            m_runningCallback = nullptr;
            m_callbackReturned.notify_all();
        }
    }
}

NetworkAdapterMonitor::Callback::~Callback()
{
    if (NetworkAdapterMonitor* const monitor = instance.load()) {
        monitor->Unregister(this);
    }
}

NetworkAdapterMonitor::NetworkAdapterMonitor() : d(std::make_unique<Private>()) {}

NetworkAdapterMonitor::~NetworkAdapterMonitor() = default;

NetworkAdapterMonitor* NetworkAdapterMonitor::Get()
{
    // Stops the thread at process exit. The monitor itself is never destroyed, because callbacks that live longer still
    // unregister.
    struct ExitGuard
    {
        ExitGuard() { instance = new NetworkAdapterMonitor; }
        ~ExitGuard() { instance.load()->d->stop(); }
    };
    static const ExitGuard exitGuard;
    return instance;
}

void NetworkAdapterMonitor::Register(const std::string& name, int events, Callback* callback)
{
    d->registerCallback(name, events & (LinkEvent | AddressEvent), callback);
}

void NetworkAdapterMonitor::Unregister(const std::string& name, int events, Callback* callback)
{
    d->unregisterCallback(callback, events, [this, &name](const std::string& registered) {
        return registered == name || d->matchesAnyAdapter(registered);
    });
}

void NetworkAdapterMonitor::Unregister(Callback* callback)
{
    d->unregisterCallback(callback, AllEvents, [](const std::string&) { return true; });
}

} // namespace Os
