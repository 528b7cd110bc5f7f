// Parsing: the library, the plain QDataStream parser, protobuf on the same fields, and the floor, which builds the
// result from a message that is parsed already.
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
/// A text of its own with the same content, as each parsed message has.
QString fresh(const QString& text)
{
    return text.isEmpty() ? QString() : QString(text.constData(), text.size());
}

void buildLayer(const Msg_MSEX& from, Msg_MSEX& to)
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
    buildLayer(from, to);
    to.LibraryId = fresh(from.LibraryId);
    to.Media.reserve(from.Media.size());
    for (const auto& medium : from.Media)
        to.Media.push_back({medium.Number, medium.DMXRangeMin, medium.DMXRangeMax, fresh(medium.Name), medium.Timestamp,
                            medium.Width, medium.Height, medium.Length, medium.FrameRate, medium.SerialNumber});
}

void build(const Msg_MSEX_ELIN& from, Msg_MSEX_ELIN& to)
{
    buildLayer(from, to);
    to.LibraryType = from.LibraryType;
    to.Libraries.reserve(from.Libraries.size());
    for (const auto& library : from.Libraries)
        to.Libraries.push_back({fresh(library.LIBID), library.DMXRangeMin, library.DMXRangeMax, fresh(library.Name),
                                library.ElementCount, library.SubLibraryCount, library.SerialNumber});
}

void build(const Msg_MSEX_LSTA& from, Msg_MSEX_LSTA& to)
{
    buildLayer(from, to);
    to.Layers.reserve(from.Layers.size());
    for (const auto& layer : from.Layers)
        to.Layers.push_back({layer.LayerNumber, layer.PhysicalOutput, fresh(layer.LibraryId), layer.MediaNumber,
                             fresh(layer.MediaName), layer.MediaPosition, layer.MediaLength, layer.MediaFrameRate,
                             layer.LayerStatusFlags, layer.LibraryType});
}

void build(const Msg_MSEX_EEIN& from, Msg_MSEX_EEIN& to)
{
    buildLayer(from, to);
    to.LibraryId = fresh(from.LibraryId);
    to.Effects.reserve(from.Effects.size());
    for (const auto& effect : from.Effects) {
        std::vector<QString> names;
        names.reserve(effect.ParameterNames.size());
        for (const QString& name : effect.ParameterNames)
            names.push_back(fresh(name));
        to.Effects.push_back({effect.Number, effect.DMXRangeMin, effect.DMXRangeMax, fresh(effect.EffectName),
                              std::move(names), effect.SerialNumber});
    }
}

void build(const Msg_MSEX_GLEI& from, Msg_MSEX_GLEI& to)
{
    buildLayer(from, to);
    to.LibraryType = from.LibraryType;
    to.LibraryId = fresh(from.LibraryId);
    to.Elements.reserve(from.Elements.size());
    for (const auto& element : from.Elements)
        to.Elements.push_back({element.Number, element.DMXRangeMin, element.DMXRangeMax, fresh(element.Name),
                               element.Timestamp, element.SerialNumber});
}

void build(const Msg_MSEX_SINF& from, Msg_MSEX_SINF& to)
{
    buildLayer(from, to);
    to.UUID = fresh(from.UUID);
    to.ProductName = fresh(from.ProductName);
    to.ProductVersionMajor = from.ProductVersionMajor;
    to.ProductVersionMinor = from.ProductVersionMinor;
    to.ProductVersionBugfix = from.ProductVersionBugfix;
    to.SupportedMsexVersions.assign(from.SupportedMsexVersions.begin(), from.SupportedMsexVersions.end());
    to.SupportedLibraryTypes = from.SupportedLibraryTypes;
    to.ThumbnailFormats.assign(from.ThumbnailFormats.begin(), from.ThumbnailFormats.end());
    to.StreamFormats.assign(from.StreamFormats.begin(), from.StreamFormats.end());
    to.LayerDMXSources.reserve(from.LayerDMXSources.size());
    for (const QString& source : from.LayerDMXSources)
        to.LayerDMXSources.push_back(fresh(source));
}

void build(const Msg_MSEX_ETHN& from, Msg_MSEX_ETHN& to)
{
    buildLayer(from, to);
    to.LibraryType = from.LibraryType;
    to.LibraryId = fresh(from.LibraryId);
    to.ElementNumber = from.ElementNumber;
    to.ThumbnailFormat = fresh(from.ThumbnailFormat);
    to.ThumbnailWidth = from.ThumbnailWidth;
    to.ThumbnailHeight = from.ThumbnailHeight;
    to.ThumbnailBuffer = QByteArray(from.ThumbnailBuffer.constData(), from.ThumbnailBuffer.size());
}

template <typename Layer>
void fillLayer(const Msg_MSEX& from, Layer* to)
{
    to->set_version_major(from.versionMajor);
    to->set_version_minor(from.versionMinor);
    to->set_request_index(from.requestIndex);
}

