// Msg_Header: the CITP header that opens every message, root of all message classes. Values; any thread, one at a time.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_export.h>

#include <QByteArray>
#include <QString>

/// The client side of CITP: messages as values, their field codecs, and the stack.
namespace CITP {
/// The 20 bytes that open every CITP message on UDP and TCP, and the base of every message class.
///
/// A message is a value: built from its fields or parsed from a buffer, and unchanged afterwards except by assignment.
/// It owns all that it holds. Objects of their own may be used in any thread, one object by one thread at a time.
///
/// Parsing never throws for what a peer sent; #valid tells. A received message that is not #valid still holds whatever
/// fields were read before the fault was found.
class CITP_EXPORT Msg_Header
{
public:
    /// Valid, with empty texts and zero numbers.
    Msg_Header() = default;
    /// A header for sending, version 1.0.
    /// @param index the request index: 0 for every message that this library builds
    /// @param layer the content type: the layer's code of four characters, e.g. "MSEX"
    Msg_Header(unsigned short index, const QString& layer);
    /// Reads the header of @p msg, which holds exactly one whole message. What is wrong with it is logged on
    /// "CITP.Message" at level 8 and clears #valid.
    explicit Msg_Header(const QByteArray& msg);
    /// Copies every member.
    Msg_Header(const Msg_Header& other) = default;
    virtual ~Msg_Header();

    /// Copies the header's content but leaves #valid, #partCount and #part as they are: they say how the target itself
    /// came in.
    Msg_Header& operator=(const Msg_Header& other);

    /// The length that the message beginning in @p buffer announces (offset 8, read as signed), whatever its cookie; 0
    /// for fewer than 20 bytes.
    static int messageSize(const QByteArray& buffer);
    /// The content type in @p buffer (offset 16); empty for fewer than 20 bytes.
    static QString contentType(const QByteArray& buffer);
    /// Writes the length of @p buffer into its size field (offset 8). To be called once the whole body is there. A
    /// buffer that ends before that field does is left alone.
    static void setSize(QByteArray& buffer);

    /// The four characters that tell the layer, e.g. "MSEX" (offset 16).
    QString contentType() const { return m_contentType; }

    bool valid = true;        ///< false once the message was found unusable, or impossible to write; never true again
    quint32 size = 0;         ///< length of the whole message in bytes, as read (offset 8); 0 when built for sending
    quint8 citpMajor = 0;     ///< CITP version, as read (offset 4)
    quint8 citpMinor = 0;     ///< CITP version, as read (offset 5)
    quint16 requestIndex = 0; ///< index of the request (offset 6)
    quint16 partCount = 0;    ///< number of parts of a split message, as read (offset 12); not acted upon
    quint16 part = 0;         ///< index of this part, as read (offset 14); not acted upon
private:
    QString m_contentType;

public:
    QString cookie; ///< the four characters at offset 0, as read; empty when built for sending
};

/// Clears @p out and writes the header of @p header: always version 1.0, one part, and a size of 20 until
/// Msg_Header::setSize(). Of the content type four characters are written, "?" for those outside Latin-1; a shorter one
/// is filled up with zero bytes.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_Header& header);

/// Appends @p header's debug text to @p text, e.g. "( rindex=3 size=45 content=MSEX ) ".
CITP_EXPORT QString& operator>>(QString& text, const Msg_Header& header);
} // namespace CITP
