// One simulated media server: its announcements, its listening socket, and its vanishing and coming back.
#pragma once

#include <QNetworkInterface>
#include <QObject>
#include <QTcpServer>
#include <QTimer>
#include <QUdpSocket>

#include "addresses.h"
#include "event_log.h"
#include "messages.h"

namespace MediaServer {
class Server : public QObject
{
    Q_OBJECT

public:
    /// @param adapter where announcements go out
    /// @param intervalMs time between two of them
    /// @param log outlives this object
    Server(Identity identity, const Place& place, const QNetworkInterface& adapter, int intervalMs,
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

    const Identity m_identity;
    const Place m_place;
    const QNetworkInterface m_adapter;
    const EventLog& m_log;
    QTcpServer m_listener;
    QUdpSocket m_sender;
    QTimer m_timer;
    bool m_announcing = true; ///< whether the last announcement went out; only changes are reported
};
} // namespace MediaServer
