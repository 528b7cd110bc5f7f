// The layouts of the messages, one function for each message.
// SPDX-License-Identifier: Apache-2.0
#include "messages.h"

#include "wire.h"

namespace MediaServer {
namespace {
MessageWriter msex(quint8 minor, const char* code, quint16 index = 0)
{
    MessageWriter out("MSEX", index);
    out.u8(1).u8(minor).bytes(code);
    return out;
}

// MSEX 1.0 identifies a library by its number, later versions by the four bytes of its id.
void writeLibrary(MessageWriter& out, quint8 minor, quint32 id)
{
    if (minor == 0)
        out.u8(numberOf(id));
    else
        out.u32(id);
}

void writeCount(MessageWriter& out, quint8 minor, std::size_t count)
{
    if (minor < 2)
        out.u8(static_cast<quint32>(count));
    else
        out.u16(static_cast<quint32>(count));
}

// The common fields of all elements: number, serial number (since 1.2), DMX range and name.
void writeElement(MessageWriter& out, quint8 minor, const Element& element)
{
    out.u8(element.number);
    if (minor >= 2)
        out.u32(element.serial);
    out.u8(element.number).u8(element.number).ucs2(element.name);
}

void writeThumbnail(MessageWriter& out, const Thumbnail& thumbnail)
{
    out.bytes(thumbnail.format).u16(thumbnail.width).u16(thumbnail.height);
    out.u16(static_cast<quint32>(thumbnail.image.size())).bytes(thumbnail.image);
}

void writeBits(MessageWriter& out, const std::bitset<256>& bits)
{
    for (std::size_t byte = 0; byte < 32; ++byte) {
        quint32 value = 0;
        for (std::size_t bit = 0; bit < 8; ++bit)
            value |= (bits.test(byte * 8 + bit) ? 1U : 0U) << bit;
        out.u8(value);
    }
}
} // namespace

QByteArray peerLocation(const QString& name, quint16 port)
{
    return MessageWriter("PINF").bytes("PLoc").u16(port).text8("MediaServer").text8(name).text8("Running").take();
}

QByteArray serverInformation(const Identity& identity, quint16 requestIndex)
{
    MessageWriter out = msex(identity.msexMinor, "SInf", requestIndex);
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

QByteArray libraryList(const Reply& reply, quint8 type, const std::vector<LibraryEntry>& libraries)
{
    const quint8 minor = reply.msexMinor;
    MessageWriter out = msex(minor, "ELIn", reply.index);
    out.u8(type);
    writeCount(out, minor, libraries.size());
    for (const LibraryEntry& library : libraries) {
        const quint8 number = numberOf(library.id);
        writeLibrary(out, minor, library.id);
        if (minor >= 2)
            out.u32(library.serial);
        out.u8(number).u8(number).ucs2(library.name);
        if (minor >= 1)
            writeCount(out, minor, static_cast<std::size_t>(library.subLibraries));
        writeCount(out, minor, static_cast<std::size_t>(library.elements));
    }
    return out.take();
}

QByteArray mediaList(const Reply& reply, quint32 libraryId, const std::vector<Element>& elements)
{
    MessageWriter out = msex(reply.msexMinor, "MEIn", reply.index);
    writeLibrary(out, reply.msexMinor, libraryId);
    writeCount(out, reply.msexMinor, elements.size());
    for (const Element& element : elements) {
        writeElement(out, reply.msexMinor, element);
        out.u64(element.timestamp).u16(element.width).u16(element.height).u32(element.length).u8(element.frameRate);
    }
    return out.take();
}

QByteArray effectList(const Reply& reply, quint32 libraryId, const std::vector<Element>& elements)
{
    MessageWriter out = msex(reply.msexMinor, "EEIn", reply.index);
    writeLibrary(out, reply.msexMinor, libraryId);
    writeCount(out, reply.msexMinor, elements.size());
    for (const Element& element : elements) {
        writeElement(out, reply.msexMinor, element);
        out.u8(static_cast<quint32>(element.parameters.size()));
        for (const QString& parameter : element.parameters)
            out.ucs2(parameter);
    }
    return out.take();
}

QByteArray genericList(const Reply& reply, quint8 type, quint32 libraryId, const std::vector<Element>& elements)
{
    MessageWriter out = msex(reply.msexMinor, "GLEI", reply.index);
    if (reply.msexMinor >= 2)
        out.u8(type);
    out.u32(libraryId);
    writeCount(out, reply.msexMinor, elements.size());
    for (const Element& element : elements) {
        writeElement(out, reply.msexMinor, element);
        out.u64(element.timestamp);
    }
    return out.take();
}

QByteArray libraryThumbnail(const Reply& reply, quint8 type, quint32 libraryId, const Thumbnail& thumbnail)
{
    MessageWriter out = msex(reply.msexMinor, "ELTh", reply.index);
    out.u8(type);
    writeLibrary(out, reply.msexMinor, libraryId);
    writeThumbnail(out, thumbnail);
    return out.take();
}

QByteArray elementThumbnail(const Reply& reply, quint8 type, quint32 libraryId, quint8 element,
                            const Thumbnail& thumbnail)
{
    MessageWriter out = msex(reply.msexMinor, "EThn", reply.index);
    out.u8(type);
    writeLibrary(out, reply.msexMinor, libraryId);
    out.u8(element);
    writeThumbnail(out, thumbnail);
    return out.take();
}

QByteArray layerStatus(quint8 msexMinor, const std::vector<LayerState>& layers)
{
    const quint8 minor = msexMinor >= 2 ? 2 : 0;
    MessageWriter out = msex(minor, "LSta");
    out.u8(static_cast<quint32>(layers.size()));
    for (const LayerState& layer : layers) {
        out.u8(layer.number).u8(layer.output);
        if (minor >= 2)
            out.u8(LibraryType::Media);
        writeLibrary(out, minor, layer.libraryId);
        out.u8(layer.media).ucs2(layer.name).u32(layer.position).u32(layer.length).u8(layer.frameRate).u32(layer.flags);
    }
    return out.take();
}

QByteArray libraryUpdated(quint8 msexMinor, const LibraryUpdate& update)
{
    MessageWriter out = msex(msexMinor, "ELUp");
    out.u8(update.type);
    writeLibrary(out, msexMinor, update.id);
    out.u8(update.flags);
    if (msexMinor >= 2) {
        writeBits(out, update.elements);
        writeBits(out, update.libraries);
    }
    return out.take();
}

QByteArray patchedFixture(const Fixture& fixture, quint16 requestIndex)
{
    MessageWriter out("FPTC", requestIndex);
    out.bytes("Ptch").u32(0);
    out.u16(fixture.id).u8(fixture.universe).u8(0).u16(fixture.channel).u16(fixture.channelCount);
    out.text8(fixture.make).text8(fixture.name);
    return out.take();
}
} // namespace MediaServer
