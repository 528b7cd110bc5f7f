// Sending in order, and the faults that affect sending.
// SPDX-License-Identifier: Apache-2.0
#include "send_queue.h"

#include <QStringList>

namespace MediaServer {
namespace {
constexpr int MergeCount = 4;
// How long answers wait for more answers. Restarted by each answer, so that answers are merged on a busy machine too.
constexpr int MergeWaitMs = 100;
// Delay of the reset, because a reset discards unsent bytes.
constexpr int ResetWaitMs = 50;
} // namespace

SendQueue::SendQueue(QTcpSocket& socket, Faults& faults, QObject* parent)
    : QObject(parent), m_socket(socket), m_faults(faults)
{
    connect(&m_byteTimer, &QTimer::timeout, this, &SendQueue::writeByte);
    m_mergeTimer.setSingleShot(true);
    connect(&m_mergeTimer, &QTimer::timeout, this, &SendQueue::flushMerged);
}

QString SendQueue::send(const QByteArray& message)
{
    QStringList injected;
    flushMerged();
    write(m_faults.changed(message, injected), Pace::Whole);
    return injected.join(", ");
}

QString SendQueue::answer(QByteArray message)
{
    QStringList injected;
    message = m_faults.changed(message, injected);
    const auto inject = [&](Fault fault, const char* name) {
        if (!m_faults.shouldInject(fault))
            return false;
        injected << name;
        return true;
    };
    const bool reset = inject(Fault::Reset, "reset");
    const bool isLast = inject(Fault::Stall, "stall") || reset;
    if (isLast)
        message.truncate(m_faults.random(1, static_cast<int>(message.size()) - 1));
    if (inject(Fault::Garbage, "garbage"))
        message.prepend(m_faults.garbage());
    if (inject(Fault::Noise, "noise"))
        message.prepend(m_faults.noise());
    Pace pace = inject(Fault::Split, "split") ? Pace::Split : Pace::Whole;
    if (inject(Fault::Drip, "drip"))
        pace = Pace::Drip;
    // An answer that is split or is the last one is not merged.
    if (inject(Fault::Merge, "merge") && !isLast && pace == Pace::Whole) {
        m_merged += message;
        if (++m_mergedCount == MergeCount)
            flushMerged();
        else
            m_mergeTimer.start(MergeWaitMs);
    } else {
        flushMerged();
        write(message, pace);
    }
    m_isEnded = m_isEnded || isLast;
    if (reset) {
        m_isResetPending = true;
        if (m_splitBytes.isEmpty())
            scheduleReset();
    }
    return injected.join(", ");
}

void SendQueue::write(const QByteArray& bytes, Pace pace)
{
    if (m_isEnded || m_socket.state() != QAbstractSocket::ConnectedState)
        return;
    if (pace == Pace::Whole && m_splitBytes.isEmpty()) {
        m_socket.write(bytes);
        return;
    }
    m_splitBytes += bytes;
    m_socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    // The pace of what is being sent stays: messages that follow must not put off the next byte.
    if (!m_byteTimer.isActive())
        m_byteTimer.start(pace == Pace::Drip ? m_faults.delayMs() : 0);
}

void SendQueue::writeByte()
{
    if (m_socket.state() == QAbstractSocket::ConnectedState) {
        m_socket.write(m_splitBytes.left(1));
        m_socket.flush();
        m_splitBytes.remove(0, 1);
    } else {
        m_splitBytes.clear();
    }
    if (!m_splitBytes.isEmpty())
        return;
    m_byteTimer.stop();
    if (m_isResetPending)
        scheduleReset();
    else
        Q_EMIT idle();
}

void SendQueue::scheduleReset()
{
    m_socket.flush();
    QTimer::singleShot(ResetWaitMs, this, &SendQueue::resetDue);
}

void SendQueue::flushMerged()
{
    m_mergeTimer.stop();
    m_mergedCount = 0;
    const QByteArray merged = m_merged;
    m_merged.clear();
    if (!merged.isEmpty())
        write(merged, Pace::Whole);
}

void SendQueue::setPaused(bool isPaused)
{
    if (isPaused) {
        m_byteTimer.stop();
        m_mergeTimer.stop();
        return;
    }
    if (!m_splitBytes.isEmpty())
        m_byteTimer.start();
    flushMerged();
}
} // namespace MediaServer
