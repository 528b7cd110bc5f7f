// Reading and writing of little-endian fields.
// SPDX-License-Identifier: Apache-2.0
#include "wire.h"

namespace MediaServer {
void setSize(QByteArray& message)
{
    setSize(message, static_cast<quint32>(message.size()));
}

void setSize(QByteArray& message, quint32 size)
{
    for (int i = 0; i < 4; ++i)
        message[8 + i] = static_cast<char>((size >> (8 * i)) & 0xFF);
}

FieldReader::FieldReader(const QByteArray& data, int offset)
    : m_data(data), m_position(qBound(0, offset, static_cast<int>(data.size())))
{
}

quint64 FieldReader::integer(int width)
{
    if (remaining() < width) {
        m_truncated = true;
        m_position = static_cast<int>(m_data.size());
        return 0;
    }
    quint64 value = 0;
    for (int i = 0; i < width; ++i)
        value |= static_cast<quint64>(static_cast<quint8>(m_data.at(m_position++))) << (8 * i);
    return value;
}

QByteArray FieldReader::bytes(int count)
{
    if (remaining() < count) {
        m_truncated = true;
        m_position = static_cast<int>(m_data.size());
        return {};
    }
    QByteArray value = m_data.mid(m_position, count);
    m_position += count;
    return value;
}

QString FieldReader::text8()
{
    const int end = static_cast<int>(m_data.indexOf('\0', m_position));
    if (end < 0) {
        m_truncated = true;
        m_position = static_cast<int>(m_data.size());
        return {};
    }
    QString value = QString::fromLatin1(m_data.constData() + m_position, end - m_position);
    m_position = end + 1;
    return value;
}

int readCount(FieldReader& in, quint8 msexMinor)
{
    return msexMinor < 2 ? in.u8() : in.u16();
}

MessageWriter::MessageWriter(const char* layer, quint16 requestIndex)
{
    bytes("CITP").u8(1).u8(0).u16(requestIndex).u32(HeaderSize).u16(1).u16(0).bytes(layer);
}

MessageWriter& MessageWriter::integer(quint64 value, int width)
{
    for (int i = 0; i < width; ++i)
        m_data.append(static_cast<char>((value >> (8 * i)) & 0xFF));
    return *this;
}

MessageWriter& MessageWriter::bytes(const QByteArray& value)
{
    m_data.append(value);
    return *this;
}

MessageWriter& MessageWriter::text8(const QString& value)
{
    const QByteArray latin1 = value.toLatin1();
    m_data.append(latin1.constData());
    m_data.append('\0');
    return *this;
}

MessageWriter& MessageWriter::ucs2(const QString& value)
{
    for (const QChar unit : value) {
        if (unit.isNull())
            break;
        u16(unit.unicode());
    }
    return u16(0);
}

QByteArray MessageWriter::take()
{
    setSize(m_data);
    return m_data;
}
} // namespace MediaServer
