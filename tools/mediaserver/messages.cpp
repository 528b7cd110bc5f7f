// Wire tables of PLoc and SInf.
#include "messages.h"

#include "wire.h"

namespace MediaServer {
QByteArray peerLocation(const QString& name, quint16 port)
{
    return MessageWriter("PINF").bytes("PLoc").u16(port).text8("MediaServer").text8(name).text8("Running").take();
}

QByteArray serverInformation(const Identity& identity, quint16 requestIndex)
{
    MessageWriter out("MSEX", requestIndex);
    out.u8(1).u8(identity.msexMinor).bytes("SInf");
    if (identity.msexMinor >= 2)
        out.bytes(identity.uuid);
    out.ucs2(identity.product).u8(identity.versionMajor).u8(identity.versionMinor);
    if (identity.msexMinor >= 2) {
        out.u8(identity.versionBugfix);
        out.u8(identity.msexMinor + 1U);
        for (quint32 minor = 0; minor <= identity.msexMinor; ++minor)
            out.u16(0x0100 + minor);
        out.u16(identity.libraryTypes);
        out.u8(3).bytes("RGB8").bytes("JPEG").bytes("PNG ");
        out.u8(0);
    }
    out.u8(static_cast<quint32>(identity.layerSources.size()));
    for (const QString& source : identity.layerSources)
        out.text8(source);
    return out.take();
}
} // namespace MediaServer
