// Sockets and timers of one simulated server.
// SPDX-License-Identifier: Apache-2.0
#include "server.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>
#include <QStringList>
#include <algorithm>
#include <cerrno>

#include "answers.h"
#include "cable.h"

namespace MediaServer {
namespace {
const quint16 DiscoveryPort = 4809;
// More than the consoles of any show. Limits the resources that a client can use.
const int MaxConnections = 64;
// Descriptors that connections leave to pictures, the watched folder and announcements.
const int ReservedDescriptors = 8;
const int AcceptRetryMs = 1000;
const int ForgeTickMs = 10;
const int DefaultIntervalMs = 1000;
// Leaves time for signals and for the other servers.
const qint64 MaxForgedInATick = 200;
const int FloodTickMs = 1;
const int IdleTickMs = 100;
// Leaves time for requests when the time of the replay has jumped.
const int MaxNotificationsInATick = 100;
const int StormDatagrams = 300;
// Layer status flag.
const quint32 Playing = 1;

bool isReserved(qintptr descriptor)
{
    rlimit limit{};
    return getrlimit(RLIMIT_NOFILE, &limit) == 0 &&
           static_cast<rlim_t>(descriptor) + ReservedDescriptors >= limit.rlim_cur;
}

// What a server announces, and where, for the log. The old group is what consoles expect and goes without saying.
QString announcementText(const QNetworkInterface& adapter, const Behaviour& behaviour)
{
    if (behaviour.groups.isEmpty())
        return "not announced";
    QStringList groups;
    for (const QHostAddress& group : behaviour.groups)
        groups << group.toString();
    QString text = "announced on " + adapter.name();
    if (groups != QStringList("224.0.0.180"))
        text += " to " + groups.join(" and ");
    return text + (behaviour.intervalMs > 0 ? QString(" every %1 ms").arg(behaviour.intervalMs) : " as recorded");
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
    connect(&m_layerTimer, &QTimer::timeout, this,
            m_content.replay ? &Server::replayNotifications : &Server::sendLayerStatus);
    m_floodTimer.setInterval(FloodTickMs);
    connect(&m_floodTimer, &QTimer::timeout, this, &Server::flood);
    m_forgeTimer.setTimerType(Qt::PreciseTimer);
    m_forgeTimer.setInterval(ForgeTickMs);
    connect(&m_forgeTimer, &QTimer::timeout, this, &Server::forge);
    connect(&m_content.catalogue, &Catalogue::changed, this, &Server::sendUpdates);
}

bool Server::start(QString& problem)
{
    const QString address = QString("%1:%2").arg(m_endpoint.address.toString()).arg(m_endpoint.port);
    if (!m_isConnected) {
        setCableConnected(true);
    } else if (!m_listener.listen(m_endpoint.address, m_endpoint.port)) {
        problem = QString("cannot listen on %1: %2; choose another --address or --port")
                      .arg(address, m_listener.errorString());
        return false;
    } else {
        watchListener();
    }
    m_log.line(m_content.identity.name, QString("listens on %1, %2, MSEX 1.%3")
                                            .arg(address, announcementText(m_adapter, m_behaviour))
                                            .arg(m_content.identity.msexMinor));
    if (m_faults.shouldInject(Fault::Refuse)) {
        m_acceptNotifier.reset();
        m_listener.close();
        m_log.line(m_content.identity.name, "fault: refuse: it listens no longer");
    }
    if (m_behaviour.layerRate > 0)
        m_layerTimer.start(1000 / m_behaviour.layerRate);
    prepareFloods();
    if (m_faults.isEnabled(Fault::Forge))
        m_forgeTimer.start();
    if (m_content.replay) {
        m_content.replay->rewind();
        replayNotifications();
    }
    if (!m_behaviour.groups.isEmpty()) {
        m_announceTimer.start();
        announce();
    }
    return true;
}

void Server::stop()
{
    m_announceTimer.stop();
    m_layerTimer.stop();
    m_floodTimer.stop();
    m_forgeTimer.stop();
    m_sender.abort();
    if (m_faults.shouldInject(Fault::Unplug)) {
        setCableConnected(false);
        m_log.line(m_content.identity.name, "fault: unplug: its cable is pulled");
        return;
    }
    m_acceptNotifier.reset();
    m_listener.close();
    for (Connection* connection : connections())
        connection->reset();
    m_log.line(m_content.identity.name, "vanishes");
}

// QTcpServer itself accepts again and again when descriptors run out: it takes the error for the one before, which said
// that no connection was waiting. So it only listens here.
void Server::watchListener()
{
    m_listener.pauseAccepting();
    m_acceptNotifier = std::make_unique<QSocketNotifier>(m_listener.socketDescriptor(), QSocketNotifier::Read);
    connect(m_acceptNotifier.get(), &QSocketNotifier::activated, this, &Server::accept);
}

void Server::accept()
{
    const int descriptor =
        accept4(static_cast<int>(m_listener.socketDescriptor()), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (descriptor < 0) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
            pauseAccepting(qt_error_string(errno));
        return;
    }
    m_isAccepting = true;
    const bool tooMany = connections().size() >= MaxConnections;
    const bool hasRoom = !tooMany && !isReserved(descriptor);
    if (m_hasRoom && !hasRoom) {
        m_log.line(m_content.identity.name,
                   QString("turns connections away while %1 are open: %2")
                       .arg(connections().size())
                       .arg(tooMany ? "that is the limit" : "too few descriptors are left; raise 'ulimit -n'"));
    }
    m_hasRoom = hasRoom;
    if (!hasRoom) {
        close(descriptor);
        return;
    }
    const bool isUnwelcome = (m_faults.isEnabled(Fault::OneConsole) && !connections().isEmpty()) ||
                             (m_faults.isEnabled(Fault::OneVisit) && m_faults.next() > 1);
    if (isUnwelcome) {
        m_log.line(m_content.identity.name, "fault: turns a connection away");
        close(descriptor);
        return;
    }
    if (m_faults.isEnabled(Fault::Jilts)) {
        for (Connection* connection : connections())
            connection->reset();
    }
    auto* const socket = new QTcpSocket;
    socket->setSocketDescriptor(descriptor);
    auto* const connection = new Connection(socket, m_content, m_faults, m_log, this);
    if (m_content.replay)
        connect(connection, &Connection::greeted, this, &Server::welcome);
}

// The connection stays in the backlog of the listening socket.
void Server::pauseAccepting(const QString& reason)
{
    if (m_isAccepting)
        m_log.line(m_content.identity.name, "cannot accept connections: " + reason);
    m_isAccepting = false;
    m_acceptNotifier->setEnabled(false);
    QTimer::singleShot(AcceptRetryMs, m_acceptNotifier.get(), [this] { m_acceptNotifier->setEnabled(true); });
}

// The socket is bound to an address, because a console takes the source address as the server's address.
bool Server::openSender(QUdpSocket& sender, const QHostAddress& address) const
{
    if (sender.state() == QAbstractSocket::BoundState)
        return true;
    if (!sender.bind(address, 0))
        return false;
    sender.setMulticastInterface(m_adapter);
    return true;
}

bool Server::sendToGroups(QUdpSocket& sender, const QByteArray& message) const
{
    bool sent = true;
    for (const QHostAddress& group : m_behaviour.groups)
        sent = sender.writeDatagram(message, group, DiscoveryPort) == message.size() && sent;
    return sent;
}

void Server::announce()
{
    QByteArray message;
    QStringList injected;
    if (m_content.replay) {
        int waitMs = 0;
        message = m_content.replay->nextAnnouncement(m_endpoint.port, waitMs);
        m_announceTimer.setInterval(m_behaviour.intervalMs > 0 ? m_behaviour.intervalMs : waitMs);
    } else {
        message = peerLocation(m_content.identity.name, m_endpoint.port);
    }
    message = m_faults.changed(message, injected);
    const bool sent = openSender(m_sender, m_endpoint.address) && sendToGroups(m_sender, message);
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
            sendToGroups(m_sender, m_faults.stormDatagram(message));
    }
}

// Sends the announcements of one tick. They are spread over the interval, because the receive buffer of a console holds
// only a few hundred.
void Server::forge()
{
    const FaultPlan& plan = m_behaviour.faults;
    // A replay may have no interval.
    const int intervalMs = m_behaviour.intervalMs > 0 ? m_behaviour.intervalMs : DefaultIntervalMs;
    const int ticks = qMax(1, intervalMs / ForgeTickMs);
    const qint64 due = qint64(plan.forged) * (m_forgeTick + 1) / ticks - qint64(plan.forged) * m_forgeTick / ticks;
    m_forgeTick = (m_forgeTick + 1) % ticks;
    for (qint64 count = qMin(due, MaxForgedInATick); count > 0; --count) {
        const quint32 i = m_forged++ % static_cast<quint32>(plan.forged);
        QHostAddress source = m_endpoint.address;
        quint16 port = m_endpoint.port;
        if (plan.forgedFrom.isNull())
            port = static_cast<quint16>((port + i) % 65535 + 1);
        else
            source = QHostAddress(plan.forgedFrom.toIPv4Address() + i);
        QUdpSocket sender;
        if (openSender(sender, source))
            sendToGroups(sender, peerLocation(QString("Forged %1").arg(i + 1), port));
    }
}

// Sets the messages of the enabled floods, which are sent in turn.
void Server::prepareFloods()
{
    const quint8 minor = m_content.identity.msexMinor;
    m_floods.clear();
    if (m_faults.isEnabled(Fault::LayerFlood))
        m_floods.push_back([this] { return nextLayerStatus(1000); });
    if (m_faults.isEnabled(Fault::ListFlood)) {
        Request request;
        request.versionMinor = minor;
        request.libraryType = LibraryType::Media;
        for (const RequestKind kind : {RequestKind::ListLibraries, RequestKind::ListElements}) {
            request.kind = kind;
            const Answers lists = answersTo(request, minor, m_content.catalogue.libraries(), m_content.patch);
            m_floods.push_back([list = lists.messages.front()()] { return list; });
            request.libraryId = minor == 0 ? 1 : childId(0, 1);
        }
    }
    if (m_faults.isEnabled(Fault::UpdateFlood))
        m_floods.push_back([this] { return nextUpdate(); });
    if (!m_floods.empty())
        m_floodTimer.start();
}

void Server::flood()
{
    for (Connection* connection : connections())
        connection->flood([this] { return m_floods[m_floodTick++ % m_floods.size()](); });
}

QByteArray Server::nextUpdate()
{
    const quint8 minor = m_content.identity.msexMinor;
    const quint32 parent = minor == 0 ? 0 : childId(0, static_cast<quint8>(m_updateTick >> 8));
    LibraryUpdate update;
    update.type = LibraryType::Media;
    update.id = childId(parent, static_cast<quint8>(m_updateTick++));
    update.flags = UpdateFlag::ElementsUpdated;
    update.elements.set();
    return libraryUpdated(minor, update);
}

void Server::setCableConnected(bool isConnected)
{
    m_isConnected = isConnected;
    setCable(m_listener.socketDescriptor(), isConnected);
    for (Connection* connection : connections())
        connection->setCableConnected(isConnected);
}

void Server::sendLayerStatus()
{
    notify(nextLayerStatus(m_behaviour.layerRate));
}

qsizetype Server::greetedConsoles() const
{
    const QList<Connection*> consoles = connections();
    return std::count_if(consoles.begin(), consoles.end(), [](const Connection* each) { return each->isGreeted(); });
}

// The notifications start with the first console.
void Server::welcome()
{
    if (greetedConsoles() == 1)
        m_content.replay->rewindNotifications();
    replayNotifications();
}

void Server::replayNotifications()
{
    if (greetedConsoles() == 0) {
        m_layerTimer.stop();
        return;
    }
    int waitMs = 0;
    for (int i = 0; i < MaxNotificationsInATick; ++i) {
        const QByteArray message = m_content.replay->nextNotification(waitMs);
        if (message.isEmpty())
            break;
        notify(message);
    }
    // Also looks whether a console is left.
    m_layerTimer.start(waitMs < 0 ? IdleTickMs : qMin(waitMs, IdleTickMs));
}

QByteArray Server::nextLayerStatus(int rate)
{
    return layerStatus(m_content.identity.msexMinor, playback(m_content, m_layerTick++, rate));
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
