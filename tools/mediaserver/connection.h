// One console's TCP connection to one simulated server: cuts its stream, reads its messages and answers them.
#pragma once

#include <QObject>
#include <QTcpSocket>

#include "event_log.h"
#include "framing.h"
#include "messages.h"
#include "requests.h"

namespace MediaServer {
/// Deletes itself when the connection ends.
class Connection : public QObject
{
    Q_OBJECT

public:
    /// @param socket the accepted connection; becomes this object's own
    /// @param identity the server's; outlives this object, as does @p log
    Connection(QTcpSocket* socket, const Identity& identity, const EventLog& log, QObject* parent);

    /// Resets the connection, as a machine that has lost its power looks to the console, and deletes this object.
    void reset();

private:
    void read();
    void handle(const QByteArray& message);
    void send(const QByteArray& message);
    void report(const QString& text) const;

    QTcpSocket* m_socket;
    const Identity& m_identity;
    const EventLog& m_log;
    QString m_peer;
    MessageCutter m_cutter;
};
} // namespace MediaServer
