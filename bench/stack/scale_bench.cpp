// One to many servers: the time until all are up, the cost of a message and of an announcement, and the resources of
// each server.
// SPDX-License-Identifier: Apache-2.0
#include "client.h"
#include "process_figures.h"

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

/// Many servers, each with its own address.
class ServerGroup
{
public:
    explicit ServerGroup(int count)
    {
        for (int index = 0; index < count; ++index) {
            servers.push_back(std::make_unique<FakeServer>("127.1." + std::to_string(index / 200) + "." +
                                                           std::to_string(index % 200 + 1)));
        }
    }

    /// Announces all servers concurrently every second, answers each connection, and waits until all are up.
    /// @return seconds from the first announcement to the last serverUp()
    double connectAll(const QByteArray& sinf)
    {
        std::atomic<int> up{0};
        std::atomic<double> last{0};
        const QMetaObject::Connection counting =
            QObject::connect(Client::get().stack(), &citp_stack::serverUp, Client::get().stack(), [&] {
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
            throw std::runtime_error("timeout: not all servers are up");
        }
        return last - start;
    }

    std::vector<std::unique_ptr<FakeServer>> servers;
    std::vector<Connection> connections;
};

/// The worker's processor time for @p work, divided by @p count.
double workerSeconds(int count, const std::function<void()>& work)
{
    const ThreadClock clock = Client::get().workerClock();
    const double start = clock.seconds();
    work();
    return (clock.seconds() - start) / count;
}

/// The worker's processor time for each message of a stream.
double streamedMessage(Connection& connection)
{
    const QByteArray message = Messages::lsta();
    QByteArray chunk;
    for (int count = 0; count < 2000; ++count) {
        chunk += message;
    }
    constexpr int chunks = 10;
    EndOfFlood end(Client::get().stack());
    return workerSeconds(2000 * chunks, [&] {
        for (int count = 0; count < chunks; ++count) {
            connection.send(chunk);
        }
        connection.send(Messages::end());
        end.wait();
    });
}

/// The worker's processor time for a single message, from each server in turn, with the wake-up included.
double singleMessage(ServerGroup& group)
{
    constexpr int messages = 1000;
    EndOfFlood end(Client::get().stack());
    return workerSeconds(messages, [&] {
        for (int count = 0; count < messages; ++count) {
            group.connections[static_cast<std::size_t>(count) % group.connections.size()].send(Messages::end());
            end.wait();
        }
    });
}

/// The same for sockets that only read, without the stack: the cost of Qt's event loop with so many sockets.
double singleMessageToBareSockets(int count)
{
    constexpr int messages = 1000;
    FakeServer server;
    LoopThread thread;
    QSemaphore received;
    std::vector<QTcpSocket*> sockets;
    std::vector<Connection> connections;
    connections.reserve(static_cast<std::size_t>(count));
    for (int index = 0; index < count; ++index) {
        runInThreadOf(thread.context(), [&] {
            QTcpSocket* const socket = new QTcpSocket;
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [socket, &received] {
                socket->readAll();
                received.release();
            });
            socket->connectToHost(server.host(), server.port());
            sockets.push_back(socket);
        });
        connections.push_back(server.accept());
    }
    const double start = thread.clock().seconds();
    for (int index = 0; index < messages; ++index) {
        connections[static_cast<std::size_t>(index % count)].send(Messages::end());
        received.acquire();
    }
    const double cost = (thread.clock().seconds() - start) / messages;
    runInThreadOf(thread.context(), [&] { qDeleteAll(sockets); });
    connections.clear();
    closeLeftovers();
    return cost;
}

double repeatedAnnouncement(const ServerGroup& group)
{
    constexpr int announcements = 1000;
    return workerSeconds(announcements, [&] {
        for (int count = 0; count < announcements; ++count) {
            group.servers[static_cast<std::size_t>(count) % group.servers.size()]->announce();
            if (count % 50 == 49) {
                std::this_thread::sleep_for(std::chrono::milliseconds(2)); // the socket's receive buffer is small
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    });
}

/// Seconds of the worker's processor time in an idle minute.
double idleMinute()
{
    constexpr int seconds = 4;
    return workerSeconds(1, [=] { std::this_thread::sleep_for(std::chrono::seconds(seconds)); }) * 60 / seconds;
}

void scale(benchmark::State& state, int count)
{
    for (auto _ : state) {
        Client& client = Client::get();
        ServerGroup group(count);
        group.connections.reserve(group.servers.size());
        const QByteArray sinf = Messages::sinf();
        const ProcessFigures before = ProcessFigures::now();
        const double connectSeconds = group.connectAll(sinf);
        const ProcessFigures after = ProcessFigures::now();
        state.SetIterationTime(connectSeconds);
        state.counters["streamed_ns"] = streamedMessage(group.connections.front()) * 1e9;
        state.counters["lone_ns"] = singleMessage(group) * 1e9;
        state.counters["ploc_ns"] = repeatedAnnouncement(group) * 1e9;
        state.counters["heap_bytes"] = static_cast<double>(after.heapKiB - before.heapKiB) * 1024 / count;
        // One descriptor of each connection belongs to the FakeServer.
        state.counters["descriptors"] = static_cast<double>(after.descriptors - before.descriptors) / count - 1;
        state.counters["idle_ms_a_minute"] = idleMinute() * 1e3;
        group.connections.clear();
        client.reset();
    }
}

/// The server key of a connection on each readyRead: built from the socket's peer, or looked up by socket in a hash
/// like the stack's.
void key(benchmark::State& state, bool built)
{
    Client& client = Client::get();
    FakeServer server;
    Connection connection = client.addServer(server, "Product");
    runInThreadOf(client.stack(), [&] {
        QHash<const QObject*, citp_stack::SERV_ID> keys;
        for (const auto& [key, info] : client.stack()->m_servers.toStdMap()) {
            keys.insert(info->m_socket, key);
        }
        QTcpSocket* const socket = client.stack()->m_servers.value(server.key())->m_socket;
        for (auto _ : state) {
            benchmark::DoNotOptimize(built ? citp_stack::buildServerKey(socket) : keys.value(socket));
        }
    });
    connection.close();
    client.reset();
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
                                             state.SetIterationTime(singleMessageToBareSockets(count));
                                         }
                                     })
            ->UseManualTime()
            ->Iterations(1);
    }
    benchmark::RegisterBenchmark("Key/readyRead/made", [](benchmark::State& state) { key(state, true); });
    benchmark::RegisterBenchmark("Key/readyRead/kept", [](benchmark::State& state) { key(state, false); });
}
