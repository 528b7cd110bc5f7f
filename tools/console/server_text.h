// What an announced server is, in words and in JSON.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_stack.h>

#include <QJsonObject>
#include <QMap>
#include <QStringList>

namespace Console {
/// What is known of a server; taken when it comes up, so that it can still be named when it is gone.
struct ServerText
{
    QString key;
    QString name;
    QString product;
    QString productVersion;
    quint8 msexMinor = 0; ///< the MSEX version that it is taken to speak is 1. and this
    int layers = 0;
    bool isKnown = false; ///< false if it was gone before it could be asked about; then only #key is filled
};

/// Asks the stack about @p key.
ServerText describe(const CITP::citp_stack::SERV_ID& key);
/// For people, harmless to a terminal: everything, or (@p brief) key and name alone.
QString toText(const ServerText& server, bool brief = false);
QJsonObject toJson(const ServerText& server);

/// The keys of those of @p servers, which stand under their keys, that @p wanted means: the one with that key; else,
/// unless it looks like a key, all that are called exactly that; else all that have the text in their names.
QStringList matching(const QMap<QString, ServerText>& servers, const QString& wanted);
} // namespace Console
