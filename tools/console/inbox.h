// Inbox: what the stack's thread has received for a command, kept until the main thread takes it.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_stack.h>

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QObject>
#include <memory>
#include <mutex>

namespace Console {
/// A @p State that functions on the stack's thread fill and the main thread reads. Unlike queued signals, messages
/// wait only as far as the state keeps them, so a server that sends faster than the command works costs no memory and
/// cannot keep the main thread from its timers and signals.
template <typename State>
class Inbox
{
public:
    using Key = CITP::citp_stack::SERV_ID;

    /// Access to the state, which is locked as long as this object exists. Do not hold two at a time.
    class Access
    {
    public:
        State* operator->() const { return m_state; }
        State& operator*() const { return *m_state; }

    private:
        friend class Inbox;
        Access(std::mutex& mutex, State& state) : m_lock(mutex), m_state(&state) {}

        std::unique_lock<std::mutex> m_lock;
        State* m_state;
    };

    Access state() { return Access(m_shared->mutex, m_shared->state); }

    /// Calls `handle(state, key, message)` on the stack's thread for each @p signal, with the state locked, and wakes
    /// processEventsUntil(). @p handle must be fast and may use only the state and what it holds itself.
    template <typename... Message, typename Handle>
    void receive(void (CITP::citp_stack::*signal)(const Key&, const Message&...), Handle handle)
    {
        // A call in progress on the stack's thread keeps the state alive after this object.
        QObject::connect(
            CITP::citp_stack::Get(), signal, &m_scope,
            [shared = m_shared, handle](const Key& key, const Message&... message) {
                {
                    const std::lock_guard<std::mutex> lock(shared->mutex);
                    // The stack counts a copy as unread until it is destroyed, and stops reading at a limit. Copies of
                    // that copy, which the state may keep, are not counted.
                    handle(shared->state, key, Message(message)...);
                }
                QCoreApplication::eventDispatcher()->wakeUp();
            },
            Qt::DirectConnection);
    }
    /// The same for the messages of @p server, as `handle(state, message)`.
    template <typename Message, typename Handle>
    void receiveFrom(const Key& server, void (CITP::citp_stack::*signal)(const Key&, const Message&), Handle handle)
    {
        receive(signal, [server, handle](State& state, const Key& key, const Message& message) {
            if (key == server)
                handle(state, message);
        });
    }

private:
    struct Shared
    {
        std::mutex mutex;
        State state;
    };

    const std::shared_ptr<Shared> m_shared = std::make_shared<Shared>();
    QObject m_scope;
};
} // namespace Console
