// FPTC messages: a patched fixture (Ptch, received) and the request to send the patch (SPtc). Values; any thread, one
// at a time.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_header.h>

#include <vector>

namespace CITP {
/// The layer of the fixture patch messages. Texts of this layer are single bytes (Latin-1), null-terminated.
class CITP_EXPORT Msg_FPTC : public Msg_Header
{
public:
    Msg_FPTC() = default;
    /// For sending.
    /// @param code the FPTC code of four characters, e.g. "SPtc"
    /// @param contentHint 0 for every message that this library builds
    Msg_FPTC(const QString& code, unsigned int contentHint);
    /// Reads the layer of @p msg, a whole message. One of fewer than 24 bytes is not valid and leaves the layer's
    /// fields empty; one of fewer than 28 has the hint 0.
    explicit Msg_FPTC(const QByteArray& msg);
    /// Copies every member.
    Msg_FPTC(const Msg_FPTC& other) = default;
    ~Msg_FPTC() override;
    /// Copies the fields, and of the CITP header what Msg_Header copies.
    Msg_FPTC& operator=(const Msg_FPTC& other) = default;

    /// The FPTC code in @p msg (offset 20); empty for fewer than 28 bytes, a whole FPTC header.
    static QString GetCookie(const QByteArray& msg);

    QString cookie;   ///< the FPTC code (offset 20)
    quint32 hint = 0; ///< the content hint (offset 24); read big-endian but written little-endian, kept on purpose
};

/// One patched fixture. Only received.
class CITP_EXPORT Msg_FPTC_PTCH : public Msg_FPTC
{
public:
    Msg_FPTC_PTCH() = default;
    /// Reads @p msg, a whole message. What is missing reads as 0 or empty; a text that is cut off ends with
    /// the message.
    explicit Msg_FPTC_PTCH(const QByteArray& msg);
    /// Copies every member.
    Msg_FPTC_PTCH(const Msg_FPTC_PTCH& other) = default;
    ~Msg_FPTC_PTCH() override;
    /// Copies the fields, and of the CITP header what Msg_Header copies.
    Msg_FPTC_PTCH& operator=(const Msg_FPTC_PTCH& other) = default;

    quint16 FixtureIdentifier = 0; ///< offset 28
    quint8 Universe = 0;           ///< DMX universe (offset 30)
    quint16 Channel = 0;           ///< first DMX channel (offset 32)
    quint16 ChannelCount = 0;      ///< DMX channels (offset 34)
    QString FixtureMake;           ///< maker (offset 36)
    QString FixtureName;           ///< model, behind the maker
};

/// Asks a server to send the patch. Only sent.
class CITP_EXPORT Msg_FPTC_SPTC : public Msg_FPTC
{
public:
    Msg_FPTC_SPTC() = default;
    /// For sending.
    /// @param identifiers the fixtures wanted, copied; null or empty asks for all. At most 65535 can be told.
    explicit Msg_FPTC_SPTC(const std::vector<unsigned short>* identifiers);
    /// Copies every member.
    Msg_FPTC_SPTC(const Msg_FPTC_SPTC& other) = default;
    ~Msg_FPTC_SPTC() override;
    /// Copies the fields, and of the CITP header what Msg_Header copies.
    Msg_FPTC_SPTC& operator=(const Msg_FPTC_SPTC& other) = default;

    std::vector<unsigned short> fixtureIdentifiers; ///< the fixtures wanted (offset 30); empty asks for all
};

/// Writes the header and the layer of @p message to @p out, which is cleared first. Does not set the size.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_FPTC& message);
/// Writes @p message to @p out, which is cleared first.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_FPTC_SPTC& message);

/// Appends @p message's debug text to @p text.
CITP_EXPORT QString& operator>>(QString& text, const Msg_FPTC& message);
/// Appends @p message's debug text to @p text.
CITP_EXPORT QString& operator>>(QString& text, const Msg_FPTC_PTCH& message);
} // namespace CITP
