// Reads and answers the messages of a connection.
// SPDX-License-Identifier: Apache-2.0
#include "connection.h"

#include <sys/socket.h>
#include <QHostAddress>
#include <QStringList>

#include "cable.h"

namespace MediaServer {
namespace {
// Maximum number of unsent bytes before further requests are read.
constexpr qint64 MaxBacklog = qint64{4} * 1024 * 1024;
// Size of the socket's read buffer in bytes.
constexpr qint64 ReadSize = qint64{64} * 1024;
// The backlog of a flood in bytes. The kernel's buffers are fuller than that while the console does not read.
constexpr qint64 FloodBacklog = qint64{256} * 1024;

QString versionText(quint16 version)
{
    return QString("%1.%2").arg(version >> 8).arg(version & 0xFF);
}
} // namespace

Connection::Connection(QTcpSocket* socket, const ServerContent& content, Faults& faults, const EventLog& log,
                       QObject* parent)
    : QObject(parent),
      m_socket(socket),
      m_content(content),
      m_faults(faults),
      m_log(log),
      m_peer(QString("%1:%2").arg(socket->peerAddress().toString()).arg(socket->peerPort())),
      m_sendQueue(*socket, faults, this)
{
    socket->setParent(this);
    socket->setReadBufferSize(ReadSize);
    m_stepTimer.setSingleShot(true);
    connect(&m_stepTimer, &QTimer::timeout, this, &Connection::step);
    connect(socket, &QTcpSocket::readyRead, this, &Connection::scheduleStep);
    connect(socket, &QTcpSocket::bytesWritten, this, &Connection::scheduleStep);
    connect(&m_sendQueue, &SendQueue::idle, this, &Connection::scheduleStep);
    connect(&m_sendQueue, &SendQueue::resetDue, this, &Connection::reset);
    connect(socket, &QTcpSocket::disconnected, this, [this] {
        report("has disconnected");
        deleteLater();
    });
    report("has connected");
    scheduleStep();
}

void Connection::notify(const QByteArray& message)
{
    if (!m_isGreeted || !m_isConnected || m_sendQueue.backlog() >= MaxBacklog)
        return;
    m_sendQueue.send(m_faults.shouldInject(Fault::LyingCount) ? Faults::withLyingCount(message) : message);
}

void Connection::flood(const std::function<QByteArray()>& next)
{
    while (m_isGreeted && m_isConnected && m_socket->state() == QAbstractSocket::ConnectedState &&
           !m_sendQueue.busy() && m_sendQueue.backlog() < FloodBacklog)
        m_sendQueue.answer(next());
}

void Connection::setCableConnected(bool isConnected)
{
    m_isConnected = isConnected;
    setCable(m_socket->socketDescriptor(), isConnected);
    m_sendQueue.setPaused(!isConnected);
    scheduleStep();
}

void Connection::reset()
{
    m_socket->disconnect(this);
    m_stepTimer.stop();
    // With a linger time of 0, closing sends a reset.
    const linger reset{1, 0};
    setsockopt(static_cast<int>(m_socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    m_socket->abort();
    deleteLater();
}

// A step that is already scheduled, for example a delayed answer, is not scheduled earlier.
void Connection::scheduleStep()
{
    if (!m_stepTimer.isActive())
        m_stepTimer.start(0);
}

void Connection::step()
{
    if (m_socket->state() != QAbstractSocket::ConnectedState || !m_isConnected)
        return;
    if (m_sendQueue.busy() || m_sendQueue.backlog() >= MaxBacklog)
        return;
    int wait = 0;
    QByteArray message;
    if (!m_answers.empty()) {
        answerNext();
    } else if (m_isReading && m_cutter.next(message)) {
        handle(parseRequest(message));
        if (!m_answers.empty() && m_faults.shouldInject(Fault::Delay)) {
            report("fault: delay");
            wait = m_faults.delayMs();
        }
    } else if (!m_cutter.problem().isEmpty()) {
        report("sends garbage: " + m_cutter.problem() + "; closing");
        reset();
        return;
    } else if (m_isReading && m_socket->bytesAvailable() > 0) {
        m_cutter.append(m_socket->readAll());
    } else {
        return;
    }
    m_stepTimer.start(wait);
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
    if (m_faults.shouldInject(Fault::Mute)) {
        report("fault: mute");
        return;
    }
    Identity identity = m_content.identity;
    const bool isLying = m_faults.shouldInject(Fault::LyingSinf);
    if (isLying)
        identity.layerSources.clear();
    QByteArray information = serverInformation(identity, request.index);
    if (isLying) {
        report("fault: lying-sinf");
        information.back() = '\xFF'; // the number of layers
    }
    if (m_faults.shouldInject(Fault::OddSinf)) {
        report("fault: odd-sinf");
        information = m_faults.withUnknownVersion(information);
    }
    m_sendQueue.send(information);
    report(QString("SInf sent in MSEX 1.%1").arg(m_content.identity.msexMinor));
    m_isGreeted = true;
    if (m_faults.shouldInject(Fault::Unread)) {
        report("fault: unread");
        m_isReading = false;
        // The kernel's buffer is to fill, not Qt's.
        m_socket->setReadBufferSize(1);
    }
}

void Connection::handleQuery(const Request& request)
{
    Answers answers =
        answersTo(request, m_content.identity.msexMinor, m_content.catalogue.libraries(), m_content.patch);
    report(request.code.mid(5) + ": " + answers.note);
    if (!answers.messages.empty() && m_faults.shouldInject(Fault::Silence)) {
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
    const QString injected = m_sendQueue.answer(message);
    if (!injected.isEmpty())
        report("fault: " + injected);
}

void Connection::report(const QString& text) const
{
    m_log.line(m_content.identity.name, m_peer + ' ' + text);
}
} // namespace MediaServer
