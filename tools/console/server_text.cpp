// The forms of a server's description.
// SPDX-License-Identifier: Apache-2.0
#include "server_text.h"

#include "printing.h"

namespace Console {
QString toText(const CITP::Server& server, bool brief)
{
    QString text = escapeControls(server.key);
    if (!brief || !server.name.isEmpty())
        text += QString("  \"%1\"").arg(escapeControls(server.name));
    if (brief)
        return text;
    const QString product = server.product.isEmpty() ? QString("product unknown") : escapeControls(server.product);
    return text + QString("  %1 %2  MSEX 1.%3  %4 %5")
                      .arg(product, server.version, QString::number(server.msexMinor),
                           QString::number(server.layers.size()), server.layers.size() == 1 ? "layer" : "layers");
}

QJsonObject toJson(const CITP::Server& server)
{
    return {{"server", server.key},
            {"name", server.name},
            {"product", server.product},
            {"productVersion", server.version},
            {"msexVersion", QString("1.%1").arg(server.msexMinor)},
            {"layers", server.layers.size()}};
}

QString versionText(unsigned version)
{
    return QString("%1.%2").arg(version >> 8).arg(version & 0xFF);
}

QString overdueText(const CITP::Server& server, qint64 now)
{
    return QString("%1 has announced itself for %2, but has sent no SInf")
        .arg(toText(server, true), secondsText(now - server.firstHeard));
}
} // namespace Console
