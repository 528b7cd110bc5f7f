// What the stack is held against.
// SPDX-License-Identifier: Apache-2.0
#include "rivals.h"

#include "reference_parser.h"

#include <QDataStream>

BareSocket::BareSocket() : m_buffer(65536)
{
    connect(this, &QTcpSocket::readyRead, this, &BareSocket::take);
}

void BareSocket::expect(qint64 bytes, QSemaphore* tell)
{
    m_missing = bytes;
    m_tell = tell;
}

void BareSocket::count(qint64 bytes)
{
    m_missing -= bytes;
    if (m_missing == 0) {
        m_tell->release();
    }
}

void BareSocket::take()
{
    qint64 bytes = 0;
    while ((bytes = read(m_buffer.data(), static_cast<qint64>(m_buffer.size()))) > 0) {
        count(bytes);
    }
}

void PlainFraming::take()
{
    const QString key = peerName() + QLatin1Char(':') + QString::number(peerPort());
    while (bytesAvailable() >= 20) {
        QDataStream stream(peek(20));
        stream.setByteOrder(QDataStream::LittleEndian);
        stream.skipRawData(8);
        quint32 size = 0;
        stream >> size;
        if (bytesAvailable() < size) {
            return;
        }
        handle(read(size), key);
        count(size);
    }
}

void PlainFraming::handle(const QByteArray&, const QString&) {}

void ObviousStack::handle(const QByteArray& message, const QString& key)
{
    const QByteArray code = message.mid(22, 4);
    if (code == "LSta") {
        CITP::Msg_MSEX_LSTA parsed;
        reference::parse(message, parsed);
        Q_EMIT layerStatus(key, parsed);
    } else if (code == "EThn") {
        CITP::Msg_MSEX_ETHN parsed;
        reference::parse(message, parsed);
        Q_EMIT elementThumbnail(key, parsed);
    }
}
