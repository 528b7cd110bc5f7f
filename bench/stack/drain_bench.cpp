// A peer that floods one connection: the cost of a message, from a bare recv() to the whole stack.
// SPDX-License-Identifier: Apache-2.0
#include "baselines.h"
#include "client.h"

#include <benchmark/benchmark.h>

#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using CITP::citp_stack;

namespace {
constexpr int FloodBytes = 20 * 1024 * 1024;
constexpr int ChunkBytes = 1024 * 1024;

/// The bytes of a flood, sent in large chunks to keep the peer's own cost low.
struct Flood
{
    explicit Flood(const QByteArray& message)
    {
        const int perChunk = ChunkBytes / static_cast<int>(message.size()) + 1;
        for (int count = 0; count < perChunk; ++count) {
            chunk += message;
        }
        chunks = FloodBytes / static_cast<int>(chunk.size()) + 1;
        messages = chunks * perChunk;
        bytes = static_cast<qint64>(chunks) * chunk.size();
    }

    QByteArray chunk;
    int chunks;
    int messages;
    qint64 bytes;
};

/// Seconds per message.
struct Cost
{
    double wall = 0;
    double reader = 0;   ///< processor time of the thread that reads the socket
    double receiver = 0; ///< processor time of the thread that receives the signals
};

/// Sends @p flood and then @p end, calls @p wait to wait for the reader, and reads the clocks before and after.
Cost measure(Connection& connection, const Flood& flood, const QByteArray& end, ThreadClock reader,
             const ThreadClock* receiver, const std::function<void()>& wait)
{
    const double readerStart = reader.seconds();
    const double receiverStart = receiver ? receiver->seconds() : 0;
    const double start = now();
    std::thread peer([&] {
        for (int count = 0; count < flood.chunks; ++count) {
            connection.send(flood.chunk);
        }
        connection.send(end);
    });
    wait();
    const double wall = now() - start;
    peer.join();
    Cost cost;
    cost.wall = wall / flood.messages;
    cost.reader = (reader.seconds() - readerStart) / flood.messages;
    cost.receiver = receiver ? (receiver->seconds() - receiverStart) / flood.messages : 0;
    return cost;
}

Cost drainByRecv(const QByteArray& message)
{
    const Flood flood(message);
    FakeServer server;
    const int descriptor = connectTo(server);
    Connection connection = server.accept();

    QSemaphore ready;
    QSemaphore done;
    QSemaphore measured;
    ThreadClock clock;
    std::thread reader([&] {
        clock = ThreadClock::ofCurrentThread();
        ready.release();
        std::vector<char> buffer(65536);
        for (qint64 remaining = flood.bytes; remaining > 0;) {
            const ssize_t bytes = ::recv(descriptor, buffer.data(), buffer.size(), 0);
            if (bytes <= 0) {
                break;
            }
            remaining -= bytes;
        }
        done.release();
        measured.acquire();
    });
    ready.acquire();
    const Cost cost = measure(connection, flood, {}, clock, nullptr, [&] { done.acquire(); });
    measured.release();
    reader.join();
    ::close(descriptor);
    connection.close();
    return cost;
}

/// @p Baseline is the class of the reading socket. @p listen connects its signals to an object of another thread.
template <typename Baseline>
Cost drainByBaseline(const QByteArray& message,
                     const std::function<void(Baseline*, QObject*, QSemaphore*, int)>& listen = {})
{
    const Flood flood(message);
    FakeServer server;
    LoopThread reader;
    LoopThread receiver;
    QSemaphore done;
    Baseline* baseline = nullptr;
    runInThreadOf(reader.context(), [&] {
        baseline = new Baseline;
        baseline->expect(flood.bytes, &done);
        baseline->connectToHost(server.host(), server.port());
    });
    Connection connection = server.accept();
    if (listen) {
        listen(baseline, receiver.context(), &done, flood.messages);
    }
    const ThreadClock receiverClock = receiver.clock();
    const Cost cost = measure(connection, flood, {}, reader.clock(), listen ? &receiverClock : nullptr,
                              [&] { done.acquire(listen ? 2 : 1); });
    runInThreadOf(reader.context(), [&] { delete baseline; });
    connection.close();
    return cost;
}

void connectBaseline(NaiveStack* baseline, QObject* receiver, QSemaphore* done, int messages)
{
    const auto countMessage = [done, remaining = messages]() mutable {
        if (--remaining == 0) {
            done->release();
        }
    };
    QObject::connect(baseline, &NaiveStack::layerStatus, receiver, countMessage);
    QObject::connect(baseline, &NaiveStack::elementThumbnail, receiver, countMessage);
}

/// With @p listen, a receiver in another thread is connected to the signals.
Cost drainByStack(const QByteArray& message, bool listen)
{
    const Flood flood(message);
    Client& client = Client::get();
    FakeServer server;
    Connection connection = client.addServer(server, "Product");
    LoopThread receiver;
    long taken = 0;
    if (listen) {
        QObject::connect(client.stack(), &citp_stack::layerStatus, receiver.context(), [&taken] { ++taken; });
        QObject::connect(client.stack(), &citp_stack::elementThumbnail, receiver.context(), [&taken] { ++taken; });
    }
    Cost cost;
    {
        EndOfFlood end(listen ? receiver.context() : client.stack());
        const ThreadClock receiverClock = receiver.clock();
        cost = measure(connection, flood, Messages::end(), client.workerClock(), listen ? &receiverClock : nullptr,
                       [&] { end.wait(); });
    }
    connection.close();
    client.reset();
    if (listen && taken != flood.messages) {
        throw std::runtime_error("messages were lost");
    }
    return cost;
}

using Contender = std::function<Cost()>;

/// A benchmark of wall clock time, with the processor times of the two threads as counters.
void registerContender(const std::string& load, const std::string& name, const Contender& contender)
{
    const auto run = [contender](benchmark::State& state) {
        for (auto _ : state) {
            const Cost cost = contender();
            state.SetIterationTime(cost.wall);
            state.counters["reader_ns"] = cost.reader * 1e9;
            state.counters["receiver_ns"] = cost.receiver * 1e9;
        }
    };
    benchmark::RegisterBenchmark(("Drain/" + load + "/" + name).c_str(), run)
        ->UseManualTime()
        ->Iterations(1)
        ->Unit(benchmark::kNanosecond);
}

void registerLoad(const std::string& load, const QByteArray& message)
{
    registerContender(load, "recv", [message] { return drainByRecv(message); });
    registerContender(load, "socket", [message] { return drainByBaseline<BareSocket>(message); });
    registerContender(load, "plain_framing", [message] { return drainByBaseline<PlainFraming>(message); });
    registerContender(load, "parse", [message] { return drainByStack(message, false); });
    registerContender(load, "obvious", [message] { return drainByBaseline<NaiveStack>(message, connectBaseline); });
    registerContender(load, "whole", [message] { return drainByStack(message, true); });
}
} // namespace

void registerDrain()
{
    registerLoad("LSta500", Messages::lsta());
    registerContender("LSta500", "framing", [] { return drainByStack(Messages::pnam(), false); });
    registerLoad("EThn30K", Messages::ethn());
}
