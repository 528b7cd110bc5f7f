// Ordering of what goes out, and the faults of sending.
// SPDX-License-Identifier: Apache-2.0
#include "outbox.h"

#include <QStringList>

#include "wire.h"

namespace MediaServer {
namespace {
constexpr int MergeCount = 4;
// How long an answer waits for another to come with it, in milliseconds; afresh with each, so that what is ready to be
// answered comes together on a busy machine too.
constexpr int MergeWait = 100;
// Time for half an answer to leave before the reset, which would take it along, in milliseconds.
constexpr int ResetWait = 50;
} // namespace

Outbox::Outbox(QTcpSocket& socket, Faults& faults, QObject* parent)
    : QObject(parent), m_socket(socket), m_faults(faults)
{
    connect(&m_byteTimer, &QTimer::timeout, this, &Outbox::writeByte);
    m_mergeTimer.setSingleShot(true);
    connect(&m_mergeTimer, &QTimer::timeout, this, &Outbox::flushMerged);
}

void Outbox::send(const QByteArray& message)
{
    flushMerged();
    write(message, false);
}

QString Outbox::answer(QByteArray message)
{
    QStringList struck;
    const auto strikes = [&](Fault fault, const char* name) {
        if (!m_faults.strikes(fault))
            return false;
        struck << name;
        return true;
    };
    if (strikes(Fault::Truncate, "truncate"))
        message = m_faults.truncated(message);
    if (strikes(Fault::Spoil, "spoil"))
        message = m_faults.spoiled(message);
    if (strikes(Fault::Oversize, "oversize"))
        message = m_faults.oversized(message);
    if (strikes(Fault::Version, "version"))
        message = m_faults.misversioned(message);
    const bool reset = strikes(Fault::Reset, "reset");
    if (reset)
        message.truncate(m_faults.pick(1, static_cast<int>(message.size()) - 1));
    if (strikes(Fault::Garbage, "garbage"))
        message.prepend(m_faults.garbage());
    if (strikes(Fault::Noise, "noise"))
        message.prepend(m_faults.noise());
    const bool split = strikes(Fault::Split, "split");
    // What leaves in single bytes, or is the last thing to leave, cannot wait for others.
    if (strikes(Fault::Merge, "merge") && !reset && !split) {
        m_merged += message;
        if (++m_mergedCount == MergeCount)
            flushMerged();
        else
            m_mergeTimer.start(MergeWait);
    } else {
        flushMerged();
        write(message, split);
    }
    if (reset) {
        m_broken = true;
        if (m_bytewise.isEmpty())
            scheduleReset();
    }
    return struck.join(", ");
}

void Outbox::write(const QByteArray& bytes, bool split)
{
    if (m_broken || m_socket.state() != QAbstractSocket::ConnectedState)
        return;
    if (!split && m_bytewise.isEmpty()) {
        m_socket.write(bytes);
        return;
    }
    m_bytewise += bytes;
    m_socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    m_byteTimer.start(0);
}

void Outbox::writeByte()
{
    if (m_socket.state() == QAbstractSocket::ConnectedState) {
        m_socket.write(m_bytewise.left(1));
        m_socket.flush();
        m_bytewise.remove(0, 1);
    } else {
        m_bytewise.clear();
    }
    if (!m_bytewise.isEmpty())
        return;
    m_byteTimer.stop();
    if (m_broken)
        scheduleReset();
    else
        Q_EMIT idle();
}

void Outbox::scheduleReset()
{
    m_socket.flush();
    QTimer::singleShot(ResetWait, this, &Outbox::resetDue);
}

void Outbox::flushMerged()
{
    m_mergeTimer.stop();
    m_mergedCount = 0;
    const QByteArray merged = m_merged;
    m_merged.clear();
    if (!merged.isEmpty())
        write(merged, false);
}
} // namespace MediaServer
