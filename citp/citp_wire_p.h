// WireReader, the one bounded little-endian cursor with which every message body is read, and the writers of fields.
// Private; not installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_codecs.h>

#include <QByteArray>
#include <QString>
#include <QtEndian>

namespace CITP {
/// Reads the fields of a message one after the other and never past its end.
///
/// Media servers in the field send bodies that are cut short and counts that promise more than follows. So running out
/// of bytes is no error: an integer of which not all bytes are there reads as 0 and uses up what is left, and text at
/// the end is empty. The caller keeps the buffer alive and unchanged.
class WireReader
{
public:
    /// @param data the whole message
    /// @param offset where reading begins, in bytes; beyond the end counts as the end
    explicit WireReader(const QByteArray& data, qint64 offset = 0) : m_data(data) { skip(offset); }
    explicit WireReader(QByteArray&&, qint64 = 0) = delete;

    quint8 u8() { return read<quint8>(); }
    quint16 u16() { return read<quint16>(); }
    quint32 u32() { return read<quint32>(); }
    quint64 u64() { return read<quint64>(); }

    /// A null-terminated UCS-2 text, as getUCS2() reads it.
    QString ucs2()
    {
        QString text;
        m_position += getUCS2(text, m_data, static_cast<unsigned int>(m_position));
        return text;
    }

    /// A null-terminated single-byte text, as get8bitunicode() reads it; the terminator is passed too.
    QString text8()
    {
        QString text = get8bitunicode(m_data, static_cast<unsigned int>(m_position));
        skip(text.size() + 1);
        return text;
    }

    /// A text of exactly @p count single-byte characters without a terminator; missing ones are U+0000.
    QString fixedText8(int count)
    {
        QString text;
        text.reserve(count);
        for (int index = 0; index < count; ++index)
            text += QLatin1Char(static_cast<char>(u8()));
        return text;
    }

    /// Passes @p count bytes, at most to the end; a negative count passes none.
    void skip(qint64 count) { m_position += qBound(qint64(0), count, remaining()); }

    /// Offset of the next byte, 0 to the message's length.
    qint64 position() const { return m_position; }
    qint64 remaining() const { return m_data.size() - m_position; }

private:
    template <typename Integer>
    Integer read()
    {
        if (remaining() < static_cast<qint64>(sizeof(Integer))) {
            m_position = m_data.size();
            return 0;
        }
        const Integer value = qFromLittleEndian<Integer>(m_data.constData() + m_position);
        m_position += static_cast<qint64>(sizeof(Integer));
        return value;
    }

    const QByteArray& m_data;
    qint64 m_position = 0;
};

/// Appends @p value to @p out, the lowest byte first.
template <typename Integer>
void appendInteger(QByteArray& out, Integer value)
{
    char bytes[sizeof(Integer)];
    qToLittleEndian(value, bytes);
    out.append(bytes, sizeof(Integer));
}

/// Appends @p text to @p out as one Latin-1 byte a character, "?" for those above 0xFF; without a terminator. Spelled
/// out because Qt leaves open what QString::toLatin1() makes of such characters.
inline void appendText8(QByteArray& out, const QString& text)
{
    for (const QChar character : text)
        out.append(character.unicode() > 0xff ? '?' : static_cast<char>(character.unicode()));
}

/// Appends the first four characters of @p code, e.g. "MSEX", as appendText8() does. A shorter code is filled up with
/// zero bytes, so that the fields behind it stay at their offsets.
inline void appendCode(QByteArray& out, const QString& code)
{
    QByteArray bytes;
    appendText8(bytes, code.left(4));
    out.append(bytes);
    for (auto missing = 4 - bytes.size(); missing > 0; --missing)
        out.append('\0');
}
} // namespace CITP
