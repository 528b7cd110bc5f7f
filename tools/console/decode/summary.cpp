// Counting of events and formatting of the summary.
// SPDX-License-Identifier: Apache-2.0
#include "summary.h"

#include <citp/citp_msg_msex_sinf.h>
#include <citp/citp_msg_peer.h>

#include <QJsonArray>

#include "event_text.h"
#include "printing.h"
#include "table.h"

namespace Console {
namespace {
constexpr int MaxSummarisedServers = 1024;
constexpr int MaxKinds = 128;
constexpr double Second = 1e6;
// Replaces layer and code of message types that are counted together. Longer than any layer, so that it is unique.
constexpr const char* Others = "other";

double seconds(qint64 fromUs, qint64 toUs)
{
    return static_cast<double>(toUs - fromUs) / Second;
}

QString productOf(const QByteArray& message)
{
    const CITP::Msg_MSEX_SINF info(message);
    if (!info.valid)
        return {};
    return QString("%1 %2.%3, MSEX 1.%4")
        .arg(info.ProductName, QString::number(info.ProductVersionMajor), QString::number(info.ProductVersionMinor),
             QString::number(info.GetHighestMsexVersion()));
}

void extendRange(qint64 timeUs, bool isFirst, qint64& firstUs, qint64& lastUs)
{
    firstUs = isFirst ? timeUs : qMin(firstUs, timeUs);
    lastUs = isFirst ? timeUs : qMax(lastUs, timeUs);
}
} // namespace

void Summary::add(const Event& event)
{
    const bool isRoom = m_servers.contains(event.server) || m_servers.size() < MaxSummarisedServers;
    const QString key = isRoom ? event.server : QString("others");
    const bool isNew = !m_servers.contains(key);
    Server& server = m_servers[key];
    extendRange(event.timeUs, isNew, server.firstUs, server.lastUs);
    switch (event.kind) {
        case Tools::StreamItem::Kind::Message:
            addMessage(server, event);
            break;
        case Tools::StreamItem::Kind::Gap:
            ++server.gaps;
            server.missing += qMax<qint64>(0, event.missing);
            break;
        case Tools::StreamItem::Kind::Error:
            ++server.errors;
            break;
        case Tools::StreamItem::Kind::Note:
            server.connections += event.isConnecting ? 1 : 0;
            break;
    }
}

void Summary::addMessage(Server& server, const Event& event)
{
    const QString wanted = QString("%1 %2 %3").arg(static_cast<int>(event.direction)).arg(event.layer, event.code);
    const bool isRoom = server.counts.contains(wanted) || server.counts.size() < MaxKinds;
    Count& count = server.counts[isRoom ? wanted : QString("%1 %2").arg(static_cast<int>(event.direction)).arg(Others)];
    const qint64 size = event.message.size();
    extendRange(event.timeUs, count.messages == 0, count.firstUs, count.lastUs);
    count.smallest = count.messages == 0 ? size : qMin(count.smallest, size);
    count.largest = qMax(count.largest, size);
    ++count.messages;
    count.bytes += size;
    if (!event.problem.isEmpty()) {
        ++count.problems;
        ++server.errors;
    }
    if (event.layer == QLatin1String("PINF") && event.code == QLatin1String("PLoc")) {
        const CITP::Msg_PEER_PLOC announcement(event.message);
        server.name = announcement.name;
        server.type = announcement.type;
    } else if (event.code == QLatin1String("SInf")) {
        const QString product = productOf(event.message);
        server.product = product.isEmpty() ? server.product : product;
    }
}

// The mean rate over the time in which the server was seen; "-" if that time is zero.
QString Summary::perSecond(const Server& server, const Count& count)
{
    const double duration = seconds(server.firstUs, server.lastUs);
    return duration > 0 ? QString::number(static_cast<double>(count.messages) / duration, 'f', 1) : QString("-");
}

QStringList Summary::lines() const
{
    QStringList lines;
    for (auto server = m_servers.begin(); server != m_servers.end(); ++server) {
        QString heading = server.key();
        if (!server->name.isEmpty())
            heading += QString("  \"%1\"").arg(server->name);
        for (const QString& more : {server->type, server->product})
            heading += more.isEmpty() ? QString() : "  " + more;
        if (!lines.isEmpty())
            lines << QString();
        lines << escapeControls(heading);
        lines << QString("seen from %1 to %2, %3 s; connections begun: %4")
                     .arg(localDateAndTime(server->firstUs), localDateAndTime(server->lastUs))
                     .arg(seconds(server->firstUs, server->lastUs), 0, 'f', 1)
                     .arg(server->connections);
        Table table(
            {"message", "direction", " count", " bytes", " smallest", " largest", " per s", " wrong", "first", "last"});
        for (auto kind = server->counts.begin(); kind != server->counts.end(); ++kind) {
            const Count& count = kind.value();
            table.add({kind.key().mid(2), directionText(static_cast<Event::Direction>(kind.key().left(1).toInt())),
                       QString::number(count.messages), QString::number(count.bytes), QString::number(count.smallest),
                       QString::number(count.largest), perSecond(server.value(), count),
                       QString::number(count.problems), localTime(count.firstUs), localTime(count.lastUs)});
        }
        if (!server->counts.isEmpty())
            lines += table.lines();
        lines << QString("protocol errors: %1; gaps in the capture: %2, %3 bytes")
                     .arg(server->errors)
                     .arg(server->gaps)
                     .arg(server->missing);
    }
    return lines;
}

std::vector<QJsonObject> Summary::objects() const
{
    std::vector<QJsonObject> objects;
    for (auto server = m_servers.begin(); server != m_servers.end(); ++server) {
        QJsonArray messages;
        const double duration = seconds(server->firstUs, server->lastUs);
        for (auto kind = server->counts.begin(); kind != server->counts.end(); ++kind) {
            const Count& count = kind.value();
            const bool isOthers = kind.key().mid(2) == QLatin1String(Others);
            QJsonObject object{{"layer", isOthers ? QString(Others) : kind.key().mid(2, 4)},
                               {"code", isOthers ? QString() : kind.key().mid(7)},
                               {"direction", directionText(static_cast<Event::Direction>(kind.key().left(1).toInt()))},
                               {"count", count.messages},
                               {"bytes", count.bytes},
                               {"smallest", count.smallest},
                               {"largest", count.largest},
                               {"wrong", count.problems},
                               {"first", isoTime(count.firstUs / 1000)},
                               {"last", isoTime(count.lastUs / 1000)}};
            if (duration > 0)
                object.insert("perSecond", static_cast<double>(count.messages) / duration);
            messages.append(object);
        }
        objects.push_back({{"record", "summary"},
                           {"server", server.key()},
                           {"name", server->name},
                           {"type", server->type},
                           {"product", server->product},
                           {"first", isoTime(server->firstUs / 1000)},
                           {"last", isoTime(server->lastUs / 1000)},
                           {"connections", server->connections},
                           {"messages", messages},
                           {"errors", server->errors},
                           {"gaps", server->gaps},
                           {"missing", server->missing}});
    }
    return objects;
}
} // namespace Console
