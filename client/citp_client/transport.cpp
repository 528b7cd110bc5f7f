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
#include <QScopedPointer>
#include <QTimer>

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <tuple>
#include <type_traits>
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

// Long enough to cost little for each notification, and short for those who wait for the event loop.
constexpr qint64 batchMs = 5;

/// What waits to be emitted.
struct Notification
{
    virtual ~Notification() = default;
    virtual void emitBy(StackTransport& transport) const = 0;

    qint64 fixtureBytes = 0; ///< what it counts as, if it is a fixture
};

using StateSignal = void (Transport::*)(const QString&);
template <typename Message>
using AnswerSignal = void (Transport::*)(const QString&, const Message&);

template <typename... Arguments>
struct SignalOf : Notification
{
    // The arguments are the stack's own: only their direct copies count as unread.
    SignalOf(void (Transport::*emitted)(Arguments...), const std::decay_t<Arguments>&... sent)
        : signal(emitted), arguments(sent...)
    {
    }
    void emitBy(StackTransport& transport) const override
    {
        std::apply([&](const auto&... sent) { Q_EMIT(transport.*signal)(sent...); }, arguments);
    }

    void (Transport::*const signal)(Arguments...);
    const std::tuple<std::decay_t<Arguments>...> arguments;
};

/// The newest of a server, where that is enough.
struct Newest : Notification
{
    explicit Newest(QString key) : server(std::move(key)) {}
    void emitBy(StackTransport& transport) const override;

    const QString server;
    std::optional<DiscoveryEvent> heard;
    std::optional<DiscoveryEvent> connection;
    std::deque<Msg_MSEX_LSTA> reports;
};

void Newest::emitBy(StackTransport& transport) const
{
    // A receiver may delete the transport.
    const QPointer<StackTransport> self(&transport);
    for (const Msg_MSEX_LSTA& report : reports) {
        if (self) {
            Q_EMIT transport.layerStatus(server, report);
        }
    }
    if (self && heard) {
        Q_EMIT transport.serverHeard(server, heard->text);
    }
    if (self && connection && connection->kind == DiscoveryEvent::Connected) {
        Q_EMIT transport.serverConnected(server);
    } else if (self && connection) {
        Q_EMIT transport.serverFailed(server, connection->text);
    }
}

/// What the stack has told and the transport has not emitted yet, in order. Filled in the stack's thread. One event
/// wakes the transport for all that has come by then.
class Inbox
{
public:
    explicit Inbox(StackTransport* receiver) : m_receiver(receiver) {}

    void addState(StateSignal signal, const QString& server);
    template <typename Message>
    void addAnswer(AnswerSignal<Message> signal, const QString& server, const Message& answer);
    void add(const DiscoveryEvent& event);
    void add(const QString& server, const Msg_MSEX_LSTA& report);
    void add(const QString& server, const Msg_FPTC_PTCH& fixture);

    /// The first; null if there is none or the transport is destroyed.
    std::unique_ptr<Notification> take();
    void clearWakeUp();
    void close();

private:
    using NewestOf = std::map<QString, Newest*>;

    void append(const QString& server, std::unique_ptr<Notification> notification);
    void wakeUp();
    Newest& newest(NewestOf& known, const QString& server);

    std::mutex m_mutex;         ///< guards what follows
    StackTransport* m_receiver; ///< null once it is destroyed
    bool m_isAwake = false;     ///< an event is on its way; always, if something waits
    std::deque<std::unique_ptr<Notification>> m_waiting;
    // Those that more is merged with, by server. What has come since ends that: any other notification for news, a
    // change of the state for reports.
    NewestOf m_news;
    NewestOf m_reports;
    qint64 m_fixtureBytes = 0; ///< of those that do not count as unread
};

void Inbox::wakeUp()
{
    if (!m_isAwake) {
        m_isAwake = true;
        QCoreApplication::postEvent(m_receiver, new QEvent(QEvent::User));
    }
}

