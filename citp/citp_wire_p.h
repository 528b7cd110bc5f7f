// WireReader, the one bounded little-endian cursor with which every message body is read, and the writers of fields.
// Private; not installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_codecs.h>

#include <QByteArray>
#include <QString>
#include <QtEndian>

#include <algorithm>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace CITP {
/// The number of a code's four characters as they lie in a message, the first in the lowest byte.
constexpr quint32 codeNumber(const char (&code)[5])
{
    return static_cast<quint32>(static_cast<quint8>(code[0])) |
           static_cast<quint32>(static_cast<quint8>(code[1])) << 8 |
           static_cast<quint32>(static_cast<quint8>(code[2])) << 16 |
           static_cast<quint32>(static_cast<quint8>(code[3])) << 24;
}

/// The text of the four single-byte characters at @p bytes. The codes that open the messages received again and again
/// share their text: three allocations a message would cost more than reading a short one.
QString codeText(const char* bytes);

/// The first 16-bit unit of value 0 from @p from on, which need not be aligned; if there is none before @p end, the
/// place where less than a unit is left.
inline const char* findZeroUnit(const char* from, const char* end)
{
#ifdef __SSE2__
    if (end - from >= 16) {
        const char* const last = end - 16;
        do {
            const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
            const int zeros = _mm_movemask_epi8(_mm_cmpeq_epi16(units, _mm_setzero_si128()));
            if (zeros != 0) {
                return from + qCountTrailingZeroBits(static_cast<quint32>(zeros));
            }
            from += 16;
        } while (from <= last);
    }
#endif
    while (end - from >= 2 && (from[0] != 0 || from[1] != 0)) {
        from += 2;
    }
    return from;
}

/// Reads integers without looking for the end: only what WireReader::run() hands out after it has looked.
class UncheckedReader
{
public:
    explicit UncheckedReader(const char* next) : m_next(next) {}

    quint8 u8() { return read<quint8>(); }
    quint16 u16() { return read<quint16>(); }
    quint32 u32() { return read<quint32>(); }
    quint64 u64() { return read<quint64>(); }
    const char* next() const { return m_next; }

private:
    template <typename Integer>
    Integer read()
    {
        const Integer value = qFromLittleEndian<Integer>(m_next);
        m_next += sizeof(Integer);
        return value;
    }

    const char* m_next;
};

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
    explicit WireReader(const QByteArray& data, qint64 offset = 0)
        : m_begin(data.constData()), m_next(m_begin), m_end(m_begin + data.size())
    {
        skip(offset);
    }
    explicit WireReader(QByteArray&&, qint64 = 0) = delete;

    quint8 u8() { return read<quint8>(); }
    quint16 u16() { return read<quint16>(); }
    quint32 u32() { return read<quint32>(); }
    quint64 u64() { return read<quint64>(); }

    /// Reads a run of integers with one look for the end: calls @p fields with a reader that has u8() to u64().
    /// @tparam Most the most bytes that @p fields reads
    template <int Most, typename Fields>
    void run(Fields fields)
    {
        if (remaining() < Most) {
            fields(*this);
            return;
        }
        UncheckedReader reader(m_next);
        fields(reader);
        Q_ASSERT(reader.next() - m_next <= Most);
        m_next = reader.next();
    }

    /// A null-terminated UCS-2 text, as getUCS2() reads it.
    QString ucs2()
    {
        constexpr quint16 byteOrderMark = 0xfeff;
        const char* text = m_next;
        const char* const end = findZeroUnit(text, m_end);
        m_next = m_end - end < 2 ? end : end + 2;
        if (text != end && qFromLittleEndian<quint16>(text) == byteOrderMark) {
            text += 2;
        }
        if (text == end) {
            return {};
        }
        return unitsAsText(text, static_cast<QString::size_type>(static_cast<std::size_t>(end - text) / 2));
    }

    /// A null-terminated single-byte text, as get8bitunicode() reads it; the terminator is passed too.
    QString text8()
    {
        if (m_next == m_end) {
            return {};
        }
        const char* const text = m_next;
        const void* const found = std::memchr(text, 0, static_cast<std::size_t>(remaining()));
        const char* const end = found ? static_cast<const char*>(found) : m_end;
        m_next = found ? end + 1 : end;
        return text == end ? QString() : QString(QLatin1String(text, end));
    }

    /// A text of exactly @p count single-byte characters without a terminator; missing ones are U+0000.
    QString fixedText8(int count)
    {
        const int there = static_cast<int>(std::min<qint64>(count, remaining()));
        QString text(QLatin1String(m_next, there));
        m_next += there;
        if (there < count) {
            text.append(QString(count - there, QChar(u'\0')));
        }
        return text;
    }

    /// A code of four characters, as fixedText8() reads it.
    QString code()
    {
        if (remaining() < 4) {
            return fixedText8(4);
        }
        m_next += 4;
        return codeText(m_next - 4);
    }

    /// Passes @p count bytes, at most to the end; a negative count passes none.
    void skip(qint64 count) { m_next += qBound(qint64(0), count, remaining()); }

    /// The next byte of the message, of #remaining().
    const char* data() const { return m_next; }
    /// Offset of the next byte, 0 to the message's length.
    qint64 position() const { return m_next - m_begin; }
    qint64 remaining() const { return m_end - m_next; }

private:
    /// Copied as they stand, because Qt's converters would drop or swap byte-order marks further on and repair
    /// surrogates.
    static QString unitsAsText(const char* text, QString::size_type units)
    {
        QString out(units, Qt::Uninitialized);
        qFromLittleEndian<quint16>(text, units, out.data());
        return out;
    }

    template <typename Integer>
    Integer read()
    {
        if (remaining() < static_cast<qint64>(sizeof(Integer))) {
            m_next = m_end;
            return 0;
        }
        const Integer value = qFromLittleEndian<Integer>(m_next);
        m_next += sizeof(Integer);
        return value;
    }

    const char* m_begin;
    const char* m_next;
    const char* m_end;
};

/// Appends @p value to @p out, the lowest byte first.
template <typename Integer>
void appendInteger(QByteArray& out, Integer value)
{
    char bytes[sizeof(Integer)];
    qToLittleEndian(value, bytes);
    out.append(bytes, sizeof(Integer));
}

/// @p character as one Latin-1 byte, "?" for those above 0xFF. Spelled out because Qt leaves open what
/// QString::toLatin1() makes of such characters.
inline char text8Byte(QChar character)
{
    return character.unicode() > 0xff ? '?' : static_cast<char>(character.unicode());
}

/// Appends @p text to @p out as one byte a character, as text8Byte() makes them; without a terminator.
inline void appendText8(QByteArray& out, const QString& text)
{
    for (const QChar character : text) {
        out.append(text8Byte(character));
    }
}

/// Appends the first four characters of @p code, e.g. "MSEX", as appendText8() does. A shorter code is filled up with
/// zero bytes, so that the fields behind it stay at their offsets.
inline void appendCode(QByteArray& out, const QString& code)
{
    char bytes[4] = {};
    for (int i = 0; i < 4 && i < code.size(); ++i) {
        bytes[i] = text8Byte(code.at(i));
    }
    out.append(bytes, 4);
}
} // namespace CITP