citp_bench::MEIn protoOf(const Msg_MSEX_MEIN& from)
{
    citp_bench::MEIn to;
    fillLayer(from, to.mutable_layer());
    to.set_library_id(fromLibraryFormat(from.LibraryId));
    for (const auto& each : from.Media) {
        auto* medium = to.add_media();
        medium->set_number(each.Number);
        medium->set_serial_number(each.SerialNumber);
        medium->set_dmx_range_min(each.DMXRangeMin);
        medium->set_dmx_range_max(each.DMXRangeMax);
        medium->set_name(each.Name.toStdString());
        medium->set_timestamp(each.Timestamp);
        medium->set_width(each.Width);
        medium->set_height(each.Height);
        medium->set_length(each.Length);
        medium->set_frame_rate(each.FrameRate);
    }
    return to;
}

citp_bench::ELIn protoOf(const Msg_MSEX_ELIN& from)
{
    citp_bench::ELIn to;
    fillLayer(from, to.mutable_layer());
    to.set_library_type(from.LibraryType);
    for (const auto& each : from.Libraries) {
        auto* library = to.add_libraries();
        library->set_id(fromLibraryFormat(each.LIBID));
        library->set_serial_number(each.SerialNumber);
        library->set_dmx_range_min(each.DMXRangeMin);
        library->set_dmx_range_max(each.DMXRangeMax);
        library->set_name(each.Name.toStdString());
        library->set_sub_library_count(each.SubLibraryCount);
        library->set_element_count(each.ElementCount);
    }
    return to;
}

citp_bench::LSta protoOf(const Msg_MSEX_LSTA& from)
{
    citp_bench::LSta to;
    fillLayer(from, to.mutable_layer());
    for (const auto& each : from.Layers) {
        auto* layer = to.add_layers();
        layer->set_number(each.LayerNumber);
        layer->set_physical_output(each.PhysicalOutput);
        layer->set_library_type(each.LibraryType);
        layer->set_library_id(fromLibraryFormat(each.LibraryId));
        layer->set_media_number(each.MediaNumber);
        layer->set_media_name(each.MediaName.toStdString());
        layer->set_media_position(each.MediaPosition);
        layer->set_media_length(each.MediaLength);
        layer->set_media_frame_rate(each.MediaFrameRate);
        layer->set_flags(each.LayerStatusFlags);
    }
    return to;
}

citp_bench::EEIn protoOf(const Msg_MSEX_EEIN& from)
{
    citp_bench::EEIn to;
    fillLayer(from, to.mutable_layer());
    to.set_library_id(fromLibraryFormat(from.LibraryId));
    for (const auto& each : from.Effects) {
        auto* effect = to.add_effects();
        effect->set_number(each.Number);
        effect->set_serial_number(each.SerialNumber);
        effect->set_dmx_range_min(each.DMXRangeMin);
        effect->set_dmx_range_max(each.DMXRangeMax);
        effect->set_name(each.EffectName.toStdString());
        for (const QString& name : each.ParameterNames)
            effect->add_parameter_names(name.toStdString());
    }
    return to;
}

citp_bench::GLEI protoOf(const Msg_MSEX_GLEI& from)
{
    citp_bench::GLEI to;
    fillLayer(from, to.mutable_layer());
    to.set_library_type(from.LibraryType);
    to.set_library_id(fromLibraryFormat(from.LibraryId));
    for (const auto& each : from.Elements) {
        auto* element = to.add_elements();
        element->set_number(each.Number);
        element->set_serial_number(each.SerialNumber);
        element->set_dmx_range_min(each.DMXRangeMin);
        element->set_dmx_range_max(each.DMXRangeMax);
        element->set_name(each.Name.toStdString());
        element->set_timestamp(each.Timestamp);
    }
    return to;
}

citp_bench::SInf protoOf(const Msg_MSEX_SINF& from)
{
    citp_bench::SInf to;
    fillLayer(from, to.mutable_layer());
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

citp_bench::EThn protoOf(const Msg_MSEX_ETHN& from)
{
    citp_bench::EThn to;
    fillLayer(from, to.mutable_layer());
    to.set_library_type(from.LibraryType);
    to.set_library_id(fromLibraryFormat(from.LibraryId));
    to.set_element_number(from.ElementNumber);
    to.set_format(fromGraphicFormat(from.ThumbnailFormat));
    to.set_width(from.ThumbnailWidth);
    to.set_height(from.ThumbnailHeight);
    to.set_picture(from.ThumbnailBuffer.toStdString());
    return to;
}

/// Adds the four contenders for @p bytes as a Message. Each makes a fresh object and ends it.
template <typename Message>
void addParse(const std::string& name, const QByteArray& bytes)
{
    const Message decoded(bytes);
    Message read;
    reference::parse(bytes, read);
    Message built;
    build(decoded, built);
    require(decoded.valid && reference::same(decoded, read), name.c_str());
    built.cookie = decoded.cookie;
    require(reference::same(decoded, built), name.c_str());
    const auto proto = protoOf(decoded);
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
