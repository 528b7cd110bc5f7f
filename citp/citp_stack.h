// citp_stack: finds media servers, keeps a connection to each, sends requests and emits the answers. Its worker thread
// uses the network and emits every signal. The registry owns the servers' records; each record owns its connection.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_export.h>
#include <citp/citp_msg_msex_sinf.h>
#include <citp/citp_msg_peer.h>
#include <citp_system/net_socket.h>
#include <citp_system/os_network_adapter.h>

#include <QByteArray>
#include <QHostAddress>
#include <QMap>
#include <QObject>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <queue>
#include <vector>

class QRecursiveMutex;
class QTcpSocket;
class QUdpSocket;

namespace CITP {
// Only declared here: Qt 6 would register the complete classes by itself, and the fixture patch message must not be
// registered by this library (see citp_stack::patchMessage).
class Msg_FPTC_PTCH;
class Msg_MSEX_EEIN;
class Msg_MSEX_ELIN;
class Msg_MSEX_ELTH;
class Msg_MSEX_ELUP;
class Msg_MSEX_ETHN;
class Msg_MSEX_GLEI;
class Msg_MSEX_LSTA;
class Msg_MSEX_MEIN;
class citp_options;

/// The client side of CITP: discovery of media servers, one TCP connection to each, requests and notifications.
///
/// A process-wide singleton, see Get(). It starts disabled. All public functions may be called from any thread. The
/// signals are emitted on the worker thread; receivers in other threads get them queued, with copies of the messages.
/// A directly connected receiver runs on the worker thread; the registry is locked during serverUp() and
/// serverDown(). It must return soon, must not wait for another thread that uses the stack, and must not run an event
/// loop.
class CITP_EXPORT citp_stack : public QObject, public Os::NetworkAdapterMonitor::Callback
{
    Q_OBJECT

public:
    /// A server's key: its host as text, a colon, and the TCP port that it announced, e.g. "2.0.0.10:4811". A server
    /// that is heard on two addresses counts as two servers.
    typedef QString SERV_ID;

    /// The record of one known server. The worker thread creates, changes and deletes records, under #m_mutex. The
    /// pacing state (#m_inProgress, #m_messageQueue) has a lock of its own, the queue lock: sendMsg() changes it in the
    /// calling thread. Applications never get a record; getServerInfo() copies from it.
    class CITP_EXPORT ServerInfo
    {
    public:
        QTcpSocket* m_socket;     ///< the connection; a Qt child of the stack; null until the registry sets it
        Net::Socket* m_netSocket; ///< owned; opened and bound the connection; closed once #m_socket has taken it over
        bool m_notified;          ///< serverUp() has been emitted for this record
        Msg_MSEX_SINF m_sinf;     ///< the first SInf of this connection; later ones do not replace it
        Msg_PEER_PLOC m_ploc;     ///< the announcement that led to this record
        std::atomic<bool> m_noDelay;           ///< requests are paced and writes flushed
        bool m_inProgress;                     ///< a paced request is outstanding
        std::queue<QByteArray> m_messageQueue; ///< waiting paced requests, whole messages, oldest first

        /// Takes ownership of @p netSocket, which may be null; #m_socket stays null.
        ServerInfo(const Msg_PEER_PLOC& ploc, Net::Socket* netSocket);
        /// Deletes #m_netSocket and leaves #m_socket to the event loop (deleteLater).
        virtual ~ServerInfo();
        ServerInfo(const ServerInfo&) = delete;
        ServerInfo& operator=(const ServerInfo&) = delete;

        /// Whether requests are paced and writes flushed. Any thread that holds one of the locks.
        bool IsNoDelayEnabled() const { return m_noDelay; }
        /// Switches pacing on or off. On also sets TCP no-delay on #m_socket; off leaves that option unchanged.
        void SetNoDelay(bool enable);
        /// Sets whether a paced request is outstanding. Under the queue lock.
        void SetInProgress(bool busy) { m_inProgress = busy; }
        /// Whether a paced request is outstanding. Under the queue lock.
        bool IsRequestInProgress() const { return m_inProgress; }
        /// The waiting paced requests, oldest first; owned by the record. Under the queue lock.
        std::queue<QByteArray>& GetMessageQueue() { return m_messageQueue; }
    };

