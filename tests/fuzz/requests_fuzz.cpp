// Fuzz target: what the simulated media server makes of what a console sends. The input is a stream and how it is cut.
// SPDX-License-Identifier: Apache-2.0
#include "fuzz_input.h"

#include "framing.h"
#include "requests.h"

#include <citp/citp_codecs.h>
#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_requests.h>

#include <QString>

using namespace MediaServer;

namespace {
/// All whole messages that @p cutter has now.
std::vector<QByteArray> take(MessageCutter& cutter)
{
    std::vector<QByteArray> messages;
    QByteArray message;
    while (cutter.next(message))
        messages.push_back(message);
    return messages;
}

QString libraryText(quint32 id, quint8 minor)
{
    QString text;
    return minor == 0 ? QString::number(id) : CITP::fromLibraryFormat(text, id);
}

bool sameFields(const Request& a, const Request& b)
{
    return a.kind == b.kind && a.code == b.code && a.problem == b.problem && a.versionMajor == b.versionMajor &&
           a.versionMinor == b.versionMinor && a.peerName == b.peerName && a.versions == b.versions &&
           a.fixtures == b.fixtures && a.libraryType == b.libraryType && a.libraryId == b.libraryId &&
           a.libraryIds == b.libraryIds && a.numbers == b.numbers && a.format == b.format && a.width == b.width &&
           a.height == b.height;
}

/// A request as the library writes it; empty for what it does not write.
QByteArray written(const Request& request)
{
    const quint8 minor = request.versionMinor;
    const QString id = libraryText(request.libraryId, minor);
    const QString format = QString::fromLatin1(request.format);
    QByteArray out;
    switch (request.kind) {
        case RequestKind::SendPatch: {
            const std::vector<unsigned short> fixtures(request.fixtures.begin(), request.fixtures.end());
            return out >> CITP::Msg_FPTC_SPTC(&fixtures);
        }
        case RequestKind::ListLibraries:
            return out >> CITP::Msg_MSEX_GELI(minor, request.libraryType, id, request.numbers);
        case RequestKind::ListElements:
            return out >> CITP::Msg_MSEX_GEIN(minor, request.libraryType, id, request.numbers);
        case RequestKind::LibraryThumbnails: {
            std::vector<QString> ids;
            for (const quint32 library : request.libraryIds)
                ids.push_back(libraryText(library, minor));
            return out >> CITP::Msg_MSEX_GELT(minor, request.libraryType, ids, request.height, request.width, format);
        }
        case RequestKind::ElementThumbnails:
            return out >> CITP::Msg_MSEX_GETH(minor, request.libraryType, id, request.height, request.width, format,
                                              request.numbers);
        default:
            return out;
    }
}

void check(const QByteArray& message)
{
    const fuzz::ExactBytes exact(message);
    const Request request = parseRequest(exact.view());
    FUZZ_REQUIRE(sameFields(request, parseRequest(message)));
    FUZZ_REQUIRE((request.kind == RequestKind::Malformed) == !request.problem.isEmpty());
    if (request.kind == RequestKind::Malformed)
        return;

    // Library and server were written apart; what the one writes, the other must read.
    const QByteArray bytes = written(request);
    const bool hasPicture =
        request.kind == RequestKind::LibraryThumbnails || request.kind == RequestKind::ElementThumbnails;
    const bool knownFormat = request.format == "JPEG" || request.format == "PNG " || request.format == "RGB8";
    if (!bytes.isEmpty() && (!hasPicture || knownFormat))
        FUZZ_REQUIRE(sameFields(parseRequest(bytes), request));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::Input input(data, size);
    const std::vector<int> lengths = input.lengths();
    const QByteArray stream = input.rest();

    // The server hands every whole message on; also bytes that no cutter lets pass must do the parser no harm.
    check(stream);

    MessageCutter whole;
    whole.append(stream);
    const std::vector<QByteArray> messages = take(whole);
    MessageCutter piecewise;
    std::vector<QByteArray> gathered;
    for (const QByteArray& piece : fuzz::pieces(stream, lengths)) {
        piecewise.append(piece);
        for (const QByteArray& message : take(piecewise))
            gathered.push_back(message);
    }
    FUZZ_REQUIRE(gathered == messages);
    FUZZ_REQUIRE(piecewise.problem() == whole.problem());
    FUZZ_REQUIRE(piecewise.pending() == whole.pending());

    int total = whole.pending();
    for (const QByteArray& message : messages) {
        FUZZ_REQUIRE(message.startsWith("CITP") && message.size() >= 20);
        total += static_cast<int>(message.size());
        check(message);
    }
    FUZZ_REQUIRE(total == stream.size());
    return 0;
}
