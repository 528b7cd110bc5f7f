// WireReader, the bounds-checked little-endian reader of all message bodies, and functions that write fields. Private;
// not installed.
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
/// A four-character code as an integer, the first character in the lowest byte.
constexpr quint32 codeNumber(const char (&code)[5])
{
    return static_cast<quint32>(static_cast<quint8>(code[0])) |
           static_cast<quint32>(static_cast<quint8>(code[1])) << 8 |
           static_cast<quint32>(static_cast<quint8>(code[2])) << 16 |
           static_cast<quint32>(static_cast<quint8>(code[3])) << 24;
}

constexpr int sizeOffset = 8; ///< of the size field in the CITP header

/// The size field of the CITP header at @p header.
inline quint32 sizeField(const char* header)
{
    return qFromLittleEndian<quint32>(header + sizeOffset);
}

/// The four Latin-1 characters at @p bytes as a string. Frequent codes share static strings: three allocations for each
/// message would cost more than parsing a short message.
QString codeText(const char* bytes);

/// Finds the first 16-bit unit of value 0. @p from does not have to be aligned.
/// @return the unit; without one before @p end, the position where less than a unit is left
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

/// Reads integers without bounds checks. Created only by WireReader::run(), which checks the bounds before.
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

/// Reads the fields of a message in sequence and never beyond its end.
///
/// Media servers send truncated bodies, and counts larger than the number of records that follow. Therefore the end of
/// the message is not an error: a truncated integer reads as 0 and consumes the remaining bytes, and a string at the
/// end is empty. The buffer must stay alive and unchanged.
class WireReader
{
public:
    /// @param data the whole message
    /// @param offset the first byte to read; an offset beyond the end means the end
    explicit WireReader(const QByteArray& data, qint64 offset = 0)
        // Not constData(): that of a null array is a byte of Qt's, and g++ 14 warns of reads beyond it, as it cannot
        // know that the size is 0 then.
        : m_begin(data.isEmpty() ? "" : data.cbegin()), m_next(m_begin), m_end(m_begin + data.size())
    {
        skip(offset);
    }
    explicit WireReader(QByteArray&&, qint64 = 0) = delete;

    quint8 u8() { return read<quint8>(); }
    quint16 u16() { return read<quint16>(); }
    quint32 u32() { return read<quint32>(); }
    quint64 u64() { return read<quint64>(); }

    /// Reads a run of integers with one bounds check: calls @p fields with a reader that has u8() to u64().
    /// @tparam MaxBytes the maximum number of bytes that @p fields reads
    template <int MaxBytes, typename Fields>
    void run(Fields fields)
    {
        if (remaining() < MaxBytes) {
            fields(*this);
            return;
        }
        UncheckedReader reader(m_next);
        fields(reader);
        Q_ASSERT(reader.next() - m_next <= MaxBytes);
        m_next = reader.next();
    }

    /// A null-terminated UCS-2 string, read as by getUCS2().
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
        return stringFromUnits(text, static_cast<QString::size_type>(static_cast<std::size_t>(end - text) / 2));
    }

    /// A null-terminated Latin-1 string, read as by get8bitunicode(); consumes the terminator.
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

    /// A string of exactly @p count Latin-1 characters without a terminator; missing characters are U+0000.
    QString fixedText8(int count)
    {
        const int available = static_cast<int>(std::min<qint64>(count, remaining()));
        QString text(QLatin1String(m_next, available));
        m_next += available;
        if (available < count) {
            text.append(QString(count - available, QChar(u'\0')));
        }
        return text;
    }

    /// A four-character code, read as by fixedText8().
    QString code()
    {
        if (remaining() < 4) {
            return fixedText8(4);
        }
        m_next += 4;
        return codeText(m_next - 4);
    }

    /// Skips @p count bytes, at most to the end; a negative count skips none.
    void skip(qint64 count) { m_next += qBound(qint64(0), count, remaining()); }

    /// The next byte of the message, of remaining() bytes.
    const char* data() const { return m_next; }
    /// The offset of the next byte, 0 to the length of the message.
    qint64 position() const { return m_next - m_begin; }
    /// The number of bytes not yet read.
    qint64 remaining() const { return m_end - m_next; }

private:
    /// Copies the units unchanged. Qt's converters would drop or apply later byte order marks and replace invalid
    /// surrogates.
    static QString stringFromUnits(const char* text, QString::size_type units)
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

/// Appends @p value to @p out in little-endian order.
template <typename Integer>
void appendInteger(QByteArray& out, Integer value)
{
    char bytes[sizeof(Integer)];
    qToLittleEndian(value, bytes);
    out.append(bytes, sizeof(Integer));
}

/// @p character as a Latin-1 byte; "?" above U+00FF. QString::toLatin1() is not used, because its result for such
/// characters is undefined.
inline char text8Byte(QChar character)
{
    return character.unicode() > 0xff ? '?' : static_cast<char>(character.unicode());
}

/// Appends @p text to @p out in Latin-1, one text8Byte() for each character, without a terminator.
inline void appendText8(QByteArray& out, const QString& text)
{
    for (const QChar character : text) {
        out.append(text8Byte(character));
    }
}

/// Appends the first four characters of @p code, e.g. "MSEX", as appendText8() does. A shorter code is padded with
/// zero bytes, so that the following fields keep their offsets.
inline void appendCode(QByteArray& out, const QString& code)
{
    char bytes[4] = {};
    for (int i = 0; i < 4 && i < code.size(); ++i) {
        bytes[i] = text8Byte(code.at(i));
    }
    out.append(bytes, 4);
}
} // namespace CITP
