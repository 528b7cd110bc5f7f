// Mode exit: a console application that uses the stack under load and then ends as its argument says. It exits with
// status 7 and prints nothing but, for "remove-at-exit", the lines on removed servers.
// SPDX-License-Identifier: Apache-2.0
#include "modes.h"
#include "worker_call.h"

#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_stack.h>
#include <citp_system/artnet_adapter.h>
#include <citp_system/os_log.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

using CITP::citp_stack;

namespace {
constexpr int Status = 7;

std::atomic<bool> printsRemovals{false};
std::atomic<bool> exits{false};

class RemovalSink : public Os::Log::Sink
{
    void Write(const Os::Log::Line& line) override
    {
        if (printsRemovals && std::strncmp(line.text.c_str(), "removed ", 8) == 0) {
            std::printf("%s\n", line.text.c_str());
            std::fflush(stdout);
        }
    }
};

void sendForEver(citp_stack* stack)
{
    for (unsigned char number = 0;; ++number) {
        for (const citp_stack::SERV_ID& server : stack->getServers()) {
            stack->sendMsg(server, CITP::Msg_MSEX_GELI(0, 1, QString(), {number}));
            stack->sendMsg(server, CITP::Msg_MSEX_GETH(0, 1, QStringLiteral("7"), 60, 80, QStringLiteral("JPEG"), {}));
            stack->getServerInfo(server, nullptr, nullptr);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}
} // namespace

int exitChild(const std::string& how)
{
    skipLeakSearch(); // the stack leaves the records of its servers as they are, on purpose
    static RemovalSink* const sink = new RemovalSink;
    Os::Log::SetSink(sink);
    ArtNet::Adapter::Choose("lo");
    int count = 1;
    char name[] = "exit";
    char* arguments[] = {name, nullptr};
    QCoreApplication application(count, arguments);
    citp_stack* const stack = citp_stack::Get();
    if (how == "exit-slowly") {
        // What is made after the stack goes before it at exit; the stack's thread is then at work without it for a
        // while.
        std::atexit([] { QThread::msleep(300); });
    }
    if (how == "at-once") {
        return Status;
    }
    if (how == "at-once-enabled") {
        stack->setEnabled(true);
        return Status;
    }

    stack->setEnabled(true);
    QMetaObject::invokeMethod(stack, "timepop", Qt::BlockingQueuedConnection);
    std::atomic<int> received{0};
    QObject receiver;
    QObject::connect(stack, &citp_stack::layerStatus, &receiver, [&received] { ++received; });
    std::atomic<bool> now{false};
    if (how == "from-receiver") {
        runOnThreadOf(stack, [&] {
            QObject::connect(
                stack, &citp_stack::layerStatus, stack,
                [&now] {
                    if (now) {
                        std::exit(Status);
                    }
                },
                Qt::DirectConnection);
        });
    }
    QElapsedTimer time;
    time.start();
    while (stack->getNumNotified() < 2) {
        if (time.elapsed() > 60000) {
            return 2;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    std::thread(sendForEver, stack).detach();
    std::thread(sendForEver, stack).detach();
    while (received < 50) {
        if (time.elapsed() > 60000) {
            return 3;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }

    if (how == "remove-at-exit") {
        // The worker is inside a receiver when the process begins to exit, and removes both servers then.
        runOnThreadOf(stack, [stack] {
            QObject::connect(
                stack, &citp_stack::layerStatus, stack,
                [stack] {
                    if (printsRemovals.exchange(true)) {
                        return;
                    }
                    while (!exits) {
                        std::this_thread::sleep_for(std::chrono::milliseconds(1));
                    }
                    // By now the library refuses callers.
                    while (!stack->getServers().empty()) {
                        std::this_thread::sleep_for(std::chrono::milliseconds(1));
                    }
                    QMetaObject::invokeMethod(stack, "timepop", Qt::DirectConnection);
                },
                Qt::DirectConnection);
        });
        while (!printsRemovals) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        stack->m_resetPending = true;
        exits = true;
        std::exit(Status);
    }
    if (how == "return") {
        return Status;
    }
    if (how == "return-with-events-pending") {
        QThread::msleep(30);
        return Status;
    }
    if (how == "exit" || how == "exit-slowly") {
        std::exit(Status);
    }
    if (how == "from-thread") {
        std::thread([] { std::exit(Status); }).join();
    }
    if (how == "from-receiver") {
        now = true;
        for (;;) {
            QThread::msleep(1000);
        }
    }
    return 4;
}
