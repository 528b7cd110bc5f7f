// citp_stack: lifecycle and discovery, the registry, the connections, dispatch, paced sending, and notifications.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_stack.h>

#include "citp_handover_p.h"
#include "citp_log_p.h"
#include "citp_worker_p.h"

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
#include <QRecursiveMutex>
#include <QSignalBlocker>
#include <QTcpSocket>
#include <QTimer>
#include <QUdpSocket>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <memory>
#include <string_view>
#include <thread>
#include <utility>

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

#define STACK_LOG(context, level, pieces) CITP_LOG(context, level, "citp_stack.cpp", __LINE__, Q_FUNC_INFO, pieces)
#define STACK_FATAL(text) _FatalError("Verify: '" text "' is FALSE", __LINE__, "citp_stack.cpp (" __DATE__ ") ")

namespace CITP {
namespace {
constexpr unsigned short DiscoveryPort = 4809;
constexpr const char* DiscoveryGroup = "224.0.0.180";
constexpr int DiscoveryBuffer = 65536; // bytes
constexpr int DiscoveryTtl = 38;       // nothing is ever sent to the group; the console's network set-up expects it
constexpr int DatagramsAtOnce = 512;
constexpr int TickInterval = 2000;          // ms
constexpr int HeaderSize = 20;              // bytes of the CITP header
constexpr quint32 LongestAtOnce = 0x100000; // bytes
constexpr int ExitPatience = 2000;          // ms; how long the end of the process waits for the worker and for callers

/// The next @p size bytes of @p device, which are there. Room for them is made at once; Qt's own read() makes it in
/// steps, and is left to what is so long that Qt 5 may have to cut it.
QByteArray readWhole(QIODevice& device, quint32 size)
{
    if (size > LongestAtOnce) {
        return device.read(size);
    }
    QByteArray bytes(static_cast<int>(size), Qt::Uninitialized);
    bytes.resize(static_cast<int>(qMax<qint64>(device.read(bytes.data(), size), 0)));
    return bytes;
}

Os::Log::Context& stackLog()
{
    static Os::Log::Context context("Stack", &CITPLogContext());
    return context;
}

Os::Log::Context& plocLog()
{
    static Os::Log::Context context("Ploc", &stackLog());
    return context;
}

Os::Log::Context& trafficLog()
{
    static Os::Log::Context context("Traffic", &stackLog());
    return context;
}

std::string_view view(const QByteArray& text)
{
    return {text.constData(), static_cast<std::size_t>(text.size())};
}

/// The code of four characters at @p offset, empty if @p buffer holds fewer than @p least bytes. Seen in place: every
/// message is told apart by two of them.
QLatin1String codeAt(const QByteArray& buffer, int offset, int least)
{
    return buffer.size() < least ? QLatin1String() : QLatin1String(buffer.constData() + offset, 4);
}

std::string_view view(QLatin1String text)
{
    return {text.data(), static_cast<std::size_t>(text.size())};
}

/// The registry's lock. The annotations tell the thread sanitizer, which does not see into Qt, what is locked.
class StackLock
{
public:
    explicit StackLock(QRecursiveMutex* mutex) : m_mutex(mutex)
    {
#if defined(__SANITIZE_THREAD__)
        __tsan_mutex_pre_lock(m_mutex, __tsan_mutex_write_reentrant);
        m_mutex->lock();
        __tsan_mutex_post_lock(m_mutex, __tsan_mutex_write_reentrant, 0);
#else
        m_mutex->lock();
#endif
    }

    ~StackLock()
    {
#if defined(__SANITIZE_THREAD__)
        __tsan_mutex_pre_unlock(m_mutex, __tsan_mutex_write_reentrant);
        m_mutex->unlock();
        __tsan_mutex_post_unlock(m_mutex, __tsan_mutex_write_reentrant);
#else
        m_mutex->unlock();
#endif
    }

