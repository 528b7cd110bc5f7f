// Keys of requests, and comparison of answers with requests.
// SPDX-License-Identifier: Apache-2.0
#include "questions.h"

#include <QCryptographicHash>
#include <QStringList>
#include <algorithm>

#include "library.h"
#include "wire.h"

namespace MediaServer {
namespace {
constexpr int LayerOffset = 16;

void appendNumber(QByteArray& key, quint32 value, int width)
{
    for (int i = 0; i < width; ++i)
        key.append(static_cast<char>((value >> (8 * i)) & 0xFF));
}

quint32 readId(FieldReader& in, quint8 minor)
{
    return idFromWire(minor, minor == 0 ? in.u8() : in.u32());
}

void readElements(FieldReader& in, ServerMessage& message)
{
    message.libraryId = readId(in, message.minor);
    message.number = readCount(in, message.minor) > 0 ? in.u8() : -1;
}

void readThumbnail(FieldReader& in, ServerMessage& message)
{
    message.type = in.u8();
    message.libraryId = readId(in, message.minor);
    if (message.code == "EThn")
        message.number = in.u8();
    message.format = in.bytes(4);
    message.width = in.u16();
    message.height = in.u16();
}

void readAnswer(FieldReader& in, ServerMessage& message)
{
    if (message.code == "ELIn") {
        message.type = in.u8();
        if (readCount(in, message.minor) > 0) {
            message.libraryId = readId(in, message.minor);
            message.number = numberOf(message.libraryId);
        }
    } else if (message.code == "MEIn" || message.code == "EEIn") {
        message.type = message.code == "MEIn" ? LibraryType::Media : LibraryType::Effects;
        readElements(in, message);
    } else if (message.code == "GLEI") {
        // Before MSEX 1.2 it does not say of which type its elements are.
        message.type = message.minor >= 2 ? in.u8() : quint8(0);
        readElements(in, message);
    } else if (message.isThumbnail()) {
        readThumbnail(in, message);
    }
    message.isReadable = !in.truncated();
}

template <typename Number>
bool isIn(const std::vector<Number>& list, quint32 number)
{
    return std::find(list.begin(), list.end(), number) != list.end();
}

bool answersLibraries(const ServerMessage& message, const Request& request)
{
    return message.type == request.libraryType &&
           (message.number < 0 || (parentId(message.libraryId) == request.libraryId &&
                                   (request.numbers.empty() || isIn(request.numbers, numberOf(message.libraryId)))));
}

bool answersElements(const ServerMessage& message, const Request& request)
{
    const bool isType = message.type == request.libraryType || (message.code == "GLEI" && message.type == 0);
    return isType && message.libraryId == idFromWire(request.versionMinor, request.libraryId) &&
           (message.number < 0 || request.numbers.empty() ||
            isIn(request.numbers, static_cast<quint32>(message.number)));
}

bool isElementAsked(const ServerMessage& message, const Request& request)
{
    return message.type == request.libraryType &&
           message.libraryId == idFromWire(request.versionMinor, request.libraryId) &&
           (request.numbers.empty() || isIn(request.numbers, static_cast<quint32>(message.number)));
}

bool isLibraryAsked(const ServerMessage& message, const Request& request)
{
    const auto isWanted = [&](quint32 onWire) { return idFromWire(request.versionMinor, onWire) == message.libraryId; };
    return message.type == request.libraryType &&
           (request.libraryIds.empty() || std::any_of(request.libraryIds.begin(), request.libraryIds.end(), isWanted));
}

// Servers keep proportions, so that a side may be shorter than requested.
bool isPictureAsked(const ServerMessage& message, const Request& request)
{
    return message.format == request.format && message.width <= request.width && message.height <= request.height;
}

bool hasAnswerCode(const ServerMessage& message, RequestKind kind)
{
    switch (kind) {
        case RequestKind::ClientInfo:
            return message.code == "SInf";
        case RequestKind::SendPatch:
            return message.code == "Ptch";
        case RequestKind::ListLibraries:
            return message.code == "ELIn";
        case RequestKind::ListElements:
            return message.code == "MEIn" || message.code == "EEIn" || message.code == "GLEI";
        case RequestKind::LibraryThumbnails:
            return message.code == "ELTh";
        case RequestKind::ElementThumbnails:
            return message.code == "EThn";
        default:
            return false;
    }
}

// A request can have 65535 numbers, and one that is not known any bytes.
QByteArray shortened(const QByteArray& key)
{
    constexpr int MaxKeyBytes = 64;
    return key.size() <= MaxKeyBytes ? key : QCryptographicHash::hash(key, QCryptographicHash::Sha256);
}

template <typename Number>
QString numbersText(const std::vector<Number>& numbers)
{
    constexpr std::size_t MaxListed = 8;
    QStringList texts;
    for (std::size_t i = 0; i < numbers.size() && i < MaxListed; ++i)
        texts << QString::number(numbers[i]);
    if (numbers.size() > MaxListed)
        texts << "...";
    return texts.join(",");
}
} // namespace

QByteArray keyOf(const Request& request, const QByteArray& message)
{
    QByteArray key(1, static_cast<char>(request.kind));
    if (isUnknown(request))
        return shortened(key + message.mid(LayerOffset));
    // What a server says of itself does not depend on what the console says of itself.
    if (request.kind == RequestKind::ClientInfo)
        return key;
    key.append(static_cast<char>(request.versionMinor));
    key.append(static_cast<char>(request.libraryType));
    appendNumber(key, request.libraryId, 4);
    key.append(request.format);
    appendNumber(key, request.width, 2);
    appendNumber(key, request.height, 2);
    for (const quint8 number : request.numbers)
        appendNumber(key, number, 1);
    for (const quint32 id : request.libraryIds)
        appendNumber(key, id, 4);
    for (const quint16 fixture : request.fixtures)
        appendNumber(key, fixture, 2);
    return shortened(key);
}

std::vector<Request> singleRequests(const Request& request)
{
    std::vector<Request> singles;
    const auto add = [&](auto member, const auto& all) {
        // Each copy of the whole list would be as large as the list.
        Request none = request;
        (none.*member).clear();
        for (const auto each : all) {
            singles.push_back(none);
            (singles.back().*member).push_back(each);
        }
    };
    if (request.kind == RequestKind::ElementThumbnails)
        add(&Request::numbers, request.numbers);
    else if (request.kind == RequestKind::LibraryThumbnails)
        add(&Request::libraryIds, request.libraryIds);
    else if (request.kind == RequestKind::SendPatch)
        add(&Request::fixtures, request.fixtures);
    return singles.empty() ? std::vector<Request>{request} : singles;
}

bool isUnknown(const Request& request)
{
    return request.kind == RequestKind::Unknown || request.kind == RequestKind::Malformed;
}

bool isForAll(const Request& request)
{
    return (request.kind == RequestKind::ElementThumbnails && request.numbers.empty()) ||
           (request.kind == RequestKind::LibraryThumbnails && request.libraryIds.empty()) ||
           (request.kind == RequestKind::SendPatch && request.fixtures.empty());
}

QString textOf(const Request& request)
{
    QString text = request.code.mid(5);
    const auto id = [&](quint32 onWire) {
        return request.versionMinor == 0 ? QString::number(onWire) : idText(onWire);
    };
    switch (request.kind) {
        case RequestKind::ListLibraries:
            text += QString(" in %1 of type %2").arg(id(request.libraryId)).arg(request.libraryType);
            break;
        case RequestKind::ListElements:
        case RequestKind::ElementThumbnails:
            text += QString(" of library %1 of type %2").arg(id(request.libraryId)).arg(request.libraryType);
            break;
        case RequestKind::LibraryThumbnails: {
            QStringList ids;
            for (const quint32 each : request.libraryIds)
                ids << id(each);
            text += QString(" of type %1, %2").arg(request.libraryType).arg(ids.isEmpty() ? "all" : ids.join(" "));
            break;
        }
        case RequestKind::SendPatch:
            text += request.fixtures.empty() ? QString(" of all fixtures")
                                             : " of fixtures " + numbersText(request.fixtures);
            break;
        default:
            return request.code;
    }
    if (!request.numbers.empty())
        text += ", numbers " + numbersText(request.numbers);
    if (!request.format.isEmpty())
        text += QString(", %1 %2x%3")
                    .arg(QString::fromLatin1(request.format).trimmed())
                    .arg(request.width)
                    .arg(request.height);
    return text;
}

ServerMessage ServerMessage::read(const QByteArray& bytes)
{
    ServerMessage message;
    FieldReader in(bytes, 6);
    message.index = in.u16();
    in.bytes(8);
    const QByteArray layer = in.bytes(4);
    if (layer == "MSEX") {
        const quint8 major = in.u8();
        message.minor = in.u8();
        message.code = in.bytes(4);
        static const QList<QByteArray> answers{"SInf", "ELIn", "MEIn", "EEIn", "GLEI", "ELTh", "EThn"};
        message.isAnswer = answers.contains(message.code);
        if (message.code == "SInf")
            message.isReadable = !in.truncated();
        else if (message.isAnswer && major == 1 && message.minor <= 2)
            readAnswer(in, message);
    } else {
        message.code = in.bytes(4);
        if (layer == "FPTC" && message.code == "Ptch") {
            message.isAnswer = true;
            in.u32();
            message.fixture = in.u16();
            message.isReadable = !in.truncated();
        }
    }
    return message;
}

Fit fitOf(const ServerMessage& message, const Request& request)
{
    if (!hasAnswerCode(message, request.kind))
        return Fit::None;
    if (!message.isReadable)
        return Fit::Code;
    bool isSubject = true;
    if (request.kind == RequestKind::ListLibraries)
        isSubject = answersLibraries(message, request);
    else if (request.kind == RequestKind::ListElements)
        isSubject = answersElements(message, request);
    else if (request.kind == RequestKind::ElementThumbnails)
        isSubject = isElementAsked(message, request);
    else if (request.kind == RequestKind::LibraryThumbnails)
        isSubject = isLibraryAsked(message, request);
    else if (request.kind == RequestKind::SendPatch)
        isSubject = request.fixtures.empty() || isIn(request.fixtures, message.fixture);
    if (!isSubject)
        return Fit::Code;
    return message.isThumbnail() && !isPictureAsked(message, request) ? Fit::Subject : Fit::Whole;
}

Request singleRequestFor(const ServerMessage& message, const Request& request)
{
    Request single = request;
    if (request.kind == RequestKind::ElementThumbnails)
        single.numbers = {static_cast<quint8>(message.number)};
    else if (request.kind == RequestKind::LibraryThumbnails)
        single.libraryIds = {request.versionMinor == 0 ? numberOf(message.libraryId) : message.libraryId};
    else if (request.kind == RequestKind::SendPatch)
        single.fixtures = {message.fixture};
    return single;
}
} // namespace MediaServer