void Inbox::append(const QString& server, std::unique_ptr<Notification> notification)
{
    m_news.erase(server);
    m_waiting.push_back(std::move(notification));
    wakeUp();
}

void Inbox::addState(StateSignal signal, const QString& server)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_receiver) {
        m_reports.erase(server);
        append(server, std::make_unique<SignalOf<const QString&>>(signal, server));
    }
}

template <typename Message>
void Inbox::addAnswer(AnswerSignal<Message> signal, const QString& server, const Message& answer)
{
    auto added = std::make_unique<SignalOf<const QString&, const Message&>>(signal, server, answer);
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_receiver) {
        append(server, std::move(added));
    }
}

Newest& Inbox::newest(NewestOf& known, const QString& server)
{
    const auto found = known.find(server);
    if (found != known.end()) {
        return *found->second;
    }
    auto added = std::make_unique<Newest>(server);
    Newest& merged = *added;
    append(server, std::move(added));
    known[server] = &merged;
    return merged;
}

void Inbox::add(const DiscoveryEvent& event)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_receiver || (m_news.size() >= maxTold && m_news.count(event.server) == 0)) {
        return;
    }
    Newest& told = newest(m_news, event.server);
    (event.kind == DiscoveryEvent::Heard ? told.heard : told.connection) =
        DiscoveryEvent{event.kind, event.server, event.text.left(Transport::maxNameLength)};
}

// What is kept here does not count as unread: the stack would stop reading the server, although only the newest wait.
void Inbox::add(const QString& server, const Msg_MSEX_LSTA& report)
{
    const Msg_MSEX_LSTA counted(report); // NOLINT(performance-unnecessary-copy-initialization)
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_receiver) {
        return;
    }
    std::deque<Msg_MSEX_LSTA>& waiting = newest(m_reports, server).reports;
    if (waiting.size() >= maxReports) {
        waiting.pop_front();
    }
    waiting.push_back(counted);
}

// Nor does a patch that comes all at once, up to a limit.
void Inbox::add(const QString& server, const Msg_FPTC_PTCH& fixture)
{
    const Msg_FPTC_PTCH counted(fixture);
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_receiver) {
        return;
    }
    const bool isUncounted = m_fixtureBytes < maxFixtureBytes;
    auto added = std::make_unique<SignalOf<const QString&, const Msg_FPTC_PTCH&>>(&Transport::patchMessage, server,
                                                                                  isUncounted ? counted : fixture);
    added->fixtureBytes = isUncounted ? citp_options::unreadCost(fixture.size) : 0;
    m_fixtureBytes += added->fixtureBytes;
    append(server, std::move(added));
}

std::unique_ptr<Notification> Inbox::take()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_receiver || m_waiting.empty()) {
        return nullptr;
    }
    std::unique_ptr<Notification> first = std::move(m_waiting.front());
    m_waiting.pop_front();
    m_fixtureBytes -= first->fixtureBytes;
    if (const auto* const merged = dynamic_cast<const Newest*>(first.get())) {
        for (NewestOf* const known : {&m_news, &m_reports}) {
            const auto found = known->find(merged->server);
            if (found != known->end() && found->second == merged) {
                known->erase(found);
            }
        }
    }
    // The receiver of this one may run an event loop of its own, in which the others have to arrive, too.
    if (!m_waiting.empty()) {
        wakeUp();
    }
    return first;
}

void Inbox::clearWakeUp()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isAwake = false;
}

void Inbox::close()
{
    // What waits counts as unread, although the worker may keep this object for some time.
    std::deque<std::unique_ptr<Notification>> dropped;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_receiver = nullptr;
    m_news.clear();
    m_reports.clear();
    dropped.swap(m_waiting);
}
} // namespace

struct CITP_HIDDEN StackTransport::Private
{
    explicit Private(StackTransport* transport) : inbox(std::make_shared<Inbox>(transport)) {}

