// A message that is parsed in one thread and freed in another, compared with a queued signal without arguments.
// SPDX-License-Identifier: Apache-2.0
#include "cases.h"
#include "queued_receiver.h"
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
        QObject::connect(&sender, &Sender::bare, &receiver, &QueuedReceiver::handleBare);
        QObject::connect(&sender, &Sender::mein, &receiver, &QueuedReceiver::handleMein);
        QObject::connect(&sender, &Sender::lsta, &receiver, &QueuedReceiver::handleLsta);
        QObject::connect(&sender, &Sender::ethn, &receiver, &QueuedReceiver::handleEthn);
        thread.start();
    }
    ~Ends()
    {
        thread.quit();
        thread.wait();
    }

    Sender sender;
    QueuedReceiver receiver;
    QThread thread;
};

template <typename Message>
void addQueued(const std::shared_ptr<Ends>& ends, const std::string& name, const QByteArray& bytes)
{
    add(
        "Queued/" + name + "/library",
        [ends, bytes] {
            ends->sender.emitMessage(Message(bytes));
            ends->receiver.received.acquire();
        },
        true);
    add(
        "Queued/" + name + "/bare",
        [ends] {
            ends->sender.emitBare();
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
