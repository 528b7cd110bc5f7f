// Decodes thumbnail responses to images of at most the preview's size.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_msex_thumbnails.h>

#include <QImage>
#include <QSize>
#include <QString>

namespace Browser {
/// The maximum size, in pixels, of the stored images of a tile and of the preview.
constexpr QSize TilePixels(320, 240);
constexpr QSize PreviewPixels(640, 480);

struct Decoded
{
    QImage image;    ///< at most PreviewPixels; null if there is a problem
    QString problem; ///< for the user; empty if there is an image
};

/// Validates and decodes @p answer. For any content it does not throw and allocates at most some tens of megabytes. Any
/// thread.
Decoded decode(const CITP::Msg_MSEX_Thumbnail_Response_Base& answer);
} // namespace Browser