    StackLock(const StackLock&) = delete;
    StackLock& operator=(const StackLock&) = delete;

private:
    QRecursiveMutex* const m_mutex;
};

// These outlive every destructor: threads that have not heard of the process's end yet can still ask them.
std::atomic<bool> processExits{false};
std::atomic<int> callersInside{0};

/// Counts a thread into the stack, unless the process is exiting: then it must not touch the stack any more.
class Caller
{
public:
    Caller() { ++callersInside; }
    ~Caller() { --callersInside; }
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    bool isTooLate() const { return processExits; }
};

bool waitForCallers()
{
    for (int waited = 0; callersInside > 0; ++waited) {
        if (waited == ExitPatience) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

template <typename Message>
void registerMessage(const char* name)
{
    qRegisterMetaType<Message>(name);
    followCopies<Message>();
}

void registerMetaTypes()
{
    static std::once_flag once;
    std::call_once(once, [] {
        qRegisterMetaType<citp_stack::SERV_ID>("CITP::citp_stack::SERV_ID");
        registerMessage<Msg_MSEX_ELTH>("CITP::Msg_MSEX_ELTH");
        registerMessage<Msg_MSEX_ETHN>("CITP::Msg_MSEX_ETHN");
        registerMessage<Msg_MSEX_ELIN>("CITP::Msg_MSEX_ELIN");
        registerMessage<Msg_MSEX_MEIN>("CITP::Msg_MSEX_MEIN");
        registerMessage<Msg_MSEX_EEIN>("CITP::Msg_MSEX_EEIN");
        registerMessage<Msg_MSEX_GLEI>("CITP::Msg_MSEX_GLEI");
        registerMessage<Msg_MSEX_LSTA>("CITP::Msg_MSEX_LSTA");
        registerMessage<Msg_MSEX_ELUP>("CITP::Msg_MSEX_ELUP");
        followDelivery();
    });
}

/// A second descriptor for what @p socket has open, to be owned by the Qt socket that adopts it. Each owner so closes a
/// number of its own; with one number for both, the second close would hit whatever has been given that number since.
int duplicateDescriptor(const Net::Socket& socket)
{
    return socket.IsValid() ? ::fcntl(socket.GetDescriptor(), F_DUPFD_CLOEXEC, 0) : -1;
}

/// Serialises @p msg into @p out if it is a @c Message.
template <typename Message>
bool serialiseAs(const Msg_Header& msg, QByteArray& out)
{
    const Message* const message = dynamic_cast<const Message*>(&msg);
    if (!message) {
        return false;
    }
    out >> *message;
    return true;
}
} // namespace

// --- The record of a server ------------------------------------------------------------------------------------------

citp_stack::ServerInfo::ServerInfo(const Msg_PEER_PLOC& ploc, Net::Socket* netSocket)
    : m_socket(nullptr),
      m_netSocket(netSocket),
      m_notified(false),
      m_ploc(ploc),
      m_noDelay(false),
      m_inProgress(false),
      m_leaving(false),
      m_reading(false),
      m_failed(false)
{
}

citp_stack::ServerInfo::~ServerInfo()
{
    delete m_netSocket;
    if (m_socket) {
        m_socket->deleteLater();
    }
}

void citp_stack::ServerInfo::SetNoDelay(bool enable)
{
    m_noDelay = enable;
    if (enable && m_socket) {
        m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    }
}

// --- Lifecycle -------------------------------------------------------------------------------------------------------

citp_stack* citp_stack::Get()
{
    // Destroyed at exit like any static, but only if nothing is at work in it any more.
    union Holder {
        citp_stack stack;
        Holder() : stack() {}
        ~Holder()
        {
            if (stack.comeToRest()) {
                stack.~citp_stack();
            }
        }
    };
    static Holder holder;
    return &holder.stack;
}

citp_stack::citp_stack()
    : m_udpSocket(nullptr),
      m_mutex(new QRecursiveMutex),
      m_enabled(true),
      m_resetPending(false),
      m_thread(new WorkerThread),
      m_process(::getpid())
{
    // Statics die in the reverse order of their making. Everything that the worker thread writes to is made before this
    // object is complete, and so dies after it.
    messageLogContext();
    plocLog();
    trafficLog();
    // So is what Qt's sockets share among them, made when the first one is given a descriptor, and what Qt 5 asks for
    // conversions when it connects one.
    QTcpSocket().setSocketDescriptor(-1);
    QMetaType::hasRegisteredConverterFunction<QString, int>();

    setEnabled(false);
    registerMetaTypes();

    m_thread->setObjectName(QStringLiteral("citp-stack"));
    moveToThread(m_thread);
    connect(m_thread, &QThread::started, this, &citp_stack::process);
    connect(m_thread, &QThread::finished, m_thread, &QObject::deleteLater);
    m_thread->start(QThread::InheritPriority);
    m_thread->setPriority(QThread::LowPriority);

    // The monitor first, so that it watches by the time the choice is made: no change falls in between.
    Os::NetworkAdapterMonitor* const monitor = Os::NetworkAdapterMonitor::Get();
    monitor->Register(ArtNet::Adapter::Get().GetName(), 3, this);
}

/// The thread is left as it is, neither asked to end nor waited for, and the records of the registry and the discovery
/// socket go down with the process: serverDown() is for servers that are lost, not for a console that is switched off.
citp_stack::~citp_stack()
{
    delete m_mutex;
    const ArtNet::Adapter adapter = ArtNet::Adapter::Get();
    Os::NetworkAdapterMonitor::Get()->Unregister(adapter.GetName(), 65535, this);
    // A change notice that was under way may have registered the stack anew, under another name. Later ones do not.
    Os::NetworkAdapterMonitor::Get()->Unregister(this);
}

/// Makes the stack safe to destroy. The thread is brought to rest first, and the sockets and the timer are deleted in
/// it, because Qt allows that in no other thread; nobody can tell, since it has long stopped delivering anything.
/// @return false if the worker thread or a caller could not be waited for; the stack must then stay as it is
bool citp_stack::comeToRest()
{
    processExits = true;
    // A receiver on the worker thread that ends the process still has its callers in the stack, and a forked child has
    // no worker thread.
    if (QThread::currentThread() == m_thread || ::getpid() != m_process) {
        return false;
    }
    const auto deleteChildren = [this] {
        const QObjectList children = this->children();
        for (QObject* child : children) {
            child->blockSignals(true);
            delete child;
        }
    };
    return m_thread->restForGood(ExitPatience, deleteChildren) && waitForCallers();
}

void citp_stack::setEnabled(bool enable)
{
    const Caller caller;
    if (caller.isTooLate() || m_enabled.exchange(enable) == enable) {
        return;
    }
    STACK_LOG(stackLog(), Os::Log::State, "CITP processing now " << (enable ? "enabled" : "disabled"));
    m_resetPending = true;
}

void citp_stack::Changed(const Os::NetworkAdapter& adapter, const Os::NetworkAdapter::State&, int)
{
    if (processExits) {
        return;
    }
    STACK_LOG(stackLog(), Os::Log::State, "Network adapter change detected");
    m_resetPending = true;
    // The choice may fall on another adapter now.
    Os::NetworkAdapterMonitor* const monitor = Os::NetworkAdapterMonitor::Get();
    monitor->Unregister(adapter.GetName(), 65535, this);
    monitor->Register(ArtNet::Adapter::Get().GetName(), 3, this);
}

void citp_stack::process()
{
    QTimer* const timer = new QTimer(this);
    if (!connect(timer, &QTimer::timeout, this, &citp_stack::timepop)) {
        STACK_FATAL("connect(timer, SIGNAL(timeout()), this, SLOT(timepop()) )");
    }
    timer->start(TickInterval);
    if (!connect(this, &citp_stack::__passDown, this, &citp_stack::rxPassDown)) {
        STACK_FATAL(
            "connect(this, SIGNAL( __passDown( const CITP::citp_stack::SERV_ID &, const QByteArray &)), "
            "this, SLOT( rxPassDown( const CITP::citp_stack::SERV_ID &, const QByteArray &)))");
    }
}

void citp_stack::timepop()
{
    if (m_resetPending.exchange(false)) {
        resetConnections();
    }
    if (!m_udpSocket && m_udpNetSocket.IsValid()) {
        const int descriptor = duplicateDescriptor(m_udpNetSocket);
        if (descriptor == -1) {
            // Nothing would ever be heard; the next tick may find the process with descriptors to spare.
            STACK_LOG(stackLog(), Os::Log::Failure, "UDP socket not started: " << std::strerror(errno));
            return;
        }
        m_udpSocket = new QUdpSocket;
        m_udpSocket->setSocketDescriptor(descriptor, QAbstractSocket::BoundState, QIODevice::ReadWrite);
        connect(m_udpSocket, &QUdpSocket::readyRead, this, &citp_stack::processPendingUDP);
        STACK_LOG(stackLog(), Os::Log::State, "UDP socket started ");
    }
    if (m_udpSocket && m_udpNetSocket.IsValid()) {
        // The console's own announcement is made ready and then not sent: the console only listens on the group, so
        // that no peer tries to connect to it.
        QByteArray announcement;
        announcement >>
            Msg_PEER_PLOC(QStringLiteral("LightingConsole"), QStringLiteral("Tarn 4"), QStringLiteral("Running"), 0);
    }
}

/// Drops every server and the discovery socket, and opens that anew if the stack is enabled.
void citp_stack::resetConnections()
{
    {
        const StackLock lock(m_mutex);
        const auto firstToGo = [this]() -> ServerInfo* {
            for (ServerInfo* info : std::as_const(m_servers)) {
                if (!info->m_leaving) {
                    return info;
                }
            }
            return nullptr;
        };
        while (const ServerInfo* const info = firstToGo()) {
            removeTCP(static_cast<int>(info->m_socket->socketDescriptor()));
        }
    }
    if (m_udpNetSocket.IsValid()) {
        m_udpNetSocket.Cancel();
        m_udpNetSocket.Close();
    }
    delete m_udpSocket;
    m_udpSocket = nullptr;
    if (m_enabled) {
        openDiscovery();
    }
}

/// Opens the socket for announcements. What fails is logged and no more: a console whose port is taken still runs.
void citp_stack::openDiscovery()
{
    const ArtNet::Adapter adapter = ArtNet::Adapter::Get();
    const Net::Address address(adapter.GetIpAddress(), DiscoveryPort);
    m_udpNetSocket.Open(Net::Socket::UDP);
    m_udpNetSocket.SetAddressReuse(true);
    m_udpNetSocket.SetReceiveBufferCapacity(DiscoveryBuffer);
    STACK_LOG(stackLog(), Os::Log::State, "Binding to address " << address.ToString());
    // To the port on every adapter: bound to the adapter's address, the socket would not get what is sent to the group.
    if (!m_udpNetSocket.Bind(DiscoveryPort)) {
        STACK_LOG(stackLog(), Os::Log::Failure, "Bind failed");
    }
    if (!m_udpNetSocket.JoinMulticastGroup(Net::Address(DiscoveryGroup).GetHostIp(), adapter.GetIpAddress())) {
        STACK_LOG(stackLog(), Os::Log::Failure, "Multicast join failed");
    }
    m_udpNetSocket.SetMulticastTtl(DiscoveryTtl);
    m_udpNetSocket.SetMulticastLoopback(false);
}

void citp_stack::processPendingUDP()
{
    // Before each announcement is handled, all that came meanwhile is read: a new server's takes long, and the socket's
    // buffer holds some 170, so that of hundreds sent at the same moment many would be lost. In portions, so that a
    // storm of them leaves time for the connections; the socket tells again of what is left.
    std::deque<std::pair<QByteArray, QString>> waiting;
    int count = 0;
    while (true) {
        for (; count < DatagramsAtOnce && m_udpSocket->hasPendingDatagrams(); ++count) {
            QByteArray datagram(static_cast<int>(qMax<qint64>(m_udpSocket->pendingDatagramSize(), 0)), '\0');
            QHostAddress sender;
            quint16 senderPort = 0;
            m_udpSocket->readDatagram(datagram.data(), datagram.size(), &sender, &senderPort);
            waiting.emplace_back(std::move(datagram), sender.toString());
        }
        if (waiting.empty()) {
            return;
        }
        processMsgIn(waiting.front().first, waiting.front().second);
        waiting.pop_front();
    }
}

// --- Registry and discovery ------------------------------------------------------------------------------------------

citp_stack::SERV_ID citp_stack::buildServerKey(const QString& host, unsigned short port)
{
    return host + QLatin1Char(':') + QString::number(port);
}

citp_stack::SERV_ID citp_stack::buildServerKey(QTcpSocket* socket)
{
    return buildServerKey(socket->peerName(), socket->peerPort());
}

QHostAddress citp_stack::getHostAddressFromSERV_ID(const SERV_ID& key)
{
    return QHostAddress(key.section(QLatin1Char(':'), 0, 0));
}

/// The record of @p key, or null. The caller holds a lock of m_servers or is the worker thread.
citp_stack::ServerInfo* citp_stack::findServer(const SERV_ID& key) const
{
    return m_servers.value(key, nullptr);
}

void citp_stack::handlePLOC(const QString& host, const Msg_PEER_PLOC& ploc)
{
    if (ploc.port == 0 || ploc.type != QLatin1String("MediaServer")) {
        return;
    }
    const SERV_ID key = buildServerKey(host, ploc.port);
    const StackLock lock(m_mutex);
    if (m_servers.contains(key)) {
        return;
    }

    auto netSocket = std::make_unique<Net::Socket>();
    netSocket->Open(Net::Socket::TCP);
    netSocket->SetBlocking(false);
    netSocket->Bind(Net::Address(ArtNet::Adapter::Get().GetIpAddress()));
    STACK_LOG(stackLog(), Os::Log::Traffic,
              "start connect to " << view(host.toLatin1()) << " port " << static_cast<unsigned>(ploc.port));

    ServerInfo* const info = new ServerInfo(ploc, netSocket.release());
    QTcpSocket* const socket = new QTcpSocket(this);
    info->m_socket = socket;
    info->m_key = key;
    m_connections.insert(socket, info);
    {
        const std::lock_guard<std::mutex> queueLock(m_queueMutex);
        m_servers.insert(key, info);
    }
    // Media servers are on the show network itself; a proxy of the application is for the world outside.
    socket->setProxy(QNetworkProxy::NoProxy);
    // An announcement that came over a connection has a server key for a host, which Qt tries to look up as a name; for
    // as long as that takes, the notifier of a descriptor handed over would fire without end. Qt then makes its own.
    if (!QHostAddress(host).isNull()) {
        socket->setSocketDescriptor(duplicateDescriptor(*info->m_netSocket), QAbstractSocket::UnconnectedState,
                                    QIODevice::ReadWrite);
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
    // May fail at once and come back through rxerror(), which removes the record: nothing of it is touched after this.
    socket->connectToHost(host, ploc.port, QIODevice::ReadWrite);
}

std::vector<citp_stack::SERV_ID> citp_stack::getServers()
{
    std::vector<SERV_ID> keys;
    const Caller caller;
    if (caller.isTooLate()) {
        return keys;
    }
    const StackLock lock(m_mutex);
    for (auto server = m_servers.cbegin(); server != m_servers.cend(); ++server) {
        if (server.value()->m_notified) {
            keys.push_back(server.key());
        }
    }
    return keys;
}

bool citp_stack::getServerInfo(const SERV_ID& key, Msg_MSEX_SINF* sinf, Msg_PEER_PLOC* ploc)
{
    const Caller caller;
    if (caller.isTooLate()) {
        return false;
    }
    const StackLock lock(m_mutex);
    const ServerInfo* const info = findServer(key);
    if (!info || !info->m_notified) {
        return false;
    }
    if (ploc) {
        *ploc = info->m_ploc;
    }
    if (sinf) {
        *sinf = info->m_sinf;
    }
    return true;
}

int citp_stack::getNumNotified()
{
    const Caller caller;
    if (caller.isTooLate()) {
        return 0;
    }
    const StackLock lock(m_mutex);
    int count = 0;
    for (const ServerInfo* info : std::as_const(m_servers)) {
        count += info->m_notified ? 1 : 0;
    }
    return count;
}

// --- Connections -----------------------------------------------------------------------------------------------------

void citp_stack::rxconnected()
{
    QTcpSocket* const socket = static_cast<QTcpSocket*>(sender());
    if (!serverOf(socket)) {
        return; // a reset went before what was under way
    }
    const SERV_ID key = buildServerKey(socket);
    STACK_LOG(stackLog(), Os::Log::Traffic, "connected to " << view(key.toLatin1()));
    socket->setSocketOption(QAbstractSocket::KeepAliveOption, 1);
    sendMsg(key, Msg_PEER_PNAM(QStringLiteral("TarnCitpLayer")));
    sendMsg(key, Msg_MSEX_CInf());
    sendMsg(key, Msg_FPTC_SPTC(static_cast<const std::vector<unsigned short>*>(nullptr)));
}

void citp_stack::rxreadyread()
{
    readMessages(static_cast<QTcpSocket*>(sender()));
}

/// Cuts the stream into messages. The size field alone decides, with no lower bound: what does not begin a message is
/// passed on and dropped by processMsgIn(), and a size of 0 is peeked at for ever. Media servers rely on nothing of
/// this, but the console's behaviour towards broken ones is settled and stays.
void citp_stack::readMessages(QTcpSocket* socket)
{
    ServerInfo* info = serverOf(socket);
    if (!info || info->m_reading) {
        return; // a reader further down the stack takes what there is, in order
    }
    info->m_reading = true;
    const SERV_ID key = info->m_key;
    char header[HeaderSize] = {};
    for (qint64 available = 0; (available = socket->bytesAvailable()) >= HeaderSize;) {
        if (m_thread->isRestWanted()) {
            readMessagesLater(socket);
            break;
        }
        socket->peek(header, HeaderSize);
        const quint32 size = static_cast<quint32>(Msg_Header::messageSize(QByteArray::fromRawData(header, HeaderSize)));
        if (available < static_cast<qint64>(size)) {
            break;
        }
        QByteArray message = readWhole(*socket, size);
        processMsgIn(message, key);
        info = serverOf(socket);
        if (!info) {
            return;
        }
    }
    info->m_reading = false;
}

/// Reads from the event loop what lies in @p socket already; it does not tell of that again by itself.
void citp_stack::readMessagesLater(QTcpSocket* socket)
{
    QMetaObject::invokeMethod(
        socket, [this, socket] { readMessages(socket); }, Qt::QueuedConnection);
}

/// The record whose connection is @p socket, if it still counts, else null. To be asked again after everything that may
/// come back into the stack: the server may be gone then, and its key even be another connection's.
citp_stack::ServerInfo* citp_stack::serverOf(const QObject* socket) const
{
    ServerInfo* const info = m_connections.value(socket, nullptr);
    return info && !info->m_leaving ? info : nullptr;
}

void citp_stack::rxdisconnected()
{
    connectionClosed(sender());
}

void citp_stack::rxerror()
{
    connectionFailed(static_cast<QTcpSocket*>(sender()));
}

void citp_stack::connectionClosed(const QObject* socket)
{
    STACK_LOG(stackLog(), Os::Log::Traffic, "disconnected");
    removeServerOf(socket);
}

/// Every error ends the connection; what had come before is delivered first.
void citp_stack::connectionFailed(QTcpSocket* socket)
{
    readMessages(socket);
    STACK_LOG(stackLog(), Os::Log::Failure, view(socket->errorString().toUtf8()));
    removeServerOf(socket);
}

/// Removes the server whose connection is @p socket. The socket itself is what is looked for, not its descriptor: when
/// a connection ends, Qt reports the error while the descriptor is still there and the disconnection when it is gone,
/// and by then the answer "no descriptor" could as well be another server's.
void citp_stack::removeServerOf(const QObject* socket)
{
    const StackLock lock(m_mutex);
    if (ServerInfo* const info = serverOf(socket)) {
        removeServer(info);
    }
}

/// Removes the first server whose connection has @p descriptor; -1 stands for a connection that has none.
void citp_stack::removeTCP(int descriptor)
{
    const StackLock lock(m_mutex);
    for (auto server = m_servers.cbegin(); server != m_servers.cend(); ++server) {
        ServerInfo* const info = server.value();
        if (info->m_leaving) {
            continue;
        }
        // A bundled socket without a descriptor says nothing about the connection, so -1 is not looked for there.
        if ((info->m_socket && info->m_socket->socketDescriptor() == descriptor) ||
            (descriptor != -1 && info->m_netSocket && info->m_netSocket->GetDescriptor() == descriptor)) {
            removeServer(info);
            return;
        }
    }
}

/// Removes the server @p info, with serverDown() if it was announced. The mutex is held.
void citp_stack::removeServer(ServerInfo* info)
{
    const SERV_ID key = info->m_key;
    info->m_leaving = true;
    if (info->m_notified) {
        STACK_LOG(stackLog(), Os::Log::State,
                  "removed " << view(key.toLatin1()) << " " << view(info->m_ploc.name.toLatin1())
                             << " (total=" << getNumNotified() - 1 << ")");
        Q_EMIT serverDown(key);
    }
    {
        const std::lock_guard<std::mutex> queueLock(m_queueMutex);
        m_servers.remove(key);
    }
    m_connections.remove(info->m_socket);
    delete info;
}

// --- Dispatch --------------------------------------------------------------------------------------------------------

void citp_stack::processMsgIn(QByteArray& buffer, const QString& source)
{
    STACK_LOG(trafficLog(), Os::Log::Traffic,
              "<- " << view(source.toLatin1()) << " " << view(hexDump(buffer).toLatin1()));
    if (buffer.size() < HeaderSize) {
        STACK_LOG(stackLog(), Os::Log::Failure, "invalid size for CITP");
        return;
    }
    if (codeAt(buffer, 0, HeaderSize) != QLatin1String("CITP")) {
        STACK_LOG(stackLog(), Os::Log::Failure, "lost in the byte stream");
        return;
    }
    const QLatin1String layer = codeAt(buffer, 16, HeaderSize);
    if (layer == QLatin1String("PINF")) {
        processPinf(buffer, source);
    } else if (layer == QLatin1String("MSEX")) {
        processMsex(buffer, source);
    } else if (layer == QLatin1String("FPTC")) {
        processFptc(buffer, source);
    } else {
        STACK_LOG(stackLog(), Os::Log::Traffic, "unhandled CITP " << view(layer));
    }
}

void citp_stack::processPinf(const QByteArray& buffer, const QString& source)
{
    const QLatin1String code = codeAt(buffer, 20, 24);
    if (code == QLatin1String("PLoc")) {
        const Msg_PEER_PLOC msg(buffer);
        if (plocLog().IsEnabled(Os::Log::Traffic)) {
            QString text;
            text >> msg;
            STACK_LOG(plocLog(), Os::Log::Traffic, "PLOC: " << view(text.toLatin1()));
        }
        handlePLOC(source, msg);
    } else if (code != QLatin1String("PNam")) {
        STACK_LOG(stackLog(), Os::Log::Traffic, "unhandled PINF " << view(code));
    }
}

void citp_stack::processMsex(const QByteArray& buffer, const QString& source)
{
    const QLatin1String code = codeAt(buffer, 22, 26);
    if (code == QLatin1String("EThn")) {
        const Msg_MSEX_ETHN msg(buffer);
        if (msg.valid) {
            Q_EMIT elementThumbnail(source, msg);
        }
    } else if (code == QLatin1String("SInf")) {
        handleSINF(source, Msg_MSEX_SINF(buffer));
    } else if (code == QLatin1String("ELTh")) {
        const Msg_MSEX_ELTH msg(buffer);
        if (msg.valid) {
            Q_EMIT libraryThumbnail(source, msg);
        }
    } else if (code == QLatin1String("ELIn")) {
        const Msg_MSEX_ELIN msg(buffer);
        if (msg.valid) {
            Q_EMIT libraryInfo(source, msg);
        }
        releaseNextRequest(source);
    } else if (code == QLatin1String("MEIn")) {
        const Msg_MSEX_MEIN msg(buffer);
        if (msg.valid) {
            Q_EMIT mediaInfo(source, msg);
        }
        releaseNextRequest(source);
    } else if (code == QLatin1String("EEIn")) {
        // No release here and for GLEI: servers that need pacing answer a request for elements with a MEIn.
        const Msg_MSEX_EEIN msg(buffer);
        if (msg.valid) {
            Q_EMIT effectInfo(source, msg);
        }
    } else if (code == QLatin1String("GLEI")) {
        const Msg_MSEX_GLEI msg(buffer);
        if (msg.valid) {
            Q_EMIT genericInfo(source, msg);
        }
    } else if (code == QLatin1String("LSta")) {
        const Msg_MSEX_LSTA msg(buffer);
        if (msg.valid) {
            Q_EMIT layerStatus(source, msg);
        }
    } else if (code == QLatin1String("ELUp")) {
        const Msg_MSEX_ELUP msg(buffer);
        if (msg.valid) {
            Q_EMIT libraryUpdated(source, msg);
        }
    } else {
        STACK_LOG(stackLog(), Os::Log::Traffic, "unhandled MSEX " << view(code));
    }
}

void citp_stack::processFptc(const QByteArray& buffer, const QString& source)
{
    const QLatin1String code = codeAt(buffer, 20, 28);
    if (code == QLatin1String("Ptch")) {
        const Msg_FPTC_PTCH msg(buffer);
        if (msg.valid) {
            Q_EMIT patchMessage(source, msg);
        }
    } else {
        STACK_LOG(stackLog(), Os::Log::Traffic, "unhandled FPTC " << view(code));
    }
}

void citp_stack::handleSINF(const QString& source, const Msg_MSEX_SINF& sinf)
{
    const StackLock lock(m_mutex);
    ServerInfo* const info = findServer(source);
    if (!info || info->m_notified) {
        return;
    }
    info->m_sinf = sinf;
    info->m_notified = true;
    // The products that lose requests which come before the last one is answered.
    if (sinf.ProductName.contains(QLatin1String("coolux"), Qt::CaseInsensitive) ||
        sinf.ProductName.contains(QLatin1String("arkaos"), Qt::CaseInsensitive)) {
        info->SetNoDelay(true);
    }
    STACK_LOG(stackLog(), Os::Log::State,
              "added " << view(source.toLatin1()) << " " << view(info->m_ploc.name.toLatin1())
                       << " (total=" << getNumNotified() << ")");
    Q_EMIT serverUp(source);
}

// --- Sending ---------------------------------------------------------------------------------------------------------

bool citp_stack::sendMsg(const QString& server, const Msg_Header& msg)
{
    const Caller caller;
    if (caller.isTooLate()) {
        return false;
    }
    try {
        if (!msg.valid) {
            throw "message err";
        }
        QByteArray buffer;
        const bool thumbnails = serialiseAs<Msg_MSEX_GELT>(msg, buffer) || serialiseAs<Msg_MSEX_GETH>(msg, buffer);
        const bool paced =
            !thumbnails && (serialiseAs<Msg_MSEX_GELI>(msg, buffer) || serialiseAs<Msg_MSEX_GEIN>(msg, buffer));
        if (!thumbnails && !paced && !serialiseAs<Msg_PEER_PNAM>(msg, buffer) &&
            !serialiseAs<Msg_MSEX_CInf>(msg, buffer)) {
            serialiseAs<Msg_FPTC_SPTC>(msg, buffer);
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
        {
            const std::lock_guard<std::mutex> queueLock(m_queueMutex);
            ServerInfo* const info = findServer(server);
            if (info && paced && info->IsNoDelayEnabled()) {
                if (info->IsRequestInProgress()) {
                    info->GetMessageQueue().push(buffer);
                    return true;
                }
                info->SetInProgress(true);
            }
        }
        Q_EMIT __passDown(server, buffer);
        return true;
    } catch (const char* failure) {
        STACK_LOG(stackLog(), Os::Log::Failure, "sendMsg failed: " << failure);
        return false;
    }
}

/// An ELIn or MEIn has come from @p source: lets the next waiting request go, or notes that there is none.
void citp_stack::releaseNextRequest(const QString& source)
{
    QByteArray next;
    for (;;) {
        {
            const std::lock_guard<std::mutex> queueLock(m_queueMutex);
            ServerInfo* const info = findServer(source);
            if (!info) {
                return;
            }
            if (info->GetMessageQueue().empty()) {
                info->SetInProgress(false);
                return;
            }
            // Holding a share of the bytes keeps their address from being used again: it identifies the request.
            if (!next.isNull() && info->GetMessageQueue().front().constData() == next.constData()) {
                break;
            }
            next = info->GetMessageQueue().front();
        }
        // What the same thread sent before this request may still be on its way from there to here; it goes first. That
        // may end the server or release the request, so then it is looked at again.
        QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
    }

    // Runs rxPassDown() at once. In it the server may be removed, and its queue with it. No other answer is dealt with
    // meanwhile: this is called while messages of that server are read, and they are read by one reader at a time.
    Q_EMIT __passDown(source, next);

    const std::lock_guard<std::mutex> queueLock(m_queueMutex);
    ServerInfo* const info = findServer(source);
    if (info && !info->GetMessageQueue().empty() && info->GetMessageQueue().front().constData() == next.constData()) {
        info->GetMessageQueue().pop();
    }
}

void citp_stack::rxPassDown(const SERV_ID& server, const QByteArray& b)
{
    STACK_LOG(trafficLog(), Os::Log::Traffic, "-> " << view(server.toLatin1()) << " " << view(hexDump(b).toLatin1()));
    const StackLock lock(m_mutex);
    ServerInfo* const info = findServer(server);
    // Qt would keep what is written before the connection is open and send it ahead of the greeting.
    if (!info || !info->m_socket || info->m_socket->state() != QAbstractSocket::ConnectedState || info->m_leaving ||
        info->m_failed) {
        return;
    }
    QTcpSocket* const socket = info->m_socket;
    socket->write(b.constData(), b.size());
    if (!info->IsNoDelayEnabled()) {
        return;
    }
    // The length serves as the time-out: a short request may not hold up the other servers for long. The wait also
    // reads from the socket and notices its end. Both are dealt with from the event loop: here a receiver may be
    // sending from inside an emission, and those that are still to hear of that one must not hear of the end first.
    {
        const QSignalBlocker blocker(socket);
        info->m_failed = !socket->waitForBytesWritten(static_cast<int>(b.size()));
    }
    if (info->m_failed) {
        QMetaObject::invokeMethod(
            socket, [this, socket] { flushFailed(socket); }, Qt::QueuedConnection);
    } else if (socket->bytesAvailable() > 0) {
        readMessagesLater(socket);
    }
}

/// What the socket would have told of its end if it had not been kept quiet during the wait.
void citp_stack::flushFailed(QTcpSocket* socket)
{
    if (!serverOf(socket)) {
        return;
    }
    connectionFailed(socket);
    if (socket->state() == QAbstractSocket::UnconnectedState) {
        connectionClosed(socket);
    }
}

} // namespace CITP
