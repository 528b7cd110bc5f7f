// Names for the files of pictures, safe on all systems.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

namespace Console {
/// Converts @p name to a part of a file name that is valid on all systems: letters, digits, marks and "-+,()._" are
/// kept, other characters are replaced by "_", and the result is cut to 80 bytes of UTF-8. May be empty.
QString fileNamePart(const QString& name);

/// The file name of an element, e.g. "1.2.0.0-007-Blue_gradient.jpg". It is unique among the elements of a server, and
/// the files sort in the server's order.
QString fileName(const QString& library, int element, const QString& name, const QString& extension);
} // namespace Console
