// citp_stack: announcements, registry, connections, framing, dispatch and sending. citp_lifetime.cpp has the rest.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_stack.h>

#include "citp_lifetime_p.h"
#include "citp_lock_p.h"
#include "citp_log_p.h"
#include "citp_stack_p.h"

#include <citp/citp_codecs.h>
#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_msg_msex_thumbnails.h>

#include <citp_system/artnet_adapter.h>
#include <citp_system/fatal_error.h>

#include <QCoreApplication>
#include <QMetaType>
#include <QNetworkProxy>
#include <QSignalBlocker>
#include <QTcpSocket>
#include <QTimer>
#include <QUdpSocket>

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <iterator>
#include <utility>

// A line names the operation that readers of the log know, even if a helper of that operation writes it.
#define STACK_LOG_AS(function, context, level, pieces) \
    CITP_LOG(context, level, "citp_stack.cpp", __LINE__, function, pieces)
#define STACK_LOG(context, level, pieces) STACK_LOG_AS(Q_FUNC_INFO, context, level, pieces)
// The texts quote connections in the string form, because users search crash reports for it; the code connects the same
// signals and slots by their addresses. The date in the label is that of the release, so that two builds of the same
// sources are the same.
#define STACK_FATAL(text) \
    _FatalError("Verify: '" text "' is FALSE", __LINE__, "citp_stack.cpp (" CITP_RELEASE_DATE ") ")

