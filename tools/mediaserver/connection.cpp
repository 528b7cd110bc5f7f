// Reading, answering and ending of a connection.
// SPDX-License-Identifier: Apache-2.0
#include "connection.h"

#include <sys/socket.h>
#include <QHostAddress>
#include <QStringList>

namespace MediaServer {
namespace {
// Bytes that may wait for a console before it is served further.
constexpr qint64 BacklogLimit = qint64{4} * 1024 * 1024;
// Bytes taken from the network at a time.
constexpr qint64 ReadSize = qint64{64} * 1024;

QString versionText(quint16 version)
{
    return QString("%1.%2").arg(version >> 8).arg(version & 0xFF);
}
} // namespace

Connection::Connection(QTcpSocket* socket, const Service& service, Faults& faults, const EventLog& log, QObject* parent)
    : QObject(parent),
      m_socket(socket),
      m_service(service),
      m_faults(faults),
      m_log(log),
      m_peer(QString("%1:%2").arg(socket->peerAddress().toString()).arg(socket->peerPort())),
      m_outbox(*socket, faults, this)
{
    socket->setParent(this);
    socket->setReadBufferSize(ReadSize);
    m_step.setSingleShot(true);
    connect(&m_step, &QTimer::timeout, this, &Connection::step);
    connect(socket, &QTcpSocket::readyRead, this, &Connection::wake);
    connect(socket, &QTcpSocket::bytesWritten, this, &Connection::wake);
    connect(&m_outbox, &Outbox::idle, this, &Connection::wake);
    connect(&m_outbox, &Outbox::resetDue, this, &Connection::reset);
    connect(socket, &QTcpSocket::disconnected, this, [this] {
        report("has disconnected");
        deleteLater();
    });
    report("has connected");
    wake();
}

void Connection::tell(const QByteArray& message)
{
    if (m_greeted && m_outbox.backlog() < BacklogLimit)
        m_outbox.send(message);
}

void Connection::reset()
{
    m_socket->disconnect(this);
    m_step.stop();
    // Closing with nothing to linger for sends a reset instead of an orderly end.
    const linger none{1, 0};
    setsockopt(static_cast<int>(m_socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &none, sizeof none);
    m_socket->abort();
    deleteLater();
}

// A step that waits for its time, a delayed answer for instance, is not brought forward.
void Connection::wake()
{
    if (!m_step.isActive())
        m_step.start(0);
}

void Connection::step()
{
    if (m_socket->state() != QAbstractSocket::ConnectedState)
        return;
    if (m_outbox.busy() || m_outbox.backlog() >= BacklogLimit)
        return;
    int wait = 0;
    QByteArray message;
    if (!m_answers.empty()) {
        answerNext();
    } else if (m_cutter.next(message)) {
        handle(parseRequest(message));
        if (!m_answers.empty() && m_faults.strikes(Fault::Delay)) {
            report("fault: delay");
            wait = m_faults.delayMs();
        }
    } else if (!m_cutter.problem().isEmpty()) {
        report("sends garbage: " + m_cutter.problem() + "; closing");
        reset();
        return;
    } else if (m_socket->bytesAvailable() > 0) {
        m_cutter.append(m_socket->readAll());
    } else {
        return;
    }
    m_step.start(wait);
}

void Connection::handle(const Request& request)
{
    switch (request.kind) {
        case RequestKind::PeerName:
            report(QString("PNam: its name is '%1'").arg(request.peerName));
            break;
        case RequestKind::ClientInfo:
            handleClientInfo(request);
            break;
        case RequestKind::Malformed:
            report(QString("%1: %2; ignored").arg(request.code, request.problem));
            break;
        case RequestKind::Unknown:
            report(QString("%1: not answered").arg(request.code));
            break;
        default:
            handleQuery(request);
            break;
    }
}

void Connection::handleClientInfo(const Request& request)
{
    QStringList versions;
    for (const quint16 version : request.versions)
        versions << versionText(version);
    report(QString("CInf: speaks MSEX %1").arg(versions.join(", ")));
    if (m_faults.strikes(Fault::Mute)) {
        report("fault: mute");
        return;
    }
    QByteArray information = serverInformation(m_service.identity, request.index);
    if (m_faults.strikes(Fault::OddSinf)) {
        report("fault: odd-sinf");
        information = m_faults.misversioned(information);
    }
    m_outbox.send(information);
    report(QString("SInf sent in MSEX 1.%1").arg(m_service.identity.msexMinor));
    m_greeted = true;
}

void Connection::handleQuery(const Request& request)
{
    Answers answers =
        answersTo(request, m_service.identity.msexMinor, m_service.catalogue.libraries(), m_service.patch);
    report(request.code.mid(5) + ": " + answers.note);
    if (!answers.messages.empty() && m_faults.strikes(Fault::Silence)) {
        report("fault: silence");
        return;
    }
    m_answers.assign(answers.messages.begin(), answers.messages.end());
}

void Connection::answerNext()
{
    const QByteArray message = m_answers.front()();
    m_answers.pop_front();
    if (message.isEmpty()) {
        report("a picture cannot be read: no thumbnail sent");
        return;
    }
    const QString struck = m_outbox.answer(message);
    if (!struck.isEmpty())
        report("fault: " + struck);
}

void Connection::report(const QString& text) const
{
    m_log.line(m_service.identity.name, m_peer + ' ' + text);
}
} // namespace MediaServer
