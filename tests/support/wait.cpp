// waitFor(): polls the condition every millisecond.
// SPDX-License-Identifier: Apache-2.0
#include "wait.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEvent>

#include <chrono>
#include <thread>

bool waitFor(const std::function<bool()>& condition, int milliseconds)
{
    const QDeadlineTimer deadline(milliseconds);
    while (!condition()) {
        if (deadline.hasExpired()) {
            return false;
        }
        if (QCoreApplication::instance()) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
            // Without an event loop around it, processEvents() leaves these.
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
