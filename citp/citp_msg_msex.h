// The MSEX layer of all media server messages, and the client information message (CInf).
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_header.h>

namespace CITP {
/// The MSEX layer: the header of every media server message, with its MSEX version and its code.
class CITP_EXPORT Msg_MSEX : public Msg_Header
{
public:
    /// The length of the CITP and MSEX headers in bytes: the offset of the body, and the minimum length of a message
    /// whose MSEX fields are read.
    static constexpr int MIN_MSEX_LENGTH = 26;

    Msg_MSEX() = default;
    /// For sending, MSEX version 1.@p minor.
    /// @param minor the MSEX minor version, 0 to 2
    /// @param code the four-character MSEX code, e.g. "GELI"
    Msg_MSEX(unsigned char minor, const QString& code);
    /// Parses the MSEX header of @p msg, a whole message. Fewer than #MIN_MSEX_LENGTH bytes give version 0.0 and an
    /// empty #cookie. The version is not validated; derived classes do that.
    explicit Msg_MSEX(const QByteArray& msg);
    /// Copies all members.
    Msg_MSEX(const Msg_MSEX& other) = default;
    ~Msg_MSEX() override;

    /// Copies only the MSEX fields: this object keeps its CITP header and #valid.
    Msg_MSEX& operator=(const Msg_MSEX& other);

    /// The MSEX code of @p msg (offset 22); empty for fewer than #MIN_MSEX_LENGTH bytes.
    static QString GetCookie(const QByteArray& msg);

    quint8 versionMajor = 0; ///< MSEX major version of this message (offset 20)
    quint8 versionMinor = 0; ///< MSEX minor version of this message (offset 21)
    QString cookie;          ///< the MSEX code (offset 22)
};

/// CInf, "client information": reports to a server that this client supports MSEX 1.0, 1.1 and 1.2. Only sent.
class CITP_EXPORT Msg_MSEX_CInf : public Msg_MSEX
{
public:
    /// A complete message for sending, in MSEX 1.2.
    Msg_MSEX_CInf();
    /// Copies all members.
    Msg_MSEX_CInf(const Msg_MSEX_CInf& other) = default;
    ~Msg_MSEX_CInf() override;
    /// Copies all members except the CITP header, as Msg_MSEX::operator=() does.
    Msg_MSEX_CInf& operator=(const Msg_MSEX_CInf& other) = default;
};

/// Replaces @p out with the CITP and MSEX headers of @p message and returns @p out. Does not set the size, which is
/// known when the body is complete.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_MSEX& message);
/// Replaces @p out with the whole message and returns @p out.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_MSEX_CInf& message);

/// Appends the debug text of @p message to @p text and returns @p text.
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX& message);
} // namespace CITP
