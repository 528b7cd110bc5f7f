// The simulator's own bounded reader and its own writer of CITP's little-endian fields, and the frame of a message.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

namespace MediaServer {
/// Length of the header that begins every CITP message, in bytes.
constexpr int HeaderSize = 20;
/// Length of that header and the MSEX header behind it, in bytes.
constexpr int MsexHeaderSize = 26;
/// Length of that header and the FPTC header behind it, in bytes.
constexpr int FptcHeaderSize = 28;

/// Reads fields one after the other. A field that is not wholly there reads as zero or empty and sets truncated().
class FieldReader
{
public:
    /// @param data the whole message; the caller keeps it alive
    /// @param offset where reading begins, in bytes, 0 to the length
    FieldReader(const QByteArray& data, int offset);

    quint8 u8() { return static_cast<quint8>(integer(1)); }
    quint16 u16() { return static_cast<quint16>(integer(2)); }
    quint32 u32() { return static_cast<quint32>(integer(4)); }
    /// @p count bytes as they stand.
    QByteArray bytes(int count);
    /// Single-byte text up to its terminating zero, which is passed too.
    QString text8();

    /// Bytes not read yet.
    int remaining() const { return static_cast<int>(m_data.size()) - m_position; }
    /// Whether a field was not wholly there.
    bool truncated() const { return m_truncated; }

private:
    quint64 integer(int width);

    const QByteArray& m_data;
    int m_position;
    bool m_truncated = false;
};

/// Builds one message: the header at once, the fields as they are appended, the size when the message is taken.
class MessageWriter
{
public:
    /// @param layer four characters, e.g. "PINF"
    /// @param requestIndex the index of the request that is answered, 0 if none is
    explicit MessageWriter(const char* layer, quint16 requestIndex = 0);

    MessageWriter& u8(quint32 value) { return integer(value, 1); }
    MessageWriter& u16(quint32 value) { return integer(value, 2); }
    MessageWriter& u32(quint32 value) { return integer(value, 4); }
    MessageWriter& u64(quint64 value) { return integer(value, 8); }
    /// Bytes as they stand, without a terminator.
    MessageWriter& bytes(const QByteArray& value);
    /// Single-byte text and a zero: one Latin-1 byte a character, "?" for what has none, nothing behind a zero.
    MessageWriter& text8(const QString& value);
    /// UCS-2 text and a zero unit, nothing behind a zero unit.
    MessageWriter& ucs2(const QString& value);

    /// The message with its size filled in.
    QByteArray take();

private:
    MessageWriter& integer(quint64 value, int width);

    QByteArray m_data;
};
} // namespace MediaServer
