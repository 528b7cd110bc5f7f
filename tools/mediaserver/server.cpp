// Sockets and timers of one simulated server.
// SPDX-License-Identifier: Apache-2.0
#include "server.h"

namespace MediaServer {
namespace {
const quint16 DiscoveryPort = 4809;
// More than the consoles of any show. Limits the resources that a client can use.
const int MaxConnections = 64;
const int StormDatagrams = 300;
// Layer status flag.
const quint32 Playing = 1;

QHostAddress discoveryGroup()
{
    return QHostAddress("224.0.0.180");
}

// The layers play the elements of the media libraries in turn. MSEX 1.0 supports only top-level libraries.
std::vector<LayerState> playback(const ServerContent& content, quint32 tick, int rate)
{
    std::vector<LayerState> media;
    for (const Library& library : content.catalogue.libraries()) {
        const bool hasId = content.identity.msexMinor >= 2 || (library.id & 0xFF) == 1;
        if (library.type != LibraryType::Media || !hasId)
            continue;
        for (const Element& element : library.elements)
            media.push_back({0, 0, library.id, element.number, element.name, 0, element.length, element.frameRate, 0});
    }
    std::vector<LayerState> layers(static_cast<std::size_t>(content.identity.layerSources.size()));
    for (std::size_t i = 0; i < layers.size(); ++i) {
        LayerState& layer = layers[i];
        if (!media.empty()) {
            layer = media[i % media.size()];
            layer.position =
                static_cast<quint32>(quint64(tick) * layer.frameRate / static_cast<quint32>(rate)) % layer.length;
            layer.flags = Playing;
        }
        layer.number = static_cast<quint8>(i);
        layer.output = static_cast<quint8>(i % 2);
    }
    return layers;
}
} // namespace

Server::Server(ServerContent content, const Endpoint& endpoint, const QNetworkInterface& adapter,
               const Behaviour& behaviour, const EventLog& log)
    : m_content(std::move(content)),
      m_endpoint(endpoint),
      m_adapter(adapter),
      m_behaviour(behaviour),
      m_log(log),
      m_faults(behaviour.faults)
{
    m_announceTimer.setInterval(behaviour.intervalMs);
    connect(&m_announceTimer, &QTimer::timeout, this, &Server::announce);
    connect(&m_layerTimer, &QTimer::timeout, this, &Server::sendLayerStatus);
    connect(&m_listener, &QTcpServer::newConnection, this, &Server::accept);
    connect(&m_content.catalogue, &Catalogue::changed, this, &Server::sendUpdates);
}

bool Server::start(QString& problem)
{
    const QString address = QString("%1:%2").arg(m_endpoint.address.toString()).arg(m_endpoint.port);
    if (!m_listener.listen(m_endpoint.address, m_endpoint.port)) {
        problem = QString("cannot listen on %1: %2; choose another --address or --port")
                      .arg(address, m_listener.errorString());
        return false;
    }
    m_log.line(m_content.identity.name, QString("listens on %1, announced on %2 every %3 ms, MSEX 1.%4")
                                            .arg(address, m_adapter.name())
                                            .arg(m_behaviour.intervalMs)
                                            .arg(m_content.identity.msexMinor));
    if (m_faults.shouldInject(Fault::Refuse)) {
        m_listener.close();
        m_log.line(m_content.identity.name, "fault: refuse: it listens no longer");
    }
    m_announceTimer.start();
    if (m_behaviour.layerRate > 0)
        m_layerTimer.start(1000 / m_behaviour.layerRate);
    announce();
    return true;
}

void Server::stop()
{
    m_announceTimer.stop();
    m_layerTimer.stop();
    m_listener.close();
    m_sender.abort();
    for (Connection* connection : connections())
        connection->reset();
    m_log.line(m_content.identity.name, "vanishes");
}

void Server::accept()
{
    while (QTcpSocket* socket = m_listener.nextPendingConnection()) {
        if (connections().size() >= MaxConnections) {
            m_log.line(m_content.identity.name, "turns a connection away: too many are open");
            delete socket;
            continue;
        }
        new Connection(socket, m_content, m_faults, m_log, this);
    }
}

// The socket is bound to the server's address, because a console takes the source address as the server's address.
bool Server::openSender()
{
    if (m_sender.state() == QAbstractSocket::BoundState)
        return true;
    if (!m_sender.bind(m_endpoint.address, 0))
        return false;
    m_sender.setMulticastInterface(m_adapter);
    return true;
}

void Server::announce()
{
    const QByteArray message = peerLocation(m_content.identity.name, m_endpoint.port);
    const bool sent =
        openSender() && m_sender.writeDatagram(message, discoveryGroup(), DiscoveryPort) == message.size();
    if (sent != m_isAnnounced)
        m_log.line(m_content.identity.name,
                   sent ? QString("is announced again") : "cannot be announced: " + m_sender.errorString());
    m_isAnnounced = sent;
    // If the adapter disappeared, the socket's binding is invalid. The next announcement opens a new socket.
    if (!sent) {
        m_sender.abort();
    } else if (m_faults.shouldInject(Fault::Storm)) {
        m_log.line(m_content.identity.name, "fault: storm");
        for (int i = 1; i < StormDatagrams; ++i)
            m_sender.writeDatagram(m_faults.stormDatagram(message), discoveryGroup(), DiscoveryPort);
    }
}

void Server::sendLayerStatus()
{
    const std::vector<LayerState> layers = playback(m_content, m_layerTick++, m_behaviour.layerRate);
    notify(layerStatus(m_content.identity.msexMinor, layers));
}

void Server::sendUpdates(const std::vector<LibraryUpdate>& updates)
{
    if (!m_listener.isListening())
        return;
    for (const LibraryUpdate& update : updates) {
        // MSEX 1.0 can identify neither the root nor sub-libraries.
        if (m_content.identity.msexMinor == 0 && (update.id & 0xFF) != 1)
            continue;
        m_log.line(m_content.identity.name, QString("ELUp: library %1 of type %2 has changed, flags %3")
                                                .arg(idText(update.id))
                                                .arg(update.type)
                                                .arg(update.flags));
        notify(libraryUpdated(m_content.identity.msexMinor, update));
    }
}

void Server::notify(const QByteArray& message)
{
    for (Connection* connection : connections())
        connection->notify(message);
}

QList<Connection*> Server::connections() const
{
    return findChildren<Connection*>(QString(), Qt::FindDirectChildrenOnly);
}
} // namespace MediaServer
