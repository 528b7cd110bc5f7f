// Sockets and timers of one simulated server.
// SPDX-License-Identifier: Apache-2.0
#include "server.h"

namespace MediaServer {
namespace {
const quint16 DiscoveryPort = 4809;
// More consoles than any show has; a client that keeps connecting cannot use up the machine.
const int MaximumConnections = 64;
const int StormSize = 300;
// The one bit of a layer's flags that is set: it plays.
const quint32 Playing = 1;

QHostAddress discoveryGroup()
{
    return QHostAddress("224.0.0.180");
}

// Layers play the elements of the media libraries in turn; MSEX 1.0's layer status names libraries of the first level.
std::vector<LayerState> playback(const Service& service, quint32 tick, int rate)
{
    std::vector<LayerState> media;
    for (const Library& library : service.catalogue.libraries()) {
        const bool nameable = service.identity.msexMinor >= 2 || (library.id & 0xFF) == 1;
        if (library.type != LibraryType::Media || !nameable)
            continue;
        for (const Element& element : library.elements)
            media.push_back({0, 0, library.id, element.number, element.name, 0, element.length, element.frameRate, 0});
    }
    std::vector<LayerState> layers(static_cast<std::size_t>(service.identity.layerSources.size()));
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

Server::Server(Service service, const Place& place, const QNetworkInterface& adapter, const Behaviour& behaviour,
               const EventLog& log)
    : m_service(std::move(service)),
      m_place(place),
      m_adapter(adapter),
      m_behaviour(behaviour),
      m_log(log),
      m_faults(behaviour.faults)
{
    m_announceTimer.setInterval(behaviour.intervalMs);
    connect(&m_announceTimer, &QTimer::timeout, this, &Server::announce);
    connect(&m_layerTimer, &QTimer::timeout, this, &Server::tellLayers);
    connect(&m_listener, &QTcpServer::newConnection, this, &Server::accept);
    connect(&m_service.catalogue, &Catalogue::changed, this, &Server::tellUpdates);
}

bool Server::start(QString& problem)
{
    const QString place = QString("%1:%2").arg(m_place.address.toString()).arg(m_place.port);
    if (!m_listener.listen(m_place.address, m_place.port)) {
        problem =
            QString("cannot listen on %1: %2; choose another --address or --port").arg(place, m_listener.errorString());
        return false;
    }
    m_log.line(m_service.identity.name, QString("listens on %1, announced on %2 every %3 ms, MSEX 1.%4")
                                            .arg(place, m_adapter.name())
                                            .arg(m_behaviour.intervalMs)
                                            .arg(m_service.identity.msexMinor));
    if (m_faults.strikes(Fault::Refuse)) {
        m_listener.close();
        m_log.line(m_service.identity.name, "fault: refuse: it listens no longer");
    }
    m_announceTimer.start();
    if (m_behaviour.layerRate > 0)
        m_layerTimer.start(1000 / m_behaviour.layerRate);
    announce();
    return true;
}

void Server::vanish()
{
    m_announceTimer.stop();
    m_layerTimer.stop();
    m_listener.close();
    m_sender.abort();
    for (Connection* connection : connections())
        connection->reset();
    m_log.line(m_service.identity.name, "vanishes");
}

void Server::accept()
{
    while (QTcpSocket* socket = m_listener.nextPendingConnection()) {
        if (connections().size() >= MaximumConnections) {
            m_log.line(m_service.identity.name, "turns a connection away: too many are open");
            delete socket;
            continue;
        }
        new Connection(socket, m_service, m_faults, m_log, this);
    }
}

// The source address is what a console takes for the server's, so the socket is bound to it.
bool Server::openSender()
{
    if (m_sender.state() == QAbstractSocket::BoundState)
        return true;
    if (!m_sender.bind(m_place.address, 0))
        return false;
    m_sender.setMulticastInterface(m_adapter);
    return true;
}

void Server::announce()
{
    const QByteArray message = peerLocation(m_service.identity.name, m_place.port);
    const bool sent =
        openSender() && m_sender.writeDatagram(message, discoveryGroup(), DiscoveryPort) == message.size();
    if (sent != m_announcing)
        m_log.line(m_service.identity.name,
                   sent ? QString("is announced again") : "cannot be announced: " + m_sender.errorString());
    m_announcing = sent;
    // An adapter that went away takes the socket's binding with it; the next announcement tries afresh.
    if (!sent) {
        m_sender.abort();
    } else if (m_faults.strikes(Fault::Storm)) {
        m_log.line(m_service.identity.name, "fault: storm");
        for (int i = 1; i < StormSize; ++i)
            m_sender.writeDatagram(m_faults.stormPiece(message), discoveryGroup(), DiscoveryPort);
    }
}

void Server::tellLayers()
{
    const std::vector<LayerState> layers = playback(m_service, m_layerTick++, m_behaviour.layerRate);
    tell(layerStatus(m_service.identity.msexMinor, layers));
}

void Server::tellUpdates(const std::vector<LibraryUpdate>& updates)
{
    if (!m_listener.isListening())
        return;
    for (const LibraryUpdate& update : updates) {
        // MSEX 1.0 can name neither the root nor a sub-library.
        if (m_service.identity.msexMinor == 0 && (update.id & 0xFF) != 1)
            continue;
        m_log.line(m_service.identity.name, QString("ELUp: library %1 of type %2 has changed, flags %3")
                                                .arg(idText(update.id))
                                                .arg(update.type)
                                                .arg(update.flags));
        tell(libraryUpdated(m_service.identity.msexMinor, update));
    }
}

void Server::tell(const QByteArray& message)
{
    for (Connection* connection : connections())
        connection->tell(message);
}

QList<Connection*> Server::connections() const
{
    return findChildren<Connection*>(QString(), Qt::FindDirectChildrenOnly);
}
} // namespace MediaServer
