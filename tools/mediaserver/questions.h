// Questions: what a console asks, as a key, and which message of a server answers it.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>
#include <vector>

#include "requests.h"

namespace MediaServer {
/// What is asked, without the request index, in at most 64 bytes. Equal for requests that a server answers alike. That
/// of a request for all thumbnails or fixtures is the beginning of that for one of them.
/// @param message the bytes of @p request, which are the key if its kind is unknown
QByteArray keyOf(const Request& request, const QByteArray& message);

/// A request for several thumbnails or fixtures as one request for each, because a server answers each with a message
/// of its own. Any other request, also one for all, is returned as it is.
std::vector<Request> singleRequests(const Request& request);

/// Whether @p request is not understood, so that any of its bytes count.
bool isUnknown(const Request& request);

/// Whether a server answers @p request with any number of messages.
bool isForAll(const Request& request);

/// The request as text, for messages, e.g. "GETh of library 1,1,0,0 of type 1, numbers 3, JPEG 160x120".
QString textOf(const Request& request);

/// A message of a server, as far as it tells which question it answers.
struct ServerMessage
{
    QByteArray code;   ///< four characters; empty if the message is too short
    quint8 minor = 0;  ///< of MSEX
    quint16 index = 0; ///< the request index
    bool isAnswer = false;
    bool isReadable = false; ///< the fields below are valid
    quint8 type = 0;         ///< library type
    quint32 libraryId = 0;   ///< of a list of libraries, that of the first one
    int number = -1;         ///< of an element, or of the first one of a list; -1: the list is empty
    QByteArray format;       ///< of a thumbnail
    quint16 width = 0;       ///< pixels
    quint16 height = 0;      ///< pixels
    quint16 fixture = 0;     ///< identifier
    bool isThumbnail() const { return code == "ELTh" || code == "EThn"; }
    /// Whether servers send it unasked.
    bool isNotification() const { return code == "LSta" || code == "ELUp" || code == "PNam"; }

    /// Accepts any bytes.
    static ServerMessage read(const QByteArray& bytes);
};

/// How a message fits to a request.
enum class Fit {
    None,
    Code,    ///< it has the code of an answer to this request, but is damaged or about something else
    Subject, ///< it is about what was asked, but the picture has another format, or is larger
    Whole,   ///< it answers this request
};
Fit fitOf(const ServerMessage& message, const Request& request);

/// Of a request for all, that for the one thumbnail or fixture that @p message contains.
Request singleRequestFor(const ServerMessage& message, const Request& request);
} // namespace MediaServer
