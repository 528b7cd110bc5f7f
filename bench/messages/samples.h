// The messages for the benchmarks, as bytes of MSEX 1.2, of realistic and of maximum size.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>

namespace bench {
/// Media with names of 20 characters.
QByteArray meinBytes(int media);
/// Libraries with names of 20 characters.
QByteArray elinBytes(int libraries);
/// Layers that play media with names of @p nameLength characters.
QByteArray lstaBytes(int layers, int nameLength);
/// Effects with names of 20 characters, each with @p parameters parameters of 12.
QByteArray eeinBytes(int effects, int parameters);
/// Elements with names of 20 characters.
QByteArray gleiBytes(int elements);
/// A server with @p layers layers.
QByteArray sinfBytes(int layers);
/// A picture of @p size bytes.
QByteArray ethnBytes(int size);
} // namespace bench
