// The drawn pictures of the simulator, and thumbnails of drawn ones and of files.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QImage>

#include "library.h"

namespace MediaServer {
/// Patterns that can be drawn: gradients from 0, test cards from 100, numbered frames (0 to 99) from 200.
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

/// The picture at its full size, without transparency; null if the file cannot be read.
QImage loadPicture(const PictureSource& source);

struct Thumbnail
{
    QByteArray format; ///< four characters
    quint16 width = 0; ///< pixels, as sent
    quint16 height = 0;
    QByteArray image; ///< at most 65535 bytes, which is all that the wire can announce; empty if there is no picture
};

/// Scales a picture into the size asked for, keeping its proportions, and encodes it. What does not fit into the wire's
/// limit is encoded more coarsely or made smaller until it does.
/// @param format "JPEG", "PNG " or "RGB8" (rows of 24-bit pixels without padding); anything else counts as "JPEG"
/// @param width, height pixels; 0 leaves the size to the server
Thumbnail makeThumbnail(const QImage& picture, const QByteArray& format, quint16 width, quint16 height);
} // namespace MediaServer
