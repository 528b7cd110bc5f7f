// Parsers for the messages of a console, in MSEX 1.0, 1.1 and 1.2.
// SPDX-License-Identifier: Apache-2.0
#include "requests.h"

#include "wire.h"

namespace MediaServer {
namespace {
// MSEX 1.0 identifies a library by a one-byte number, later versions by a four-byte id.
quint32 readLibrary(FieldReader& in, quint8 minor)
{
    return minor == 0 ? in.u8() : in.u32();
}

void readNumbers(FieldReader& in, Request& request)
{
    const int count = readCount(in, request.versionMinor);
    const QByteArray numbers = in.bytes(count);
    request.numbers.assign(numbers.begin(), numbers.end());
}

// Reads the fields of a thumbnail request. The flags byte is ignored, because the aspect ratio is always kept.
void readPicture(FieldReader& in, Request& request)
{
    request.format = in.bytes(4);
    request.width = in.u16();
    request.height = in.u16();
    in.u8();
}

void readClientInfo(FieldReader& in, Request& request)
{
    request.kind = RequestKind::ClientInfo;
    const int count = in.u8();
    for (int i = 0; i < count && !in.truncated(); ++i)
        request.versions.push_back(in.u16());
}

void readSendPatch(FieldReader& in, Request& request)
{
    request.kind = RequestKind::SendPatch;
    const int count = in.u16();
    for (int i = 0; i < count && !in.truncated(); ++i)
        request.fixtures.push_back(in.u16());
}

void readMsex(FieldReader& in, const QByteArray& code, Request& request)
{
    if (code == "CInf") {
        readClientInfo(in, request);
        return;
    }
    if (request.versionMajor != 1 || request.versionMinor > 2)
        return;
    const quint8 minor = request.versionMinor;
    if (code == "GELI") {
        request.kind = RequestKind::ListLibraries;
        request.libraryType = in.u8();
        if (minor > 0)
            request.libraryId = in.u32();
        readNumbers(in, request);
    } else if (code == "GEIn") {
        request.kind = RequestKind::ListElements;
        request.libraryType = in.u8();
        request.libraryId = readLibrary(in, minor);
        readNumbers(in, request);
    } else if (code == "GELT") {
        request.kind = RequestKind::LibraryThumbnails;
        readPicture(in, request);
        request.libraryType = in.u8();
        const int count = readCount(in, minor);
        for (int i = 0; i < count && !in.truncated(); ++i)
            request.libraryIds.push_back(readLibrary(in, minor));
    } else if (code == "GETh") {
        request.kind = RequestKind::ElementThumbnails;
        readPicture(in, request);
        request.libraryType = in.u8();
        request.libraryId = readLibrary(in, minor);
        readNumbers(in, request);
    }
}
} // namespace

Request parseRequest(const QByteArray& message)
{
    Request request;
    FieldReader in(message, 6);
    request.index = in.u16();
    in.bytes(8);
    const QByteArray layer = in.bytes(4);
    QByteArray code;
    if (layer == "PINF") {
        code = in.bytes(4);
        if (code == "PNam") {
            request.kind = RequestKind::PeerName;
            request.peerName = in.text8();
        }
    } else if (layer == "FPTC") {
        code = in.bytes(4);
        in.u32();
        if (code == "SPtc")
            readSendPatch(in, request);
    } else if (layer == "MSEX") {
        request.versionMajor = in.u8();
        request.versionMinor = in.u8();
        code = in.bytes(4);
        readMsex(in, code, request);
    }
    request.code = QString::fromLatin1(layer + ' ' + code);
    request.isLonger = request.kind != RequestKind::Unknown && in.remaining() > 0;
    if (in.truncated()) {
        request.kind = RequestKind::Malformed;
        request.problem = QString("cut short at %1 bytes").arg(message.size());
    }
    return request;
}
} // namespace MediaServer
