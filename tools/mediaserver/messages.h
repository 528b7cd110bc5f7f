// The messages that a media server sends, written from their wire tables.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <vector>

#include "library.h"
#include "patch.h"
#include "pictures.h"

namespace MediaServer {
/// What a server says of itself in its SInf.
struct Identity
{
    QString name;
    QByteArray uuid; ///< 36 characters
    QString product;
    quint8 versionMajor = 1;
    quint8 versionMinor = 0;
    quint8 versionBugfix = 0; ///< told from MSEX 1.2 on
    quint8 msexMinor = 2;     ///< the MSEX 1.x that the server speaks, 0 to 2
    quint16 libraryTypes = 0; ///< bit n set: libraries of type n exist; told from MSEX 1.2 on
    QStringList layerSources; ///< one DMX source a layer, at most 255
};

/// One layer's playback.
struct LayerState
{
    quint8 number = 0;
    quint8 output = 0;
    quint32 libraryId = 0;
    quint8 media = 0;
    QString name;
    quint32 position = 0; ///< frames
    quint32 length = 0;   ///< frames
    quint8 frameRate = 0; ///< frames a second
    quint32 flags = 0;
};

/// One library as a list of libraries tells it.
struct LibraryEntry
{
    quint32 id = 0;
    quint32 serial = 0;
    QString name;
    int subLibraries = 0; ///< told from MSEX 1.1 on
    int elements = 0;
};

/// Which request an answer is for and in which MSEX version it is written.
struct Reply
{
    quint8 msexMinor = 2; ///< 0 to 2
    quint16 index = 0;    ///< the request's
};

/// PLoc: where a server listens. @param port TCP port
QByteArray peerLocation(const QString& name, quint16 port);

/// SInf in the server's own MSEX version.
QByteArray serverInformation(const Identity& identity, quint16 requestIndex);

/// ELIn.
QByteArray libraryList(const Reply& reply, quint8 type, const std::vector<LibraryEntry>& libraries);
/// MEIn.
QByteArray mediaList(const Reply& reply, quint32 libraryId, const std::vector<Element>& elements);
/// EEIn.
QByteArray effectList(const Reply& reply, quint32 libraryId, const std::vector<Element>& elements);
/// GLEI, which exists from MSEX 1.1 on.
QByteArray genericList(const Reply& reply, quint8 type, quint32 libraryId, const std::vector<Element>& elements);
/// ELTh.
QByteArray libraryThumbnail(const Reply& reply, quint8 type, quint32 libraryId, const Thumbnail& thumbnail);
/// EThn.
QByteArray elementThumbnail(const Reply& reply, quint8 type, quint32 libraryId, quint8 element,
                            const Thumbnail& thumbnail);
/// LSta. MSEX 1.1 has no layout of its own for it: a 1.1 server sends it as a 1.0 message.
QByteArray layerStatus(quint8 msexMinor, const std::vector<LayerState>& layers);
/// ELUp in the server's own MSEX version.
QByteArray libraryUpdated(quint8 msexMinor, const LibraryUpdate& update);
/// Ptch.
QByteArray patchedFixture(const Fixture& fixture, quint16 requestIndex);
} // namespace MediaServer
