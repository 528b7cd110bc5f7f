// Mode endless: a console application whose stack is kept busy for ever by a stream header with size 0. It prints a
// line "X" once the line about it has been logged a thousand times; with an argument it then ends by itself with
// status 7. The argument "exit-at-rest" makes that 8 if the line is still being logged once the application object is
// gone.
//
// SPDX-License-Identifier: Apache-2.0
#include "modes.h"

#include <citp/citp_stack.h>
#include <citp_system/artnet_adapter.h>
#include <citp_system/os_log.h>

#include <QCoreApplication>
#include <QThread>

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {
std::atomic<int> seen{0};

class Counter : public Os::Log::Sink
{
    void Write(const Os::Log::Line& line) override
    {
        if (std::strcmp(line.text.c_str(), "invalid size for CITP") == 0) {
            ++seen;
        }
    }
};

/// To be made before the application object, and so destroyed after it: then nothing may be at work any more.
class RestCheck
{
public:
    ~RestCheck()
    {
        const int before = seen;
        QThread::msleep(100); // a thread that does not rest logs thousands of lines meanwhile
        if (seen != before) {
            _exit(8);
        }
    }
};
} // namespace

int endlessChild(const std::string& how)
{
    skipLeakSearch(); // the stack leaves the records of its servers as they are, on purpose
    std::unique_ptr<RestCheck> check;
    if (how == "exit-at-rest") {
        check = std::make_unique<RestCheck>();
    }
    static Counter* const counter = new Counter;
    Os::Log::SetSink(counter);
    ArtNet::Adapter::Choose("lo");
    int count = 1;
    char name[] = "endless";
    char* arguments[] = {name, nullptr};
    QCoreApplication application(count, arguments);
    CITP::citp_stack* const stack = CITP::citp_stack::Get();
    stack->setEnabled(true);
    QMetaObject::invokeMethod(stack, "timepop", Qt::BlockingQueuedConnection);
    while (seen < 1000) {
        QThread::msleep(1);
    }
    if (write(STDOUT_FILENO, "X\n", 2) != 2) {
        return 2;
    }
    if (!how.empty()) {
        return 7;
    }
    for (;;) {
        QThread::msleep(1000);
    }
}
