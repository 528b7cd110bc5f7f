// A simulated media server: announces itself, accepts connections and sends layer status and library updates.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QNetworkInterface>
#include <QObject>
#include <QTcpServer>
#include <QTimer>
#include <QUdpSocket>

#include "addresses.h"
#include "connection.h"
#include "event_log.h"

namespace MediaServer {
/// Timing and faults of a server.
struct Behaviour
{
    int intervalMs = 1000; ///< between two announcements
    int layerRate = 0;     ///< layer status messages per second; 0 disables them
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
    /// announcements.
    void stop();

private:
    void accept();
    void announce();
    bool openSender();
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
    QUdpSocket m_sender;
    QTimer m_announceTimer;
    QTimer m_layerTimer;
    quint32 m_layerTick = 0;
    bool m_isAnnounced = true; ///< whether the last announcement was sent; only changes are logged
};
} // namespace MediaServer
