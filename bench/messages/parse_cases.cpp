// Parsing: the library, a QDataStream parser, protobuf with the same fields, and the floor: building the result from an
// already parsed message.
// SPDX-License-Identifier: Apache-2.0
#include "cases.h"
#include "messages.pb.h"
#include "reference_parser.h"
#include "samples.h"

#include <citp/citp_codecs.h>

#include <string>

using namespace CITP;

namespace bench {
namespace {
/// An unshared copy: each parsed message has texts of its own.
QString deepCopy(const QString& text)
{
    return text.isEmpty() ? QString() : QString(text.constData(), text.size());
}

void copyHeader(const Msg_MSEX& from, Msg_MSEX& to)
{
    static_cast<Msg_Header&>(to).cookie = QStringLiteral("CITP");
    to.size = from.size;
    to.citpMajor = from.citpMajor;
    to.citpMinor = from.citpMinor;
    to.requestIndex = from.requestIndex;
    to.partCount = from.partCount;
    to.part = from.part;
    to.versionMajor = from.versionMajor;
    to.versionMinor = from.versionMinor;
    to.cookie = QStringLiteral("MEIn");
}

void build(const Msg_MSEX_MEIN& from, Msg_MSEX_MEIN& to)
{
    copyHeader(from, to);
    to.LibraryId = deepCopy(from.LibraryId);
    to.Media.reserve(from.Media.size());
    for (const auto& medium : from.Media)
        to.Media.push_back({medium.Number, medium.DMXRangeMin, medium.DMXRangeMax, deepCopy(medium.Name),
                            medium.Timestamp, medium.Width, medium.Height, medium.Length, medium.FrameRate,
                            medium.SerialNumber});
}

void build(const Msg_MSEX_ELIN& from, Msg_MSEX_ELIN& to)
{
    copyHeader(from, to);
    to.LibraryType = from.LibraryType;
    to.Libraries.reserve(from.Libraries.size());
    for (const auto& library : from.Libraries)
        to.Libraries.push_back({deepCopy(library.LIBID), library.DMXRangeMin, library.DMXRangeMax,
                                deepCopy(library.Name), library.ElementCount, library.SubLibraryCount,
                                library.SerialNumber});
}

void build(const Msg_MSEX_LSTA& from, Msg_MSEX_LSTA& to)
{
    copyHeader(from, to);
    to.Layers.reserve(from.Layers.size());
    for (const auto& layer : from.Layers)
        to.Layers.push_back({layer.LayerNumber, layer.PhysicalOutput, deepCopy(layer.LibraryId), layer.MediaNumber,
                             deepCopy(layer.MediaName), layer.MediaPosition, layer.MediaLength, layer.MediaFrameRate,
                             layer.LayerStatusFlags, layer.LibraryType});
}

void build(const Msg_MSEX_EEIN& from, Msg_MSEX_EEIN& to)
{
    copyHeader(from, to);
    to.LibraryId = deepCopy(from.LibraryId);
    to.Effects.reserve(from.Effects.size());
    for (const auto& effect : from.Effects) {
        std::vector<QString> names;
        names.reserve(effect.ParameterNames.size());
        for (const QString& name : effect.ParameterNames)
            names.push_back(deepCopy(name));
        to.Effects.push_back({effect.Number, effect.DMXRangeMin, effect.DMXRangeMax, deepCopy(effect.EffectName),
                              std::move(names), effect.SerialNumber});
    }
}

void build(const Msg_MSEX_GLEI& from, Msg_MSEX_GLEI& to)
{
    copyHeader(from, to);
    to.LibraryType = from.LibraryType;
    to.LibraryId = deepCopy(from.LibraryId);
    to.Elements.reserve(from.Elements.size());
    for (const auto& element : from.Elements)
        to.Elements.push_back({element.Number, element.DMXRangeMin, element.DMXRangeMax, deepCopy(element.Name),
                               element.Timestamp, element.SerialNumber});
}

void build(const Msg_MSEX_SINF& from, Msg_MSEX_SINF& to)
{
    copyHeader(from, to);
    to.UUID = deepCopy(from.UUID);
    to.ProductName = deepCopy(from.ProductName);
    to.ProductVersionMajor = from.ProductVersionMajor;
    to.ProductVersionMinor = from.ProductVersionMinor;
    to.ProductVersionBugfix = from.ProductVersionBugfix;
    to.SupportedMsexVersions.assign(from.SupportedMsexVersions.begin(), from.SupportedMsexVersions.end());
    to.SupportedLibraryTypes = from.SupportedLibraryTypes;
    to.ThumbnailFormats.assign(from.ThumbnailFormats.begin(), from.ThumbnailFormats.end());
    to.StreamFormats.assign(from.StreamFormats.begin(), from.StreamFormats.end());
    to.LayerDMXSources.reserve(from.LayerDMXSources.size());
    for (const QString& source : from.LayerDMXSources)
        to.LayerDMXSources.push_back(deepCopy(source));
}

void build(const Msg_MSEX_ETHN& from, Msg_MSEX_ETHN& to)
{
    copyHeader(from, to);
    to.LibraryType = from.LibraryType;
    to.LibraryId = deepCopy(from.LibraryId);
    to.ElementNumber = from.ElementNumber;
    to.ThumbnailFormat = deepCopy(from.ThumbnailFormat);
    to.ThumbnailWidth = from.ThumbnailWidth;
    to.ThumbnailHeight = from.ThumbnailHeight;
    to.ThumbnailBuffer = QByteArray(from.ThumbnailBuffer.constData(), from.ThumbnailBuffer.size());
}

template <typename Layer>
void setHeader(const Msg_MSEX& from, Layer* to)
{
    to->set_version_major(from.versionMajor);
    to->set_version_minor(from.versionMinor);
    to->set_request_index(from.requestIndex);
}

citp_bench::MEIn toProto(const Msg_MSEX_MEIN& from)
{
    citp_bench::MEIn to;
    setHeader(from, to.mutable_layer());
    to.set_library_id(fromLibraryFormat(from.LibraryId));
    for (const auto& item : from.Media) {
        auto* medium = to.add_media();
        medium->set_number(item.Number);
        medium->set_serial_number(item.SerialNumber);
        medium->set_dmx_range_min(item.DMXRangeMin);
        medium->set_dmx_range_max(item.DMXRangeMax);
        medium->set_name(item.Name.toStdString());
        medium->set_timestamp(item.Timestamp);
        medium->set_width(item.Width);
        medium->set_height(item.Height);
        medium->set_length(item.Length);
        medium->set_frame_rate(item.FrameRate);
    }
    return to;
}

citp_bench::ELIn toProto(const Msg_MSEX_ELIN& from)
{
    citp_bench::ELIn to;
    setHeader(from, to.mutable_layer());
    to.set_library_type(from.LibraryType);
    for (const auto& item : from.Libraries) {
        auto* library = to.add_libraries();
        library->set_id(fromLibraryFormat(item.LIBID));
        library->set_serial_number(item.SerialNumber);
        library->set_dmx_range_min(item.DMXRangeMin);
        library->set_dmx_range_max(item.DMXRangeMax);
        library->set_name(item.Name.toStdString());
        library->set_sub_library_count(item.SubLibraryCount);
        library->set_element_count(item.ElementCount);
    }
    return to;
}

citp_bench::LSta toProto(const Msg_MSEX_LSTA& from)
{
    citp_bench::LSta to;
    setHeader(from, to.mutable_layer());
    for (const auto& item : from.Layers) {
        auto* layer = to.add_layers();
        layer->set_number(item.LayerNumber);
        layer->set_physical_output(item.PhysicalOutput);
        layer->set_library_type(item.LibraryType);
        layer->set_library_id(fromLibraryFormat(item.LibraryId));
        layer->set_media_number(item.MediaNumber);
        layer->set_media_name(item.MediaName.toStdString());
        layer->set_media_position(item.MediaPosition);
        layer->set_media_length(item.MediaLength);
        layer->set_media_frame_rate(item.MediaFrameRate);
        layer->set_flags(item.LayerStatusFlags);
    }
    return to;
}

citp_bench::EEIn toProto(const Msg_MSEX_EEIN& from)
{
    citp_bench::EEIn to;
    setHeader(from, to.mutable_layer());
    to.set_library_id(fromLibraryFormat(from.LibraryId));
    for (const auto& item : from.Effects) {
        auto* effect = to.add_effects();
        effect->set_number(item.Number);
        effect->set_serial_number(item.SerialNumber);
        effect->set_dmx_range_min(item.DMXRangeMin);
        effect->set_dmx_range_max(item.DMXRangeMax);
        effect->set_name(item.EffectName.toStdString());
        for (const QString& name : item.ParameterNames)
            effect->add_parameter_names(name.toStdString());
    }
    return to;
}

citp_bench::GLEI toProto(const Msg_MSEX_GLEI& from)
{
    citp_bench::GLEI to;
    setHeader(from, to.mutable_layer());
    to.set_library_type(from.LibraryType);
    to.set_library_id(fromLibraryFormat(from.LibraryId));
    for (const auto& item : from.Elements) {
        auto* element = to.add_elements();
        element->set_number(item.Number);
        element->set_serial_number(item.SerialNumber);
        element->set_dmx_range_min(item.DMXRangeMin);
        element->set_dmx_range_max(item.DMXRangeMax);
        element->set_name(item.Name.toStdString());
        element->set_timestamp(item.Timestamp);
    }
    return to;
}

citp_bench::SInf toProto(const Msg_MSEX_SINF& from)
{
    citp_bench::SInf to;
    setHeader(from, to.mutable_layer());
    to.set_uuid(from.UUID.toStdString());
    to.set_product_name(from.ProductName.toStdString());
    to.set_product_version_major(from.ProductVersionMajor);
    to.set_product_version_minor(from.ProductVersionMinor);
    to.set_product_version_bugfix(from.ProductVersionBugfix);
    for (const auto version : from.SupportedMsexVersions)
        to.add_supported_msex_versions(version);
    to.set_supported_library_types(from.SupportedLibraryTypes);
    for (const auto format : from.ThumbnailFormats)
        to.add_thumbnail_formats(format);
    for (const auto format : from.StreamFormats)
        to.add_stream_formats(format);
    for (const QString& source : from.LayerDMXSources)
        to.add_layer_dmx_sources(source.toStdString());
    return to;
}

citp_bench::EThn toProto(const Msg_MSEX_ETHN& from)
{
    citp_bench::EThn to;
    setHeader(from, to.mutable_layer());
    to.set_library_type(from.LibraryType);
    to.set_library_id(fromLibraryFormat(from.LibraryId));
    to.set_element_number(from.ElementNumber);
    to.set_format(fromGraphicFormat(from.ThumbnailFormat));
    to.set_width(from.ThumbnailWidth);
    to.set_height(from.ThumbnailHeight);
    to.set_picture(from.ThumbnailBuffer.toStdString());
    return to;
}

/// Adds the four contenders that parse @p bytes as a Message. Each creates and destroys the message.
template <typename Message>
void addParse(const std::string& name, const QByteArray& bytes)
{
    const Message decoded(bytes);
    Message read;
    reference::parse(bytes, read);
    Message built;
    build(decoded, built);
    requireSame(decoded.valid && reference::same(decoded, read), name.c_str());
    built.cookie = decoded.cookie;
    requireSame(reference::same(decoded, built), name.c_str());
    const auto proto = toProto(decoded);
    using Proto = std::remove_const_t<decltype(proto)>;
    const std::string protoBytes = proto.SerializeAsString();

    add("Parse/" + name + "/library", [bytes] {
        const Message message(bytes);
        benchmark::DoNotOptimize(&message);
    });
    add("Parse/" + name + "/qdatastream", [bytes] {
        Message message;
        reference::parse(bytes, message);
        benchmark::DoNotOptimize(&message);
    });
    add("Parse/" + name + "/protobuf", [protoBytes] {
        Proto message;
        benchmark::DoNotOptimize(message.ParseFromString(protoBytes));
        benchmark::DoNotOptimize(&message);
    });
    add("Parse/" + name + "/floor", [decoded] {
        Message message;
        build(decoded, message);
        benchmark::DoNotOptimize(&message);
    });
}
} // namespace

void addParseCases()
{
    addParse<Msg_MSEX_MEIN>("MEIn20", meinBytes(20));
    addParse<Msg_MSEX_MEIN>("MEIn255", meinBytes(255));
    addParse<Msg_MSEX_ELIN>("ELIn10", elinBytes(10));
    addParse<Msg_MSEX_ELIN>("ELIn100", elinBytes(100));
    addParse<Msg_MSEX_LSTA>("LSta7", lstaBytes(7, 20));
    addParse<Msg_MSEX_LSTA>("LSta32", lstaBytes(32, 20));
    addParse<Msg_MSEX_LSTA>("LSta500B", lstaBytes(1, 225));
    addParse<Msg_MSEX_LSTA>("LSta500B7", lstaBytes(7, 22));
    addParse<Msg_MSEX_EEIN>("EEIn10", eeinBytes(10, 4));
    addParse<Msg_MSEX_EEIN>("EEIn255", eeinBytes(255, 8));
    addParse<Msg_MSEX_GLEI>("GLEI20", gleiBytes(20));
    addParse<Msg_MSEX_GLEI>("GLEI255", gleiBytes(255));
    addParse<Msg_MSEX_SINF>("SInf8", sinfBytes(8));
    addParse<Msg_MSEX_SINF>("SInf255", sinfBytes(255));
    addParse<Msg_MSEX_ETHN>("EThn4K", ethnBytes(4000));
    addParse<Msg_MSEX_ETHN>("EThn30K", ethnBytes(30000));
}
} // namespace bench
