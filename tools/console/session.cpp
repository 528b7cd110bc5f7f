// Finding a server by key or name, and waiting with the event loop.
// SPDX-License-Identifier: Apache-2.0
#include "session.h"

#include <citp/citp_msg_fptc.h>

#include <QCoreApplication>
#include <QTimer>

#include <algorithm>

#include "adapters.h"
#include "printing.h"

namespace Console {
namespace {
constexpr int WakeUpMs = 50;

bool isInterrupted = false;

QString listed(const QMap<QString, ServerText>& servers, const QStringList& keys)
{
    QStringList texts;
    for (const QString& key : keys)
        texts << toText(servers.value(key), true);
    return texts.join("; ");
}
} // namespace

sigset_t terminationSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

void interruptSessions()
{
    isInterrupted = true;
}

bool processEventsUntil(const std::function<bool()>& isDone, int milliseconds)
{
    QTimer wakeUp; // makes processEvents() return regularly, so that the timeout is checked
    wakeUp.start(WakeUpMs);
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

Session::Session(const Options& options) : m_timeoutMs(options.timeoutMs)
{
    // The library leaves the registration of this type to the application. Without it, queued signals with fixtures are
    // not delivered.
    qRegisterMetaType<CITP::Msg_FPTC_PTCH>("CITP::Msg_FPTC_PTCH");
    CITP::citp_stack* const stack = CITP::citp_stack::Get();
    connect(stack, &CITP::citp_stack::serverUp, this,
            [this](const QString& key) { m_servers.insert(key, describe(key)); });
    connect(stack, &CITP::citp_stack::serverDown, this, [this](const QString& key) {
        m_servers.remove(key);
        m_isDown = m_isDown || key == m_server.key;
    });
    stack->setEnabled(true);
    // An earlier session may already have connected to servers.
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
    CITP::citp_stack* const stack = CITP::citp_stack::Get();
    if (stack->sendMsg(key(), request))
        return;
    // The stack may have removed the server before its signal serverDown is delivered here.
    const std::vector<QString> servers = stack->getServers();
    if (std::find(servers.begin(), servers.end(), key()) == servers.end())
        throw Failure{name() + " went down"};
    throw Failure{name() + " did not accept a request: it is down or the request is invalid"};
}

bool Session::waitUntil(const std::function<bool()>& isDone, int milliseconds)
{
    const auto isOver = [&] {
        if (isDone())
            return true;
        if (m_isDown)
            throw Failure{name() + " went down"};
        return false;
    };
    return processEventsUntil(isOver, milliseconds);
}

void Session::waitFor(const QString& what, const std::function<bool()>& isDone, const std::function<QString()>& remark)
{
    if (!waitUntil(isDone, m_timeoutMs)) {
        const QString more = remark ? remark() : QString();
        throw Failure{QString("%1 did not send %2 within %3%4; --timeout allows more time")
                          .arg(name(), what, secondsText(m_timeoutMs), more.isEmpty() ? QString() : ' ' + more)};
    }
}

void Session::find(const QString& wanted)
{
    const int searchMs = qMax(m_timeoutMs, MinSearchMs);
    if (!waitUntil([&] { return !matching(m_servers, wanted).isEmpty(); }, searchMs)) {
        const QString found = m_servers.isEmpty() ? QString(
                                                        "no server was found; run 'citp-console doctor' to find "
                                                        "the cause")
                                                  : "found: " + listed(m_servers, m_servers.keys());
        throw Failure{
            QString("no server '%1' within %2 on adapter %3; %4")
                .arg(escapeControls(wanted), secondsText(searchMs), nameAndAddress(ArtNet::Adapter::Get()), found)};
    }
    waitUntil([&] { return m_servers.contains(wanted); }, SettleMs);
    const QStringList keys = matching(m_servers, wanted);
    if (keys.isEmpty())
        throw Failure{QString("server '%1' went down").arg(escapeControls(wanted))};
    if (keys.size() > 1)
        throw Failure{QString("'%1' matches several servers; give the full name or the key: %2")
                          .arg(escapeControls(wanted), listed(m_servers, keys))};
    m_server = m_servers.value(keys.constFirst());
}
} // namespace Console
