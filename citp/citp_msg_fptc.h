// FPTC messages: a patched fixture (Ptch, received) and the request to send the patch (SPtc, sent).
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_header.h>

#include <vector>

namespace CITP {
/// The FPTC layer: fixture patch messages. Strings of this layer are null-terminated Latin-1.
class CITP_EXPORT Msg_FPTC : public Msg_Header
{
public:
    Msg_FPTC() = default;
    /// For sending.
    /// @param code the four-character FPTC code, e.g. "SPtc"
    /// @param contentHint the content hint; 0 in every message that this library builds
    Msg_FPTC(const QString& code, unsigned int contentHint);
    /// Parses the FPTC header of @p msg, a whole message. Fewer than 24 bytes clear #valid and leave the fields of this
    /// layer empty; with fewer than 28 bytes, #hint is 0.
    explicit Msg_FPTC(const QByteArray& msg);
    /// Copies all members.
    Msg_FPTC(const Msg_FPTC& other) = default;
    ~Msg_FPTC() override;
    /// Copies the fields of this layer, and the CITP header as Msg_Header::operator=() does.
    Msg_FPTC& operator=(const Msg_FPTC& other) = default;

    /// The FPTC code of @p msg (offset 20); empty for fewer than 28 bytes, the length of the CITP and FPTC headers.
    static QString GetCookie(const QByteArray& msg);

    QString cookie;   ///< the FPTC code (offset 20)
    quint32 hint = 0; ///< the content hint (offset 24); read big-endian but written little-endian, for compatibility
};

/// Ptch: one patched fixture. Only received.
class CITP_EXPORT Msg_FPTC_PTCH : public Msg_FPTC
{
public:
    Msg_FPTC_PTCH() = default;
    /// Parses @p msg, a whole message. Missing fields are 0 or empty; a truncated string ends with the message.
    explicit Msg_FPTC_PTCH(const QByteArray& msg);
    /// Copies all members.
    Msg_FPTC_PTCH(const Msg_FPTC_PTCH& other) = default;
    ~Msg_FPTC_PTCH() override;
    /// Copies the fields of this layer, and the CITP header as Msg_Header::operator=() does.
    Msg_FPTC_PTCH& operator=(const Msg_FPTC_PTCH& other) = default;

    quint16 FixtureIdentifier = 0; ///< identifier of the fixture (offset 28)
    quint8 Universe = 0;           ///< DMX universe (offset 30)
    quint16 Channel = 0;           ///< first DMX channel (offset 32)
    quint16 ChannelCount = 0;      ///< number of DMX channels (offset 34)
    QString FixtureMake;           ///< manufacturer (offset 36)
    QString FixtureName;           ///< model, after the manufacturer
};

/// SPtc: requests the patch from a server. Only sent.
class CITP_EXPORT Msg_FPTC_SPTC : public Msg_FPTC
{
public:
    Msg_FPTC_SPTC() = default;
    /// For sending.
    /// @param identifiers the requested fixtures, at most 65535; copied; null or empty requests all
    explicit Msg_FPTC_SPTC(const std::vector<unsigned short>* identifiers);
    /// Copies all members.
    Msg_FPTC_SPTC(const Msg_FPTC_SPTC& other) = default;
    ~Msg_FPTC_SPTC() override;
    /// Copies the fields of this layer, and the CITP header as Msg_Header::operator=() does.
    Msg_FPTC_SPTC& operator=(const Msg_FPTC_SPTC& other) = default;

    std::vector<unsigned short> fixtureIdentifiers; ///< the requested fixtures (offset 30); empty requests all
};

/// Replaces @p out with the CITP and FPTC headers of @p message and returns @p out. Does not set the size.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_FPTC& message);
/// Replaces @p out with the whole message and returns @p out.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_FPTC_SPTC& message);

/// Appends the debug text of @p message to @p text and returns @p text.
CITP_EXPORT QString& operator>>(QString& text, const Msg_FPTC& message);
/// Appends the debug text of @p message to @p text and returns @p text.
CITP_EXPORT QString& operator>>(QString& text, const Msg_FPTC_PTCH& message);
} // namespace CITP
