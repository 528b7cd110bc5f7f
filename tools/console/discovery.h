// Discovery with a socket of its own, in separate steps, so that a failed step can be reported: open the port, join the
// multicast groups, receive announcements. It can also hear what a console does not: the other group and adapters.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_options.h>
#include <citp_system/artnet_adapter.h>
#include <citp_system/net_socket.h>

#include <citp_client/directory.h>

#include <QMap>
#include <QStringList>

#include <functional>
#include <utility>

namespace Console {
/// Receives announcements on a socket with the same options as the library's. Main thread only.
class Discovery
{
public:
    using Groups = CITP::citp_options::DiscoveryGroups;

    static constexpr quint16 Port = 4809;

    /// Joins @p groups on the adapter with @p adapterIp (host byte order), with a temporary socket.
    /// @param failed is set to the address of the group that could not be joined
    /// @return 0 or an errno value
    static int tryToJoin(quint32 adapterIp, Groups groups, QString& failed);

    /// Binds the socket to the port, shared with other programs that share it.
    /// @return 0 or an errno value
    int open();
    /// Joins @p groups on @p adapter with the open socket.
    /// @return 0 or an errno value
    int join(const ArtNet::Adapter& adapter, Groups groups);
    /// Joins, as far as possible, what a console does not: the other group on @p adapter, and both groups on the other
    /// adapters.
    void joinOthers(const ArtNet::Adapter& adapter);
    /// Reads pending datagrams, up to a limit for each call.
    void read();
    /// Calls @p observer with each datagram that read() receives, its sender, and its destination (host byte order).
    using Observer = std::function<void(const QByteArray& datagram, const QString& sender, quint32 destination)>;
    void setObserver(Observer observer) { m_observer = std::move(observer); }
    /// Leaves the groups. While they are joined, other sockets of this machine receive them too.
    void close() { m_socket.Close(); }

    /// The media servers that a console with this adapter and these groups hears, by key. Only the key and the first
    /// 256 characters of the name are set. At most 1024 servers are kept, missedServers() included.
    QMap<QString, CITP::Server> servers() const { return serversThatAre(true); }
    /// The media servers that it does not hear, because they were heard on the other group or another adapter only.
    QMap<QString, CITP::Server> missedServers() const { return serversThatAre(false); }
    /// Where the server @p key was heard, if consoles may not hear it there; otherwise empty.
    QString remarkOn(const QString& key) const;
    /// Other senders as text, with control characters escaped: peers of other types and datagrams other than PLoc.
    QString others() const;

private:
    struct Heard
    {
        CITP::Server server;
        int groups = 0;       ///< on the adapter in use, a bit set of Groups
        QStringList adapters; ///< names of other adapters, with control characters escaped
    };

    void handleDatagram(const QByteArray& datagram, const QString& sender, int adapterIndex, quint32 destination);
    void addArrival(Heard& heard, int adapterIndex, quint32 destination);
    QMap<QString, CITP::Server> serversThatAre(bool reached) const;

    Net::Socket m_socket;
    Groups m_groups = CITP::citp_options::BothGroups;
    int m_adapterIndex = 0; ///< of the adapter in use
    QMap<QString, Heard> m_heard;
    QStringList m_otherPeers;
    int m_otherDatagrams = 0;
    Observer m_observer;
};
} // namespace Console
