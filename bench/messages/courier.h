// The two ends of a queued signal, as the stack's worker and an application's receiver are.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_thumbnails.h>

#include <QObject>
#include <QSemaphore>

namespace bench {
class Courier : public QObject
{
    Q_OBJECT
public:
    // The signals are for the benchmark to emit.
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

/// Lives in a thread of its own and tells by #received that a signal has come.
class Receiver : public QObject
{
    Q_OBJECT
public:
    void takeBare() { received.release(); }
    void takeMein(const CITP::Msg_MSEX_MEIN& /*message*/) { received.release(); }
    void takeLsta(const CITP::Msg_MSEX_LSTA& /*message*/) { received.release(); }
    void takeEthn(const CITP::Msg_MSEX_ETHN& /*message*/) { received.release(); }

    QSemaphore received;
};
} // namespace bench
