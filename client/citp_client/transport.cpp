// StackTransport: relays the stack's signals to the thread of the client layer.
// SPDX-License-Identifier: Apache-2.0
#include <citp_client/transport.h>

#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_thumbnails.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QMetaMethod>
#include <QPointer>
#include <QTimer>

#include <map>
#include <mutex>
#include <optional>
#include <utility>

namespace CITP {
namespace {
using DiscoveryEvent = citp_stack::DiscoveryEvent;

// More than any network has; senders of announcements can be forged.
constexpr std::size_t maxTold = 1024;

/// What the stack tells of discovery and the transport has not emitted yet. Filled in the stack's thread.
struct Discovery
{
    struct News
    {
        std::optional<DiscoveryEvent> heard;
        std::optional<DiscoveryEvent> connection;
    };

    void add(const DiscoveryEvent& event);

    std::mutex mutex;               ///< guards what follows
    QObject* receiver = nullptr;    ///< null once it is destroyed
    std::map<QString, News> news{}; ///< by server
};

void Discovery::add(const DiscoveryEvent& event)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (!receiver || (news.size() >= maxTold && news.count(event.server) == 0)) {
        return;
    }
    if (news.empty()) {
        QCoreApplication::postEvent(receiver, new QEvent(QEvent::User));
    }
    News& told = news[event.server];
    (event.kind == DiscoveryEvent::Heard ? told.heard : told.connection) =
        DiscoveryEvent{event.kind, event.server, event.text.left(Transport::maxNameLength)};
}
} // namespace

struct CITP_HIDDEN StackTransport::Private
{
    QElapsedTimer clock;
    QTimer timer;
    std::shared_ptr<Discovery> discovery;
    std::shared_ptr<const void> observation;
};

Transport::Transport() = default;
Transport::~Transport() = default;

StackTransport::StackTransport() : d(std::make_unique<Private>())
{
    d->clock.start();
    d->timer.setSingleShot(true);
    connect(&d->timer, &QTimer::timeout, this, &Transport::wokenUp);
}

StackTransport::~StackTransport()
{
    if (d->discovery) {
        const std::lock_guard<std::mutex> lock(d->discovery->mutex);
        d->discovery->receiver = nullptr;
    }
}

bool StackTransport::event(QEvent* event)
{
    if (event->type() != QEvent::User || !d->discovery) {
        return Transport::event(event);
    }
    std::map<QString, Discovery::News> news;
    {
        const std::lock_guard<std::mutex> lock(d->discovery->mutex);
        news.swap(d->discovery->news);
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
    return true;
}

void StackTransport::connectNotify(const QMetaMethod& signal)
{
    if (signal.enclosingMetaObject() != &Transport::staticMetaObject) {
        return;
    }
    if (signal == QMetaMethod::fromSignal(&Transport::serverHeard) ||
        signal == QMetaMethod::fromSignal(&Transport::serverConnected) ||
        signal == QMetaMethod::fromSignal(&Transport::serverFailed)) {
        if (!d->discovery) {
            d->discovery = std::make_shared<Discovery>();
            d->discovery->receiver = this;
            d->observation = citp_stack::Get()->observeDiscovery(
                [discovery = d->discovery](const DiscoveryEvent& event) { discovery->add(event); });
        }
        return;
    }
    if (signal == QMetaMethod::fromSignal(&Transport::patchMessage)) {
        // The stack leaves this registration to its users, and it must come before the connection.
        qRegisterMetaType<Msg_FPTC_PTCH>("CITP::Msg_FPTC_PTCH");
    }
    citp_stack* const stack = citp_stack::Get();
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