namespace CITP {
// --- Announcements ---------------------------------------------------------------------------------------------------

namespace {
constexpr const char* timepopSignature = "void CITP::citp_stack::timepop()";
constexpr const char* rxerrorSignature = "void CITP::citp_stack::rxerror()";
constexpr const char* removeTcpSignature = "void CITP::citp_stack::removeTCP(int)";
constexpr const char* sendMsgSignature = "bool CITP::citp_stack::sendMsg(const QString&, const CITP::Msg_Header&)";
constexpr const char* sendUnpacedSignature =
    "bool CITP::citp_stack::sendUnpaced(const CITP::citp_stack::SERV_ID&, const CITP::Msg_Header&)";

/// A duplicate of the descriptor of @p socket, for the Qt socket that adopts it. Each object closes its own: a second
/// close of one descriptor could close an unrelated one that has reused the number.
int duplicateDescriptor(const Net::Socket& socket)
{
    return socket.IsValid() ? ::fcntl(socket.GetDescriptor(), F_DUPFD_CLOEXEC, 0) : -1;
}

constexpr unsigned short discoveryPort = 4809;
struct DiscoveryGroup
{
    citp_options::DiscoveryGroups bit;
    const char* address;
};
constexpr DiscoveryGroup discoveryGroups[] = {{citp_options::OldGroup, "224.0.0.180"},
                                              {citp_options::NewGroup, "239.224.0.180"}};
constexpr int discoveryReceiveBuffer = 65536; // bytes
constexpr int discoveryTtl = 38;              // nothing is sent to the group; the console's network set-up expects it
constexpr int maxDatagramsPerBatch = 512;
constexpr int tickInterval = 2000; // ms

/// Opens the socket for announcements. A failure is only logged: a console whose port is taken still runs.
void openDiscovery(Net::Socket& socket, citp_options::DiscoveryGroups groups)
{
    const ArtNet::Adapter adapter = ArtNet::Adapter::Get();
    const Net::Address address(adapter.GetIpAddress(), discoveryPort);
    socket.Open(Net::Socket::UDP);
    socket.SetAddressReuse(true);
    socket.SetReceiveBufferCapacity(discoveryReceiveBuffer);
    STACK_LOG_AS(timepopSignature, stackLogContext(), Os::Log::State, "Binding to address " << address.ToString());
    // Bound to the port on every adapter: bound to the adapter's address, the socket would receive no multicast.
    if (!socket.Bind(discoveryPort)) {
        STACK_LOG_AS(timepopSignature, stackLogContext(), Os::Log::Failure, "Bind failed");
    }
    for (const DiscoveryGroup& group : discoveryGroups) {
        if ((groups & group.bit) != 0 &&
            !socket.JoinMulticastGroup(Net::Address(group.address).GetHostIp(), adapter.GetIpAddress())) {
            STACK_LOG_AS(timepopSignature, stackLogContext(), Os::Log::Failure, "Multicast join failed");
        }
    }
    socket.SetMulticastTtl(discoveryTtl);
    socket.SetMulticastLoopback(false);
}
} // namespace

void citp_stack::process()
{
    QTimer* const timer = new QTimer(this);
    if (!connect(timer, &QTimer::timeout, this, &citp_stack::timepop)) {
        STACK_FATAL("connect(timer, SIGNAL(timeout()), this, SLOT(timepop()) )");
    }
    // Qt's default timer may be 5 % early or late.
    timer->setTimerType(Qt::PreciseTimer);
    timer->start(tickInterval);
    if (!connect(this, &citp_stack::__passDown, this, &citp_stack::rxPassDown)) {
        STACK_FATAL(
            "connect(this, SIGNAL( __passDown( const CITP::citp_stack::SERV_ID &, const QByteArray &)), "
            "this, SLOT( rxPassDown( const CITP::citp_stack::SERV_ID &, const QByteArray &)))");
    }
}

void citp_stack::setEnabled(bool enable)
{
    const Caller caller;
    if (isShuttingDown()) {
        return;
    }
    const std::lock_guard<std::recursive_mutex> lock(d->switchMutex);
    if (m_enabled == enable) {
        return;
    }
    STACK_LOG(stackLogContext(), Os::Log::State, "CITP processing now " << (enable ? "enabled" : "disabled"));
    m_enabled = enable;
    m_resetPending = true;
}

void citp_stack::setOptions(const citp_options& options)
{
    const Caller caller;
    if (!isShuttingDown()) {
        d->guards.set(options);
    }
}

void citp_stack::Changed(const Os::NetworkAdapter& adapter, const Os::NetworkAdapter::State&, int)
{
    if (isShuttingDown()) {
        return;
    }
    STACK_LOG(stackLogContext(), Os::Log::State, "Network adapter change detected");
    m_resetPending = true;
    // Another adapter may be the chosen one now.
    Os::NetworkAdapterMonitor* const monitor = Os::NetworkAdapterMonitor::Get();
    monitor->Unregister(adapter.GetName(), 65535, this);
    monitor->Register(ArtNet::Adapter::Get().GetName(), 3, this);
}

void citp_stack::timepop()
{
    const bool hasOtherGroups = d->tickGuards();
    const bool isReset = m_resetPending.exchange(false);
    if (isReset) {
        d->removeAllServers();
    }
    if (isReset || hasOtherGroups) {
        if (m_udpNetSocket.IsValid()) {
            m_udpNetSocket.Cancel();
            m_udpNetSocket.Close();
        }
        delete m_udpSocket;
        m_udpSocket = nullptr;
        if (m_enabled) {
            openDiscovery(m_udpNetSocket, d->guards.limits().groups);
        }
    }
    if (m_enabled) {
        d->connectNamedServers(isReset);
    }
    if (!m_udpSocket && m_udpNetSocket.IsValid()) {
        const int descriptor = duplicateDescriptor(m_udpNetSocket);
        if (descriptor == -1) {
            // Without a descriptor nothing is received; the next tick tries again.
            STACK_LOG(stackLogContext(), Os::Log::Failure, "UDP socket not started: " << std::strerror(errno));
            return;
        }
        m_udpSocket = new QUdpSocket;
        m_udpSocket->setSocketDescriptor(descriptor, QAbstractSocket::BoundState, QIODevice::ReadWrite);
        connect(m_udpSocket, &QUdpSocket::readyRead, this, &citp_stack::processPendingUDP);
        STACK_LOG(stackLogContext(), Os::Log::State, "UDP socket started ");
    }
    if (m_udpSocket && m_udpNetSocket.IsValid()) {
        // The console's own announcement is prepared and not sent: the console only listens on the group, so that no
        // peer tries to connect to it.
        QByteArray announcement;
        announcement >>
            Msg_PEER_PLOC(QStringLiteral("LightingConsole"), QStringLiteral("Tarn 4"), QStringLiteral("Running"), 0);
    }
}

void citp_stack::processPendingUDP()
{
    // All pending datagrams are read before each announcement is handled: handling a new server takes long, the
    // socket's buffer holds some 170 announcements, and many of hundreds sent together would be lost. The batch is
    // limited to leave time for the connections in a storm of announcements; the socket signals again for the rest.
    std::deque<std::pair<QByteArray, QString>> backlog;
    int count = 0;
    while (true) {
        for (; count < maxDatagramsPerBatch && m_udpSocket->hasPendingDatagrams(); ++count) {
            QByteArray datagram(static_cast<int>(qMax<qint64>(m_udpSocket->pendingDatagramSize(), 0)), '\0');
            QHostAddress sender;
            quint16 senderPort = 0;
            m_udpSocket->readDatagram(datagram.data(), datagram.size(), &sender, &senderPort);
            backlog.emplace_back(std::move(datagram), sender.toString());
        }
        if (backlog.empty()) {
            return;
        }
        if (!d->dropsDatagram(backlog.front().first, backlog.front().second)) {
            processMsgIn(backlog.front().first, backlog.front().second);
        }
        backlog.pop_front();
    }
}

// --- Registry --------------------------------------------------------------------------------------------------------

citp_stack::Record* citp_stack::Private::find(const SERV_ID& key) const
{
    return static_cast<Record*>(q->m_servers.value(key, nullptr));
}

citp_stack::Record* citp_stack::Private::recordOf(const QObject* socket) const
{
    Record* const record = connections.value(socket, nullptr);
    return record && !record->isLeaving ? record : nullptr;
}

void citp_stack::removeTCP(int descriptor)
{
    const StackLock lock(m_mutex);
    for (ServerInfo* info : std::as_const(m_servers)) {
        Record* const record = static_cast<Record*>(info);
        if (record->isLeaving) {
            continue;
        }
        // A closed Net::Socket says nothing about the connection, so -1 is not searched there.
        if ((record->m_socket && record->m_socket->socketDescriptor() == descriptor) ||
            (descriptor != -1 && record->m_netSocket && record->m_netSocket->GetDescriptor() == descriptor)) {
            d->removeServer(record);
            return;
        }
    }
}

void citp_stack::Private::removeServerOf(const QObject* socket)
{
    const StackLock lock(q->m_mutex);
    if (Record* const record = recordOf(socket)) {
        removeServer(record);
    }
}

void citp_stack::Private::removeServer(Record* record)
{
    const SERV_ID key = record->key;
    record->isLeaving = true;
    if (record->m_notified) {
        STACK_LOG_AS(removeTcpSignature, stackLogContext(), Os::Log::State,
                     "removed " << toAscii(key) << " " << toAscii(record->m_ploc.name)
                                << " (total=" << countNotified() - 1 << ")");
        Q_EMIT q->serverDown(key);
    }
    {
        const std::lock_guard<std::mutex> queueLock(queueMutex);
        q->m_servers.remove(key);
    }
    connections.remove(record->m_socket);
    delete record;
}

// --- Connections -----------------------------------------------------------------------------------------------------

void citp_stack::handlePLOC(const QString& host, const Msg_PEER_PLOC& ploc)
{
    if (ploc.port == 0 || ploc.type != QLatin1String("MediaServer")) {
        return;
    }
    const SERV_ID key = buildServerKey(host, ploc.port);
    d->tell(DiscoveryEvent::Heard, key, ploc.name);
    const StackLock lock(m_mutex);
    if (m_servers.contains(key) || !d->admits(host, key)) {
        return;
    }

    auto netSocket = std::make_unique<Net::Socket>();
    netSocket->Open(Net::Socket::TCP);
    netSocket->SetBlocking(false);
    netSocket->Bind(Net::Address(ArtNet::Adapter::Get().GetIpAddress()));
    STACK_LOG(stackLogContext(), Os::Log::Traffic,
              "start connect to " << toAscii(host) << " port " << static_cast<unsigned>(ploc.port));

    Record* const record = new Record(key, ploc, netSocket.release());
    QTcpSocket* const socket = new QTcpSocket(this);
    record->m_socket = socket;
    d->connections.insert(socket, record);
    {
        const std::lock_guard<std::mutex> queueLock(d->queueMutex);
        m_servers.insert(key, record);
    }
    // Media servers are on the show network itself; a proxy of the application is for other networks.
    socket->setProxy(QNetworkProxy::NoProxy);
    // If an announcement came over a connection, the host is a server key, which Qt tries to resolve as a name.
    // Meanwhile the notifier of an adopted descriptor would fire continuously, so Qt then opens its own.
    if (QHostAddress(host).isNull() ||
        socket->setSocketDescriptor(duplicateDescriptor(*record->m_netSocket), QAbstractSocket::UnconnectedState,
                                    QIODevice::ReadWrite)) {
        record->m_netSocket->Close();
    }
    if (!connect(socket, &QTcpSocket::connected, this, &citp_stack::rxconnected)) {
        STACK_FATAL("connect( pSERV->m_socket, SIGNAL( connected() ), this, SLOT( rxconnected()) )");
    }
    if (!connect(socket, &QTcpSocket::disconnected, this, &citp_stack::rxdisconnected)) {
        STACK_FATAL("connect( pSERV->m_socket, SIGNAL( disconnected() ), this, SLOT(rxdisconnected()) )");
    }
    if (!connect(socket, &QTcpSocket::errorOccurred, this, &citp_stack::rxerror)) {
        STACK_FATAL("connect( pSERV->m_socket, SIGNAL( error(QAbstractSocket::SocketError) ), this, SLOT(rxerror()) )");
    }
    if (!connect(socket, &QTcpSocket::readyRead, this, &citp_stack::rxreadyread)) {
        STACK_FATAL("connect( pSERV->m_socket, SIGNAL( readyRead() ), this, SLOT(rxreadyread()) )");
    }
    d->applyLimits(*record);
    // May fail immediately and call rxerror(), which deletes the record: it is not used after this.
    socket->connectToHost(host, ploc.port, QIODevice::ReadWrite);
}

void citp_stack::rxconnected()
{
    QTcpSocket* const socket = static_cast<QTcpSocket*>(sender());
    Record* const record = d->recordOf(socket);
    if (!record) {
        return; // removed by a reset while the connection came up
    }
    record->isConnected = true;
    const SERV_ID key = buildServerKey(socket);
    STACK_LOG(stackLogContext(), Os::Log::Traffic, "connected to " << toAscii(key));
    socket->setSocketOption(QAbstractSocket::KeepAliveOption, 1);
    d->applyLimits(*record);
    sendMsg(key, Msg_PEER_PNAM(QStringLiteral("TarnCitpLayer")));
    sendMsg(key, Msg_MSEX_CInf());
    sendMsg(key, Msg_FPTC_SPTC(static_cast<const std::vector<unsigned short>*>(nullptr)));
    // An observer may send, but nothing goes before the greeting.
    if (d->recordOf(socket)) {
        d->tell(DiscoveryEvent::Connected, key);
    }
}

void citp_stack::rxdisconnected()
{
    STACK_LOG(stackLogContext(), Os::Log::Traffic, "disconnected");
    if (!d->defersEnd(sender())) {
        d->removeServerOf(sender());
    }
}

/// Every error ends the connection. Messages received before the error are delivered first.
void citp_stack::rxerror()
{
    QTcpSocket* const socket = static_cast<QTcpSocket*>(sender());
    d->readMessages(socket, Private::Reading::WholeRest);
    if (!d->defersEnd(socket)) {
        d->endConnection(socket);
    }
}

void citp_stack::Private::endConnection(QTcpSocket* socket)
{
    if (isErrorLogged(socket)) {
        STACK_LOG_AS(rxerrorSignature, stackLogContext(), Os::Log::Failure, socket->errorString().toStdString());
    }
    if (const Record* const record = recordOf(socket)) {
        tell(DiscoveryEvent::Failed, record->key, socket->errorString());
    }
    removeServerOf(socket);
}

// --- Framing ---------------------------------------------------------------------------------------------------------

namespace {
constexpr int headerLength = 20;                 // bytes of the CITP header
constexpr quint32 maxPreallocatedSize = 1 << 20; // bytes

/// The next @p size bytes of @p device, which are available. Qt's own read() grows the buffer in steps, so only large
/// sizes use it; Qt 5 truncates the largest.
QByteArray readWhole(QIODevice& device, quint32 size)
{
    if (size > maxPreallocatedSize) {
        return device.read(size);
    }
    QByteArray bytes(static_cast<int>(size), Qt::Uninitialized);
    bytes.resize(static_cast<int>(qMax<qint64>(device.read(bytes.data(), size), 0)));
    return bytes;
}

/// Emits readyRead() from the event loop for the bytes left in @p socket, because Qt does not signal them twice.
void signalReadyReadLater(QTcpSocket* socket)
{
    QMetaObject::invokeMethod(socket, &QTcpSocket::readyRead, Qt::QueuedConnection);
}
} // namespace

void citp_stack::rxreadyread()
{
    d->readMessages(static_cast<QTcpSocket*>(sender()));
}

/// Only the size field splits the stream, without a lower bound: processMsgIn() drops what does not begin a message,
/// and a size of 0 is processed forever. Kept on purpose: consoles have always treated broken servers like this.
void citp_stack::Private::readMessages(QTcpSocket* socket, Reading reading)
{
    Record* record = recordOf(socket);
    if (!record || record->isReading) {
        return; // a caller further up the call stack is reading this connection, in order
    }
    if (record->isSuspended || (record->isTurnQueued && reading == Reading::OneTurn)) {
        return;
    }
    record->isReading = true;
    const SERV_ID key = record->key;
    char header[headerLength] = {};
    const bool isWatched = guards.watchesStreams();
    Turn turn(guards.limits(), record->lostMessages > 0);
    qint64 available = 0;
    while ((available = socket->bytesAvailable()) >= headerLength) {
        if (worker->isStopRequested()) {
            signalReadyReadLater(socket);
            break;
        }
        socket->peek(header, headerLength);
        const quint32 size = sizeField(header);
        const bool isComplete = available >= static_cast<qint64>(size);
        if (isWatched &&
            !(isComplete && guards.letsPass(size) && turn.hasBudget() && std::memcmp(header, "CITP", 4) == 0) &&
            !mayRead(*record, header, size, available, turn, reading)) {
            record = recordOf(socket);
            break;
        }
        if (!isComplete) {
            break;
        }
        QByteArray message = readWhole(*socket, size);
        q->processMsgIn(message, key);
        record = recordOf(socket);
        if (!record) {
            break;
        }
        turn.count(size);
    }
    if (!record) {
        return;
    }
    record->isReading = false;
    if (record->hasEnded || (isWatched && (available > 0 || record->incomplete > 0))) {
        watchRest(*record, available, turn);
    }
}

// --- Dispatch --------------------------------------------------------------------------------------------------------

namespace {
constexpr int cookieOffset = 0;
constexpr int contentTypeOffset = 16;

/// A layer: where its messages hold their code, and how long a message must be for the code to be read.
struct Layer
{
    QLatin1String contentType;
    int codeOffset;
    int minimumLength;
};

constexpr Layer layers[] = {
    {QLatin1String("PINF", 4), 20, 24}, {QLatin1String("MSEX", 4), 22, 26}, {QLatin1String("FPTC", 4), 20, 28}};
constexpr const Layer& pinf = layers[0];
constexpr const Layer& msex = layers[1];
constexpr const Layer& fptc = layers[2];

/// A message that is parsed and emitted.
struct Inbound
{
    const Layer& layer;
    QLatin1String code;
    const char* metaType; ///< the name under which the class is registered for queued signals, null if it is not
    void (*registerType)(const char* name);
    void (*notify)(citp_stack& stack, const Guards& guards, const QByteArray& buffer, const QString& source);
    bool releasesRequest; ///< whether it releases the next paced request, valid or not
};

template <typename Message, auto signal>
constexpr Inbound inbound(const Layer& layer, const char* code, const char* metaType, bool releasesRequest = false)
{
    return {layer,
            QLatin1String(code, 4),
            metaType,
            [](const char* name) { qRegisterMetaType<Message>(name); },
            [](citp_stack& stack, const Guards& guards, const QByteArray& buffer, const QString& source) {
                Message message = guards.parse<Message>(buffer);
                if (message.valid) {
                    guards.countCopies(message, static_cast<int>(buffer.size()));
                    Q_EMIT(stack.*signal)(source, message);
                }
            },
            releasesRequest};
}

constexpr bool releasesRequest = true;

// In the order in which the classes are registered. EEIn and GLEI release nothing: servers that need pacing answer a
// request for elements with a MEIn. Ptch is not registered, see citp_stack::patchMessage().
constexpr Inbound inboundMessages[] = {
    inbound<Msg_MSEX_ELTH, &citp_stack::libraryThumbnail>(msex, "ELTh", "CITP::Msg_MSEX_ELTH"),
    inbound<Msg_MSEX_ETHN, &citp_stack::elementThumbnail>(msex, "EThn", "CITP::Msg_MSEX_ETHN"),
    inbound<Msg_MSEX_ELIN, &citp_stack::libraryInfo>(msex, "ELIn", "CITP::Msg_MSEX_ELIN", releasesRequest),
    inbound<Msg_MSEX_MEIN, &citp_stack::mediaInfo>(msex, "MEIn", "CITP::Msg_MSEX_MEIN", releasesRequest),
    inbound<Msg_MSEX_EEIN, &citp_stack::effectInfo>(msex, "EEIn", "CITP::Msg_MSEX_EEIN"),
    inbound<Msg_MSEX_GLEI, &citp_stack::genericInfo>(msex, "GLEI", "CITP::Msg_MSEX_GLEI"),
    inbound<Msg_MSEX_LSTA, &citp_stack::layerStatus>(msex, "LSta", "CITP::Msg_MSEX_LSTA"),
    inbound<Msg_MSEX_ELUP, &citp_stack::libraryUpdated>(msex, "ELUp", "CITP::Msg_MSEX_ELUP"),
    inbound<Msg_FPTC_PTCH, &citp_stack::patchMessage>(fptc, "Ptch", nullptr),
};

/// The code of four characters at @p offset, empty if @p buffer holds fewer than @p minimumLength bytes. A view of the
/// buffer: two codes are compared for every message.
QLatin1String codeAt(const QByteArray& buffer, int offset, int minimumLength)
{
    return buffer.size() < minimumLength ? QLatin1String() : QLatin1String(buffer.constData() + offset, 4);
}
} // namespace

void registerMetaTypes()
{
    static std::once_flag once;
    std::call_once(once, [] {
        qRegisterMetaType<citp_stack::SERV_ID>("CITP::citp_stack::SERV_ID");
        for (const Inbound& message : inboundMessages) {
            if (message.metaType) {
                message.registerType(message.metaType);
            }
        }
    });
}

void citp_stack::processMsgIn(QByteArray& buffer, const QString& source)
{
    STACK_LOG(trafficLogContext(), Os::Log::Traffic, "<- " << toAscii(source) << " " << toAscii(hexDump(buffer)));
    if (buffer.size() < headerLength) {
        STACK_LOG(stackLogContext(), Os::Log::Failure, "invalid size for CITP");
        return;
    }
    if (codeAt(buffer, cookieOffset, headerLength) != QLatin1String("CITP")) {
        STACK_LOG(stackLogContext(), Os::Log::Failure, "lost in the byte stream");
        return;
    }
    const QLatin1String contentType = codeAt(buffer, contentTypeOffset, headerLength);
    const Layer* const layer = std::find_if(std::begin(layers), std::end(layers), [contentType](const Layer& known) {
        return known.contentType == contentType;
    });
    if (layer == std::end(layers)) {
        STACK_LOG(stackLogContext(), Os::Log::Traffic, "unhandled CITP " << toAscii(contentType));
        return;
    }
    const QLatin1String code = codeAt(buffer, layer->codeOffset, layer->minimumLength);
    for (const Inbound& message : inboundMessages) {
        if (&message.layer == layer && message.code == code) {
            message.notify(*this, d->guards, buffer, source);
            d->guards.reportWrongCount(source);
            if (message.releasesRequest) {
                d->releaseNextRequest(source);
            }
            return;
        }
    }
    if (layer == &pinf && code == QLatin1String("PLoc")) {
        const Msg_PEER_PLOC ploc(buffer);
        if (plocLogContext().IsEnabled(Os::Log::Traffic)) {
            QString text;
            text >> ploc;
            STACK_LOG(plocLogContext(), Os::Log::Traffic, "PLOC: " << toAscii(text));
        }
        handlePLOC(source, ploc);
    } else if (layer == &msex && code == QLatin1String("SInf")) {
        handleSINF(source, d->guards.parse<Msg_MSEX_SINF>(buffer));
        d->guards.reportWrongCount(source);
    } else if (layer != &pinf || code != QLatin1String("PNam")) {
        STACK_LOG(stackLogContext(), Os::Log::Traffic, "unhandled " << toAscii(contentType) << " " << toAscii(code));
    }
}

void citp_stack::handleSINF(const QString& source, const Msg_MSEX_SINF& sinf)
{
    const StackLock lock(m_mutex);
    Record* const record = d->find(source);
    if (!record || record->m_notified) {
        return;
    }
    record->m_sinf = sinf;
    record->m_notified = true;
    // These products lose requests that arrive before the last one is answered.
    if (sinf.ProductName.contains(QLatin1String("coolux"), Qt::CaseInsensitive) ||
        sinf.ProductName.contains(QLatin1String("arkaos"), Qt::CaseInsensitive)) {
        record->SetNoDelay(true);
    }
    STACK_LOG(
        stackLogContext(), Os::Log::State,
        "added " << toAscii(source) << " " << toAscii(record->m_ploc.name) << " (total=" << d->countNotified() << ")");
    Q_EMIT serverUp(source);
}

// --- Sending ---------------------------------------------------------------------------------------------------------

namespace {
/// A message that sendMsg() takes.
struct Outbound
{
    bool (*matches)(const Msg_Header& msg);
    void (*serialise)(QByteArray& out, const Msg_Header& msg);
    bool isPaced; ///< whether paced servers get it one at a time
};

template <typename Message>
constexpr Outbound outbound(bool isPaced = false)
{
    return {[](const Msg_Header& msg) { return dynamic_cast<const Message*>(&msg) != nullptr; },
            [](QByteArray& out, const Msg_Header& msg) { out >> static_cast<const Message&>(msg); }, isPaced};
}

constexpr bool isPaced = true;

constexpr Outbound outboundMessages[] = {
    outbound<Msg_MSEX_GELT>(),        outbound<Msg_MSEX_GETH>(), outbound<Msg_MSEX_GELI>(isPaced),
    outbound<Msg_MSEX_GEIN>(isPaced), outbound<Msg_PEER_PNAM>(), outbound<Msg_MSEX_CInf>(),
    outbound<Msg_FPTC_SPTC>(),
};

/// Whether @p queued is the request @p held itself, not another with the same content. The address identifies the
/// request, because @p held shares the bytes, so that their address is not reused.
bool isSameRequest(const QByteArray& queued, const QByteArray& held)
{
    return !held.isNull() && queued.constData() == held.constData();
}
} // namespace

bool citp_stack::sendMsg(const QString& server, const Msg_Header& msg)
{
    return send(server, msg, Pacing::OfServer);
}

bool citp_stack::sendUnpaced(const SERV_ID& server, const Msg_Header& msg)
{
    return send(server, msg, Pacing::None);
}

bool citp_stack::send(const SERV_ID& server, const Msg_Header& msg, Pacing pacing)
{
    const Caller caller;
    if (isShuttingDown()) {
        return false;
    }
    try {
        if (!msg.valid) {
            throw "message err";
        }
        const Outbound* const outbound = std::find_if(std::begin(outboundMessages), std::end(outboundMessages),
                                                      [&msg](const Outbound& known) { return known.matches(msg); });
        QByteArray buffer;
        if (outbound != std::end(outboundMessages)) {
            outbound->serialise(buffer, msg);
        }
        if (buffer.isEmpty()) {
            throw "cannot send this message type";
        }
        {
            const StackLock lock(m_mutex);
            if (!m_servers.contains(server)) {
                throw "server not found";
            }
        }
        qint64 unsent = 0;
        {
            const std::lock_guard<std::mutex> queueLock(d->queueMutex);
            if (Record* const record = d->find(server)) {
                unsent = d->countAccepted(*record, buffer.size());
                if (unsent == 0 && pacing == Pacing::OfServer && outbound->isPaced && record->IsNoDelayEnabled()) {
                    if (record->IsRequestInProgress()) {
                        record->GetMessageQueue().push(buffer);
                        return true;
                    }
                    record->SetInProgress(true);
                    record->requestSent = Guards::Clock::now();
                }
            }
        }
        if (unsent > 0) {
            d->guards.report(citp_options::UnsentData, server, unsent, d->guards.maxUnsentBytes());
            return false;
        }
        Q_EMIT __passDown(server, buffer);
        return true;
    } catch (const char* failure) {
        const bool isPaced = pacing == Pacing::OfServer;
        STACK_LOG_AS(isPaced ? sendMsgSignature : sendUnpacedSignature, stackLogContext(), Os::Log::Failure,
                     (isPaced ? "sendMsg" : "sendUnpaced") << " failed: " << failure);
        return false;
    }
}

void citp_stack::Private::releaseNextRequest(const QString& source)
{
    QByteArray next;
    for (;;) {
        {
            const std::lock_guard<std::mutex> queueLock(queueMutex);
            Record* const record = find(source);
            if (!record) {
                return;
            }
            record->requestSent.reset();
            if (record->GetMessageQueue().empty()) {
                record->SetInProgress(false);
                return;
            }
            if (isSameRequest(record->GetMessageQueue().front(), next)) {
                record->requestSent = Guards::Clock::now();
                break;
            }
            next = record->GetMessageQueue().front();
        }
        // What the same thread has sent before this request may still be queued as an event; it goes first. That may
        // remove the server or release the request, so the queue is checked again.
        QCoreApplication::sendPostedEvents(q, QEvent::MetaCall);
    }

    // Calls rxPassDown() directly, which may remove the server and its queue. No other answer of that server is handled
    // meanwhile, because isReading is set.
    Q_EMIT q->__passDown(source, next);

    const std::lock_guard<std::mutex> queueLock(queueMutex);
    Record* const record = find(source);
    if (record && !record->GetMessageQueue().empty() && isSameRequest(record->GetMessageQueue().front(), next)) {
        record->GetMessageQueue().pop();
    }
}

void citp_stack::rxPassDown(const SERV_ID& server, const QByteArray& b)
{
    STACK_LOG(trafficLogContext(), Os::Log::Traffic, "-> " << toAscii(server) << " " << toAscii(hexDump(b)));
    const StackLock lock(m_mutex);
    Record* const record = d->find(server);
    if (record && d->guards.watchesSending()) {
        d->countPassedDown(*record, b.size());
    }
    // Qt would keep what is written before the connection is open and send it ahead of the greeting.
    if (!record || !record->m_socket || record->m_socket->state() != QAbstractSocket::ConnectedState ||
        record->isLeaving || record->hasFailed) {
        return;
    }
    QTcpSocket* const socket = record->m_socket;
    socket->write(b.constData(), b.size());
    if (record->isCountingWrites) {
        record->unwritten = socket->bytesToWrite();
    }
    if (!record->IsNoDelayEnabled()) {
        return;
    }
    // The length is the timeout in ms, so that a short request does not delay the other servers for long. The wait also
    // reads from the socket and detects its end. Both are signalled from the event loop: the caller may be inside an
    // emission, and its other receivers must get that signal first.
    {
        const QSignalBlocker blocker(socket);
        record->hasFailed = !socket->waitForBytesWritten(static_cast<int>(b.size()));
    }
    if (record->isCountingWrites) {
        record->unwritten = socket->bytesToWrite();
    }
    if (record->hasFailed) {
        QMetaObject::invokeMethod(
            socket,
            [this, socket] {
                if (d->recordOf(socket)) {
                    Q_EMIT socket->errorOccurred(socket->error());
                    if (socket->state() == QAbstractSocket::UnconnectedState) {
                        Q_EMIT socket->disconnected();
                    }
                }
            },
            Qt::QueuedConnection);
    } else if (socket->bytesAvailable() > 0) {
        signalReadyReadLater(socket);
    }
}

} // namespace CITP
