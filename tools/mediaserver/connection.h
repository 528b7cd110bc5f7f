// One console's TCP connection to one simulated server: cuts its stream, reads its messages and answers them.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QTcpSocket>
#include <QTimer>
#include <deque>

#include "answers.h"
#include "catalogue.h"
#include "event_log.h"
#include "faults.h"
#include "framing.h"
#include "messages.h"
#include "outbox.h"
#include "requests.h"

namespace MediaServer {
/// What one server is and has to show.
struct Service
{
    Identity identity;
    std::vector<Fixture> patch;
    const Catalogue& catalogue;
};

/// Reads the next request when the last one is answered and the console has taken the answer, one step a turn of the
/// event loop: a console that asks for much, or that never reads, holds up neither the other consoles nor the memory.
/// Deletes itself when the connection ends.
class Connection : public QObject
{
    Q_OBJECT

public:
    /// @param socket the accepted connection; becomes this object's own
    /// @param service, faults, log outlive this object
    Connection(QTcpSocket* socket, const Service& service, Faults& faults, const EventLog& log, QObject* parent);

    /// Sends something unasked, if the console has greeted and takes what it is sent.
    void tell(const QByteArray& message);

    /// Resets the connection, as a machine that has lost its power looks to the console, and deletes this object.
    void reset();

private:
    void wake();
    void step();
    void handle(const Request& request);
    void handleClientInfo(const Request& request);
    void handleQuery(const Request& request);
    void answerNext();
    void report(const QString& text) const;

    QTcpSocket* m_socket;
    const Service& m_service;
    Faults& m_faults;
    const EventLog& m_log;
    QString m_peer;
    MessageCutter m_cutter;
    Outbox m_outbox;
    std::deque<Answer> m_answers; ///< to the request that was read last
    QTimer m_step;
    bool m_greeted = false; ///< a CInf has come
};
} // namespace MediaServer
