// One server to many: the time until all are there, what a message and an announcement cost, and what each server
// holds.
// SPDX-License-Identifier: Apache-2.0
#include "process_figures.h"
#include "seat.h"

#include <benchmark/benchmark.h>

#include <QHash>
#include <QTcpSocket>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using CITP::citp_stack;

namespace {
constexpr int AnnouncementInterval = 1000; // ms

/// Many servers, each with an address of its own, as the network has them.
class Crowd
{
public:
    explicit Crowd(int count)
    {
        for (int index = 0; index < count; ++index) {
            servers.push_back(std::make_unique<FakeServer>("127.1." + std::to_string(index / 200) + "." +
                                                           std::to_string(index % 200 + 1)));
        }
    }

    /// Announces all at once and then once a second, answers each connection, and waits until all are announced to the
    /// application. @return seconds from the first announcement to the last serverUp()
    double join(const QByteArray& sinf)
    {
        std::atomic<int> up{0};
        std::atomic<double> last{0};
        const QMetaObject::Connection counting =
            QObject::connect(Seat::get().stack(), &citp_stack::serverUp, Seat::get().stack(), [&] {
                last = now();
                ++up;
            });
        const double start = now();
        double announced = 0;
        const int count = static_cast<int>(servers.size());
        std::vector<bool> connected(servers.size(), false);
        connections.reserve(servers.size());
        while (up < count && now() - start < TestTimeout / 1000.0) {
            if (now() - announced > AnnouncementInterval / 1000.0) {
                announced = now();
                for (const auto& server : servers) {
                    server->announce();
                }
            }
            for (std::size_t index = 0; index < servers.size(); ++index) {
                if (connected[index]) {
                    continue;
                }
                if (std::optional<Connection> connection = servers[index]->tryAccept(0)) {
                    connection->send(sinf);
                    connections.push_back(std::move(*connection));
                    connected[index] = true;
                }
            }
            if (connections.size() == servers.size()) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
        QObject::disconnect(counting);
        if (up < count) {
            throw std::runtime_error("not all servers are announced");
        }
        return last - start;
    }

    std::vector<std::unique_ptr<FakeServer>> servers;
    std::vector<Connection> connections;
};

/// Processor time of the worker for one thing, of which @p work makes it do @p count.
double workerSeconds(int count, const std::function<void()>& work)
{
    const ThreadClock clock = Seat::get().workerClock();
    const double start = clock.seconds();
    work();
    return (clock.seconds() - start) / count;
}

/// What the worker spends on a message of a stream to one of the connections.
double streamedMessage(Connection& connection)
{
    const QByteArray message = Messages::lsta();
    QByteArray piece;
    for (int count = 0; count < 2000; ++count) {
        piece += message;
    }
    constexpr int pieces = 10;
    EndOfFlood end(Seat::get().stack());
    return workerSeconds(2000 * pieces, [&] {
        for (int count = 0; count < pieces; ++count) {
            connection.send(piece);
        }
        connection.send(Messages::end());
        end.wait();
    });
}

/// And on one that comes alone, one server after the other: waking up included.
double loneMessage(Crowd& crowd)
{
    constexpr int messages = 1000;
    EndOfFlood end(Seat::get().stack());
    return workerSeconds(messages, [&] {
        for (int count = 0; count < messages; ++count) {
            crowd.connections[static_cast<std::size_t>(count) % crowd.connections.size()].send(Messages::end());
            end.wait();
        }
    });
}

/// The same for sockets that only read, without the stack: what Qt's event loop makes of so many.
double loneMessageToBareSockets(int count)
{
    constexpr int messages = 1000;
    FakeServer server;
    LoopThread thread;
    QSemaphore seen;
    std::vector<QTcpSocket*> sockets;
    std::vector<Connection> connections;
    connections.reserve(static_cast<std::size_t>(count));
    for (int index = 0; index < count; ++index) {
        runOn(thread.place(), [&] {
            QTcpSocket* const socket = new QTcpSocket;
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [socket, &seen] {
                socket->readAll();
                seen.release();
            });
            socket->connectToHost(server.host(), server.port());
            sockets.push_back(socket);
        });
        connections.push_back(server.accept());
    }
    const double start = thread.clock().seconds();
    for (int index = 0; index < messages; ++index) {
        connections[static_cast<std::size_t>(index % count)].send(Messages::end());
        seen.acquire();
    }
    const double cost = (thread.clock().seconds() - start) / messages;
    runOn(thread.place(), [&] { qDeleteAll(sockets); });
    connections.clear();
    closeLeftovers();
    return cost;
}

double repeatedAnnouncement(const Crowd& crowd)
{
    constexpr int announcements = 1000;
    return workerSeconds(announcements, [&] {
        for (int count = 0; count < announcements; ++count) {
            crowd.servers[static_cast<std::size_t>(count) % crowd.servers.size()]->announce();
            if (count % 50 == 49) {
                std::this_thread::sleep_for(std::chrono::milliseconds(2)); // the socket's buffer holds few
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    });
}

/// Seconds of the worker's processor time in a minute in which nothing comes.
double idleMinute()
{
    constexpr int seconds = 4;
    return workerSeconds(1, [=] { std::this_thread::sleep_for(std::chrono::seconds(seconds)); }) * 60 / seconds;
}

void scale(benchmark::State& state, int count)
{
    for (auto _ : state) {
        Seat& seat = Seat::get();
        Crowd crowd(count);
        crowd.connections.reserve(crowd.servers.size());
        const QByteArray sinf = Messages::sinf();
        const ProcessFigures before = ProcessFigures::now();
        const double joined = crowd.join(sinf);
        const ProcessFigures after = ProcessFigures::now();
        state.SetIterationTime(joined);
        state.counters["streamed_ns"] = streamedMessage(crowd.connections.front()) * 1e9;
        state.counters["lone_ns"] = loneMessage(crowd) * 1e9;
        state.counters["ploc_ns"] = repeatedAnnouncement(crowd) * 1e9;
        state.counters["heap_bytes"] = static_cast<double>(after.heapKiB - before.heapKiB) * 1024 / count;
        // One of them is the server's own end.
        state.counters["descriptors"] = static_cast<double>(after.descriptors - before.descriptors) / count - 1;
        state.counters["idle_ms_a_minute"] = idleMinute() * 1e3;
        crowd.connections.clear();
        seat.clear();
    }
}

/// The registry key of a connection on each readyRead: made of the socket's peer, or kept in the record that a table
/// like the stack's has under the socket.
void key(benchmark::State& state, bool made)
{
    Seat& seat = Seat::get();
    FakeServer server;
    Connection connection = seat.admit(server, "Product");
    runOn(seat.stack(), [&] {
        QHash<const QObject*, citp_stack::SERV_ID> keys;
        for (const auto& [key, info] : seat.stack()->m_servers.toStdMap()) {
            keys.insert(info->m_socket, key);
        }
        QTcpSocket* const socket = seat.stack()->m_servers.value(server.key())->m_socket;
        for (auto _ : state) {
            benchmark::DoNotOptimize(made ? citp_stack::buildServerKey(socket) : keys.value(socket));
        }
    });
    connection.close();
    seat.clear();
}
} // namespace

void registerScale();

void registerScale()
{
    for (const int count : {1, 10, 100, 500}) {
        const std::string name = std::to_string(count);
        benchmark::RegisterBenchmark(("Scale/servers/" + name).c_str(),
                                     [count](benchmark::State& state) { scale(state, count); })
            ->UseManualTime()
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("Scale/sockets/" + name).c_str(),
                                     [count](benchmark::State& state) {
                                         for (auto _ : state) {
                                             state.SetIterationTime(loneMessageToBareSockets(count));
                                         }
                                     })
            ->UseManualTime()
            ->Iterations(1);
    }
    benchmark::RegisterBenchmark("Key/readyRead/made", [](benchmark::State& state) { key(state, true); });
    benchmark::RegisterBenchmark("Key/readyRead/kept", [](benchmark::State& state) { key(state, false); });
}
