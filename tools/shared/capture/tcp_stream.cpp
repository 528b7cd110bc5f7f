// Reassembly of one direction of a TCP connection.
// SPDX-License-Identifier: Apache-2.0
#include "tcp_stream.h"

namespace Tools {
namespace {
// Larger than any window: a greater distance means another stream or a long gap in the capture.
constexpr qint64 MaxJump = 16 << 20;
constexpr qint64 AcknowledgedGraceUs = 1000000;
constexpr qint64 MaxWaitUs = 30000000;
// Memory of a held segment in addition to its payload.
constexpr qint64 Overhead = 128;

// The distance from @p from to @p sequence, with wrap-around.
qint64 distance(quint32 from, quint32 sequence)
{
    return static_cast<qint32>(sequence - from);
}
} // namespace

TcpStream::~TcpStream()
{
    while (!m_held.empty())
        release(m_held.begin());
}

void TcpStream::start(quint32 sequence)
{
    m_isStarted = true;
    m_next = sequence;
    m_acknowledged = m_position;
}

void TcpStream::add(quint32 sequence, const QByteArray& data, int length, qint64 timeUs)
{
    if (!m_isStarted)
        start(sequence);
    skipOldGaps(timeUs);
    qint64 ahead = distance(m_next, sequence);
    if (ahead > MaxJump || ahead < -MaxJump) {
        const bool isBack = ahead < 0;
        finish();
        // The segments delivered by finish() have reduced the distance and may even cover it.
        ahead = distance(m_next, sequence);
        if (isBack || ahead > 0) {
            m_sink.gap(isBack ? -1 : ahead, qMax(timeUs, m_timeUs));
            start(sequence);
            ahead = 0;
        }
        deliver(data, length, -ahead, timeUs);
    } else if (ahead > 0) {
        hold(m_position + ahead, data, length, timeUs);
    } else {
        deliver(data, length, -ahead, timeUs);
        deliverHeld();
    }
}

void TcpStream::acknowledge(quint32 sequence, qint64 timeUs)
{
    const qint64 ahead = distance(m_next, sequence);
    if (!m_isStarted || ahead <= 0 || ahead > MaxJump)
        return;
    m_acknowledged = qMax(m_acknowledged, m_position + ahead);
    m_acknowledgedUs = qMax(m_acknowledgedUs, timeUs);
    skipOldGaps(timeUs);
}

void TcpStream::finish()
{
    while (!m_held.empty())
        skipGap();
    // A FIN occupies one sequence number, which is not a byte.
    const qint64 missing = m_acknowledged - m_position;
    if (missing > 1) {
        // m_timeUs is not set if no byte of the stream was captured.
        m_timeUs = qMax(m_timeUs, m_acknowledgedUs);
        m_sink.gap(missing, m_timeUs);
        m_position += missing;
        m_next += static_cast<quint32>(missing);
    }
}

void TcpStream::deliver(const QByteArray& data, int length, qint64 skip, qint64 timeUs)
{
    if (skip >= length)
        return;
    m_timeUs = qMax(m_timeUs, timeUs);
    const qint64 added = length - skip;
    const qint64 captured = qMax<qint64>(0, data.size() - skip);
    m_position += added;
    m_next += static_cast<quint32>(added);
    if (captured > 0)
        m_sink.bytes(QByteArray::fromRawData(data.constData() + skip, static_cast<int>(captured)), m_timeUs);
    if (captured < added)
        m_sink.gap(added - captured, m_timeUs);
}

void TcpStream::deliverHeld()
{
    while (!m_held.empty() && m_held.begin()->first <= m_position) {
        const auto first = m_held.begin();
        const qint64 skip = m_position - first->first;
        const Held held = first->second;
        release(first);
        deliver(held.data, held.length, skip, held.timeUs);
        m_waitsSinceUs = m_timeUs;
    }
}

void TcpStream::hold(qint64 position, const QByteArray& data, int length, qint64 timeUs)
{
    const auto same = m_held.find(position);
    if (same != m_held.end()) {
        if (length <= same->second.length)
            return;
        release(same);
    }
    if (m_held.empty())
        m_waitsSinceUs = timeUs;
    // When the limit is reached, the missing bytes are given up: held segments are delivered before this one.
    while (!m_held.empty() && (m_heldBytes + data.size() > MaxHeldBytes || m_held.size() >= MaxHeldSegments))
        skipGap();
    if (position > m_position && m_budget.take(data.size() + Overhead)) {
        m_heldBytes += data.size();
        m_held.insert({position, {QByteArray(data.constData(), data.size()), length, timeUs}});
        return;
    }
    while (!m_held.empty() && m_held.begin()->first < position)
        skipGap();
    if (position > m_position) {
        m_timeUs = qMax(m_timeUs, timeUs);
        m_sink.gap(position - m_position, m_timeUs);
        m_next += static_cast<quint32>(position - m_position);
        m_position = position;
    }
    deliver(data, length, m_position - position, timeUs);
    deliverHeld();
}

void TcpStream::release(std::map<qint64, Held>::iterator held)
{
    m_heldBytes -= held->second.data.size();
    m_budget.release(held->second.data.size() + Overhead);
    m_held.erase(held);
}

void TcpStream::skipGap()
{
    const qint64 missing = m_held.begin()->first - m_position;
    m_timeUs = qMax(m_timeUs, m_held.begin()->second.timeUs);
    m_sink.gap(missing, m_timeUs);
    m_position += missing;
    m_next += static_cast<quint32>(missing);
    deliverHeld();
}

void TcpStream::skipOldGaps(qint64 timeUs)
{
    while (!m_held.empty()) {
        const qint64 waited = timeUs - m_waitsSinceUs;
        const bool isAcknowledged = m_acknowledged >= m_held.begin()->first;
        if (waited < (isAcknowledged ? AcknowledgedGraceUs : MaxWaitUs))
            return;
        skipGap();
        m_waitsSinceUs = m_held.empty() ? timeUs : qMax(m_waitsSinceUs, m_held.begin()->second.timeUs);
    }
}
} // namespace Tools
