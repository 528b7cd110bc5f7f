// Reading the fields of each type of message, by the classes of the library, or of those that it only sends, by their
// layout.
// SPDX-License-Identifier: Apache-2.0
#include "message_fields.h"

#include <citp/citp_codecs.h>
#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_sinf.h>
#include <citp/citp_msg_msex_thumbnails.h>
#include <citp/citp_msg_peer.h>

#include <QHash>
#include <QJsonArray>
#include <QStringList>

#include "capture/message_cutter.h"
#include "server_text.h"
#include "value_json.h"

namespace Console {
namespace {
using namespace CITP;

constexpr int MsexBody = 26;

// --- Reading ---------------------------------------------------------------------------------------------------------

// Reads little-endian fields one after the other; zeros beyond the end.
class Reader
{
public:
    Reader(const QByteArray& bytes, int start) : m_bytes(bytes), m_at(start) {}

    quint32 number(int bytes)
    {
        quint32 value = 0;
        for (int i = 0; i < bytes; ++i, ++m_at)
            value |= m_at < m_bytes.size() ? quint32(quint8(m_bytes.at(m_at))) << (8 * i) : 0;
        return value;
    }
    QString library(int minor)
    {
        if (minor == 0)
            return QString::number(number(1));
        QString text;
        return fromLibraryFormat(text, number(4));
    }
    // As many numbers as a count says and the bytes hold.
    QJsonArray numbers(int countBytes, int bytes)
    {
        QJsonArray values;
        for (quint32 left = number(countBytes); left > 0 && m_at + bytes <= m_bytes.size(); --left)
            values.append(static_cast<int>(number(bytes)));
        return values;
    }
    bool isAtEnd() const { return m_at >= m_bytes.size(); }

private:
    const QByteArray& m_bytes;
    int m_at;
};

int minorOf(const QByteArray& bytes)
{
    return Msg_MSEX(bytes).versionMinor;
}

int countBytesOf(int minor)
{
    return minor < 2 ? 1 : 2;
}

QJsonArray formatsOf(const std::vector<unsigned>& formats)
{
    QJsonArray texts;
    for (const unsigned format : formats) {
        QString text;
        texts.append(fromGraphicFormat(text, format).trimmed());
    }
    return texts;
}

QJsonObject announcement(const QByteArray& bytes)
{
    const Msg_PEER_PLOC message(bytes);
    return {{"peer", message.type}, {"name", message.name}, {"state", message.state}, {"port", message.port}};
}

QJsonObject peerName(const QByteArray& bytes)
{
    return {{"name", Msg_PEER_PNAM(bytes).name}};
}

QJsonObject serverInformation(const QByteArray& bytes)
{
    const Msg_MSEX_SINF message(bytes);
    QJsonArray versions;
    for (const unsigned short version : message.SupportedMsexVersions)
        versions.append(versionText(version));
    QJsonArray types;
    for (int type = 0; type < 16; ++type) {
        if ((message.SupportedLibraryTypes >> type & 1) != 0)
            types.append(type);
    }
    QJsonArray layers;
    for (const QString& source : message.LayerDMXSources)
        layers.append(source);
    const QString version = QString("%1.%2").arg(message.ProductVersionMajor).arg(message.ProductVersionMinor);
    const QString bugfix = message.versionMinor < 2 ? QString() : QString(".%1").arg(message.ProductVersionBugfix);
    return {{"product", message.ProductName},
            {"productVersion", version + bugfix},
            {"uuid", message.UUID},
            {"msexVersions", versions},
            {"libraryTypes", types},
            {"thumbnailFormats", formatsOf(message.ThumbnailFormats)},
            {"streamFormats", formatsOf(message.StreamFormats)},
            {"layers", layers}};
}

QJsonObject clientInformation(const QByteArray& bytes)
{
    QJsonArray versions;
    for (const auto& version : Reader(bytes, MsexBody).numbers(1, 2))
        versions.append(versionText(static_cast<unsigned>(version.toInt())));
    return {{"msexVersions", versions}};
}

QJsonObject libraries(const QByteArray& bytes)
{
    const Msg_MSEX_ELIN message(bytes);
    QJsonArray list;
    for (const auto& entry : message.Libraries) {
        Library library;
        library.id = entry.LIBID;
        library.name = entry.Name;
        library.dmxMin = entry.DMXRangeMin;
        library.dmxMax = entry.DMXRangeMax;
        library.elements = entry.ElementCount;
        library.subLibraries = entry.SubLibraryCount;
        library.serialNumber = entry.SerialNumber;
        list.append(toJson(library));
    }
    return {{"type", message.LibraryType}, {"libraries", list}};
}

template <typename Entry>
Element elementOf(const Entry& entry, const QString& name)
{
    Element element;
    element.number = entry.Number;
    element.dmxMin = entry.DMXRangeMin;
    element.dmxMax = entry.DMXRangeMax;
    element.serialNumber = entry.SerialNumber;
    element.name = name;
    return element;
}

QJsonObject media(const QByteArray& bytes)
{
    const Msg_MSEX_MEIN message(bytes);
    QJsonArray list;
    for (const auto& entry : message.Media) {
        Element element = elementOf(entry, entry.Name);
        element.timestamp = entry.Timestamp;
        element.width = entry.Width;
        element.height = entry.Height;
        element.length = entry.Length;
        element.frameRate = entry.FrameRate;
        list.append(toJson(element, ElementKind::Media));
    }
    return {{"library", message.LibraryId}, {"elements", list}};
}

QJsonObject effects(const QByteArray& bytes)
{
    const Msg_MSEX_EEIN message(bytes);
    QJsonArray list;
    for (const auto& entry : message.Effects) {
        Element element = elementOf(entry, entry.EffectName);
        for (const QString& parameter : entry.ParameterNames)
            element.parameters << parameter;
        list.append(toJson(element, ElementKind::Effects));
    }
    return {{"library", message.LibraryId}, {"elements", list}};
}

QJsonObject genericElements(const QByteArray& bytes)
{
    const Msg_MSEX_GLEI message(bytes);
    QJsonArray list;
    for (const auto& entry : message.Elements) {
        Element element = elementOf(entry, entry.Name);
        element.timestamp = entry.Timestamp;
        list.append(toJson(element, ElementKind::Generic));
    }
    QJsonObject fields{{"library", message.LibraryId}, {"elements", list}};
    if (message.versionMinor >= 2)
        fields.insert("type", message.LibraryType);
    return fields;
}

QJsonObject updatedLibrary(const QByteArray& bytes)
{
    const Msg_MSEX_ELUP message(bytes);
    QJsonArray elements;
    QJsonArray subLibraries;
    for (int number = 0; number < 256; ++number) {
        if (message.GetElementChanged(static_cast<unsigned char>(number)))
            elements.append(number);
        if (message.GetSublibraryChanged(static_cast<unsigned char>(number)))
            subLibraries.append(number);
    }
    return {{"type", message.LibraryType},
            {"library", message.LibraryId},
            {"flags", message.UpdateFlags},
            {"elements", elements},
            {"libraries", subLibraries}};
}

QJsonObject layerStatus(const QByteArray& bytes)
{
    const Msg_MSEX_LSTA message(bytes);
    QJsonArray list;
    for (const auto& entry : message.Layers) {
        Layer layer;
        layer.number = entry.LayerNumber;
        layer.output = entry.PhysicalOutput;
        layer.type = entry.LibraryType;
        layer.library = entry.LibraryId;
        layer.element = entry.MediaNumber;
        layer.name = entry.MediaName;
        layer.position = entry.MediaPosition;
        layer.length = entry.MediaLength;
        layer.frameRate = entry.MediaFrameRate;
        layer.flags = entry.LayerStatusFlags;
        list.append(toJson(layer));
    }
    return {{"layers", list}};
}

QJsonObject thumbnail(const Msg_MSEX_Thumbnail_Response_Base& message)
{
    return {{"type", message.LibraryType},
            {"library", message.LibraryId},
            {"format", message.ThumbnailFormat.trimmed()},
            {"width", message.ThumbnailWidth},
            {"height", message.ThumbnailHeight},
            {"bytes", static_cast<qint64>(message.ThumbnailBuffer.size())}};
}

QJsonObject libraryThumbnail(const QByteArray& bytes)
{
    return thumbnail(Msg_MSEX_ELTH(bytes));
}

QJsonObject elementThumbnail(const QByteArray& bytes)
{
    const Msg_MSEX_ETHN message(bytes);
    return merged(thumbnail(message), {{"element", message.ElementNumber}});
}

QJsonObject fixture(const QByteArray& bytes)
{
    const Msg_FPTC_PTCH message(bytes);
    return toJson(Fixture{message.FixtureIdentifier, message.Universe, message.Channel, message.ChannelCount,
                          message.FixtureMake, message.FixtureName});
}

QJsonObject librariesRequest(const QByteArray& bytes)
{
    const int minor = minorOf(bytes);
    Reader reader(bytes, MsexBody);
    QJsonObject fields{{"type", static_cast<int>(reader.number(1))}};
    if (minor > 0)
        fields.insert("library", reader.library(minor));
    fields.insert("numbers", reader.numbers(countBytesOf(minor), 1));
    return fields;
}

QJsonObject elementsRequest(const QByteArray& bytes)
{
    const int minor = minorOf(bytes);
    Reader reader(bytes, MsexBody);
    QJsonObject fields{{"type", static_cast<int>(reader.number(1))}};
    fields.insert("library", reader.library(minor));
    fields.insert("numbers", reader.numbers(countBytesOf(minor), 1));
    return fields;
}

// The part that both requests for thumbnails begin with.
QJsonObject pictureRequest(Reader& reader)
{
    QString format;
    QJsonObject fields{{"format", fromGraphicFormat(format, reader.number(4)).trimmed()}};
    fields.insert("width", static_cast<int>(reader.number(2)));
    fields.insert("height", static_cast<int>(reader.number(2)));
    reader.number(1);
    fields.insert("type", static_cast<int>(reader.number(1)));
    return fields;
}

QJsonObject libraryThumbnailsRequest(const QByteArray& bytes)
{
    const int minor = minorOf(bytes);
    Reader reader(bytes, MsexBody);
    QJsonObject fields = pictureRequest(reader);
    QJsonArray list;
    for (quint32 left = reader.number(countBytesOf(minor)); left > 0 && !reader.isAtEnd(); --left)
        list.append(reader.library(minor));
    fields.insert("libraries", list);
    return fields;
}

QJsonObject elementThumbnailsRequest(const QByteArray& bytes)
{
    const int minor = minorOf(bytes);
    Reader reader(bytes, MsexBody);
    QJsonObject fields = pictureRequest(reader);
    fields.insert("library", reader.library(minor));
    fields.insert("numbers", reader.numbers(countBytesOf(minor), 1));
    return fields;
}

QJsonObject patchRequest(const QByteArray& bytes)
{
    return {{"fixtures", Reader(bytes, 28).numbers(2, 2)}};
}

// --- What matters ----------------------------------------------------------------------------------------------------

using Object = const QJsonObject&;

QString text(Object fields, const char* name)
{
    return fields.value(QLatin1String(name)).toVariant().toString();
}

QString quoted(const QString& name)
{
    return '"' + name + '"';
}

// The first texts of a list; @p toText makes one.
template <typename ToText>
QString listed(const QJsonArray& values, const QString& separator, const ToText& toText)
{
    constexpr int MaxListed = 6;
    QStringList texts;
    for (const auto& value : values) {
        if (texts.size() == MaxListed) {
            texts << QString("%1 more").arg(values.size() - MaxListed);
            break;
        }
        texts << toText(value);
    }
    return texts.join(separator);
}

QString words(Object fields, const char* name)
{
    return listed(fields.value(QLatin1String(name)).toArray(), " ",
                  [](const QJsonValue& value) { return value.toVariant().toString(); });
}

QString counted(qsizetype count, const char* one, const char* several)
{
    return QString("%1 %2").arg(count).arg(QLatin1String(count == 1 ? one : several));
}

QString announcementGist(Object fields)
{
    return QString("%1  %2, port %3, %4")
        .arg(quoted(text(fields, "name")), text(fields, "peer"), text(fields, "port"), text(fields, "state"));
}

QString nameGist(Object fields)
{
    return quoted(text(fields, "name"));
}

QString serverGist(Object fields)
{
    const QString versions = words(fields, "msexVersions");
    return QString("%1 %2  %3%4")
        .arg(text(fields, "product"), text(fields, "productVersion"),
             versions.isEmpty() ? QString() : "MSEX " + versions + "  ",
             counted(fields.value(QLatin1String("layers")).toArray().size(), "layer", "layers"));
}

QString clientGist(Object fields)
{
    return "MSEX " + words(fields, "msexVersions");
}

QString librariesGist(Object fields)
{
    const QJsonArray list = fields.value(QLatin1String("libraries")).toArray();
    const QString names = listed(list, ", ", [](const QJsonValue& value) {
        return text(value.toObject(), "library") + ' ' + quoted(text(value.toObject(), "name"));
    });
    return QString("type %1, %2%3%4")
        .arg(text(fields, "type"), counted(list.size(), "library", "libraries"),
             QLatin1String(list.isEmpty() ? "" : ": "), names);
}

QString elementsGist(Object fields)
{
    const QJsonArray list = fields.value(QLatin1String("elements")).toArray();
    const QString names = listed(list, ", ", [](const QJsonValue& value) {
        return text(value.toObject(), "element") + ' ' + quoted(text(value.toObject(), "name"));
    });
    return QString("library %1, %2%3%4")
        .arg(text(fields, "library"), counted(list.size(), "element", "elements"),
             QLatin1String(list.isEmpty() ? "" : ": "), names);
}

QString updateGist(Object fields)
{
    QString gist = QString("type %1, library %2 changed").arg(text(fields, "type"), text(fields, "library"));
    for (const char* const name : {"elements", "libraries"}) {
        const QString numbers = words(fields, name);
        if (!numbers.isEmpty())
            gist += QString(", %1 %2").arg(QLatin1String(name), numbers);
    }
    return gist;
}

QString layersGist(Object fields)
{
    const QJsonArray list = fields.value(QLatin1String("layers")).toArray();
    const QString layers = listed(list, ", ", [](const QJsonValue& value) {
        const QJsonObject layer = value.toObject();
        return QString("%1 %2 %3/%4")
            .arg(text(layer, "layer"), quoted(text(layer, "name")), text(layer, "position"), text(layer, "length"));
    });
    return counted(list.size(), "layer", "layers") + QLatin1String(list.isEmpty() ? "" : ": ") + layers;
}

QString thumbnailGist(Object fields)
{
    const QString element =
        fields.contains(QLatin1String("element")) ? ", element " + text(fields, "element") : QString();
    return QString("type %1, library %2%3, %4 %5x%6, %7 bytes")
        .arg(text(fields, "type"), text(fields, "library"), element, text(fields, "format"), text(fields, "width"),
             text(fields, "height"), text(fields, "bytes"));
}

QString fixtureGist(Object fields)
{
    return QString("fixture %1 at %2/%3, %4 channels, %5 %6")
        .arg(text(fields, "fixture"), text(fields, "universe"), text(fields, "channel"), text(fields, "channels"),
             text(fields, "make"), text(fields, "name"));
}

QString wanted(Object fields, const char* list, const char* what)
{
    const QString numbers = words(fields, list);
    return numbers.isEmpty() ? QString("all %1").arg(QLatin1String(what))
                             : QString("%1 %2").arg(QLatin1String(what), numbers);
}

QString librariesRequestGist(Object fields)
{
    const QString parent = text(fields, "library");
    return QString("type %1, %2%3")
        .arg(text(fields, "type"), wanted(fields, "numbers", "libraries"),
             parent.isEmpty() ? QString() : " of " + parent);
}

QString elementsRequestGist(Object fields)
{
    return QString("type %1, library %2, %3")
        .arg(text(fields, "type"), text(fields, "library"), wanted(fields, "numbers", "elements"));
}

QString picture(Object fields)
{
    return QString(", %1 %2x%3").arg(text(fields, "format"), text(fields, "width"), text(fields, "height"));
}

QString libraryThumbnailsGist(Object fields)
{
    return QString("type %1, %2").arg(text(fields, "type"), wanted(fields, "libraries", "libraries")) + picture(fields);
}

QString elementThumbnailsGist(Object fields)
{
    return elementsRequestGist(fields) + picture(fields);
}

QString patchRequestGist(Object fields)
{
    return wanted(fields, "fixtures", "fixtures");
}

// --- All messages ----------------------------------------------------------------------------------------------------

struct Kind
{
    QJsonObject (*fields)(const QByteArray&) = nullptr;
    QString (*gist)(Object) = nullptr;
};

Kind kindOf(const QString& code)
{
    static const QHash<QString, Kind> all{
        {"PLoc", {announcement, announcementGist}},
        {"PNam", {peerName, nameGist}},
        {"SInf", {serverInformation, serverGist}},
        {"CInf", {clientInformation, clientGist}},
        {"ELIn", {libraries, librariesGist}},
        {"ELUp", {updatedLibrary, updateGist}},
        {"MEIn", {media, elementsGist}},
        {"EEIn", {effects, elementsGist}},
        {"GLEI", {genericElements, elementsGist}},
        {"LSta", {layerStatus, layersGist}},
        {"ELTh", {libraryThumbnail, thumbnailGist}},
        {"EThn", {elementThumbnail, thumbnailGist}},
        {"Ptch", {fixture, fixtureGist}},
        {"GELI", {librariesRequest, librariesRequestGist}},
        {"GEIn", {elementsRequest, elementsRequestGist}},
        {"GELT", {libraryThumbnailsRequest, libraryThumbnailsGist}},
        {"GETh", {elementThumbnailsRequest, elementThumbnailsGist}},
        {"SPtc", {patchRequest, patchRequestGist}},
    };
    return all.value(code);
}

bool isOfLayer(const QString& layer, const QString& code)
{
    if (code == QLatin1String("PLoc") || code == QLatin1String("PNam"))
        return layer == QLatin1String("PINF");
    if (code == QLatin1String("Ptch") || code == QLatin1String("SPtc"))
        return layer == QLatin1String("FPTC");
    return layer == QLatin1String("MSEX");
}
} // namespace

QJsonObject fieldsOf(const QByteArray& message)
{
    const Tools::MessageHeader header = Tools::MessageHeader::read(message);
    const Kind kind = kindOf(header.code);
    return kind.fields && isOfLayer(header.layer, header.code) ? kind.fields(message) : bodyOf(message);
}

QJsonObject bodyOf(const QByteArray& message)
{
    constexpr int MaxBytes = 64;
    const QString layer = Tools::MessageHeader::read(message).layer;
    const int start = layer == QLatin1String("MSEX")   ? MsexBody
                      : layer == QLatin1String("FPTC") ? 28
                      : layer == QLatin1String("PINF") ? 24
                                                       : Tools::MessageHeader::Length;
    const QByteArray body = message.mid(start);
    return {{"body", QString::fromLatin1(body.left(MaxBytes).toHex(' ')) +
                         QLatin1String(body.size() > MaxBytes ? " ..." : "")}};
}

QString gistOf(const QString& code, const QJsonObject& fields)
{
    if (fields.contains(QLatin1String("body")))
        return fields.value(QLatin1String("body")).toString();
    const Kind kind = kindOf(code);
    return kind.gist ? kind.gist(fields) : QString();
}
} // namespace Console
