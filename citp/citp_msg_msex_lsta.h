// The MSEX message LSta: the status of each layer of a media server.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_export.h>
#include <citp/citp_msg_msex.h>

#include <QByteArray>
#include <QString>

#include <vector>

namespace CITP {
/// LSta, "layer status": the status of the layers, which a server sends repeatedly. Only received.
///
/// A truncated body is not an error: missing fields are 0 or empty, and the list has as many records as the message
/// announces.
class CITP_EXPORT Msg_MSEX_LSTA : public Msg_MSEX
{
public:
    /// One layer.
    struct CITP_EXPORT LayerStatus
    {
        unsigned char LayerNumber = 0;     ///< layer number
        unsigned char PhysicalOutput = 0;  ///< number of the physical output that shows the layer
        QString LibraryId;                 ///< library of the medium: a number in MSEX 1.0 ("7"), four levels in 1.2
        unsigned char MediaNumber = 0;     ///< element number of the medium in the library
        QString MediaName;                 ///< display name; UCS-2 on the wire
        unsigned int MediaPosition = 0;    ///< current frame
        unsigned int MediaLength = 0;      ///< length in frames
        unsigned char MediaFrameRate = 0;  ///< frames per second
        unsigned int LayerStatusFlags = 0; ///< 32 status bits, as received; not evaluated
        unsigned char LibraryType = 0;     ///< MSEX library type; 0 in MSEX 1.0
    };

    Msg_MSEX_LSTA() = default;
    /// Parses a whole message with its CITP header. An invalid CITP header does not stop parsing. An MSEX minor version
    /// other than 0 and 2 clears #valid, and no layer is read. A layer status in MSEX 1.1 is therefore rejected, for
    /// compatibility: applications expect it only in 1.0 and 1.2.
    explicit Msg_MSEX_LSTA(const QByteArray& msg);
    /// Copies all members.
    Msg_MSEX_LSTA(const Msg_MSEX_LSTA&) = default;
    /// Copies all members except the CITP header, as Msg_MSEX::operator=() does.
    Msg_MSEX_LSTA& operator=(const Msg_MSEX_LSTA&) = default;
    ~Msg_MSEX_LSTA() override;

    std::vector<LayerStatus> Layers; ///< the layers in message order; at most 255
};

/// Appends the debug text of @p m to @p text and returns @p text.
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_LSTA& m);
} // namespace CITP
