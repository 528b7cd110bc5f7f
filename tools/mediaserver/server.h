// One simulated media server: its announcements, its listening socket, its layers, and its vanishing and coming back.
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
/// How a server behaves in time.
struct Behaviour
{
    int intervalMs = 1000; ///< between two announcements
    int layerRate = 0;     ///< layer states a second, 0 for none
    FaultPlan faults;
};

class Server : public QObject
{
    Q_OBJECT

public:
    /// @param adapter where announcements go out
    /// @param log outlives this object
    Server(Service service, const Place& place, const QNetworkInterface& adapter, const Behaviour& behaviour,
           const EventLog& log);

    /// Listens and announces.
    /// @param problem set on failure: one line that says what to do
    bool start(QString& problem);

    /// Is gone at once, as if its power had failed: connections are reset, nothing listens, nothing is announced.
    void vanish();

private:
    void accept();
    void announce();
    bool openSender();
    void tellLayers();
    void tellUpdates(const std::vector<LibraryUpdate>& updates);
    void tell(const QByteArray& message);
    QList<Connection*> connections() const;

    const Service m_service;
    const Place m_place;
    const QNetworkInterface m_adapter;
    const Behaviour m_behaviour;
    const EventLog& m_log;
    Faults m_faults;
    QTcpServer m_listener;
    QUdpSocket m_sender;
    QTimer m_announceTimer;
    QTimer m_layerTimer;
    quint32 m_layerTick = 0;
    bool m_announcing = true; ///< whether the last announcement went out; only changes are reported
};
} // namespace MediaServer
