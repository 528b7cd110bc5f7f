// Finding the server and waiting for it.
// SPDX-License-Identifier: Apache-2.0
#include "session.h"

#include <QCoreApplication>
#include <QTimer>

#include "adapters.h"
#include "printing.h"

namespace Console {
namespace {
// Servers announce themselves about once a second: after that long a second one of the same name would have shown.
constexpr int SettleMs = 1500;
constexpr int HeartbeatMs = 50;

bool isInterrupted = false;

QString seconds(int milliseconds)
{
    return QString("%1 s").arg(milliseconds / 1000.0);
}

QString listed(const QMap<QString, ServerText>& servers, const QStringList& keys)
{
    QStringList texts;
    for (const QString& key : keys)
        texts << toText(servers.value(key), true);
    return texts.join("; ");
}
} // namespace

void interruptSessions()
{
    isInterrupted = true;
}

bool pumpUntil(const std::function<bool()>& isDone, int milliseconds)
{
    QTimer heartbeat; // wakes the event loop, so that time limits are seen
    heartbeat.start(HeartbeatMs);
    QElapsedTimer timer;
    timer.start();
    while (!isDone()) {
        if (isInterrupted)
            throw Interrupted{};
        if (timer.elapsed() >= milliseconds)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    }
    return true;
}

Session::Session(const Options& options) : m_limitMs(options.timeoutMs)
{
    CITP::citp_stack* const stack = CITP::citp_stack::Get();
    connect(stack, &CITP::citp_stack::serverUp, this,
            [this](const QString& key) { m_servers.insert(key, describe(key)); });
    connect(stack, &CITP::citp_stack::serverDown, this, [this](const QString& key) {
        m_servers.remove(key);
        m_isDown = m_isDown || key == m_server.key;
    });
    stack->setEnabled(true);
    // An earlier session may have brought it up.
    for (const QString& key : stack->getServers())
        m_servers.insert(key, describe(key));
    find(options.server);
}

QString Session::name() const
{
    return "server " + toText(m_server, true);
}

void Session::send(const CITP::Msg_Header& request)
{
    if (!CITP::citp_stack::Get()->sendMsg(key(), request))
        throw Failure{name() + " could not be asked: it is gone or the request is not possible"};
}

bool Session::pump(const std::function<bool()>& isDone, int milliseconds)
{
    const auto isOver = [&] {
        if (isDone())
            return true;
        if (m_isDown)
            throw Failure{name() + " went down"};
        return false;
    };
    return pumpUntil(isOver, milliseconds);
}

void Session::await(const QString& what, const std::function<bool()>& isDone, const std::function<QString()>& remark)
{
    if (!pump(isDone, m_limitMs)) {
        const QString more = remark ? remark() : QString();
        throw Failure{QString("%1 did not send %2 within %3%4; --timeout allows more time")
                          .arg(name(), what, seconds(m_limitMs), more.isEmpty() ? QString() : ' ' + more)};
    }
}

void Session::find(const QString& wanted)
{
    const int searchMs = qMax(m_limitMs, ShortestSearchMs);
    if (!pump([&] { return !matching(m_servers, wanted).isEmpty(); }, searchMs)) {
        const QString heard = m_servers.isEmpty() ? QString(
                                                        "no server at all was heard; 'citp-console watch' says "
                                                        "what to look at")
                                                  : "heard were: " + listed(m_servers, m_servers.keys());
        throw Failure{QString("no server '%1' within %2 on adapter %3; %4")
                          .arg(harmless(wanted), seconds(searchMs), nameAndAddress(ArtNet::Adapter::Get()), heard)};
    }
    pump([&] { return m_servers.contains(wanted); }, SettleMs);
    const QStringList keys = matching(m_servers, wanted);
    if (keys.isEmpty())
        throw Failure{QString("server '%1' went down").arg(harmless(wanted))};
    if (keys.size() > 1)
        throw Failure{QString("'%1' is part of several names; give more of it, or the key: %2")
                          .arg(harmless(wanted), listed(m_servers, keys))};
    m_server = m_servers.value(keys.constFirst());
}
} // namespace Console
