// The baselines for the stack: a socket that only reads, and simple implementations of the stack.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_thumbnails.h>

#include <QByteArray>
#include <QSemaphore>
#include <QString>
#include <QTcpSocket>

#include <vector>

/// Reads and counts all incoming bytes.
class BareSocket : public QTcpSocket
{
    Q_OBJECT

public:
    BareSocket();
    /// Releases @p done when @p bytes have been received.
    void expect(qint64 bytes, QSemaphore* done);

protected Q_SLOTS:
    virtual void handleData();

protected:
    void count(qint64 bytes);

private:
    qint64 m_remaining = 0;
    QSemaphore* m_done = nullptr;
    std::vector<char> m_buffer;
};

/// Splits the stream into messages with peek() and read(), and discards them.
class PlainFraming : public BareSocket
{
    Q_OBJECT

protected:
    void handleData() override;
    virtual void handle(const QByteArray& message, const QString& key);
};

/// Parses the messages with QDataStream and emits a signal for each.
class NaiveStack : public PlainFraming
{
    Q_OBJECT

Q_SIGNALS:
    void layerStatus(const QString& server, const CITP::Msg_MSEX_LSTA& message);
    void elementThumbnail(const QString& server, const CITP::Msg_MSEX_ETHN& message);

protected:
    void handle(const QByteArray& message, const QString& key) override;
};
