// Reads the description of a server from the stack and formats it.
// SPDX-License-Identifier: Apache-2.0
#include "server_text.h"

#include <QRegularExpression>

#include "printing.h"

namespace Console {
namespace {
bool looksLikeKey(const QString& text)
{
    static const QRegularExpression form("^\\d{1,3}(\\.\\d{1,3}){3}:\\d{1,5}$");
    return form.match(text).hasMatch();
}
} // namespace

ServerText describe(const CITP::citp_stack::SERV_ID& key)
{
    ServerText server;
    server.key = key;
    CITP::Msg_MSEX_SINF sinf;
    CITP::Msg_PEER_PLOC ploc;
    if (!CITP::citp_stack::Get()->getServerInfo(key, &sinf, &ploc))
        return server;
    server.isKnown = true;
    server.name = ploc.name;
    server.product = sinf.ProductName;
    server.productVersion = QString("%1.%2").arg(sinf.ProductVersionMajor).arg(sinf.ProductVersionMinor);
    if (sinf.GetHighestMsexVersion() >= 2)
        server.productVersion += QString(".%1").arg(sinf.ProductVersionBugfix);
    server.msexMinor = sinf.GetHighestMsexVersion();
    server.layers = static_cast<int>(sinf.LayerDMXSources.size());
    return server;
}

QString toText(const ServerText& server, bool brief)
{
    QString text = escapeControls(server.key);
    if (!server.isKnown)
        return text + "  (went down before it could be queried)";
    text += QString("  \"%1\"").arg(escapeControls(server.name));
    if (brief)
        return text;
    const QString product = server.product.isEmpty() ? QString("product unknown") : escapeControls(server.product);
    return text + QString("  %1 %2  MSEX 1.%3  %4 %5")
                      .arg(product, server.productVersion, QString::number(server.msexMinor),
                           QString::number(server.layers), server.layers == 1 ? "layer" : "layers");
}

QJsonObject toJson(const ServerText& server)
{
    QJsonObject object{{"server", server.key}};
    if (server.isKnown) {
        object.insert("name", server.name);
        object.insert("product", server.product);
        object.insert("productVersion", server.productVersion);
        object.insert("msexVersion", QString("1.%1").arg(server.msexMinor));
        object.insert("layers", server.layers);
    }
    return object;
}

QStringList matching(const QMap<QString, ServerText>& servers, const QString& wanted)
{
    if (servers.contains(wanted))
        return {wanted};
    // A server can choose any name. A name that contains another server's key must not match instead of that server.
    if (looksLikeKey(wanted))
        return {};
    QStringList exact;
    QStringList partial;
    for (const ServerText& server : servers) {
        if (server.name == wanted)
            exact << server.key;
        else if (server.name.contains(wanted, Qt::CaseInsensitive))
            partial << server.key;
    }
    return exact.isEmpty() ? partial : exact;
}
} // namespace Console