    /// What discovery tells its observers about a server that need not be up.
    struct DiscoveryEvent
    {
        /// What has happened.
        enum Kind {
            Heard,     ///< it has announced itself, or a server named by hand is tried
            Connected, ///< its connection has opened; serverUp() follows if it sends its information
            Failed     ///< it cannot be connected, or its connection has ended; serverDown() follows if it was up
        };
        Kind kind;      ///< what has happened
        SERV_ID server; ///< key
        /// #Heard: the announced name, as received. #Failed: the reason, e.g. "Connection refused"; empty if the stack
        /// was disabled or changed its adapter
        QString text;
    };
    /// Called on the worker thread. The registry may be locked then, so it must return soon and must not wait for
    /// another thread that uses the stack.
    using DiscoveryObserver = std::function<void(const DiscoveryEvent&)>;

    /// The stack of this process. The first call creates it, disabled, and starts its thread. The object lives until
    /// the process exits and belongs to the library: never delete it. Without a QCoreApplication, Qt delivers no events
    /// and the stack does nothing.
    static citp_stack* Get();

    /// Enables or disables discovery and all connections. Takes effect at the next tick, at most 2000 ms later.
    /// Disabling removes every server (serverDown()). A call that changes nothing has no effect.
    void setEnabled(bool enable);

    /// Sets options beyond the defaults: guards against broken or hostile devices, the second discovery group, servers
    /// named by hand. They replace earlier ones and take effect with the next tick, at most 2000 ms later, also for
    /// servers that are already known. Without this call all of them are off.
    void setOptions(const citp_options& options);

    /// Sends @p msg to @p server: one of Msg_MSEX_GELT, Msg_MSEX_GETH, Msg_MSEX_GELI, Msg_MSEX_GEIN, Msg_PEER_PNAM,
    /// Msg_MSEX_CInf or Msg_FPTC_SPTC. The message is serialised in the calling thread; @p msg is not kept.
    ///
    /// Some servers (products of "coolux" and "arkaos") lose requests that come too fast. Requests to them are paced:
    /// one GELI or GEIn is outstanding, further ones wait in the stack, and each ELIn or MEIn received releases one.
    /// Without citp_options::setRequestTimeout(), an unanswered request blocks the later ones until the server is
    /// removed.
    ///
    /// @return true if the message was passed to the worker thread or queued, which does not mean that it reached the
    /// server; false if it was rejected. The log states the reason: "message err" (not valid), "cannot send this
    /// message type" or "server not found"; with citp_options::setMaxUnsentBytes() also that too many bytes would wait
    bool sendMsg(const QString& server, const Msg_Header& msg);

    /// As sendMsg(), but without pacing: the message is sent at once also to a server that loses requests, and does not
    /// count as outstanding. For applications that pace these servers themselves. The limit of
    /// citp_options::setMaxUnsentBytes() applies.
    bool sendUnpaced(const SERV_ID& server, const Msg_Header& msg);

    /// Has @p observer told of announcements and connections, because the signals report only servers that are up.
    /// Announcements that arrive over a connection are not reported.
    /// @return what keeps the observer. When the last copy is destroyed, by any thread, no further call of the observer
    /// begins; one that has begun may still run, so capture only what lives that long. Null if @p observer is empty or
    /// the process is exiting
    std::shared_ptr<const void> observeDiscovery(const DiscoveryObserver& observer);

    /// The keys of the announced servers (serverUp() emitted, serverDown() not yet), in key order.
    std::vector<SERV_ID> getServers();
    /// Copies the information about an announced server.
    /// @param key the server
    /// @param sinf receives the first SInf of its connection; may be null
    /// @param ploc receives the announcement that led to the connection; may be null
    /// @return false if @p key is not an announced server; nothing is written then
    bool getServerInfo(const SERV_ID& key, Msg_MSEX_SINF* sinf, Msg_PEER_PLOC* ploc);
    /// The number of announced servers.
    int getNumNotified();

    /// @p host, a colon, and @p port in decimal.
    static SERV_ID buildServerKey(const QString& host, unsigned short port);
    /// The key of a connected socket. It uses the host text given to connectToHost(), not the peer's address, so that
    /// it equals the key made from the announcement.
    static SERV_ID buildServerKey(QTcpSocket* socket);
    /// The address in @p key: the text before the first colon, or the whole key if it has none. A null address if that
    /// text is not an address.
    static QHostAddress getHostAddressFromSERV_ID(const SERV_ID& key);

    /// Requests a reset at the next tick, because an adapter has changed. Called by the adapter monitor on its thread.
    void Changed(const Os::NetworkAdapter& adapter, const Os::NetworkAdapter::State& state, int reason) override;

