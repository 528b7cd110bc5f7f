// A message's whole life across two threads, parsed in one and freed in the other, beside a queued signal that carries
// nothing.
// SPDX-License-Identifier: Apache-2.0
#include "cases.h"
#include "courier.h"
#include "samples.h"

#include <QThread>

#include <memory>

using namespace CITP;

namespace bench {
namespace {
struct Ends
{
    Ends()
    {
        qRegisterMetaType<Msg_MSEX_MEIN>("CITP::Msg_MSEX_MEIN");
        qRegisterMetaType<Msg_MSEX_LSTA>("CITP::Msg_MSEX_LSTA");
        qRegisterMetaType<Msg_MSEX_ETHN>("CITP::Msg_MSEX_ETHN");
        receiver.moveToThread(&thread);
        QObject::connect(&courier, &Courier::bare, &receiver, &Receiver::takeBare);
        QObject::connect(&courier, &Courier::mein, &receiver, &Receiver::takeMein);
        QObject::connect(&courier, &Courier::lsta, &receiver, &Receiver::takeLsta);
        QObject::connect(&courier, &Courier::ethn, &receiver, &Receiver::takeEthn);
        thread.start();
    }
    ~Ends()
    {
        thread.quit();
        thread.wait();
    }

    Courier courier;
    Receiver receiver;
    QThread thread;
};

template <typename Message>
void addQueued(const std::shared_ptr<Ends>& ends, const std::string& name, const QByteArray& bytes)
{
    add(
        "Queued/" + name + "/library",
        [ends, bytes] {
            ends->courier.emitMessage(Message(bytes));
            ends->receiver.received.acquire();
        },
        true);
    add(
        "Queued/" + name + "/bare",
        [ends] {
            ends->courier.emitBare();
            ends->receiver.received.acquire();
        },
        true);
}
} // namespace

void addQueuedCases()
{
    const auto ends = std::make_shared<Ends>();
    addQueued<Msg_MSEX_LSTA>(ends, "LSta7", lstaBytes(7, 20));
    addQueued<Msg_MSEX_ETHN>(ends, "EThn30K", ethnBytes(30000));
    addQueued<Msg_MSEX_MEIN>(ends, "MEIn255", meinBytes(255));
}
} // namespace bench
