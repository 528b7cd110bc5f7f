// Msg_Header: the CITP header, base class of all message classes.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_export.h>

#include <QByteArray>
#include <QString>

/// The client side of CITP: message classes, field codecs, and the stack.
namespace CITP {
/// Counts the copies of a message that wait in event queues, see citp_options::setMaxUnreadBytes(). Only the stack
/// starts the counting, for the message that it emits; copies of a copy are not counted.
class CITP_EXPORT UnreadCount
{
public:
    UnreadCount() = default;
    /// A copy counts if @p other belongs to the message that the stack emits.
    UnreadCount(const UnreadCount& other)
    {
        if (other.m_cost != 0) {
            add(other.m_cost);
        }
    }
    /// Changes nothing: an assigned message is not a copy that waits.
    UnreadCount& operator=(const UnreadCount&) { return *this; }
    ~UnreadCount()
    {
        if (m_counted != 0) {
            remove();
        }
    }

private:
    friend class Guards;
    void add(quint32 bytes);
    void remove();

    quint32 m_cost = 0;    ///< what each copy counts as; 0 in a copy
    quint32 m_counted = 0; ///< what this copy counts as
};

/// The CITP header, the first 20 bytes of every CITP message on UDP and TCP, and the base class of all message classes.
///
/// A message is a value, built from its fields or parsed from a buffer. It owns its data. The message classes are
/// reentrant: different objects can be used in different threads.
///
/// Parsing does not throw on invalid input; #valid reports errors. A received message that is not #valid still holds
/// the fields that were read before the error was found.
class CITP_EXPORT Msg_Header
{
public:
    /// A valid message with empty strings and zero numbers.
    Msg_Header() = default;
    /// A header for sending, version 1.0.
    /// @param index the request index; 0 in every message that this library builds
    /// @param layer the content type: the four-character code of the layer, e.g. "MSEX"
    Msg_Header(unsigned short index, const QString& layer);
    /// Parses the header of @p msg, which holds exactly one whole message. An error clears #valid and is logged in
    /// "CITP.Message" at level Failure (8).
    explicit Msg_Header(const QByteArray& msg);
    /// Copies all members.
    Msg_Header(const Msg_Header& other) = default;
    virtual ~Msg_Header();

    /// Copies all members except #valid, #partCount and #part, which describe how this object was received.
    Msg_Header& operator=(const Msg_Header& other);

    /// The length in bytes that the message at the start of @p buffer announces (offset 8, read as signed). The cookie
    /// is not checked. 0 for fewer than 20 bytes.
    static int messageSize(const QByteArray& buffer);
    /// The content type of the message in @p buffer (offset 16); empty for fewer than 20 bytes.
    static QString contentType(const QByteArray& buffer);
    /// Writes the length of @p buffer to its size field (offset 8). Call it when the body is complete. Does nothing if
    /// @p buffer is too short to hold the field.
    static void setSize(QByteArray& buffer);

    /// The content type: the four-character code of the layer, e.g. "MSEX" (offset 16).
    QString contentType() const { return m_contentType; }

    bool valid = true;        ///< false if the message cannot be used or written; the library never resets it to true
    quint32 size = 0;         ///< length of the whole message in bytes, as received (offset 8); 0 if built for sending
    quint8 citpMajor = 0;     ///< CITP major version, as received (offset 4)
    quint8 citpMinor = 0;     ///< CITP minor version, as received (offset 5)
    quint16 requestIndex = 0; ///< request index (offset 6)
    quint16 partCount = 0;    ///< number of parts of a split message, as received (offset 12); not evaluated
    quint16 part = 0;         ///< index of this part, as received (offset 14); not evaluated
private:
    friend class Guards;

    QString m_contentType;
    UnreadCount m_unread;

public:
    QString cookie; ///< the four characters at offset 0, as received; empty if built for sending
};

/// Replaces @p out with the CITP header of @p header: version 1.0, one part, and a size of 20 until
/// Msg_Header::setSize() is called. The content type is written as four Latin-1 characters: others are written as "?",
/// a shorter one is padded with zero bytes.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_Header& header);

/// Appends the debug text of @p header to @p text, e.g. "( rindex=3 size=45 content=MSEX ) ".
CITP_EXPORT QString& operator>>(QString& text, const Msg_Header& header);
} // namespace CITP
