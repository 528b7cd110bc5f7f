// The time from a request in the application's thread to the answer there, with all threads on one processor.
// SPDX-License-Identifier: Apache-2.0
#include "client.h"

#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_requests.h>

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QTcpSocket>
#include <QThread>

#include <pthread.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using CITP::citp_stack;

namespace {
constexpr int RoundTrips = 2000;
constexpr int WarmUp = 200;

/// Pins a thread of this process, and the threads that it starts, to the first processor that it may use.
void pinToOneProcessor(pthread_t thread)
{
    cpu_set_t allowed;
    pthread_getaffinity_np(thread, sizeof allowed, &allowed);
    int first = 0;
    while (first < CPU_SETSIZE - 1 && !CPU_ISSET(first, &allowed)) {
        ++first;
    }
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(first, &one);
    if (pthread_setaffinity_np(thread, sizeof one, &one) != 0) {
        throw std::runtime_error("cannot pin a thread to one processor");
    }
}

/// While it exists, the calling thread and the threads that it starts run on one processor.
class OneProcessor
{
public:
    OneProcessor()
    {
        pthread_getaffinity_np(pthread_self(), sizeof m_before, &m_before);
        pinToOneProcessor(pthread_self());
    }
    ~OneProcessor() { pthread_setaffinity_np(pthread_self(), sizeof m_before, &m_before); }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

private:
    cpu_set_t m_before;
};

CITP::Msg_MSEX_GELI request()
{
    return CITP::Msg_MSEX_GELI(0, 1, QString(), {1});
}

QByteArray requestBytes()
{
    QByteArray bytes;
    bytes >> request();
    return bytes;
}

/// Median and 99th percentile of many round trips, in seconds.
struct Times
{
    double p50;
    double p99;
};

Times measure(const std::function<void()>& roundTrip)
{
    std::vector<double> times;
    for (int count = 0; count < WarmUp + RoundTrips; ++count) {
        const double start = now();
        roundTrip();
        if (count >= WarmUp) {
            times.push_back(now() - start);
        }
    }
    std::sort(times.begin(), times.end());
    return {times[RoundTrips / 2], times[RoundTrips * 99 / 100]};
}

/// The application passes the request to a thread with a blocking socket and gets the answer back, both by a condition
/// variable.
Times measureBlockingSockets()
{
    const OneProcessor one;
    FakeServer server;
    const int descriptor = connectTo(server);
    Connection connection = server.accept();
    const Responder responder(connection);

    std::mutex mutex;
    std::condition_variable condition;
    QByteArray toSend;
    QByteArray received;
    bool stopping = false;
    std::thread worker([&] {
        std::unique_lock<std::mutex> lock(mutex);
        for (;;) {
            condition.wait(lock, [&] { return stopping || !toSend.isEmpty(); });
            if (stopping) {
                return;
            }
            const QByteArray bytes = std::exchange(toSend, {});
            lock.unlock();
            ::send(descriptor, bytes.constData(), static_cast<std::size_t>(bytes.size()), MSG_NOSIGNAL);
            char answer[4096];
            const ssize_t length = ::recv(descriptor, answer, sizeof answer, 0);
            lock.lock();
            received = QByteArray(answer, static_cast<int>(length));
            condition.notify_all();
        }
    });
    const Times times = measure([&] {
        const QByteArray bytes = requestBytes();
        std::unique_lock<std::mutex> lock(mutex);
        toSend = bytes;
        condition.notify_all();
        condition.wait(lock, [&] { return !received.isEmpty(); });
        received.clear();
    });
    {
        const std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
    }
    condition.notify_all();
    worker.join();
    ::close(descriptor);
    return times;
}

/// Processes events until @p received is set, and resets it.
void waitForAnswer(bool& received)
{
    while (!received) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    received = false;
}

/// The minimum with Qt: a queued call to the socket's thread and a queued call back.
Times measureBareQt()
{
    const OneProcessor one;
    FakeServer server;
    LoopThread thread;
    QTcpSocket* socket = nullptr;
    QObject application;
    bool received = false;
    runInThreadOf(thread.context(), [&] {
        socket = new QTcpSocket;
        QObject::connect(socket, &QTcpSocket::readyRead, socket, [&received, &application, socket] {
            const QByteArray answer = socket->readAll();
            QMetaObject::invokeMethod(
                &application, [&received, answer] { received = !answer.isEmpty(); }, Qt::QueuedConnection);
        });
        socket->connectToHost(server.host(), server.port());
    });
    Connection connection = server.accept();
    Times times = {};
    {
        const Responder responder(connection);
        times = measure([&] {
            const QByteArray bytes = requestBytes();
            QMetaObject::invokeMethod(
                socket, [socket, bytes] { socket->write(bytes); }, Qt::QueuedConnection);
            waitForAnswer(received);
        });
    }
    runInThreadOf(thread.context(), [&] { delete socket; });
    return times;
}

Times measureStack(const char* product)
{
    const OneProcessor one;
    Client& client = Client::get();
    FakeServer server;
    Connection connection = client.addServer(server, product);
    cpu_set_t before;
    pthread_t worker = {};
    runInThreadOf(client.stack(), [&] {
        worker = pthread_self();
        pthread_getaffinity_np(worker, sizeof before, &before);
        pinToOneProcessor(worker);
    });
    QObject application;
    bool received = false;
    QObject::connect(client.stack(), &citp_stack::libraryInfo, &application, [&received] { received = true; });
    Times times = {};
    {
        const Responder responder(connection);
        const QString key = server.key();
        times = measure([&] {
            client.stack()->sendMsg(key, request());
            waitForAnswer(received);
        });
    }
    client.reset();
    pthread_setaffinity_np(worker, sizeof before, &before);
    return times;
}

void registerContender(const std::string& name, const std::function<Times()>& contender)
{
    const auto run = [contender](benchmark::State& state) {
        for (auto _ : state) {
            const Times times = contender();
            state.SetIterationTime(times.p50);
            state.counters["p99_ns"] = times.p99 * 1e9;
        }
    };
    benchmark::RegisterBenchmark(("RoundTrip/" + name).c_str(), run)
        ->UseManualTime()
        ->Iterations(1)
        ->Unit(benchmark::kNanosecond);
}

/// The worker's processor time per request when an application sends a hundred requests in one batch.
void burst(benchmark::State& state)
{
    constexpr int requests = 100;
    Client& client = Client::get();
    FakeServer server;
    Connection connection = client.addServer(server, "Product");
    const QString key = server.key();
    for (auto _ : state) {
        const double start = client.workerClock().seconds();
        for (int count = 0; count < requests; ++count) {
            client.stack()->sendMsg(key, request());
        }
        for (int count = 0; count < requests; ++count) {
            connection.receive();
        }
        runInThreadOf(client.stack(), [] {});
        state.SetIterationTime((client.workerClock().seconds() - start) / requests);
    }
    connection.close();
    client.reset();
}
} // namespace

void registerRoundTrip();

void registerRoundTrip()
{
    registerContender("unpaced/blocking", measureBlockingSockets);
    registerContender("unpaced/bare_qt", measureBareQt);
    registerContender("unpaced/stack", [] { return measureStack("Product"); });
    registerContender("paced/blocking", measureBlockingSockets);
    registerContender("paced/bare_qt", measureBareQt);
    registerContender("paced/stack", [] { return measureStack("ArKaos"); });
    benchmark::RegisterBenchmark("Burst/requests/stack", burst)->UseManualTime()->Iterations(50);
}
