// From thumbnail answers to pictures of the size that is shown.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_msex_thumbnails.h>

#include <QImage>
#include <QSize>
#include <QString>

namespace Browser {
/// The longest sides, in pixels, of what is kept: a tile's picture and the preview.
constexpr QSize TilePixels(320, 240);
constexpr QSize PreviewPixels(640, 480);

struct Decoded
{
    QImage image;    ///< no larger than PreviewPixels; null if there is a problem
    QString problem; ///< for people
};

/// Checks and decodes @p answer. Nothing that it holds can make this throw, or take more than some tens of
/// megabytes while it runs. Any thread.
Decoded decode(const CITP::Msg_MSEX_Thumbnail_Response_Base& answer);
} // namespace Browser
