// Discovery by a socket of one's own: joining the group, taking the port, and hearing who announces himself, each by
// itself, so that what fails can be named.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/net_socket.h>

#include <QMap>
#include <QStringList>

#include "server_text.h"

namespace Console {
/// Opens a socket with the library's own options, for the one and for the other. Main thread.
class Discovery
{
public:
    static constexpr quint16 Port = 4809;
    static constexpr const char* Group = "224.0.0.180";

    /// Joins the group on the adapter with @p adapterIp (host byte order), on a socket that is closed again.
    /// @return 0, or the errno that says why not
    static int tryToJoin(quint32 adapterIp);

    /// Takes the port, to be shared with whoever shares it.
    /// @return 0, or the errno that says why not
    int open();
    /// Joins the group on the open socket, so that listening makes sense.
    /// @return 0, or the errno that says why not
    int join(quint32 adapterIp);
    /// Takes in what has come so far.
    void read();

    /// The media servers heard, the first 1024 of them, under their keys; key and the name's beginning are what is
    /// known of them.
    const QMap<QString, ServerText>& servers() const { return m_servers; }
    /// Who else was heard, in words and harmless: other peers, and datagrams that are no announcement.
    QString others() const;

private:
    void take(const QByteArray& datagram, const QString& sender);

    Net::Socket m_socket;
    QMap<QString, ServerText> m_servers;
    QStringList m_otherPeers;
    int m_strange = 0;
};
} // namespace Console
