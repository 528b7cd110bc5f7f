// Reading, answering and ending of a connection.
#include "connection.h"

#include <QHostAddress>
#include <QStringList>

namespace MediaServer {
namespace {
// A console that asks without reading is not served further until it has read this much less, in bytes.
constexpr qint64 UnsentLimit = 8 * 1024 * 1024;

QString versionText(quint16 version)
{
    return QString("%1.%2").arg(version >> 8).arg(version & 0xFF);
}
} // namespace

Connection::Connection(QTcpSocket* socket, const Identity& identity, const EventLog& log, QObject* parent)
    : QObject(parent),
      m_socket(socket),
      m_identity(identity),
      m_log(log),
      m_peer(QString("%1:%2").arg(socket->peerAddress().toString()).arg(socket->peerPort()))
{
    socket->setParent(this);
    socket->setReadBufferSize(MessageCutter::MaximumSize);
    connect(socket, &QTcpSocket::readyRead, this, &Connection::read);
    connect(socket, &QTcpSocket::bytesWritten, this, &Connection::read);
    connect(socket, &QTcpSocket::disconnected, this, [this] {
        report("has disconnected");
        deleteLater();
    });
    report("has connected");
}

void Connection::reset()
{
    m_socket->disconnect(this);
    m_socket->abort();
    deleteLater();
}

void Connection::read()
{
    while (m_cutter.problem().isEmpty() && m_socket->bytesToWrite() < UnsentLimit) {
        QByteArray message;
        if (m_cutter.next(message))
            handle(message);
        else if (m_socket->bytesAvailable() > 0)
            m_cutter.append(m_socket->readAll());
        else
            break;
    }
    if (!m_cutter.problem().isEmpty()) {
        report("sends garbage: " + m_cutter.problem() + "; closing");
        reset();
    }
}

void Connection::handle(const QByteArray& message)
{
    const Request request = parseRequest(message);
    switch (request.kind) {
        case RequestKind::PeerName:
            report(QString("PNam: its name is '%1'").arg(request.peerName));
            break;
        case RequestKind::ClientInfo: {
            QStringList versions;
            for (const quint16 version : request.versions)
                versions << versionText(version);
            report(QString("CInf: speaks MSEX %1").arg(versions.join(", ")));
            send(serverInformation(m_identity, request.index));
            report(QString("SInf sent in MSEX 1.%1").arg(m_identity.msexMinor));
            break;
        }
        case RequestKind::SendPatch:
            report(request.fixtures.empty() ? QString("SPtc: asks for the whole patch")
                                            : QString("SPtc: asks for %1 fixtures").arg(request.fixtures.size()));
            break;
        case RequestKind::Malformed:
            report(QString("%1: %2; ignored").arg(request.code, request.problem));
            break;
        default:
            report(QString("%1: not answered").arg(request.code));
            break;
    }
}

void Connection::send(const QByteArray& message)
{
    m_socket->write(message);
}

void Connection::report(const QString& text) const
{
    m_log.line(m_identity.name, m_peer + ' ' + text);
}
} // namespace MediaServer
