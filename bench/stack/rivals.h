// What the stack is held against: a socket that is only emptied, and the stack as one would first write it.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_thumbnails.h>

#include <QByteArray>
#include <QSemaphore>
#include <QString>
#include <QTcpSocket>

#include <vector>

/// Reads all that comes and counts it.
class BareSocket : public QTcpSocket
{
    Q_OBJECT

public:
    BareSocket();
    /// @p tell is released when @p bytes have come.
    void expect(qint64 bytes, QSemaphore* tell);

protected Q_SLOTS:
    virtual void take();

protected:
    void count(qint64 bytes);

private:
    qint64 m_missing = 0;
    QSemaphore* m_tell = nullptr;
    std::vector<char> m_buffer;
};

/// Cuts the stream into messages by peek and read, and drops them.
class PlainFraming : public BareSocket
{
    Q_OBJECT

protected:
    void take() override;
    virtual void handle(const QByteArray& message, const QString& key);
};

/// Parses them with QDataStream and tells of them by a signal.
class ObviousStack : public PlainFraming
{
    Q_OBJECT

Q_SIGNALS:
    void layerStatus(const QString& server, const CITP::Msg_MSEX_LSTA& message);
    void elementThumbnail(const QString& server, const CITP::Msg_MSEX_ETHN& message);

protected:
    void handle(const QByteArray& message, const QString& key) override;
};
