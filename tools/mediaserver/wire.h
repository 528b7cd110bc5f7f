// Reader and writer for the little-endian fields of CITP messages, independent of the library's code.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

namespace MediaServer {
/// Length of the CITP header in bytes.
constexpr int HeaderSize = 20;
/// Length of the CITP header and the MSEX header in bytes.
constexpr int MsexHeaderSize = 26;
/// Length of the CITP header and the FPTC header in bytes.
constexpr int FptcHeaderSize = 28;

/// Writes the size of @p message to the size field of its header.
void setSize(QByteArray& message);
/// Writes @p size to the size field of the header of @p message.
void setSize(QByteArray& message, quint32 size);

/// Reads consecutive fields. An incomplete field reads as zero or empty and sets truncated().
class FieldReader
{
public:
    /// @param data the complete message; must outlive this object
    /// @param offset position of the first field in bytes
    FieldReader(const QByteArray& data, int offset);

    quint8 u8() { return static_cast<quint8>(integer(1)); }
    quint16 u16() { return static_cast<quint16>(integer(2)); }
    quint32 u32() { return static_cast<quint32>(integer(4)); }
    /// Reads @p count bytes.
    QByteArray bytes(int count);
    /// Reads a zero-terminated Latin-1 text.
    QString text8();

    /// Number of unread bytes.
    int remaining() const { return static_cast<int>(m_data.size()) - m_position; }
    /// Whether a field was incomplete.
    bool truncated() const { return m_truncated; }

private:
    quint64 integer(int width);

    const QByteArray& m_data;
    int m_position;
    bool m_truncated = false;
};

/// Reads a count, which has one byte before MSEX 1.2 and two bytes since then.
int readCount(FieldReader& in, quint8 msexMinor);

/// Builds a message. The constructor writes the header, and take() sets the size field.
class MessageWriter
{
public:
    /// @param layer four characters, e.g. "PINF"
    /// @param requestIndex the index of the answered request, 0 if the message is not an answer
    explicit MessageWriter(const char* layer, quint16 requestIndex = 0);

    MessageWriter& u8(quint32 value) { return integer(value, 1); }
    MessageWriter& u16(quint32 value) { return integer(value, 2); }
    MessageWriter& u32(quint32 value) { return integer(value, 4); }
    MessageWriter& u64(quint64 value) { return integer(value, 8); }
    /// Appends bytes without a terminator.
    MessageWriter& bytes(const QByteArray& value);
    /// Appends Latin-1 text up to its first zero, and a zero byte. Characters that Latin-1 lacks are replaced by "?".
    MessageWriter& text8(const QString& value);
    /// Appends UCS-2 text up to its first zero, and a zero unit.
    MessageWriter& ucs2(const QString& value);

    /// Returns the message with its size field set.
    QByteArray take();

private:
    MessageWriter& integer(quint64 value, int width);

    QByteArray m_data;
};
} // namespace MediaServer
