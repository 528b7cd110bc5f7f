// Reads and answers the messages of a connection.
// SPDX-License-Identifier: Apache-2.0
#include "connection.h"

#include <sys/socket.h>
#include <QHostAddress>
#include <QStringList>

#include "cable.h"
#include "changes.h"

namespace MediaServer {
namespace {
// Maximum number of unsent bytes before further requests are read.
constexpr qint64 MaxBacklog = qint64{4} * 1024 * 1024;
// The same for the fault "impatient".
constexpr qint64 PatientBacklog = qint64{64} * 1024;
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
    if (m_faults.isEnabled(Fault::Impatient)) {
        const int bytes = 4096;
        setsockopt(static_cast<int>(socket->socketDescriptor()), SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes);
    }
    if (m_faults.isEnabled(Fault::IdleClose)) {
        connect(&m_idleTimer, &QTimer::timeout, this, &Connection::reset);
        m_idleTimer.start(m_faults.delayMs());
    }
    if (m_faults.shouldInject(Fault::Early))
        m_sendQueue.send(layerStatus(content.identity.msexMinor, {}));
    if (content.replay) {
        for (const QByteArray& message : content.replay->greeting())
            m_sendQueue.send(message);
    }
    scheduleStep();
}

void Connection::notify(const QByteArray& message)
{
    if (!m_isGreeted || !m_isConnected || m_sendQueue.backlog() >= MaxBacklog)
        return;
    m_sendQueue.send(message);
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
    if (m_faults.isEnabled(Fault::Impatient) && m_sendQueue.backlog() >= PatientBacklog) {
        report("fault: impatient");
        reset();
        return;
    }
    if (m_sendQueue.busy() || m_sendQueue.backlog() >= MaxBacklog)
        return;
    int wait = 0;
    QByteArray message;
    if (!m_answers.empty()) {
        answerNext();
    } else if (m_isReading && m_cutter.next(message)) {
        if (m_faults.isEnabled(Fault::FirstOnly))
            m_cutter.clear();
        handle(parseRequest(message), message);
        if (!m_answers.empty() && m_faults.shouldInject(Fault::Delay)) {
            report("fault: delay");
            wait = m_faults.delayMs();
        }
    } else if (!m_cutter.problem().isEmpty()) {
        report("sends garbage: " + m_cutter.problem() + "; closing");
        reset();
        return;
    } else if (m_isReading && m_socket->bytesAvailable() > 0) {
        // What is left of the last time is not whole.
        if (m_faults.isEnabled(Fault::NeedsWhole))
            m_cutter.clear();
        if (m_idleTimer.isActive())
            m_idleTimer.start();
        m_cutter.append(m_socket->readAll());
    } else {
        return;
    }
    m_stepTimer.start(wait);
}

void Connection::handle(const Request& request, const QByteArray& message)
{
    const bool isUnwelcome =
        (request.kind == RequestKind::Unknown && m_faults.isEnabled(Fault::Strict)) ||
        (request.kind == RequestKind::ClientInfo && m_isGreeted && m_faults.isEnabled(Fault::Once)) ||
        (request.isLonger && m_faults.isEnabled(Fault::Exact)) ||
        (request.kind == RequestKind::SendPatch && !m_isGreeted && m_faults.isEnabled(Fault::NeedsClient));
    if (isUnwelcome) {
        report("fault: " + request.code + " is unwelcome");
        reset();
        return;
    }
    if (m_content.replay && request.kind != RequestKind::PeerName) {
        handleReplayed(request, message);
        return;
    }
    switch (request.kind) {
        case RequestKind::PeerName:
            m_hasName = true;
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

void Connection::handleReplayed(const Request& request, const QByteArray& message)
{
    const Answers answers = m_content.replay->answersTo(request, message, m_turns);
    report(answers.note);
    if (request.kind != RequestKind::ClientInfo) {
        setAnswers(request, answers);
        return;
    }
    for (const Answer& answer : answers.messages)
        m_sendQueue.send(answer());
    if (m_isGreeted)
        return;
    m_isGreeted = true;
    Q_EMIT greeted();
}

void Connection::handleClientInfo(const Request& request)
{
    QStringList versions;
    for (const quint16 version : request.versions)
        versions << versionText(version);
    report(QString("CInf: speaks MSEX %1").arg(versions.join(", ")));
    const bool isNameMissing = m_faults.isEnabled(Fault::NeedsName) && !m_hasName;
    if (isNameMissing || m_faults.shouldInject(Fault::Mute)) {
        report(isNameMissing ? "fault: needs-name" : "fault: mute");
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
        information = withUnknownVersion(m_faults, information);
    }
    if (m_faults.shouldInject(Fault::LateSinf)) {
        report("fault: late-sinf");
        QTimer::singleShot(m_faults.delayMs(), this, [this, information] { sendInformation(information); });
        return;
    }
    sendInformation(information);
}

void Connection::sendInformation(const QByteArray& information)
{
    m_sendQueue.send(information);
    report(QString("SInf sent in MSEX 1.%1").arg(m_content.identity.msexMinor));
    m_isGreeted = true;
    Q_EMIT greeted();
    if (m_faults.shouldInject(Fault::Unread)) {
        report("fault: unread");
        m_isReading = false;
        // The kernel's buffer is to fill, not Qt's.
        m_socket->setReadBufferSize(1);
    }
}

// By the faults that do not answer certain requests.
bool Connection::isIgnored(const Request& request)
{
    const bool isPictures =
        request.kind == RequestKind::ElementThumbnails || request.kind == RequestKind::LibraryThumbnails;
    const bool isAll = request.numbers.empty() && request.libraryIds.empty() && request.fixtures.empty();
    return (m_faults.isEnabled(Fault::OwnVersion) && request.kind != RequestKind::SendPatch &&
            request.versionMinor != m_content.identity.msexMinor) ||
           (m_faults.isEnabled(Fault::NeedsNumbers) && isAll && (isPictures || request.kind == RequestKind::SendPatch));
}

Answers Connection::answersWithFaults(Request& request)
{
    if (m_faults.isEnabled(Fault::IgnoresNumbers)) {
        request.numbers.clear();
        request.libraryIds.clear();
        request.fixtures.clear();
    }
    if (m_faults.isEnabled(Fault::FirstNumber)) {
        request.numbers.resize(qMin<std::size_t>(1, request.numbers.size()));
        request.libraryIds.resize(qMin<std::size_t>(1, request.libraryIds.size()));
        request.fixtures.resize(qMin<std::size_t>(1, request.fixtures.size()));
    }
    if (m_faults.isEnabled(Fault::IgnoresSize)) {
        request.width = static_cast<quint16>(2 * request.width);
        request.height = static_cast<quint16>(2 * request.height);
    }
    if (m_faults.isEnabled(Fault::WrongFormat))
        request.format = request.format == "PNG " ? "JPEG" : "PNG ";
    const auto answers = [&] {
        return answersTo(request, m_content.identity.msexMinor, m_content.catalogue.libraries(), m_content.patch);
    };
    Answers found = answers();
    if (found.found == 0 && m_faults.isEnabled(Fault::Invents)) {
        request.numbers.clear();
        request.libraryIds.clear();
        request.fixtures.clear();
        request.libraryType = LibraryType::Media;
        if (request.kind != RequestKind::ListLibraries)
            request.libraryId = request.versionMinor == 0 ? 1 : childId(0, 1);
        found = answers();
    }
    return found;
}

void Connection::handleQuery(Request request)
{
    if (m_faults.isEnabled(Fault::SingleMinded)) {
        m_cutter.clear();
        m_socket->readAll();
    }
    Answers answers = answersWithFaults(request);
    report(request.code.mid(5) + ": " + answers.note);
    const bool isUnknown = answers.found == 0 && m_faults.isEnabled(Fault::UnknownSilent);
    if (isUnknown || isIgnored(request)) {
        report("fault: not answered");
        return;
    }
    setAnswers(request, answers);
}

void Connection::setAnswers(const Request& request, const Answers& answers)
{
    if (!answers.messages.empty() && m_faults.concerns(request.code.mid(5)) && m_faults.shouldInject(Fault::Silence)) {
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
