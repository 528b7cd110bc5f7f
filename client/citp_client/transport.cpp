// StackTransport: relays the stack's signals to the thread of the client layer.
// SPDX-License-Identifier: Apache-2.0
#include <citp_client/transport.h>

#include "announcements_p.h"

#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_msg_msex_thumbnails.h>

#include <QElapsedTimer>
#include <QMetaMethod>
#include <QTimer>

namespace CITP {
struct CITP_HIDDEN StackTransport::Private
{
    QElapsedTimer clock;
    QTimer timer;
    std::unique_ptr<Announcements> announcements;
};

Transport::Transport() = default;
Transport::~Transport() = default;

StackTransport::StackTransport() : d(std::make_unique<Private>())
{
    d->clock.start();
    d->timer.setSingleShot(true);
    connect(&d->timer, &QTimer::timeout, this, &Transport::wokenUp);
}

StackTransport::~StackTransport() = default;

void StackTransport::connectNotify(const QMetaMethod& signal)
{
    if (signal.enclosingMetaObject() != &Transport::staticMetaObject) {
        return;
    }
    if (signal == QMetaMethod::fromSignal(&Transport::serverHeard)) {
        if (!d->announcements) {
            d->announcements = std::make_unique<Announcements>();
            connect(d->announcements.get(), &Announcements::heard, this, &Transport::serverHeard);
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
    citp_stack* const stack = citp_stack::Get();
    QByteArray list;
    if (const auto* const geli = dynamic_cast<const Msg_MSEX_GELI*>(&request)) {
        list >> *geli;
    } else if (const auto* const gein = dynamic_cast<const Msg_MSEX_GEIN*>(&request)) {
        list >> *gein;
    } else {
        return stack->sendMsg(server, request);
    }
    if (!stack->getServerInfo(server, nullptr, nullptr)) {
        return false;
    }
    Q_EMIT stack->__passDown(server, list);
    return true;
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
