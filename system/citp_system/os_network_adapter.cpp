// Os::NetworkAdapter and Os::NetworkAdapterMonitor: the list of adapters, and the thread that hears of their changes.
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

// A burst of messages about one change is over when nothing has come for this long ...
constexpr auto quietTime = std::chrono::milliseconds(100);
// ... or when it has lasted this long: an adapter that never settles must not keep the notice back.
constexpr auto longestBurst = std::chrono::seconds(1);
// Room for the messages of a thousand changes, so that an overrun stays a rarity.
constexpr int receiveBufferCapacity = 1 << 20;
constexpr std::size_t messageCapacity = 32768;
// Messages read in one go, so that a flood of them does not keep notices back.
constexpr int messagesAtOnce = 256;

void logFailure(std::string_view what, int error)
{
    // Never destroyed: the monitor's thread may write while the process exits.
    static auto* const context = new Log::Context("NetworkAdapterMonitor");
    if (!context->IsEnabled(Log::Failure)) {
        return;
    }
    text_base text;
    text << what << ": " << std::strerror(error);
    context->Write(Log::Failure, text, __PRETTY_FUNCTION__, "os_network_adapter.cpp", __LINE__, Thread::GetCallStack());
}

// Whether the running thread is the monitor's.
thread_local bool onMonitorThread = false;

// The process's monitor once there is one; a callback that never registered must not make one just to unregister.
std::atomic<NetworkAdapterMonitor*> theMonitor{nullptr};

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
    void unregisterCallback(Callback* callback, int events, Predicate concerned);
    // Whether a registration under this name stands for any adapter. With m_mutex held.
    bool standsForAny(const std::string& name) const;
    void end();

private:
    // It has neither the monitor's thread nor anybody who would give back what that thread held at the fork.
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
    // Both report whether to go on.
    bool wait();
    bool readMessages();
    int timeToDelivery() const;
    void note(const AdapterTable::Change& change);
    void resynchronise(bool everything);
    void deliver();
    int eventsHeard(const Registration& registration, const Pending& pending) const;

    // The monitor's thread alone, after construction.
    mnl_socket* m_socket = nullptr;
    int m_endEvent = -1;
    std::vector<char> m_buffer = std::vector<char>(messageCapacity);
    std::vector<Pending> m_pending; // the adapters touched in the present burst
    Clock::time_point m_burstBegin;
    Clock::time_point m_burstLatest;

    // Guards what follows. Never held while a callback runs, and nothing else is locked under it.
    mutable std::mutex m_mutex;
    std::condition_variable m_callEnded;
    AdapterTable m_table; // written by the monitor's thread alone
    std::vector<Registration> m_registrations;
    Callback* m_called = nullptr; // whose Changed is running
    std::atomic<bool> m_ending{false};

    std::thread m_thread;
    const pid_t m_process = getpid();
};

NetworkAdapterMonitor::Private::Private()
{
    m_socket = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | SOCK_NONBLOCK);
    m_endEvent = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (!m_socket || m_endEvent < 0) {
        logFailure("No notices of adapter changes, cannot open a netlink socket", errno);
        return;
    }
    setsockopt(mnl_socket_get_fd(m_socket), SOL_SOCKET, SO_RCVBUF, &receiveBufferCapacity,
               sizeof receiveBufferCapacity);
    if (mnl_socket_bind(m_socket, RTMGRP_LINK | RTMGRP_IPV4_IFADDR, MNL_SOCKET_AUTOPID) < 0) {
        logFailure("No notices of adapter changes, cannot subscribe to them", errno);
        return;
    }
    // Asked for after subscribing: a change in between is then told twice and never lost.
    if (auto table = AdapterTable::dump()) {
        m_table = std::move(*table);
    }

    // The application's signal handlers are not run on this thread, which inherits the mask.
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    m_thread = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

NetworkAdapterMonitor::Private::~Private()
{
    end();
    if (m_socket) {
        mnl_socket_close(m_socket);
    }
    if (m_endEvent >= 0) {
        close(m_endEvent);
    }
}

void NetworkAdapterMonitor::Private::end()
{
    // The event that ends the thread is shared with the parent.
    if (!m_thread.joinable() || isInForkedChild()) {
        return;
    }
    m_ending = true;
    eventfd_write(m_endEvent, 1);
    // The process may have been told to exit from inside a callback.
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
void NetworkAdapterMonitor::Private::unregisterCallback(Callback* callback, int events, Predicate concerned)
{
    if (isInForkedChild()) {
        return;
    }
    std::unique_lock lock(m_mutex);
    const auto remove = [&] {
        for (Registration& registration : m_registrations) {
            if (registration.callback == callback && concerned(registration.name)) {
                registration.events &= ~events;
            }
        }
        m_registrations.erase(std::remove_if(m_registrations.begin(), m_registrations.end(),
                                             [](const Registration& registration) { return registration.events == 0; }),
                              m_registrations.end());
    };
    remove();
    if (onMonitorThread || m_called != callback) {
        return;
    }
    m_callEnded.wait(lock, [&] { return m_called != callback; });
    // The call that was running may have registered again.
    remove();
}

bool NetworkAdapterMonitor::Private::standsForAny(const std::string& name) const
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
        // Asked afresh, because the order of an adapter's addresses cannot be told from the messages.
        resynchronise(false);
        deliver();
    }
}

