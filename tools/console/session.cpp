// Finding a server by key or name, and waiting with the event loop.
// SPDX-License-Identifier: Apache-2.0
#include "session.h"

#include <QCoreApplication>
#include <QTimer>

#include <algorithm>

#include "adapters.h"
#include "descriptors.h"
#include "discovery.h"
#include "log_lines.h"
#include "printing.h"

namespace Console {
namespace {
constexpr int WakeUpMs = 50;

QString listed(const QMap<QString, ServerText>& servers, const QStringList& keys)
{
    constexpr int MaxListed = 10;
    QStringList texts;
    for (const QString& key : keys.mid(0, MaxListed))
        texts << toText(servers.value(key), true);
    if (keys.size() > MaxListed)
        texts << QString("%1 more").arg(keys.size() - MaxListed);
    return texts.join("; ");
}

// What was found instead of the server @p wanted.
QString foundText(const QMap<QString, ServerText>& up, const Discovery& discovery, const QString& wanted)
{
    constexpr int MaxOverdue = 5;
    QStringList texts;
    if (!up.isEmpty())
        texts << "found: " + listed(up, up.keys());
    QStringList overdue = matching(discovery.servers(), wanted);
    if (overdue.isEmpty())
        overdue = discovery.servers().keys();
    for (const QString& key : up.keys())
        overdue.removeAll(key);
    for (const QString& key : overdue.mid(0, MaxOverdue))
        texts << discovery.overdueText(key);
    if (overdue.size() > MaxOverdue)
        texts << QString("%1 more are heard").arg(overdue.size() - MaxOverdue);
    if (texts.isEmpty())
        texts << "no server was found";
    const QString problem = descriptorProblem();
    if (!problem.isEmpty())
        texts << problem;
    if (up.isEmpty())
        texts << "run 'citp-console doctor' to find the cause";
    return texts.join("; ");
}

// At most once, because the servers announce themselves again and again.
void warnAboutDescriptors()
{
    constexpr qint64 IntervalMs = 500;
    static bool hasWarned = false;
    static QElapsedTimer sinceCheck;
    if (hasWarned || (sinceCheck.isValid() && sinceCheck.elapsed() < IntervalMs))
        return;
    sinceCheck.start();
    const QString problem = descriptorProblem();
    hasWarned = !problem.isEmpty();
    if (hasWarned)
        warn(problem);
}
} // namespace

bool processEventsUntil(const std::function<bool()>& isDone, int milliseconds)
{
    QTimer wakeUp; // makes processEvents() return regularly, so that the timeout is checked
    wakeUp.start(WakeUpMs);
    QElapsedTimer timer;
    timer.start();
    while (!isDone()) {
        if (isInterrupted())
            throw Interrupted{};
        checkOutput();
        flushLog();
        warnAboutDescriptors();
        if (timer.elapsed() >= milliseconds)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    }
    return true;
}

void enableStack(const Options& options)
{
    CITP::citp_stack* const stack = CITP::citp_stack::Get();
    stack->setOptions(options.stack.options);
    stack->setEnabled(true);
}

Session::Session(const Options& options) : m_timeoutMs(options.timeoutMs)
{
    CITP::citp_stack* const stack = CITP::citp_stack::Get();
    enableStack(options);
    // An earlier session may already have connected to servers.
    for (const QString& key : stack->getServers())
        m_servers.insert(key, describe(key));
    find(options);
}

void Session::update()
{
    for (const ServerEvent& event : m_events.take()) {
        if (event.isUp)
            m_servers.insert(event.key, describe(event.key));
        else
            m_servers.remove(event.key);
        m_isDown = m_isDown || (!event.isUp && event.key == m_server.key);
    }
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
        update();
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
        throw NoAnswer{{QString("%1 did not send %2 within %3%4; --timeout allows more time")
                            .arg(name(), what, secondsText(m_timeoutMs), more.isEmpty() ? QString() : ' ' + more)}};
    }
}

void Session::find(const Options& options)
{
    const QString& wanted = options.server;
    const int searchMs = qMax(m_timeoutMs, MinSearchMs);
    const ArtNet::Adapter adapter = ArtNet::Adapter::Get();
    // Hears servers that do not come up.
    Discovery discovery;
    const bool isListening =
        discovery.open() == 0 && discovery.join(adapter, options.stack.options.discoveryGroups()) == 0;
    const auto isFound = [&] {
        if (isListening)
            discovery.read();
        return !matching(m_servers, wanted).isEmpty();
    };
    if (!waitUntil(isFound, searchMs))
        throw Failure{QString("no server '%1' within %2 on adapter %3; %4")
                          .arg(escapeControls(wanted), secondsText(searchMs), nameAndAddress(adapter),
                               foundText(m_servers, discovery, wanted))};
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
