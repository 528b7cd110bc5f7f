// StackTransport: relays the stack's signals to the thread of the client layer.
// SPDX-License-Identifier: Apache-2.0
#include <citp_client/transport.h>

#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_thumbnails.h>
#include <citp/citp_options.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QMetaMethod>
#include <QPointer>
#include <QTimer>

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace CITP {
namespace {
using DiscoveryEvent = citp_stack::DiscoveryEvent;

// More than any network has; senders of announcements can be forged.
constexpr std::size_t maxTold = 1024;
// A server that sends several at once is told of whole; a faster one than the receivers costs no memory.
constexpr std::size_t maxReports = 16;
// More than the patch of any show has.
constexpr qint64 maxFixtureBytes = 1 << 26;

/// What the stack has told and the transport has not emitted yet. Filled in the stack's thread.
struct Inbox
{
    struct News
    {
        std::optional<DiscoveryEvent> heard;
        std::optional<DiscoveryEvent> connection;
    };

    void add(const DiscoveryEvent& event);
    void add(const QString& server, const Msg_MSEX_LSTA& report);
    void add(const std::shared_ptr<Inbox>& self, const QString& server, const Msg_FPTC_PTCH& fixture);
    void wakeUp();

    std::mutex mutex;                   ///< guards what follows
    StackTransport* receiver = nullptr; ///< null once it is destroyed
    bool isAwake = false;
    std::map<QString, News> news{};                         ///< by server
    std::map<QString, std::deque<Msg_MSEX_LSTA>> reports{}; ///< the newest, by server
    qint64 fixtureBytes = 0;                                ///< of those that wait in the event queue
};

void Inbox::wakeUp()
{
    if (!isAwake) {
        isAwake = true;
        QCoreApplication::postEvent(receiver, new QEvent(QEvent::User));
    }
}

void Inbox::add(const DiscoveryEvent& event)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (!receiver || (news.size() >= maxTold && news.count(event.server) == 0)) {
        return;
    }
    wakeUp();
    News& told = news[event.server];
    (event.kind == DiscoveryEvent::Heard ? told.heard : told.connection) =
        DiscoveryEvent{event.kind, event.server, event.text.left(Transport::maxNameLength)};
}

// What is kept here does not count as unread: the stack would stop reading the server, although only the newest wait.
void Inbox::add(const QString& server, const Msg_MSEX_LSTA& report)
{
    const Msg_MSEX_LSTA counted(report); // NOLINT(performance-unnecessary-copy-initialization)
    const std::lock_guard<std::mutex> lock(mutex);
    if (!receiver) {
        return;
    }
    wakeUp();
    std::deque<Msg_MSEX_LSTA>& waiting = reports[server];
    if (waiting.size() >= maxReports) {
        waiting.pop_front();
    }
    waiting.push_back(counted);
}

// Nor does a patch that comes all at once, up to a limit. In the event queue, because fixtures must not get before the
// serverDown() of an earlier connection.
void Inbox::add(const std::shared_ptr<Inbox>& self, const QString& server, const Msg_FPTC_PTCH& fixture)
{
    const Msg_FPTC_PTCH counted(fixture);
    const std::lock_guard<std::mutex> lock(mutex);
    if (!receiver) {
        return;
    }
    const qint64 bytes = citp_options::unreadCost(fixture.size);
    const auto kept = std::make_shared<const Msg_FPTC_PTCH>(fixtureBytes < maxFixtureBytes ? counted : fixture);
    fixtureBytes += bytes;
    QMetaObject::invokeMethod(
        receiver,
        [self, server, kept, bytes, transport = receiver] {
            {
                const std::lock_guard<std::mutex> taken(self->mutex);
                self->fixtureBytes -= bytes;
            }
            Q_EMIT transport->patchMessage(server, *kept);
        },
        Qt::QueuedConnection);
}
} // namespace

struct CITP_HIDDEN StackTransport::Private
{
    QElapsedTimer clock;
    QTimer timer;
    const std::shared_ptr<Inbox> inbox = std::make_shared<Inbox>();
    std::shared_ptr<const void> observation;
    bool areLayersRelayed = false;
    bool isPatchRelayed = false;
};

