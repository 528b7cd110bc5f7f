// SInf: what a media server says about itself once it has been greeted. A value; any thread, one at a time.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_msex.h>

#include <vector>

namespace CITP {
/// Server information. Only received.
class CITP_EXPORT Msg_MSEX_SINF : public Msg_MSEX
{
public:
    Msg_MSEX_SINF() = default;
    /// Reads @p msg, a whole message. An MSEX version other than 1.0, 1.1 and 1.2 clears #valid and leaves the body
    /// unread. What is missing reads as 0 or empty; a text that is cut off ends with the message, a #UUID that is cut
    /// off is filled up with U+0000.
    explicit Msg_MSEX_SINF(const QByteArray& msg);
    /// Copies every member.
    Msg_MSEX_SINF(const Msg_MSEX_SINF& other) = default;
    ~Msg_MSEX_SINF() override;
    /// Copies everything but the CITP header, which the target keeps.
    Msg_MSEX_SINF& operator=(const Msg_MSEX_SINF& other) = default;

    /// The MSEX minor version that the server is taken to speak: that of this message, 0 to 2; 0 as well
    /// if the message is of none of these versions.
    quint8 GetHighestMsexVersion() const { return HighestMsexVersion; }

    QString ProductName;            ///< name for people, UCS-2 on the wire (offset 62; 26 before MSEX 1.2)
    quint8 ProductVersionMajor = 0; ///< behind the name
    quint8 ProductVersionMinor = 0; ///< behind the major version
    /// The DMX source of each layer, in layer order. From MSEX 1.0 and 1.1 servers the first text holds, before the
    /// source, the characters of #ProductVersionMinor and of the layer count; if #ProductVersionMinor is 0 the first
    /// text is empty, the second holds the layer count and the first source, and the last source is missing.
    std::vector<QString> LayerDMXSources;

private:
    quint8 HighestMsexVersion = 0;

public:
    QString UUID;                                      ///< 36 characters (offset 26); empty before MSEX 1.2
    quint8 ProductVersionBugfix = 0;                   ///< 0 before MSEX 1.2
    std::vector<unsigned short> SupportedMsexVersions; ///< major in the high byte; empty before MSEX 1.2
    quint16 SupportedLibraryTypes = 0;                 ///< a bit for each library type; 0 before MSEX 1.2
    std::vector<unsigned int> ThumbnailFormats;        ///< see fromGraphicFormat(); empty before MSEX 1.2
    std::vector<unsigned int> StreamFormats;           ///< see fromGraphicFormat(); empty before MSEX 1.2
};

/// Appends @p message's debug text to @p text; the header and the layer are not in it.
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_SINF& message);
} // namespace CITP
