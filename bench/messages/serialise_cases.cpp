// Serialising: the library, QDataStream, and a copy of the serialised bytes.
// SPDX-License-Identifier: Apache-2.0
#include "cases.h"

#include <citp/citp_codecs.h>
#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_msg_peer.h>

#include <QDataStream>
#include <QIODevice>

using namespace CITP;

namespace bench {
namespace {
void writeCode(QDataStream& stream, const QString& code)
{
    const QByteArray bytes = code.toLatin1();
    stream.writeRawData(bytes.constData(), 4);
}

/// A message of @p layer: writes the header, calls @p body for the rest and then sets the size.
template <typename Body>
QByteArray frame(const char* layer, Body body)
{
    QByteArray out;
    QDataStream stream(&out, QIODevice::WriteOnly);
    stream.setByteOrder(QDataStream::LittleEndian);
    stream.writeRawData("CITP", 4);
    stream << quint8(1) << quint8(0) << quint16(0) << quint32(0) << quint16(1) << quint16(0);
    stream.writeRawData(layer, 4);
    body(stream);
    stream.device()->seek(8);
    stream << quint32(out.size());
    return out;
}

QByteArray withQDataStream(const Msg_MSEX_GEIN& message)
{
    return frame("MSEX", [&message](QDataStream& stream) {
        stream << message.versionMajor << message.versionMinor;
        writeCode(stream, message.cookie);
        stream << message.libraryType << quint32(fromLibraryFormat(message.libraryId))
               << quint16(message.elementNumbers.size());
        for (const unsigned char number : message.elementNumbers)
            stream << number;
    });
}

QByteArray withQDataStream(const Msg_MSEX_GETH& message)
{
    return frame("MSEX", [&message](QDataStream& stream) {
        stream << message.versionMajor << message.versionMinor;
        writeCode(stream, message.cookie);
        stream << quint32(fromGraphicFormat(message.thumbnailFormat)) << message.thumbnailWidth
               << message.thumbnailHeight << quint8(1) << message.libraryType
               << quint32(fromLibraryFormat(message.libraryId)) << quint16(message.elementNumbers.size());
        for (const unsigned char number : message.elementNumbers)
            stream << number;
    });
}

QByteArray withQDataStream(const Msg_PEER_PNAM& message)
{
    return frame("PINF", [&message](QDataStream& stream) {
        writeCode(stream, message.cookie);
        const QByteArray name = message.name.toLatin1();
        stream.writeRawData(name.constData(), static_cast<int>(name.size()) + 1);
    });
}

QByteArray withQDataStream(const Msg_FPTC_SPTC& message)
{
    return frame("FPTC", [&message](QDataStream& stream) {
        writeCode(stream, message.cookie);
        stream << message.hint << quint16(message.fixtureIdentifiers.size());
        for (const unsigned short identifier : message.fixtureIdentifiers)
            stream << identifier;
    });
}

template <typename Message>
void addSerialise(const std::string& name, const Message& message)
{
    QByteArray bytes;
    bytes >> message;
    requireSame(bytes == withQDataStream(message), name.c_str());

    add("Serialise/" + name + "/library", [message] {
        QByteArray out;
        out >> message;
        benchmark::DoNotOptimize(out.constData());
    });
    add("Serialise/" + name + "/qdatastream", [message] {
        const QByteArray out = withQDataStream(message);
        benchmark::DoNotOptimize(out.constData());
    });
    add("Serialise/" + name + "/copy", [bytes] {
        const QByteArray out(bytes.constData(), bytes.size());
        benchmark::DoNotOptimize(out.constData());
    });
}
} // namespace

void addSerialiseCases()
{
    const std::vector<unsigned char> numbers = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19};
    std::vector<unsigned short> fixtures;
    for (unsigned short fixture = 0; fixture < 100; ++fixture)
        fixtures.push_back(fixture);
    addSerialise("GEIn20", Msg_MSEX_GEIN(2, 1, QStringLiteral("1,2,0,0"), numbers));
    addSerialise("GETh1", Msg_MSEX_GETH(2, 1, QStringLiteral("1,2,0,0"), 96, 128, QStringLiteral("JPEG"), {7}));
    addSerialise("PNam", Msg_PEER_PNAM(QStringLiteral("Lighting console")));
    addSerialise("SPtc100", Msg_FPTC_SPTC(&fixtures));
}
} // namespace bench