Transport::Transport() = default;
Transport::~Transport() = default;

StackTransport::StackTransport() : d(std::make_unique<Private>())
{
    d->clock.start();
    d->inbox->receiver = this;
    d->timer.setSingleShot(true);
    connect(&d->timer, &QTimer::timeout, this, &Transport::wokenUp);
}

StackTransport::~StackTransport()
{
    const std::lock_guard<std::mutex> lock(d->inbox->mutex);
    d->inbox->receiver = nullptr;
}

bool StackTransport::event(QEvent* event)
{
    if (event->type() != QEvent::User) {
        return Transport::event(event);
    }
    std::map<QString, Inbox::News> news;
    std::map<QString, std::deque<Msg_MSEX_LSTA>> reports;
    {
        const std::lock_guard<std::mutex> lock(d->inbox->mutex);
        d->inbox->isAwake = false;
        news.swap(d->inbox->news);
        reports.swap(d->inbox->reports);
    }
    // A receiver may delete this object.
    const QPointer<StackTransport> self(this);
    for (const auto& [server, told] : news) {
        if (self && told.heard) {
            Q_EMIT serverHeard(server, told.heard->text);
        }
        if (self && told.connection && told.connection->kind == DiscoveryEvent::Connected) {
            Q_EMIT serverConnected(server);
        } else if (self && told.connection) {
            Q_EMIT serverFailed(server, told.connection->text);
        }
    }
    for (const auto& [server, waiting] : reports) {
        for (const Msg_MSEX_LSTA& report : waiting) {
            if (self) {
                Q_EMIT layerStatus(server, report);
            }
        }
    }
    return true;
}

void StackTransport::connectNotify(const QMetaMethod& signal)
{
    if (signal.enclosingMetaObject() != &Transport::staticMetaObject) {
        return;
    }
    const auto isOneOf = [&signal](auto... candidates) {
        return (... || (signal == QMetaMethod::fromSignal(candidates)));
    };
    citp_stack* const stack = citp_stack::Get();
    const std::shared_ptr<Inbox> inbox = d->inbox;
    if (isOneOf(&Transport::serverHeard, &Transport::serverConnected, &Transport::serverFailed)) {
        if (!d->observation) {
            d->observation = stack->observeDiscovery([inbox](const DiscoveryEvent& event) { inbox->add(event); });
        }
        return;
    }
    // A call in progress in the stack's thread keeps the inbox alive.
    if (isOneOf(&Transport::layerStatus)) {
        if (!d->areLayersRelayed) {
            connect(
                stack, &citp_stack::layerStatus, this,
                [inbox](const QString& server, const Msg_MSEX_LSTA& report) { inbox->add(server, report); },
                Qt::DirectConnection);
            d->areLayersRelayed = true;
        }
        return;
    }
    if (isOneOf(&Transport::patchMessage)) {
        if (!d->isPatchRelayed) {
            connect(
                stack, &citp_stack::patchMessage, this,
                [inbox](const QString& server, const Msg_FPTC_PTCH& fixture) { inbox->add(inbox, server, fixture); },
                Qt::DirectConnection);
            d->isPatchRelayed = true;
        }
        return;
    }
    const int index = stack->metaObject()->indexOfSignal(signal.methodSignature().constData());
    if (index >= 0) {
        connect(stack, stack->metaObject()->method(index), this, signal, Qt::UniqueConnection);
    }
}

qint64 StackTransport::now() const
{
    return d->clock.elapsed();
}

void StackTransport::wakeUpAt(qint64 time)
{
    const qint64 delay = qMax<qint64>(time - now(), 0);
    if (!d->timer.isActive() || delay < d->timer.remainingTime()) {
        d->timer.start(static_cast<int>(delay));
    }
}

bool StackTransport::send(const QString& server, const Msg_Header& request)
{
    return citp_stack::Get()->sendUnpaced(server, request);
}

std::vector<QString> StackTransport::servers() const
{
    return citp_stack::Get()->getServers();
}

bool StackTransport::serverInfo(const QString& server, Msg_MSEX_SINF* sinf, Msg_PEER_PLOC* ploc) const
{
    return citp_stack::Get()->getServerInfo(server, sinf, ploc);
}
} // namespace CITP
