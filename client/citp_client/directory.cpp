// The states of the servers and the reading of their information.
// SPDX-License-Identifier: Apache-2.0
#include <citp_client/directory.h>

#include <citp/citp_codecs.h>

#include <QRegularExpression>

#include <algorithm>

namespace CITP {
namespace {
constexpr qint64 directoryInterval = 1000; // ms
constexpr quint8 lastUnlistedType = 3;

// Before MSEX 1.2 the list begins two bytes early, with the minor version of the product and the number of layers.
QStringList layersOf(const Msg_MSEX_SINF& sinf)
{
    QStringList layers;
    for (const QString& source : sinf.LayerDMXSources) {
        layers << source;
    }
    if (sinf.GetHighestMsexVersion() >= 2 || layers.isEmpty()) {
        return layers;
    }
    if (sinf.ProductVersionMinor != 0) {
        layers.first().remove(0, 2);
    } else {
        layers.removeFirst();
        if (!layers.isEmpty()) {
            layers.first().remove(0, 1);
        }
    }
    return layers;
}

void describe(Server& server, const Msg_MSEX_SINF& sinf)
{
    server.product = sinf.ProductName.left(Transport::maxNameLength);
    server.version = QStringLiteral("%1.%2").arg(sinf.ProductVersionMajor).arg(sinf.ProductVersionMinor);
    server.msexMinor = sinf.GetHighestMsexVersion();
    if (server.msexMinor >= 2) {
        server.version += QStringLiteral(".%1").arg(sinf.ProductVersionBugfix);
    }
    server.uuid = sinf.UUID;
    server.types.clear();
    for (quint8 type = 1; type < 16; ++type) {
        const bool isListed =
            sinf.SupportedLibraryTypes == 0 ? type <= lastUnlistedType : (sinf.SupportedLibraryTypes >> type & 1) != 0;
        // There is no message for generic elements in MSEX 1.0.
        if (isListed && (server.msexMinor > 0 || type < lastUnlistedType)) {
            server.types.push_back(type);
        }
    }
    server.pictureFormats.clear();
    for (const unsigned int format : sinf.ThumbnailFormats) {
        QString text;
        server.pictureFormats << fromGraphicFormat(text, format).trimmed();
    }
    server.layers = layersOf(sinf);
    for (QString& layer : server.layers) {
        layer.truncate(Transport::maxNameLength);
    }
}

QString titleOf(const Server& server)
{
    return server.name.isEmpty() ? server.key : QStringLiteral("\"%1\" (%2)").arg(server.name, server.key);
}
} // namespace

Directory::Directory(Transport& transport, QObject* parent) : QObject(parent), m_transport(transport)
{
    connect(&transport, &Transport::serverHeard, this, &Directory::hear);
    connect(&transport, &Transport::serverConnected, this, &Directory::setConnected);
    connect(&transport, &Transport::serverFailed, this, &Directory::setFailed);
    connect(&transport, &Transport::serverUp, this, &Directory::setUp);
    connect(&transport, &Transport::serverDown, this, &Directory::setDown);
    connect(&transport, &Transport::libraryInfo, this, &Directory::noteLife);
    connect(&transport, &Transport::mediaInfo, this, &Directory::noteLife);
    connect(&transport, &Transport::effectInfo, this, &Directory::noteLife);
    connect(&transport, &Transport::genericInfo, this, &Directory::noteLife);
    connect(&transport, &Transport::libraryThumbnail, this, &Directory::noteLife);
    connect(&transport, &Transport::elementThumbnail, this, &Directory::noteLife);
    connect(&transport, &Transport::wokenUp, this, &Directory::checkTime);
    // The transport does not report again the servers that are up already.
    for (const QString& key : transport.servers()) {
        setUp(key);
    }
    transport.wakeUpAt(transport.now() + directoryInterval);
}

Directory::~Directory() = default;

QStringList Directory::keys() const
{
    QStringList keys;
    for (const auto& entry : m_servers) {
        keys << entry.first;
    }
    return keys;
}

Server Directory::server(const QString& key) const
{
    const auto found = m_servers.find(key);
    return found == m_servers.end() ? Server() : found->second;
}

qint64 Directory::silence(const QString& key) const
{
    const auto found = m_servers.find(key);
    return found == m_servers.end() ? -1 : m_transport.now() - found->second.lastHeard;
}

void Directory::followLayers()
{
    connect(&m_transport, &Transport::layerStatus, this, &Directory::noteLife);
}

void Directory::noteLife(const QString& key)
{
    const auto found = m_servers.find(key);
    if (found != m_servers.end()) {
        found->second.lastHeard = m_transport.now();
    }
}

QStringList Directory::find(const QString& text) const
{
    std::vector<Server> servers;
    for (const auto& entry : m_servers) {
        servers.push_back(entry.second);
    }
    return find(servers, text);
}

QStringList Directory::find(const std::vector<Server>& servers, const QString& text)
{
    static const QRegularExpression keyForm(QStringLiteral("^\\d{1,3}(\\.\\d{1,3}){3}:\\d{1,5}$"));
    const bool isKey = keyForm.match(text).hasMatch();
    QStringList exact;
    QStringList partial;
    for (const Server& server : servers) {
        if (server.key == text) {
            return {text};
        }
        if (isKey) {
            continue;
        }
        if (server.name.compare(text, Qt::CaseInsensitive) == 0) {
            exact << server.key;
        } else if (server.name.contains(text, Qt::CaseInsensitive)) {
            partial << server.key;
        }
    }
    return exact.isEmpty() ? partial : exact;
}

Server* Directory::obtain(const QString& key, bool isUp)
{
    const auto found = m_servers.find(key);
    if (found != m_servers.end()) {
        return &found->second;
    }
    if (m_servers.size() >= maxServers) {
        // Announcements of invented servers must not push out real ones.
        const auto dispensable = std::find_if(m_servers.begin(), m_servers.end(),
                                              [](const auto& entry) { return entry.second.state != Server::Up; });
        if (!isUp || dispensable == m_servers.end()) {
            return nullptr;
        }
        const QString removed = dispensable->first;
        m_servers.erase(dispensable);
        Q_EMIT changed(removed);
    }
    Server& server = m_servers[key];
    server.key = key;
    server.since = server.firstHeard = server.lastHeard = m_transport.now();
    return &server;
}

void Directory::setState(Server& server, Server::State state, const QString& problem)
{
    if (state != server.state) {
        server.since = m_transport.now();
    }
    server.state = state;
    server.problem = problem;
    const QString key = server.key;
    Q_EMIT changed(key);
}

void Directory::hear(const QString& key, const QString& name)
{
    const bool isNew = m_servers.count(key) == 0;
    Server* const server = obtain(key, false);
    if (!server) {
        return;
    }
    server->lastHeard = m_transport.now();
    const bool isRenamed = !name.isEmpty() && name != server->name && server->state != Server::Up;
    if (isRenamed) {
        server->name = name;
    }
    if (!isNew && (server->state == Server::Heard || server->state == Server::Lost)) {
        // The stack tries to connect at every announcement.
        setState(*server, Server::Connecting);
    } else if (isNew || isRenamed) {
        setState(*server, server->state, server->problem);
    }
}

void Directory::setConnected(const QString& key)
{
    const auto found = m_servers.find(key);
    if (found == m_servers.end() || found->second.state == Server::Up) {
        return;
    }
    Server& server = found->second;
    server.isConnected = true;
    if (server.state != Server::Connecting) {
        // A server that could not be connected before has its time again.
        server.firstHeard = server.state == Server::Failing ? m_transport.now() : server.firstHeard;
        setState(server, Server::Connecting);
    }
}

void Directory::setFailed(const QString& key, const QString& reason)
{
    const auto found = m_servers.find(key);
    if (found == m_servers.end()) {
        return;
    }
    Server& server = found->second;
    server.isConnected = false;
    if (reason.isEmpty()) {
        return;
    }
    if (server.state == Server::Up) {
        // serverDown() follows.
        server.problem = tr("Server %1 was lost: %2").arg(titleOf(server), reason);
        return;
    }
    const QString problem = tr("Server %1 does not come up: %2").arg(titleOf(server), reason);
    if (server.state != Server::Failing || server.problem != problem) {
        setState(server, Server::Failing, problem);
    }
}

void Directory::setUp(const QString& key)
{
    Msg_MSEX_SINF sinf;
    Msg_PEER_PLOC ploc;
    // The server may be gone again.
    if (!m_transport.serverInfo(key, &sinf, &ploc)) {
        return;
    }
    if (Server* const server = obtain(key, true)) {
        server->name = ploc.name.left(Transport::maxNameLength);
        server->isConnected = true;
        server->lastHeard = m_transport.now();
        describe(*server, sinf);
        setState(*server, Server::Up);
    }
}

void Directory::setDown(const QString& key)
{
    const auto found = m_servers.find(key);
    if (found == m_servers.end()) {
        return;
    }
    Server& server = found->second;
    server.isConnected = false;
    server.firstHeard = server.lastHeard = m_transport.now();
    setState(server, Server::Lost, server.problem);
}

void Directory::checkTime()
{
    const qint64 now = m_transport.now();
    m_transport.wakeUpAt(now + directoryInterval);
    for (const QString& key : keys()) {
        const auto found = m_servers.find(key);
        if (found == m_servers.end() || found->second.state == Server::Up) {
            continue;
        }
        Server& server = found->second;
        if (now - server.lastHeard >= m_keepTime) {
            m_servers.erase(found);
            Q_EMIT changed(key);
        } else if (server.state == Server::Connecting && !server.isConnected && !server.version.isEmpty() &&
                   now - server.lastHeard >= silentTime) {
            setState(server, Server::Lost, tr("Server %1 does not announce itself any more").arg(titleOf(server)));
        } else if (server.state == Server::Connecting &&
                   (server.isConnected ? now : server.lastHeard) - server.firstHeard >= failingTime) {
            setState(server, Server::Failing,
                     server.isConnected
                         ? tr("Server %1 accepts the connection, but does not send its information (SInf)")
                               .arg(titleOf(server))
                         : tr("Server %1 announces itself, but does not accept a connection or does not answer on it")
                               .arg(titleOf(server)));
        }
    }
}
} // namespace CITP
