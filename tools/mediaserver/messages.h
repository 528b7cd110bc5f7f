// Serialisation of the messages that a media server sends.
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
/// The description of a server in its SInf.
struct Identity
{
    QString name;
    QByteArray uuid; ///< 36 characters
    QString product;
    quint8 versionMajor = 1;
    quint8 versionMinor = 0;
    quint8 versionBugfix = 0; ///< sent since MSEX 1.2
    quint8 msexMinor = 2;     ///< minor version of the server's MSEX version 1.x, 0 to 2
    quint16 libraryTypes = 0; ///< bit n is set if libraries of type n exist; sent since MSEX 1.2
    QStringList layerSources; ///< DMX source of each layer, at most 255
};

/// The status of a layer.
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

/// An entry of a list of libraries.
struct LibraryEntry
{
    quint32 id = 0;
    quint32 serial = 0;
    QString name;
    int subLibraries = 0; ///< sent since MSEX 1.1
    int elements = 0;
};

/// MSEX version and request index of an answer.
struct Reply
{
    quint8 msexMinor = 2; ///< 0 to 2
    quint16 index = 0;    ///< copied from the request
};

/// PLoc, with the TCP port of the server.
QByteArray peerLocation(const QString& name, quint16 port);

/// SInf in the server's MSEX version.
QByteArray serverInformation(const Identity& identity, quint16 requestIndex);

/// ELIn.
QByteArray libraryList(const Reply& reply, quint8 type, const std::vector<LibraryEntry>& libraries);
/// MEIn.
QByteArray mediaList(const Reply& reply, quint32 libraryId, const std::vector<Element>& elements);
/// EEIn.
QByteArray effectList(const Reply& reply, quint32 libraryId, const std::vector<Element>& elements);
/// GLEI, which exists since MSEX 1.1.
QByteArray genericList(const Reply& reply, quint8 type, quint32 libraryId, const std::vector<Element>& elements);
/// ELTh.
QByteArray libraryThumbnail(const Reply& reply, quint8 type, quint32 libraryId, const Thumbnail& thumbnail);
/// EThn.
QByteArray elementThumbnail(const Reply& reply, quint8 type, quint32 libraryId, quint8 element,
                            const Thumbnail& thumbnail);
/// LSta. MSEX 1.1 defines no layout for it, so a 1.1 server sends a 1.0 message.
QByteArray layerStatus(quint8 msexMinor, const std::vector<LayerState>& layers);
/// ELUp in the server's MSEX version.
QByteArray libraryUpdated(quint8 msexMinor, const LibraryUpdate& update);
/// Ptch.
QByteArray patchedFixture(const Fixture& fixture, quint16 requestIndex);
} // namespace MediaServer
