// Implementations of the baselines.
// SPDX-License-Identifier: Apache-2.0
#include "baselines.h"

#include "reference_parser.h"

#include <QDataStream>

BareSocket::BareSocket() : m_buffer(65536)
{
    connect(this, &QTcpSocket::readyRead, this, &BareSocket::handleData);
}

void BareSocket::expect(qint64 bytes, QSemaphore* done)
{
    m_remaining = bytes;
    m_done = done;
}

void BareSocket::count(qint64 bytes)
{
    m_remaining -= bytes;
    if (m_remaining == 0) {
        m_done->release();
    }
}

void BareSocket::handleData()
{
    qint64 bytes = 0;
    while ((bytes = read(m_buffer.data(), static_cast<qint64>(m_buffer.size()))) > 0) {
        count(bytes);
    }
}

void PlainFraming::handleData()
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

void NaiveStack::handle(const QByteArray& message, const QString& key)
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
