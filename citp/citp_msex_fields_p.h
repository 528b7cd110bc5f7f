// Readers of the MSEX fields whose width depends on the version that a message is written in. Private; not installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_codecs.h>
#include <citp/citp_wire_p.h>

namespace CITP {
/// The library identity at @p reader, as text: MSEX 1.0 carries a one-byte library number ("7"), the later versions
/// four bytes ("1,2,0,0").
inline QString readLibraryId(WireReader& reader, unsigned char versionMinor)
{
    if (versionMinor == 0)
        return QString::number(reader.u8());
    QString text;
    fromLibraryFormat(text, reader.u32());
    return text;
}

/// A count at @p reader: one byte, from MSEX 1.2 on two. It is taken as it stands, also when it promises more than
/// follows; its 65535 at most bounds what such a message can cost.
inline quint16 readCount(WireReader& reader, unsigned char versionMinor)
{
    return versionMinor < 2 ? reader.u8() : reader.u16();
}
} // namespace CITP
