// Sockets and timer of one simulated server.
#include "server.h"

#include "connection.h"

namespace MediaServer {
namespace {
const quint16 DiscoveryPort = 4809;
// More consoles than any show has; a client that keeps connecting cannot use up the machine.
const int MaximumConnections = 64;

QHostAddress discoveryGroup()
{
    return QHostAddress("224.0.0.180");
}
} // namespace

Server::Server(Identity identity, const Place& place, const QNetworkInterface& adapter, int intervalMs,
               const EventLog& log)
    : m_identity(std::move(identity)), m_place(place), m_adapter(adapter), m_log(log)
{
    m_timer.setInterval(intervalMs);
    connect(&m_timer, &QTimer::timeout, this, &Server::announce);
    connect(&m_listener, &QTcpServer::newConnection, this, &Server::accept);
}

bool Server::start(QString& problem)
{
    const QString place = QString("%1:%2").arg(m_place.address.toString()).arg(m_place.port);
    if (!m_listener.listen(m_place.address, m_place.port)) {
        problem =
            QString("cannot listen on %1: %2; choose another --address or --port").arg(place, m_listener.errorString());
        return false;
    }
    m_log.line(m_identity.name, QString("listens on %1, announced on %2 every %3 ms, MSEX 1.%4")
                                    .arg(place, m_adapter.name())
                                    .arg(m_timer.interval())
                                    .arg(m_identity.msexMinor));
    m_timer.start();
    announce();
    return true;
}

void Server::vanish()
{
    m_timer.stop();
    m_listener.close();
    m_sender.abort();
    const auto connections = findChildren<Connection*>(QString(), Qt::FindDirectChildrenOnly);
    for (Connection* connection : connections)
        connection->reset();
    m_log.line(m_identity.name, "vanishes");
}

void Server::accept()
{
    while (QTcpSocket* socket = m_listener.nextPendingConnection()) {
        if (findChildren<Connection*>(QString(), Qt::FindDirectChildrenOnly).size() >= MaximumConnections) {
            m_log.line(m_identity.name, "turns a connection away: too many are open");
            delete socket;
            continue;
        }
        new Connection(socket, m_identity, m_log, this);
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
    const QByteArray message = peerLocation(m_identity.name, m_place.port);
    const bool sent =
        openSender() && m_sender.writeDatagram(message, discoveryGroup(), DiscoveryPort) == message.size();
    if (sent != m_announcing)
        m_log.line(m_identity.name,
                   sent ? QString("is announced again") : "cannot be announced: " + m_sender.errorString());
    m_announcing = sent;
    // An adapter that went away takes the socket's binding with it; the next announcement tries afresh.
    if (!sent)
        m_sender.abort();
}
} // namespace MediaServer
