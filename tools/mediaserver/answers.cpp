// Looks up the requested libraries, elements and fixtures.
// SPDX-License-Identifier: Apache-2.0
#include "answers.h"

#include <algorithm>

#include "messages.h"
#include "pictures.h"

namespace MediaServer {
namespace {
// The id of the requested library. MSEX 1.0 uses the number of a top-level library.
quint32 requestedId(const Request& request, quint32 wireId)
{
    return idFromWire(request.versionMinor, wireId);
}

template <typename Number>
bool isRequested(const std::vector<Number>& list, Number number)
{
    return list.empty() || std::find(list.begin(), list.end(), number) != list.end();
}

Reply replyTo(const Request& request)
{
    return {request.versionMinor, request.index};
}

QString libraryText(const Request& request, quint32 wireId)
{
    return request.versionMinor == 0 ? QString::number(wireId) : idText(wireId);
}

Answers listLibraries(const Request& request, const Libraries& libraries)
{
    std::vector<LibraryEntry> entries;
    for (const Library& library : libraries) {
        if (library.type != request.libraryType || (library.id & 0xFF) != (request.libraryId & 0xFF) + 1 ||
            parentId(library.id) != request.libraryId || !isRequested(request.numbers, numberOf(library.id)))
            continue;
        entries.push_back({library.id, serialOf(library), library.name, subLibraryCount(libraries, library),
                           static_cast<int>(library.elements.size())});
    }
    Answers answers;
    answers.note = QString("libraries of type %1 in %2: %3 sent")
                       .arg(request.libraryType)
                       .arg(libraryText(request, request.libraryId))
                       .arg(entries.size());
    answers.found = static_cast<int>(entries.size());
    answers.messages.push_back(
        [reply = replyTo(request), type = request.libraryType, entries] { return libraryList(reply, type, entries); });
    return answers;
}

std::vector<Element> requestedElements(const Request& request, const Libraries& libraries, quint32 id)
{
    std::vector<Element> elements;
    if (const Library* library = findLibrary(libraries, request.libraryType, id)) {
        for (const Element& element : library->elements) {
            if (isRequested(request.numbers, element.number))
                elements.push_back(element);
        }
    }
    return elements;
}

Answers listElements(const Request& request, const Libraries& libraries)
{
    const quint32 id = requestedId(request, request.libraryId);
    const std::vector<Element> elements = requestedElements(request, libraries, id);
    Answers answers;
    answers.note = QString("elements of library %1 of type %2")
                       .arg(libraryText(request, request.libraryId))
                       .arg(request.libraryType);
    answers.found = static_cast<int>(elements.size());
    const Reply reply = replyTo(request);
    if (request.libraryType == LibraryType::Media) {
        answers.messages.push_back([=] { return mediaList(reply, id, elements); });
    } else if (request.libraryType == LibraryType::Effects) {
        answers.messages.push_back([=] { return effectList(reply, id, elements); });
    } else if (request.versionMinor >= 1) {
        answers.messages.push_back([=, type = request.libraryType] { return genericList(reply, type, id, elements); });
    } else {
        answers.note += ": not answered, MSEX 1.0 has no message for this type";
        return answers;
    }
    answers.note += QString(": %1 sent").arg(elements.size());
    return answers;
}

// The first picture of a library or of its sub-libraries.
PictureSource coverOf(const Libraries& libraries, const Library& library)
{
    for (const Library& candidate : libraries) {
        for (quint32 id = candidate.id; id != 0; id = parentId(id)) {
            if (id == library.id && candidate.type == library.type && !candidate.elements.empty())
                return candidate.elements.front().picture;
        }
    }
    return {};
}

Answers libraryThumbnails(const Request& request, const Libraries& libraries)
{
    std::vector<quint32> wanted;
    for (const quint32 id : request.libraryIds)
        wanted.push_back(requestedId(request, id));
    Answers answers;
    for (const Library& library : libraries) {
        const bool hasId = request.versionMinor > 0 || (library.id & 0xFF) == 1;
        if (library.type != request.libraryType || !hasId || !isRequested(wanted, library.id))
            continue;
        answers.messages.push_back([request, id = library.id, cover = coverOf(libraries, library)] {
            const Thumbnail thumbnail =
                makeThumbnail(loadPicture(cover), request.format, request.width, request.height, request.versionMinor);
            return thumbnail.image.isEmpty() ? QByteArray()
                                             : libraryThumbnail(replyTo(request), request.libraryType, id, thumbnail);
        });
    }
    answers.note =
        QString("thumbnails of libraries of type %1: %2 found").arg(request.libraryType).arg(answers.messages.size());
    return answers;
}

Answers elementThumbnails(const Request& request, const Libraries& libraries)
{
    const quint32 id = requestedId(request, request.libraryId);
    Answers answers;
    for (const Element& element : requestedElements(request, libraries, id)) {
        answers.messages.push_back([request, id, number = element.number, picture = element.picture] {
            const Thumbnail thumbnail = makeThumbnail(loadPicture(picture), request.format, request.width,
                                                      request.height, request.versionMinor);
            return thumbnail.image.isEmpty()
                       ? QByteArray()
                       : elementThumbnail(replyTo(request), request.libraryType, id, number, thumbnail);
        });
    }
    answers.note = QString("thumbnails of elements of library %1 of type %2: %3 found")
                       .arg(libraryText(request, request.libraryId))
                       .arg(request.libraryType)
                       .arg(answers.messages.size());
    return answers;
}

Answers sendPatch(const Request& request, const std::vector<Fixture>& patch)
{
    Answers answers;
    for (const Fixture& fixture : patch) {
        if (isRequested(request.fixtures, fixture.id))
            answers.messages.push_back([fixture, index = request.index] { return patchedFixture(fixture, index); });
    }
    const QString asked =
        request.fixtures.empty() ? QString("the whole patch") : QString("%1 fixtures").arg(request.fixtures.size());
    answers.note = QString("asks for %1: %2 sent").arg(asked).arg(answers.messages.size());
    return answers;
}

// Of answers that have a message for each thing found.
Answers withCount(Answers answers)
{
    answers.found = static_cast<int>(answers.messages.size());
    return answers;
}
} // namespace

Answers answersTo(const Request& request, quint8 msexMinor, const Libraries& libraries,
                  const std::vector<Fixture>& patch)
{
    if (request.kind == RequestKind::SendPatch)
        return withCount(sendPatch(request, patch));
    if (request.versionMinor > msexMinor) {
        Answers rejection;
        rejection.note = QString("asks in MSEX 1.%1: not answered, this server speaks 1.%2 at most")
                             .arg(request.versionMinor)
                             .arg(msexMinor);
        return rejection;
    }
    switch (request.kind) {
        case RequestKind::ListLibraries:
            return listLibraries(request, libraries);
        case RequestKind::ListElements:
            return listElements(request, libraries);
        case RequestKind::LibraryThumbnails:
            return withCount(libraryThumbnails(request, libraries));
        case RequestKind::ElementThumbnails:
            return withCount(elementThumbnails(request, libraries));
        default:
            return {};
    }
}
} // namespace MediaServer
