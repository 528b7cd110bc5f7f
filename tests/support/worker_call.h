// Work and slots for the thread of another object, in a way that the thread sanitizer understands.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>

#include <functional>
#include <memory>
#include <utility>

/// Runs @p work on the thread that @p object lives in, from its event loop, and waits for it. What one thread did
/// before, the other sees after. For one caller at a time; not for that thread itself.
void runOnThreadOf(QObject* object, const std::function<void()>& work);

/// Slots that are called on the thread of @p Sender, which emits there. They are connected and disconnected on it, too:
/// Qt may begin a direct call just when another thread frees its slot.
template <typename Sender>
class DirectReceiver
{
public:
    explicit DirectReceiver(Sender* sender) : m_sender(sender)
    {
        runOnThreadOf(m_sender, [this] { m_context = std::make_unique<QObject>(); });
    }
    DirectReceiver(const DirectReceiver&) = delete;
    DirectReceiver& operator=(const DirectReceiver&) = delete;
    ~DirectReceiver() { disconnect(); }

    template <typename Signal, typename Slot>
    void connect(Signal signal, Slot slot)
    {
        runOnThreadOf(m_sender, [&] {
            QObject::connect(m_sender, signal, m_context.get(), std::move(slot), Qt::DirectConnection);
        });
    }

    /// No slot is called any more when this returns, and none can be connected.
    void disconnect()
    {
        if (m_context) {
            runOnThreadOf(m_sender, [this] { m_context.reset(); });
        }
    }

private:
    Sender* const m_sender;
    std::unique_ptr<QObject> m_context;
};
