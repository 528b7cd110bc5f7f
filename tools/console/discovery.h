// Discovery with a socket of its own, in separate steps, so that a failed step can be reported: open the port, join the
// multicast group, receive announcements.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/net_socket.h>

#include <QElapsedTimer>
#include <QMap>
#include <QStringList>

#include "server_text.h"

namespace Console {
/// Receives announcements on a socket with the same options as the library's. Main thread only.
class Discovery
{
public:
    static constexpr quint16 Port = 4809;
    static constexpr const char* Group = "224.0.0.180";

    /// Joins the group on the adapter with @p adapterIp (host byte order), with a temporary socket.
    /// @return 0 or an errno value
    static int tryToJoin(quint32 adapterIp);

    /// Binds the socket to the port, shared with other programs that share it.
    /// @return 0 or an errno value
    int open();
    /// Joins the group with the open socket.
    /// @return 0 or an errno value
    int join(quint32 adapterIp);
    /// Reads pending datagrams, up to a limit for each call.
    void read();

    /// The first 1024 media servers heard, by key. Only the key and the first 256 characters of the name are set.
    const QMap<QString, ServerText>& servers() const { return m_servers; }
    /// Forgets the server @p key until it is heard again.
    void forget(const QString& key);
    /// Whether the server @p key has announced itself for at least @p milliseconds and still does.
    bool isHeardFor(const QString& key, qint64 milliseconds) const;
    /// For a heard server that is not up, e.g. `2.0.0.10:4811  "Stage" has announced itself for 4.8 s, but has sent no
    /// SInf`, with control characters escaped.
    QString overdueText(const QString& key) const;
    /// Other senders as text, with control characters escaped: peers of other types and datagrams other than PLoc.
    QString others() const;

private:
    // Times of the announcements of a server.
    struct Heard
    {
        QElapsedTimer sinceFirst;
        QElapsedTimer sinceLast;
    };

    void handleDatagram(const QByteArray& datagram, const QString& sender);

    Net::Socket m_socket;
    QMap<QString, ServerText> m_servers;
    QMap<QString, Heard> m_heard; ///< of #m_servers
    QStringList m_otherPeers;
    int m_otherDatagrams = 0;
};
} // namespace Console
