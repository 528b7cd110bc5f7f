// A console application whose stack is kept busy for ever by a stream header with size 0. It prints one "X" once the
// line about it has been logged a thousand times; with the argument "exit" it then ends by itself with status 7.
#include <citp/citp_stack.h>
#include <citp_system/artnet_adapter.h>
#include <citp_system/os_log.h>

#include <QCoreApplication>
#include <QThread>

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

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
} // namespace

int main(int argc, char** argv)
{
    static Counter* const counter = new Counter;
    Os::Log::SetSink(counter);
    ArtNet::Adapter::Choose("lo");
    QCoreApplication application(argc, argv);
    CITP::citp_stack* const stack = CITP::citp_stack::Get();
    stack->setEnabled(true);
    QMetaObject::invokeMethod(stack, "timepop", Qt::BlockingQueuedConnection);
    while (seen < 1000) {
        QThread::msleep(1);
    }
    if (write(STDOUT_FILENO, "X", 1) != 1) {
        return 2;
    }
    if (argc > 1) {
        return 7;
    }
    for (;;) {
        QThread::msleep(1000);
    }
}