    // The state, visible to a debugger or a test bench. It belongs to the worker thread; applications do not use it.
    QUdpSocket* m_udpSocket;    ///< reads the announcements; exists while discovery runs
    Net::Socket m_udpNetSocket; ///< owns the discovery socket's descriptor, of which #m_udpSocket has a duplicate
    /// Guards the registry and every record in it, except the pacing state, which the queue lock guards. Lock order:
    /// this one, then the queue lock. Recursive: serverUp() and serverDown() are emitted and sockets written under it,
    /// and receivers may call back into the stack.
    QRecursiveMutex* m_mutex;
    /// Changed on the worker thread only, and there under both locks: a reader holds either one, or is the worker.
    QMap<QString, ServerInfo*> m_servers;
    std::atomic<bool> m_enabled;      ///< CITP processing is enabled
    std::atomic<bool> m_resetPending; ///< the next tick removes all servers and reopens the discovery socket

    // The parameter types are qualified because Qt looks them up by the names written here.
Q_SIGNALS:
    /// The thumbnail of an element library has arrived. An empty ThumbnailBuffer reports a failed request.
    void libraryThumbnail(const CITP::citp_stack::SERV_ID&, const CITP::Msg_MSEX_ELTH&);
    /// The thumbnail of an element has arrived. An empty ThumbnailBuffer reports a failed request.
    void elementThumbnail(const CITP::citp_stack::SERV_ID&, const CITP::Msg_MSEX_ETHN&);
    /// Element libraries of a server.
    void libraryInfo(const CITP::citp_stack::SERV_ID&, const CITP::Msg_MSEX_ELIN&);
    /// Media elements of a library.
    void mediaInfo(const CITP::citp_stack::SERV_ID&, const CITP::Msg_MSEX_MEIN&);
    /// Effect elements of a library.
    void effectInfo(const CITP::citp_stack::SERV_ID&, const CITP::Msg_MSEX_EEIN&);
    /// Generic elements of a library.
    void genericInfo(const CITP::citp_stack::SERV_ID&, const CITP::Msg_MSEX_GLEI&);
    /// A library's contents have changed.
    void libraryUpdated(const CITP::citp_stack::SERV_ID&, const CITP::Msg_MSEX_ELUP&);
    /// The status of a server's layers.
    void layerStatus(const CITP::citp_stack::SERV_ID&, const CITP::Msg_MSEX_LSTA&);
    /// One fixture of a server's patch. The library does not register this message class with Qt, so that applications
    /// that do not use patches are not sent every fixture of every server. A receiver in another thread gets it only
    /// after `qRegisterMetaType<CITP::Msg_FPTC_PTCH>("CITP::Msg_FPTC_PTCH")`. Call that before connect(): Qt never
    /// again delivers through a connection that has failed to deliver once.
    void patchMessage(const CITP::citp_stack::SERV_ID&, const CITP::Msg_FPTC_PTCH&);
    /// A server is connected and has sent its information (SInf).
    void serverUp(const CITP::citp_stack::SERV_ID&);
    /// An announced server has been removed. Nothing of that connection is emitted afterwards.
    void serverDown(const CITP::citp_stack::SERV_ID&);
    /// Internal: passes a serialised message to the worker thread. Not for applications.
    void __passDown(const CITP::citp_stack::SERV_ID&, const QByteArray&);

private Q_SLOTS:
    // Hidden: Qt calls them through the meta-object, and no application may.
    CITP_HIDDEN void process();
    CITP_HIDDEN void processPendingUDP();
    CITP_HIDDEN void timepop();
    CITP_HIDDEN void rxdisconnected();
    CITP_HIDDEN void rxerror();
    CITP_HIDDEN void rxreadyread();
    CITP_HIDDEN void rxconnected();
    CITP_HIDDEN void rxPassDown(const CITP::citp_stack::SERV_ID&, const QByteArray& b);

private:
    struct CITP_HIDDEN Record;
    struct CITP_HIDDEN Private;

    CITP_HIDDEN citp_stack();
    CITP_HIDDEN ~citp_stack() override;
    enum class Pacing { OfServer, None };
    /// sendMsg() and sendUnpaced(), which log under their own names.
    CITP_HIDDEN bool send(const SERV_ID& server, const Msg_Header& msg, Pacing pacing);
    CITP_HIDDEN void processMsgIn(QByteArray& buffer, const QString& source);
    CITP_HIDDEN void handlePLOC(const QString& host, const Msg_PEER_PLOC& ploc);
    CITP_HIDDEN void handleSINF(const QString& source, const Msg_MSEX_SINF& sinf);
    /// Removes the first server in key order whose connection has @p descriptor; -1 stands for a connection that has
    /// none. For the reset only. The slots find their server by its socket, because Qt reports a disconnection when the
    /// descriptor is already gone, and -1 may also match another server.
    CITP_HIDDEN void removeTCP(int descriptor);

    const std::unique_ptr<Private> d;
};

} // namespace CITP
