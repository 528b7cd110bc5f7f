// runOnThreadOf(): a blocking call through Qt, with what it carries in an atomic.
// SPDX-License-Identifier: Apache-2.0
#include "worker_call.h"

#include <QMetaObject>

#include <atomic>

namespace {
// Not in the functor: Qt's queue and semaphore order the two threads, but the thread sanitizer does not see that. It
// sees what an atomic orders.
std::atomic<const std::function<void()>*> handedOver{nullptr};
} // namespace

void runOnThreadOf(QObject* object, const std::function<void()>& work)
{
    handedOver = &work;
    QMetaObject::invokeMethod(
        object,
        [] {
            (*handedOver.load())();
            handedOver = nullptr;
        },
        Qt::BlockingQueuedConnection);
    // Reading what the other thread wrote last makes visible what it did before. An object without a thread that runs
    // events would leave the work undone.
    if (handedOver.load()) {
        qFatal("runOnThreadOf: the work was not done");
    }
}
