// A TCP connection of a console to a simulated server: splits the stream into messages and answers the requests.
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
#include "replay.h"
#include "requests.h"
#include "send_queue.h"

namespace MediaServer {
/// Identity and content of a server.
struct ServerContent
{
    Identity identity;
    std::vector<Fixture> patch;
    const Catalogue& catalogue;
    Replay* replay = nullptr; ///< plays a recorded server instead
};

/// Reads the next request when the previous one is answered and the backlog of unsent bytes is below a limit. Performs
/// one step in each iteration of the event loop, so that a console with many requests does not block other consoles and
/// a console that does not read does not use up the memory. Deletes itself when the connection is closed.
class Connection : public QObject
{
    Q_OBJECT

public:
    /// @param socket the accepted connection; this object takes ownership
    /// @param content, faults, log must outlive this object
    Connection(QTcpSocket* socket, const ServerContent& content, Faults& faults, const EventLog& log, QObject* parent);

    /// Sends a message that is not an answer, if the console has sent its CInf and the backlog is below the limit.
    void notify(const QByteArray& message);

    /// Sends the messages that @p next returns as if they were answers, if the console has sent its CInf, until the
    /// backlog is as large as keeps the console busy.
    void flood(const std::function<QByteArray()>& next);

    /// Whether the console has sent its CInf.
    bool isGreeted() const { return m_isGreeted; }

    /// See setCable(). Nothing is sent while the cable is not connected.
    void setCableConnected(bool isConnected);

    /// Resets the connection, like a server that has lost power, and deletes this object.
    void reset();

Q_SIGNALS:
    /// isGreeted() has become true.
    void greeted();

private:
    void scheduleStep();
    void step();
    void handle(const Request& request, const QByteArray& message);
    void handleReplayed(const Request& request, const QByteArray& message);
    void handleClientInfo(const Request& request);
    void sendInformation(const QByteArray& information);
    void handleQuery(Request request);
    Answers answersWithFaults(Request& request);
    bool isIgnored(const Request& request);
    void setAnswers(const Request& request, const Answers& answers);
    void answerNext();
    void report(const QString& text) const;

    QTcpSocket* m_socket;
    const ServerContent& m_content;
    Faults& m_faults;
    const EventLog& m_log;
    QString m_peer;
    MessageCutter m_cutter;
    SendQueue m_sendQueue;
    std::deque<Answer> m_answers; ///< remaining answers to the current request
    Replay::Turns m_turns;
    QTimer m_stepTimer;
    QTimer m_idleTimer;        ///< for the fault "idle-close"
    bool m_hasName = false;    ///< a PNam was received
    bool m_isGreeted = false;  ///< a CInf was received and answered
    bool m_isReading = true;   ///< false after the fault "unread"
    bool m_isConnected = true; ///< the cable
};
} // namespace MediaServer
