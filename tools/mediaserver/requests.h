// The messages that a console sends to a media server, and their parser.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>
#include <vector>

namespace MediaServer {
enum class RequestKind {
    Unknown,           ///< a message that media servers do not answer
    Malformed,         ///< truncated; see Request::problem
    PeerName,          ///< PNam
    ClientInfo,        ///< CInf
    SendPatch,         ///< SPtc
    ListLibraries,     ///< GELI
    ListElements,      ///< GEIn
    LibraryThumbnails, ///< GELT
    ElementThumbnails, ///< GETh
};

/// A parsed message. Only the fields of its kind are set.
struct Request
{
    RequestKind kind = RequestKind::Unknown;
    QString code;            ///< layer and content code, e.g. "MSEX GELI"
    QString problem;         ///< of a malformed message
    bool isLonger = false;   ///< bytes follow its last field
    quint16 index = 0;       ///< the request index, which is copied to the answer
    quint8 versionMajor = 0; ///< MSEX version of an MSEX message
    quint8 versionMinor = 0;
    QString peerName;
    std::vector<quint16> versions; ///< of CInf: major in the high byte, minor in the low one
    std::vector<quint16> fixtures; ///< of SPtc; empty requests the whole patch
    quint8 libraryType = 0;
    quint32 libraryId = 0;           ///< first wire byte lowest; the parent in GELI; a one-byte number in MSEX 1.0
    std::vector<quint32> libraryIds; ///< of GELT; empty requests all
    std::vector<quint8> numbers;     ///< of GELI, GEIn, GETh; empty requests all
    QByteArray format;               ///< four characters
    quint16 width = 0;               ///< pixels
    quint16 height = 0;              ///< pixels
};

/// Parses a complete message including its header. Accepts any bytes and never reads beyond them.
Request parseRequest(const QByteArray& message);
} // namespace MediaServer