bool NetworkAdapterMonitor::Private::wait()
{
    pollfd descriptors[] = {{mnl_socket_get_fd(m_socket), POLLIN, 0}, {m_endEvent, POLLIN, 0}};
    poll(descriptors, 2, m_pending.empty() ? -1 : timeToDelivery());
    return !m_ending;
}

// In milliseconds, rounded up; 0 when it is due.
int NetworkAdapterMonitor::Private::timeToDelivery() const
{
    const auto due = std::min(m_burstLatest + quietTime, m_burstBegin + longestBurst);
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now());
    return std::max(0, static_cast<int>(left.count()));
}

bool NetworkAdapterMonitor::Private::readMessages()
{
    for (int count = 0; count < messagesAtOnce; ++count) {
        const ssize_t size = mnl_socket_recvfrom(m_socket, m_buffer.data(), m_buffer.size());
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            return true;
        }
        if (size < 0 && (errno == ENOBUFS || errno == ENOSPC)) {
            // Messages are lost, and what they told may have undone itself: every adapter counts as changed.
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
                note(change);
            }
        }
    }
    return true;
}

void NetworkAdapterMonitor::Private::note(const AdapterTable::Change& change)
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

void NetworkAdapterMonitor::Private::resynchronise(bool everything)
{
    auto table = AdapterTable::dump();
    const std::lock_guard lock(m_mutex);
    if (table) {
        for (const AdapterTable::Change& change : m_table.differences(*table)) {
            note(change);
        }
        m_table = std::move(*table);
    }
    if (everything) {
        for (const AdapterTable::Entry& entry : m_table.entries()) {
            note({entry.name, LinkEvent | AddressEvent, entry.state.IsUsable()});
        }
    }
}

// With m_mutex held.
int NetworkAdapterMonitor::Private::eventsHeard(const Registration& registration, const Pending& pending) const
{
    if (registration.name == pending.name || (pending.gained && standsForAny(registration.name))) {
        return registration.events & pending.events;
    }
    return 0;
}

void NetworkAdapterMonitor::Private::deliver()
{
    const std::vector<Pending> notices = std::exchange(m_pending, {});
    for (const Pending& notice : notices) {
        std::unique_lock lock(m_mutex);
        const NetworkAdapter::State state = m_table.state(notice.name);
        std::vector<Callback*> callbacks;
        for (const Registration& registration : m_registrations) {
            if (eventsHeard(registration, notice) != 0 &&
                std::find(callbacks.begin(), callbacks.end(), registration.callback) == callbacks.end()) {
                callbacks.push_back(registration.callback);
            }
        }

        for (Callback* const callback : callbacks) {
            // Looked up again: an earlier call or another thread may have unregistered, and deleted, this one.
            int events = 0;
            for (const Registration& registration : m_registrations) {
                if (registration.callback == callback) {
                    events |= eventsHeard(registration, notice);
                }
            }
            if (events == 0 || m_ending) {
                continue;
            }
            m_called = callback;
            lock.unlock();
            callback->Changed(NetworkAdapter(notice.name, state), state, events);
            lock.lock();
            m_called = nullptr;
            m_callEnded.notify_all();
        }
    }
}

NetworkAdapterMonitor::Callback::~Callback()
{
    if (NetworkAdapterMonitor* const monitor = theMonitor.load()) {
        monitor->Unregister(this);
    }
}

NetworkAdapterMonitor::NetworkAdapterMonitor() : d(std::make_unique<Private>()) {}

NetworkAdapterMonitor::~NetworkAdapterMonitor() = default;

NetworkAdapterMonitor* NetworkAdapterMonitor::Get()
{
    // Ends the thread at exit. The monitor itself is never destroyed, because callbacks with a longer life still
    // unregister then.
    struct Ending
    {
        Ending() { theMonitor = new NetworkAdapterMonitor; }
        ~Ending() { theMonitor.load()->d->end(); }
    };
    static const Ending ending;
    return theMonitor;
}

void NetworkAdapterMonitor::Register(const std::string& name, int events, Callback* callback)
{
    d->registerCallback(name, events & (LinkEvent | AddressEvent), callback);
}

void NetworkAdapterMonitor::Unregister(const std::string& name, int events, Callback* callback)
{
    d->unregisterCallback(callback, events, [this, &name](const std::string& registered) {
        return registered == name || d->standsForAny(registered);
    });
}

void NetworkAdapterMonitor::Unregister(Callback* callback)
{
    d->unregisterCallback(callback, AllEvents, [](const std::string&) { return true; });
}

} // namespace Os
