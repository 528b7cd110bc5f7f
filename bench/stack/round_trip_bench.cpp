// From a request in the application's thread to the answer there, all on one processor.
// SPDX-License-Identifier: Apache-2.0
#include "seat.h"

#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_requests.h>

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QTcpSocket>
#include <QThread>

#include <arpa/inet.h>
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

/// Keeps a thread of this process, and those that it starts, on the first processor that it may use.
void keepOnOneProcessor(pthread_t thread)
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
        throw std::runtime_error("a thread cannot be kept on one processor");
    }
}

/// While it lives, the calling thread and those that it starts run on one processor.
class OneProcessor
{
public:
    OneProcessor()
    {
        pthread_getaffinity_np(pthread_self(), sizeof m_before, &m_before);
        keepOnOneProcessor(pthread_self());
    }
    ~OneProcessor() { pthread_setaffinity_np(pthread_self(), sizeof m_before, &m_before); }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

private:
    cpu_set_t m_before;
};

/// Answers each message of the console with an ELIn, until the connection ends.
class Responder
{
public:
    explicit Responder(Connection& connection)
        : m_connection(connection), m_thread([this] {
              const QByteArray answer = Messages::elin();
              for (char request[4096]; ::recv(m_connection.descriptor(), request, sizeof request, 0) > 0;) {
                  m_connection.trySend(answer);
              }
          })
    {
    }
    ~Responder()
    {
        ::shutdown(m_connection.descriptor(), SHUT_RDWR);
        m_thread.join();
        m_connection.close();
    }
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;

private:
    Connection& m_connection;
    std::thread m_thread;
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

/// The middle and the 99th hundredth of many round trips, in seconds.
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

/// The application hands the request to a thread with a blocking socket and gets the answer from it, each time by a
/// condition variable.
Times byBlockingSockets()
{
    const OneProcessor one;
    FakeServer server;
    const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(server.port());
    inet_pton(AF_INET, server.host().toLatin1().constData(), &address.sin_addr);
    ::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    Connection connection = server.accept();
    const Responder responder(connection);

    std::mutex mutex;
    std::condition_variable changed;
    QByteArray toSend;
    QByteArray received;
    bool ends = false;
    std::thread worker([&] {
        std::unique_lock<std::mutex> lock(mutex);
        for (;;) {
            changed.wait(lock, [&] { return ends || !toSend.isEmpty(); });
            if (ends) {
                return;
            }
            const QByteArray bytes = std::exchange(toSend, {});
            lock.unlock();
            ::send(descriptor, bytes.constData(), static_cast<std::size_t>(bytes.size()), MSG_NOSIGNAL);
            char answer[4096];
            const ssize_t length = ::recv(descriptor, answer, sizeof answer, 0);
            lock.lock();
            received = QByteArray(answer, static_cast<int>(length));
            changed.notify_all();
        }
    });
    const Times times = measure([&] {
        const QByteArray bytes = requestBytes();
        std::unique_lock<std::mutex> lock(mutex);
        toSend = bytes;
        changed.notify_all();
        changed.wait(lock, [&] { return !received.isEmpty(); });
        received.clear();
    });
    {
        const std::lock_guard<std::mutex> lock(mutex);
        ends = true;
    }
    changed.notify_all();
    worker.join();
    ::close(descriptor);
    return times;
}

/// Runs the application's events until @p seen holds, and takes it back.
void waitForAnswer(bool& seen)
{
    while (!seen) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    seen = false;
}

/// The least that is done with Qt: a queued call to the thread of the socket, a queued call back.
Times byBareQt()
{
    const OneProcessor one;
    FakeServer server;
    LoopThread thread;
    QTcpSocket* socket = nullptr;
    QObject application;
    bool seen = false;
    runOn(thread.place(), [&] {
        socket = new QTcpSocket;
        QObject::connect(socket, &QTcpSocket::readyRead, socket, [&seen, &application, socket] {
            const QByteArray answer = socket->readAll();
            QMetaObject::invokeMethod(
                &application, [&seen, answer] { seen = !answer.isEmpty(); }, Qt::QueuedConnection);
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
            waitForAnswer(seen);
        });
    }
    runOn(thread.place(), [&] { delete socket; });
    return times;
}

Times byStack(const char* product)
{
    const OneProcessor one;
    Seat& seat = Seat::get();
    FakeServer server;
    Connection connection = seat.admit(server, product);
    cpu_set_t before;
    pthread_t worker = {};
    runOn(seat.stack(), [&] {
        worker = pthread_self();
        pthread_getaffinity_np(worker, sizeof before, &before);
        keepOnOneProcessor(worker);
    });
    QObject application;
    bool seen = false;
    QObject::connect(seat.stack(), &citp_stack::libraryInfo, &application, [&seen] { seen = true; });
    Times times = {};
    {
        const Responder responder(connection);
        const QString key = server.key();
        times = measure([&] {
            seat.stack()->sendMsg(key, request());
            waitForAnswer(seen);
        });
    }
    seat.clear();
    pthread_setaffinity_np(worker, sizeof before, &before);
    return times;
}

void contend(const std::string& name, const std::function<Times()>& contender)
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

/// What the worker and the wire cost when an application asks for a hundred things at once.
void burst(benchmark::State& state)
{
    constexpr int requests = 100;
    Seat& seat = Seat::get();
    FakeServer server;
    Connection connection = seat.admit(server, "Product");
    const QString key = server.key();
    for (auto _ : state) {
        const double start = seat.workerClock().seconds();
        for (int count = 0; count < requests; ++count) {
            seat.stack()->sendMsg(key, request());
        }
        for (int count = 0; count < requests; ++count) {
            connection.receive();
        }
        runOn(seat.stack(), [] {});
        state.SetIterationTime((seat.workerClock().seconds() - start) / requests);
    }
    connection.close();
    seat.clear();
}
} // namespace

void registerRoundTrip();

void registerRoundTrip()
{
    contend("unpaced/blocking", byBlockingSockets);
    contend("unpaced/bare_qt", byBareQt);
    contend("unpaced/stack", [] { return byStack("Product"); });
    contend("paced/blocking", byBlockingSockets);
    contend("paced/bare_qt", byBareQt);
    contend("paced/stack", [] { return byStack("ArKaos"); });
    benchmark::RegisterBenchmark("Burst/requests/stack", burst)->UseManualTime()->Iterations(50);
}