    QElapsedTimer clock;
    QTimer timer;
    const std::shared_ptr<Inbox> inbox;
    std::shared_ptr<const void> observation;
    std::set<int> relayed; ///< indexes of signals
    /// The receiver of the stack's signals. In the stack's thread and destroyed there: a call of a slot may just begin
    /// when the transport is destroyed.
    QScopedPointer<QObject, QScopedPointerDeleteLater> relay;
};

Transport::Transport() = default;
Transport::~Transport() = default;

StackTransport::StackTransport() : d(std::make_unique<Private>(this))
{
    d->clock.start();
    d->timer.setSingleShot(true);
    connect(&d->timer, &QTimer::timeout, this, &Transport::wokenUp);
}

StackTransport::~StackTransport()
{
    d->inbox->close();
}

bool StackTransport::event(QEvent* event)
{
    if (event->type() != QEvent::User) {
        return Transport::event(event);
    }
    const std::shared_ptr<Inbox> inbox = d->inbox; // a receiver may delete this object
    inbox->clearWakeUp();
    QElapsedTimer time;
    time.start();
    while (const std::unique_ptr<Notification> next = inbox->take()) {
        next->emitBy(*this);
        if (time.hasExpired(batchMs)) {
            break;
        }
    }
    return true;
}

void StackTransport::connectNotify(const QMetaMethod& signal)
{
    // The slots run in the stack's thread and keep the inbox alive.
    const auto relay = [&](auto from, auto to, auto slot) {
        if (signal == QMetaMethod::fromSignal(to) && d->relayed.insert(signal.methodIndex()).second) {
            if (!d->relay) {
                d->relay.reset(new QObject);
                // Qt emits to a new connection before it has created the receiver's data, which this creates.
                connect(d->relay.data(), &QObject::destroyed, d->relay.data(), [] {});
                d->relay->moveToThread(citp_stack::Get()->thread());
            }
            connect(citp_stack::Get(), from, d->relay.data(), slot, Qt::DirectConnection);
        }
    };
    const std::shared_ptr<Inbox> inbox = d->inbox;
    const auto relayState = [&](auto from, StateSignal to) {
        relay(from, to, [inbox, to](const QString& server) { inbox->addState(to, server); });
    };
    const auto relayAnswer = [&](auto from, auto to) {
        relay(from, to,
              [inbox, to](const QString& server, const auto& answer) { inbox->addAnswer(to, server, answer); });
    };
    relayState(&citp_stack::serverUp, &Transport::serverUp);
    relayState(&citp_stack::serverDown, &Transport::serverDown);
    relayAnswer(&citp_stack::libraryInfo, &Transport::libraryInfo);
    relayAnswer(&citp_stack::mediaInfo, &Transport::mediaInfo);
    relayAnswer(&citp_stack::effectInfo, &Transport::effectInfo);
    relayAnswer(&citp_stack::genericInfo, &Transport::genericInfo);
    relayAnswer(&citp_stack::libraryThumbnail, &Transport::libraryThumbnail);
    relayAnswer(&citp_stack::elementThumbnail, &Transport::elementThumbnail);
    relayAnswer(&citp_stack::libraryUpdated, &Transport::libraryUpdated);
    const auto add = [inbox](const QString& server, const auto& message) { inbox->add(server, message); };
    relay(&citp_stack::layerStatus, &Transport::layerStatus, add);
    relay(&citp_stack::patchMessage, &Transport::patchMessage, add);

    const bool isDiscovery = signal == QMetaMethod::fromSignal(&Transport::serverHeard) ||
                             signal == QMetaMethod::fromSignal(&Transport::serverConnected) ||
                             signal == QMetaMethod::fromSignal(&Transport::serverFailed);
    if (isDiscovery && !d->observation) {
        d->observation =
            citp_stack::Get()->observeDiscovery([inbox](const DiscoveryEvent& event) { inbox->add(event); });
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
