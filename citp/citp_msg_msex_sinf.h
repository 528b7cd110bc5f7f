// The MSEX message SInf: the description that a media server sends of itself.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_msex.h>

#include <vector>

namespace CITP {
/// SInf, "server information": product, supported versions and layers of a media server. Only received.
class CITP_EXPORT Msg_MSEX_SINF : public Msg_MSEX
{
public:
    Msg_MSEX_SINF() = default;
    /// Parses @p msg, a whole message. An MSEX version other than 1.0, 1.1 and 1.2 clears #valid; the body is not
    /// parsed. Missing fields are 0 or empty, a truncated string ends with the message, and a truncated #UUID is padded
    /// with U+0000.
    explicit Msg_MSEX_SINF(const QByteArray& msg);
    /// Copies all members.
    Msg_MSEX_SINF(const Msg_MSEX_SINF& other) = default;
    ~Msg_MSEX_SINF() override;
    /// Copies all members except the CITP header, as Msg_MSEX::operator=() does.
    Msg_MSEX_SINF& operator=(const Msg_MSEX_SINF& other) = default;

    /// The MSEX minor version that the stack assumes for the server: that of this message, 0 to 2; 0 if the message has
    /// another version.
    quint8 GetHighestMsexVersion() const { return HighestMsexVersion; }

    QString ProductName;            ///< display name, UCS-2 on the wire (offset 62; 26 before MSEX 1.2)
    quint8 ProductVersionMajor = 0; ///< after the name
    quint8 ProductVersionMinor = 0; ///< after the major version
    /// The DMX source of each layer, in layer order. Before MSEX 1.2, the first string begins with two additional
    /// characters: the bytes of #ProductVersionMinor and of the layer count. If #ProductVersionMinor is 0, the first
    /// string is empty, the second one begins with the byte of the layer count, and the last source is missing.
    std::vector<QString> LayerDMXSources;

private:
    quint8 HighestMsexVersion = 0;

public:
    QString UUID;                                      ///< 36 characters (offset 26); empty before MSEX 1.2
    quint8 ProductVersionBugfix = 0;                   ///< 0 before MSEX 1.2
    std::vector<unsigned short> SupportedMsexVersions; ///< major in the high byte; empty before MSEX 1.2
    quint16 SupportedLibraryTypes = 0;                 ///< one bit for each library type; 0 before MSEX 1.2
    std::vector<unsigned int> ThumbnailFormats;        ///< see fromGraphicFormat(); empty before MSEX 1.2
    std::vector<unsigned int> StreamFormats;           ///< see fromGraphicFormat(); empty before MSEX 1.2
};

/// Appends the debug text of @p message, without the headers, to @p text and returns @p text.
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_SINF& message);
} // namespace CITP
