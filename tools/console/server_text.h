// Description of a media server as text and JSON, and matching by key or name.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_stack.h>

#include <QJsonObject>
#include <QMap>
#include <QStringList>

namespace Console {
/// Description of a server, stored when it comes up, so that it can still be printed after it went down.
struct ServerText
{
    QString key;
    QString name;
    QString product;
    QString productVersion;
    quint8 msexMinor = 0; ///< minor version of the MSEX version 1.x used with the server
    int layers = 0;
    bool isKnown = false; ///< false if the server went down before it could be queried; then only #key is set
};

/// Queries the stack about the server @p key.
ServerText describe(const CITP::citp_stack::SERV_ID& key);
/// The description as text with control characters escaped. If @p brief, only key and name.
QString toText(const ServerText& server, bool brief = false);
QJsonObject toJson(const ServerText& server);

/// The keys of the servers that match @p wanted: the server with that key; otherwise all servers with exactly that
/// name; otherwise all servers whose names contain the text. A text in the form of a key is never matched with names.
/// @param servers by key
QStringList matching(const QMap<QString, ServerText>& servers, const QString& wanted);
} // namespace Console
