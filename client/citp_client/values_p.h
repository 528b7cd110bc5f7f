// Library identifiers as numbers, for lists of thousands. Private.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QtGlobal>

namespace CITP {
constexpr quint32 noLibrary = 0xFFFFFFFF;

/// The number of an identifier, as on the wire; 0 for rootLibrary().
quint32 numberOfLibrary(const QString& id);
/// That of the library above @p id; noLibrary if @p id cannot be that of a library.
quint32 numberOfParent(const QString& id);
} // namespace CITP
