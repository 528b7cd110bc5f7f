// Draws pictures, and creates thumbnails of drawn pictures and picture files.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QImage>

#include "library.h"

namespace MediaServer {
/// Numbers of the drawn patterns: gradients from 0, test cards from 100, numbered frames (0 to 99) from 200.
namespace Pattern {
constexpr int Gradient = 0;
constexpr int GradientCount = 6;
constexpr int TestCard = 100;
constexpr int TestCardCount = 4;
constexpr int Frame = 200;
} // namespace Pattern

/// Size of a drawn picture, in pixels.
constexpr int DrawnWidth = 320;
constexpr int DrawnHeight = 240;

QImage drawPattern(int pattern);

/// Loads the picture in full size without transparency. Null if the file cannot be read.
QImage loadPicture(const PictureSource& source);

struct Thumbnail
{
    QByteArray format; ///< four characters
    quint16 width = 0; ///< pixels, as sent
    quint16 height = 0;
    QByteArray image; ///< at most 65535 bytes, the limit of the size field; empty if there is no picture
};

/// Scales a picture to fit into the requested size, keeping the aspect ratio, and encodes it. If the result exceeds
/// 65535 bytes, the JPEG quality or the size is reduced until it fits.
/// @param format "JPEG", "PNG " or "RGB8" (rows of 24-bit pixels without padding, red first); other values are treated
/// as "JPEG"
/// @param width, height pixels; 0 for a default size
/// @param msexMinor in MSEX 1.0, RGB8 has blue first
Thumbnail makeThumbnail(const QImage& picture, const QByteArray& format, quint16 width, quint16 height,
                        quint8 msexMinor);
} // namespace MediaServer
