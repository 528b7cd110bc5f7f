// A peer that floods one connection: what a message costs, from a bare recv() to the whole stack.
// SPDX-License-Identifier: Apache-2.0
#include "rivals.h"
#include "seat.h"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
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
constexpr int WriteBytes = 1024 * 1024;

/// The stream of one flood, kept in large pieces so that the peer costs as little as it can.
struct Flood
{
    explicit Flood(const QByteArray& message)
    {
        const int inPiece = WriteBytes / static_cast<int>(message.size()) + 1;
        for (int count = 0; count < inPiece; ++count) {
            piece += message;
        }
        pieces = FloodBytes / static_cast<int>(piece.size()) + 1;
        messages = pieces * inPiece;
        bytes = static_cast<qint64>(pieces) * piece.size();
    }

    QByteArray piece;
    int pieces;
    int messages;
    qint64 bytes;
};

/// Seconds a message.
struct Cost
{
    double wall = 0;
    double reader = 0;   ///< processor time of the thread that reads the socket
    double receiver = 0; ///< and of the one that is told of the messages
};

/// Sends @p flood and, as the last thing, @p end; waits with @p wait; takes the clocks.
Cost measure(Connection& connection, const Flood& flood, const QByteArray& end, ThreadClock reader,
             const ThreadClock* receiver, const std::function<void()>& wait)
{
    const double readerStart = reader.seconds();
    const double receiverStart = receiver ? receiver->seconds() : 0;
    const double start = now();
    std::thread peer([&] {
        for (int count = 0; count < flood.pieces; ++count) {
            connection.send(flood.piece);
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
    const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(server.port());
    inet_pton(AF_INET, server.host().toLatin1().constData(), &address.sin_addr);
    ::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    Connection connection = server.accept();

    QSemaphore ready;
    QSemaphore done;
    QSemaphore measured;
    ThreadClock clock;
    std::thread reader([&] {
        clock = ThreadClock::ofThisThread();
        ready.release();
        std::vector<char> buffer(65536);
        for (qint64 missing = flood.bytes; missing > 0;) {
            const ssize_t bytes = ::recv(descriptor, buffer.data(), buffer.size(), 0);
            if (bytes <= 0) {
                break;
            }
            missing -= bytes;
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

/// @p Rival is the socket that reads. @p listen connects its signals, with an object on the receiving thread.
template <typename Rival>
Cost drainByRival(const QByteArray& message, const std::function<void(Rival*, QObject*, QSemaphore*, int)>& listen = {})
{
    const Flood flood(message);
    FakeServer server;
    LoopThread reader;
    LoopThread receiver;
    QSemaphore done;
    Rival* rival = nullptr;
    runOn(reader.place(), [&] {
        rival = new Rival;
        rival->expect(flood.bytes, &done);
        rival->connectToHost(server.host(), server.port());
    });
    Connection connection = server.accept();
    if (listen) {
        listen(rival, receiver.place(), &done, flood.messages);
    }
    const ThreadClock receiverClock = receiver.clock();
    const Cost cost = measure(connection, flood, {}, reader.clock(), listen ? &receiverClock : nullptr,
                              [&] { done.acquire(listen ? 2 : 1); });
    runOn(reader.place(), [&] { delete rival; });
    connection.close();
    return cost;
}

void listenToRival(ObviousStack* rival, QObject* receiver, QSemaphore* done, int messages)
{
    const auto take = [done, missing = messages]() mutable {
        if (--missing == 0) {
            done->release();
        }
    };
    QObject::connect(rival, &ObviousStack::layerStatus, receiver, take);
    QObject::connect(rival, &ObviousStack::elementThumbnail, receiver, take);
}

/// With @p listen, a receiver in another thread is told of each message; without it, none is.
Cost drainByStack(const QByteArray& message, bool listen)
{
    const Flood flood(message);
    Seat& seat = Seat::get();
    FakeServer server;
    Connection connection = seat.admit(server, "Product");
    LoopThread receiver;
    long taken = 0;
    if (listen) {
        QObject::connect(seat.stack(), &citp_stack::layerStatus, receiver.place(), [&taken] { ++taken; });
        QObject::connect(seat.stack(), &citp_stack::elementThumbnail, receiver.place(), [&taken] { ++taken; });
    }
    Cost cost;
    {
        EndOfFlood end(listen ? receiver.place() : seat.stack());
        const ThreadClock receiverClock = receiver.clock();
        cost = measure(connection, flood, Messages::end(), seat.workerClock(), listen ? &receiverClock : nullptr,
                       [&] { end.wait(); });
    }
    connection.close();
    seat.clear();
    if (listen && taken != flood.messages) {
        throw std::runtime_error("messages were lost");
    }
    return cost;
}

using Contender = std::function<Cost()>;

/// A benchmark whose time is that on the wall; its counters are the processor times of the two threads.
void contend(const std::string& load, const std::string& name, const Contender& contender)
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
    contend(load, "recv", [message] { return drainByRecv(message); });
    contend(load, "socket", [message] { return drainByRival<BareSocket>(message); });
    contend(load, "plain_framing", [message] { return drainByRival<PlainFraming>(message); });
    contend(load, "parse", [message] { return drainByStack(message, false); });
    contend(load, "obvious", [message] { return drainByRival<ObviousStack>(message, listenToRival); });
    contend(load, "whole", [message] { return drainByStack(message, true); });
}
} // namespace

void registerDrain()
{
    registerLoad("LSta500", Messages::lsta());
    contend("LSta500", "framing", [] { return drainByStack(Messages::pnam(), false); });
    registerLoad("EThn30K", Messages::ethn());
}
