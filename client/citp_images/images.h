// Images: decodes the pictures that servers send to images. Apart from the client layer, because it needs Qt Gui.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/values.h>

#include <QImage>
#include <QSize>
#include <QString>

namespace CITP {
/// What a picture holds.
struct CITP_EXPORT DecodedPicture
{
    QImage
        image;  ///< RGB32 or ARGB32_Premultiplied, which QPainter draws without conversion; null if there is a #problem
    QSize size; ///< in pixels, as it was sent
    QString problem; ///< why it cannot be shown, for the user; may contain what the server sent. Empty if it can
};

/// Decodes @p picture once. Refuses what would take much more memory or time than a picture of the size @p wanted: more
/// than 16 times its pixels (at least 1 million), a side above 4096, and, in JPEG, more than 100 scans, or more than 16
/// over the largest number of pixels. A picture that is cut off is refused, too. Texts in a picture are left out, in
/// PNG unread, and so are colour profiles there. Any thread; does not throw, whatever the picture contains.
/// @param picture as received
/// @param wanted in pixels; a larger picture is made smaller to fit into it. If empty, none is
CITP_EXPORT DecodedPicture decodePicture(const Picture& picture, const QSize& wanted);
} // namespace CITP
