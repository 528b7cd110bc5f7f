// Directory: the media servers of the network, with the state and the properties of each.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/transport.h>

#include <QObject>
#include <QString>
#include <QStringList>

#include <map>
#include <vector>

namespace CITP {
/// One server. The fields from Server::product on are those of when it was last up; empty if it never was.
struct CITP_EXPORT Server
{
    /// How far the server has come.
    enum State {
        Heard,      ///< has announced itself
        Connecting, ///< announces itself again or has been connected, but is not up yet
        Failing,    ///< cannot be connected, or has not come up within Directory::failingTime; see Server::problem
        Up,
        Lost ///< was up, and has not announced itself since, or has stopped to
    };

    QString key;               ///< e.g. "2.0.0.10:4811"
    QString name;              ///< as announced; empty if it is named by hand and was never heard
    State state{Heard};        ///< see #since
    qint64 since{0};           ///< when Server::state began, by Transport::now()
    qint64 firstHeard{0};      ///< when it announced itself for the first time since it was last up
    qint64 lastHeard{0};       ///< when it announced itself, answered or was up last
    bool isConnected{false};   ///< a connection is known to be open
    QString problem;           ///< one sentence for the user: why it is Failing, or Lost if that is known
    QString product;           ///< name, at most Transport::maxNameLength characters, as each of #layers
    QString version;           ///< of the product, e.g. "2.5.1"
    QString uuid;              ///< the same on all adapters of a server; empty before MSEX 1.2
    quint8 msexMinor{0};       ///< requests are sent in MSEX 1.#msexMinor
    std::vector<quint8> types; ///< library types; 1 to 3 if the server does not say (before MSEX 1.2), without 3 in 1.0
    QStringList pictureFormats; ///< "JPEG", "PNG", "RGB8"; empty before MSEX 1.2
    QStringList layers;         ///< the DMX source of each; before MSEX 1.2 the last may be missing
};

/// The servers, sorted by key. Servers that were lost or stopped announcing themselves are removed after
/// Directory::keepTime. With more than Directory::maxServers, those that are up replace others; further ones are left
/// out.
class CITP_EXPORT Directory : public QObject
{
    Q_OBJECT

public:
    static constexpr int maxServers = 1024;      ///< the number of servers that are kept
    static constexpr qint64 failingTime = 10000; ///< ms from the first announcement until a server is Failing
    static constexpr qint64 silentTime = 10000;  ///< ms without an announcement until a server that was up is Lost
    static constexpr qint64 keepTime = 60000;    ///< ms without an announcement until a server is removed

    /// @param transport must outlive this object
    /// @param parent may be null
    explicit Directory(Transport& transport, QObject* parent = nullptr);
    ~Directory() override;

    /// The keys of all servers.
    QStringList keys() const;
    /// The server @p key; without a key if it is unknown.
    Server server(const QString& key) const;
    /// The time in ms since the server has last announced itself, come up or answered; -1 if it is unknown. Servers
    /// announce themselves about once a second, as long as they work.
    qint64 silence(const QString& key) const;
    /// Takes a status of its layers for a sign of life, too. These messages cross threads then.
    void followLayers();
    /// @param milliseconds #keepTime by default
    void setKeepTime(qint64 milliseconds) { m_keepTime = milliseconds; }
    /// The servers whose key or name is @p text, or whose name contains it, if none has that name exactly; any case. A
    /// text in the form of a key is no name: a server can choose any name, also another server's key.
    QStringList find(const QString& text) const;
    /// The same among @p servers.
    static QStringList find(const std::vector<Server>& servers, const QString& text);

Q_SIGNALS:
    /// The server is new, has changed, or is not there any more. Repeated announcements are no change, and neither is
    /// Server::isConnected alone.
    void changed(const QString& key);

private:
    CITP_HIDDEN Server* obtain(const QString& key, bool isUp);
    CITP_HIDDEN void setState(Server& server, Server::State state, const QString& problem = {});
    CITP_HIDDEN void hear(const QString& key, const QString& name);
    CITP_HIDDEN void setConnected(const QString& key);
    CITP_HIDDEN void setFailed(const QString& key, const QString& reason);
    CITP_HIDDEN void setUp(const QString& key);
    CITP_HIDDEN void setDown(const QString& key);
    CITP_HIDDEN void checkTime();
    CITP_HIDDEN void noteLife(const QString& key);

    Transport& m_transport;
    std::map<QString, Server> m_servers;
    qint64 m_keepTime{keepTime};
};
} // namespace CITP
