// The MSEX message "LSta": what each layer of a media server is playing.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_export.h>
#include <citp/citp_msg_msex.h>

#include <QByteArray>
#include <QString>

#include <vector>

namespace CITP {
/// LSta, "layer status": sent by a server again and again, for each of its layers. Only received.
///
/// A body that is cut short is no error: what is missing reads as 0 or empty text, and the list has as many records as
/// the message announced.
class CITP_EXPORT Msg_MSEX_LSTA : public Msg_MSEX
{
public:
    /// One layer.
    struct CITP_EXPORT LayerStatus
    {
        unsigned char LayerNumber = 0;     ///< the layer
        unsigned char PhysicalOutput = 0;  ///< the output that shows it
        QString LibraryId;                 ///< library of the medium: a number in MSEX 1.0 ("7"), four levels in 1.2
        unsigned char MediaNumber = 0;     ///< element number of the medium in its library
        QString MediaName;                 ///< name for people; UCS-2 on the wire
        unsigned int MediaPosition = 0;    ///< current frame
        unsigned int MediaLength = 0;      ///< length in frames
        unsigned char MediaFrameRate = 0;  ///< frames per second
        unsigned int LayerStatusFlags = 0; ///< 32 bits, as received; their meaning is the application's business
        unsigned char LibraryType = 0;     ///< MSEX library type; 0 unless MSEX 1.2
    };

    Msg_MSEX_LSTA() = default;
    /// Parses a whole message, CITP header included; an invalid header does not stop the reading. An MSEX minor version
    /// other than 0 and 2 clears `valid`, and no layer is read. So a layer status in MSEX 1.1 is rejected, however well
    /// formed. Kept on purpose: applications are built on status coming in 1.0 and 1.2 alone.
    explicit Msg_MSEX_LSTA(const QByteArray& msg);
    /// Copies every member.
    Msg_MSEX_LSTA(const Msg_MSEX_LSTA&) = default;
    /// Leaves the CITP header of the target alone, as Msg_MSEX does.
    Msg_MSEX_LSTA& operator=(const Msg_MSEX_LSTA&) = default;
    ~Msg_MSEX_LSTA() override;

    std::vector<LayerStatus> Layers; ///< one record a layer, in wire order; at most 255
};

/// Appends the debug text of @p m to @p text and returns it.
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_LSTA& m);
} // namespace CITP
