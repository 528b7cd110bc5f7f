// LSta: parsing and debug text.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex_lsta.h>

#include "citp_counts_p.h"
#include "citp_msex_fields_p.h"
#include "citp_wire_p.h"

#include <citp/citp_codecs.h>

namespace CITP {
Msg_MSEX_LSTA::Msg_MSEX_LSTA(const QByteArray& msg) : Msg_MSEX(msg)
{
    if (versionMinor != 0 && versionMinor != 2) {
        valid = false;
        return;
    }
    WireReader reader(msg, MIN_MSEX_LENGTH);
    const quint8 count = reader.u8();
    // Layer, output, the library type and a longer identifier from 1.2 on, element, an empty name, and the state.
    if (!canHold(reader, count, (versionMinor == 2 ? 2 + 1 + 4 : 2 + 1) + 1 + 2 + 13)) {
        valid = false;
        return;
    }
    Layers.resize(count);
    for (LayerStatus& layer : Layers) {
        reader.run<8>([&](auto& fields) {
            layer.LayerNumber = fields.u8();
            layer.PhysicalOutput = fields.u8();
            if (versionMinor == 2) {
                layer.LibraryType = fields.u8();
            }
            layer.LibraryId = readLibraryId(fields, versionMinor);
            layer.MediaNumber = fields.u8();
        });
        layer.MediaName = reader.ucs2();
        reader.run<13>([&layer](auto& fields) {
            layer.MediaPosition = fields.u32();
            layer.MediaLength = fields.u32();
            layer.MediaFrameRate = fields.u8();
            layer.LayerStatusFlags = fields.u32();
        });
    }
}

Msg_MSEX_LSTA::~Msg_MSEX_LSTA() = default;

QString& operator>>(QString& text, const Msg_MSEX_LSTA& m)
{
    text >> static_cast<const Msg_MSEX&>(m);
    addToStr(text, QStringLiteral(" LayerCount="), static_cast<unsigned int>(m.Layers.size()));
    for (const Msg_MSEX_LSTA::LayerStatus& layer : m.Layers) {
        text += QStringLiteral("\n\t");
        addToStr(text, QStringLiteral("#="), layer.LayerNumber);
        addToStr(text, QStringLiteral(" PhysicalOutput="), layer.PhysicalOutput);
        if (m.versionMinor == 2) {
            addToStr(text, QStringLiteral(" LibraryType="), layer.LibraryType);
        }
        addToStr(text, QStringLiteral(" LibraryID="), layer.LibraryId);
        addToStr(text, QStringLiteral(" MediaNumber="), layer.MediaNumber);
        addToStr(text, QStringLiteral(" MediaName="), layer.MediaName);
        addToStr(text, QStringLiteral(" MediaPosition="), layer.MediaPosition);
        addToStr(text, QStringLiteral(" MediaLength="), layer.MediaLength);
        addToStr(text, QStringLiteral(" MediaFPS="), layer.MediaFrameRate);
        addToStr(text, QStringLiteral(" LayerStatusFlags="), layer.LayerStatusFlags);
    }
    return text;
}
} // namespace CITP
