// Functions that read the MSEX fields whose width depends on the MSEX version of the message. Private; not installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "citp_wire_p.h"

#include <citp/citp_codecs.h>

namespace CITP {
/// The four levels of the library identifier @p id as text, the lowest byte first: "1,2,0,0".
QString libraryIdText(quint32 id);

/// Reads a library identifier as text: a library number of one byte in MSEX 1.0 ("7"), four bytes in later versions
/// ("1,2,0,0").
template <typename Reader>
QString readLibraryId(Reader& reader, unsigned char versionMinor)
{
    if (versionMinor == 0) {
        return QString::number(reader.u8());
    }
    return libraryIdText(reader.u32());
}

/// Reads a count: two bytes in MSEX 1.2, one byte before. It is not compared with the length of the message; its
/// maximum of 65535 limits the memory that such a message can cost.
template <typename Reader>
quint16 readCount(Reader& reader, unsigned char versionMinor)
{
    return versionMinor < 2 ? reader.u8() : reader.u16();
}
} // namespace CITP
