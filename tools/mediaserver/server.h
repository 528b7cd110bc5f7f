// A simulated media server: announces itself, accepts connections and sends layer status and library updates.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QHostAddress>
#include <QList>
#include <QNetworkInterface>
#include <QObject>
#include <QSocketNotifier>
#include <QTcpServer>
#include <QTimer>
#include <QUdpSocket>
#include <functional>
#include <memory>
#include <vector>

#include "addresses.h"
#include "connection.h"
#include "event_log.h"

namespace MediaServer {
/// Timing and faults of a server.
struct Behaviour
{
    int intervalMs = 1000;      ///< between two announcements; 0: as recorded
    int layerRate = 0;          ///< layer status messages per second; 0 disables them
    QList<QHostAddress> groups; ///< multicast groups of the announcements; empty: not announced
    FaultPlan faults;
};

class Server : public QObject
{
    Q_OBJECT

public:
    /// @param adapter for announcements
    /// @param log must outlive this object
    Server(ServerContent content, const Endpoint& endpoint, const QNetworkInterface& adapter,
           const Behaviour& behaviour, const EventLog& log);

    /// Starts to listen and to announce the server.
    /// @param problem set to an error message of one line on failure
    bool start(QString& problem);

    /// Stops like after a power failure: resets all connections, closes the listening socket and sends no
    /// announcements. With the fault "unplug", stops like after the loss of the cable.
    void stop();

private:
    void accept();
    void announce();
    qsizetype greetedConsoles() const;
    void welcome();
    void replayNotifications();
    bool openSender(QUdpSocket& sender, const QHostAddress& address) const;
    bool sendToGroups(QUdpSocket& sender, const QByteArray& message) const;
    void forge();
    void prepareFloods();
    void flood();
    void setCableConnected(bool isConnected);
    QByteArray nextLayerStatus(int rate);
    QByteArray nextUpdate();
    void watchListener();
    void pauseAccepting(const QString& reason);
    void sendLayerStatus();
    void sendUpdates(const std::vector<LibraryUpdate>& updates);
    void notify(const QByteArray& message);
    QList<Connection*> connections() const;

    const ServerContent m_content;
    const Endpoint m_endpoint;
    const QNetworkInterface m_adapter;
    const Behaviour m_behaviour;
    const EventLog& m_log;
    Faults m_faults;
    QTcpServer m_listener;
    std::unique_ptr<QSocketNotifier> m_acceptNotifier;
    QUdpSocket m_sender;
    QTimer m_announceTimer;
    QTimer m_layerTimer;
    QTimer m_floodTimer;
    std::vector<std::function<QByteArray()>> m_floods;
    std::size_t m_floodTick = 0;
    QTimer m_forgeTimer;
    int m_forgeTick = 0; ///< within the interval of announcements
    quint32 m_forged = 0;
    quint32 m_updateTick = 0;
    quint32 m_layerTick = 0;
    bool m_hasRoom = true;     ///< whether the last connection was kept; only changes are logged
    bool m_isAccepting = true; ///< whether the last connection could be accepted; only changes are logged
    bool m_isConnected = true; ///< the cable
    bool m_isAnnounced = true; ///< whether the last announcement was sent; only changes are logged
};
} // namespace MediaServer
