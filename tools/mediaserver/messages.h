// The messages that a media server sends, written from their wire tables.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

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

/// PLoc: where a server listens. @param port TCP port
QByteArray peerLocation(const QString& name, quint16 port);

/// SInf in the server's own MSEX version.
QByteArray serverInformation(const Identity& identity, quint16 requestIndex);
} // namespace MediaServer
