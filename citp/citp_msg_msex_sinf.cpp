// SInf: parsing and debug text.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex_sinf.h>

#include "citp_counts_p.h"
#include "citp_wire_p.h"

#include <citp/citp_codecs.h>

namespace CITP {
namespace {
constexpr int uuidLength = 36;

void readLayerSources(WireReader& reader, int count, std::vector<QString>& sources)
{
    sources.reserve(static_cast<std::size_t>(count));
    for (int layer = 0; layer < count; ++layer) {
        sources.push_back(reader.text8());
    }
}

bool readFormats(WireReader& reader, std::vector<unsigned int>& formats)
{
    const quint8 count = reader.u8();
    if (!canHold(reader, count, 4)) {
        return false;
    }
    formats.resize(count);
    for (unsigned int& format : formats) {
        format = reader.u32();
    }
    return true;
}
} // namespace

Msg_MSEX_SINF::Msg_MSEX_SINF(const QByteArray& msg) : Msg_MSEX(msg)
{
    if (versionMajor != 1 || versionMinor > 2) {
        valid = false;
        return;
    }
    HighestMsexVersion = versionMinor;
    WireReader reader(msg, MIN_MSEX_LENGTH);
    if (versionMinor == 2) {
        UUID = reader.fixedText8(uuidLength);
    }
    ProductName = reader.ucs2();
    ProductVersionMajor = reader.u8();
    ProductVersionMinor = reader.u8();
    if (versionMinor < 2) {
        const int layerCount = reader.u8();
        if (!canHold(reader, layerCount, 1)) {
            valid = false;
            return;
        }
        // The offset omits the two bytes of the name's terminator, so that the first string begins at the minor version
        // of the product. Kept for compatibility with the established results for MSEX 1.0 and 1.1 servers.
        WireReader sources(msg, MIN_MSEX_LENGTH + 3 + 2 * qint64(ProductName.size()));
        readLayerSources(sources, layerCount, LayerDMXSources);
        return;
    }
    ProductVersionBugfix = reader.u8();
    const quint8 versionCount = reader.u8();
    if (!canHold(reader, versionCount, 2)) {
        valid = false;
        return;
    }
    SupportedMsexVersions.resize(versionCount);
    for (unsigned short& version : SupportedMsexVersions) {
        version = reader.u16();
    }
    SupportedLibraryTypes = reader.u16();
    if (!readFormats(reader, ThumbnailFormats) || !readFormats(reader, StreamFormats)) {
        valid = false;
        return;
    }
    const int layerCount = reader.u8();
    if (!canHold(reader, layerCount, 1)) {
        valid = false;
        return;
    }
    readLayerSources(reader, layerCount, LayerDMXSources);
}

Msg_MSEX_SINF::~Msg_MSEX_SINF() = default;

QString& operator>>(QString& text, const Msg_MSEX_SINF& message)
{
    QString format;
    addToStr(text, " GetHighestMsexVersion=", message.GetHighestMsexVersion());
    addToStr(text, " ProductName=", message.ProductName);
    addToStr(text, " ProductVersionMajor=", message.ProductVersionMajor);
    addToStr(text, " ProductVersionMinor=", message.ProductVersionMinor);
    for (const QString& source : message.LayerDMXSources) {
        addToStr(text, " DMXSource=", source);
    }
    if (message.versionMinor != 2) {
        return text;
    }
    addToStr(text, " UUID=", message.UUID);
    addToStr(text, " bugfix=", message.ProductVersionBugfix);
    for (const unsigned short version : message.SupportedMsexVersions) {
        addToStr(text, " MSEXVersion=", version);
    }
    addToStr(text, " SupportedLibraryTypes=", message.SupportedLibraryTypes);
    for (const unsigned int code : message.ThumbnailFormats) {
        addToStr(text, " thumbnailformat=", fromGraphicFormat(format, code));
    }
    for (const unsigned int code : message.StreamFormats) {
        addToStr(text, " streamformat=", fromGraphicFormat(format, code));
    }
    return text;
}
} // namespace CITP
