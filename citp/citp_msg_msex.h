// MSEX: the layer of the media server messages, and the client information (CInf). Values; any thread, one at a time.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_header.h>

namespace CITP {
/// The layer of every media server message: the MSEX version that it is written in and its code.
class CITP_EXPORT Msg_MSEX : public Msg_Header
{
public:
    /// Length of the CITP and MSEX headers in bytes: where the body begins, and the least that a message must hold for
    /// its MSEX fields to be read.
    static constexpr int MIN_MSEX_LENGTH = 26;

    Msg_MSEX() = default;
    /// For sending, version 1.@p minor.
    /// @param minor the MSEX minor version, 0 to 2
    /// @param code the MSEX code of four characters, e.g. "GELI"
    Msg_MSEX(unsigned char minor, const QString& code);
    /// Reads the layer of @p msg, a whole message. One of fewer than #MIN_MSEX_LENGTH bytes counts as version 0.0 and
    /// leaves #cookie empty. The version is not judged here.
    explicit Msg_MSEX(const QByteArray& msg);
    /// Copies every member.
    Msg_MSEX(const Msg_MSEX& other) = default;
    ~Msg_MSEX() override;

    /// Copies the MSEX fields alone: the target keeps its own CITP header, #valid included.
    Msg_MSEX& operator=(const Msg_MSEX& other);

    /// The MSEX code in @p msg (offset 22); empty for fewer than #MIN_MSEX_LENGTH bytes.
    static QString GetCookie(const QByteArray& msg);

    quint8 versionMajor = 0; ///< MSEX version of this message (offset 20)
    quint8 versionMinor = 0; ///< MSEX version of this message (offset 21)
    QString cookie;          ///< the MSEX code (offset 22)
};

/// Client information: tells a server that this console speaks MSEX 1.0, 1.1 and 1.2. Only sent.
class CITP_EXPORT Msg_MSEX_CInf : public Msg_MSEX
{
public:
    /// Ready for sending; the message itself is of MSEX 1.2.
    Msg_MSEX_CInf();
    /// Copies every member.
    Msg_MSEX_CInf(const Msg_MSEX_CInf& other) = default;
    ~Msg_MSEX_CInf() override;
    /// Leaves the CITP header of the target alone, as Msg_MSEX does.
    Msg_MSEX_CInf& operator=(const Msg_MSEX_CInf& other) = default;
};

/// Writes the header and the layer of @p message to @p out, which is cleared first. Does not set the size: whoever
/// writes the body does.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_MSEX& message);
/// Writes @p message to @p out, which is cleared first.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_MSEX_CInf& message);

/// Appends @p message's debug text to @p text.
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX& message);
} // namespace CITP
