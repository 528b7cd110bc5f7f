// Readers of the MSEX fields whose width depends on the version that a message is written in. Private; not installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "citp_wire_p.h"

#include <citp/citp_codecs.h>

namespace CITP {
/// The four levels of @p id as text, the lowest byte first: "1,2,0,0".
QString libraryIdText(quint32 id);

/// The library identity at @p reader, as text: MSEX 1.0 carries a one-byte library number ("7"), the later versions
/// four bytes ("1,2,0,0").
template <typename Reader>
QString readLibraryId(Reader& reader, unsigned char versionMinor)
{
    if (versionMinor == 0) {
        return QString::number(reader.u8());
    }
    return libraryIdText(reader.u32());
}

/// A count at @p reader: one byte, from MSEX 1.2 on two. It is taken as it stands, also when it promises more than
/// follows; its 65535 at most bounds what such a message can cost.
template <typename Reader>
quint16 readCount(Reader& reader, unsigned char versionMinor)
{
    return versionMinor < 2 ? reader.u8() : reader.u16();
}
} // namespace CITP
