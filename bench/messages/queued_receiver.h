// The sender and the receiver of a queued signal, like the stack's worker and an application.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_thumbnails.h>

#include <QObject>
#include <QSemaphore>

namespace bench {
class Sender : public QObject
{
    Q_OBJECT
public:
    // Signals can only be emitted from inside the class.
    void emitBare() { Q_EMIT bare(); }
    void emitMessage(const CITP::Msg_MSEX_MEIN& message) { Q_EMIT mein(message); }
    void emitMessage(const CITP::Msg_MSEX_LSTA& message) { Q_EMIT lsta(message); }
    void emitMessage(const CITP::Msg_MSEX_ETHN& message) { Q_EMIT ethn(message); }

Q_SIGNALS:
    void bare();
    void mein(const CITP::Msg_MSEX_MEIN& message);
    void lsta(const CITP::Msg_MSEX_LSTA& message);
    void ethn(const CITP::Msg_MSEX_ETHN& message);
};

/// Lives in its own thread and releases #received for each signal.
class QueuedReceiver : public QObject
{
    Q_OBJECT
public:
    void handleBare() { received.release(); }
    void handleMein(const CITP::Msg_MSEX_MEIN& /*message*/) { received.release(); }
    void handleLsta(const CITP::Msg_MSEX_LSTA& /*message*/) { received.release(); }
    void handleEthn(const CITP::Msg_MSEX_ETHN& /*message*/) { received.release(); }

    QSemaphore received;
};
} // namespace bench
