// A healthy server beside a hostile one, with the recommended guards: round trips, and gaps between its layer states.
// SPDX-License-Identifier: Apache-2.0
#include "client.h"

#include "wire.h"

#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_options.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using CITP::citp_options;
using CITP::citp_stack;

namespace {
constexpr int MeasuredRequests = 2000;
constexpr int MeasuredStates = 300;
constexpr auto StateInterval = std::chrono::milliseconds(33);

/// A server that announces itself again and again, and on each connection sends the same bytes as fast as it can.
class Attacker
{
public:
    explicit Attacker(const QByteArray& bytes)
        : m_thread([this, bytes] {
              FakeServer server("127.0.0.9");
              const QByteArray block = bytes.repeated(1 + 65536 / static_cast<int>(bytes.size()));
              while (!m_isDone) {
                  server.announce();
                  std::optional<Connection> connection = server.tryAccept(20);
                  while (connection && !m_isDone && connection->trySend(block)) {
                  }
                  if (connection) {
                      connection->close();
                  }
              }
          })
    {
    }
    ~Attacker()
    {
        m_isDone = true;
        // A stack that does not read is left by its reset.
        Client::get().reset();
        m_thread.join();
    }
    Attacker(const Attacker&) = delete;
    Attacker& operator=(const Attacker&) = delete;

private:
    std::atomic<bool> m_isDone{false};
    std::thread m_thread;
};

/// With the recommended guards.
class GuardedClient
{
public:
    GuardedClient()
    {
        Client::get().stack()->setOptions(citp_options::recommended());
        Client::get().reset();
    }
    ~GuardedClient()
    {
        Client::get().stack()->setOptions(citp_options());
        Client::get().reset();
    }
    GuardedClient(const GuardedClient&) = delete;
    GuardedClient& operator=(const GuardedClient&) = delete;

    citp_stack* stack() const { return Client::get().stack(); }
};

/// The median of many round trips to a healthy server, in seconds.
double roundTrip(const QByteArray& attack)
{
    const GuardedClient client;
    FakeServer server;
    Connection connection = Client::get().addServer(server, "Product");
    QSemaphore answered;
    const QMetaObject::Connection counting = QObject::connect(
        client.stack(), &citp_stack::libraryInfo, client.stack(),
        [&answered, key = server.key()](const QString& from) {
            if (from == key) {
                answered.release();
            }
        },
        Qt::DirectConnection);
    std::vector<double> times;
    {
        const Responder responder(connection);
        const auto attacker = attack.isEmpty() ? nullptr : std::make_unique<Attacker>(attack);
        for (int count = 0; count < MeasuredRequests; ++count) {
            const double start = now();
            client.stack()->sendMsg(server.key(), CITP::Msg_MSEX_GELI(0, 1, QString(), {1}));
            answered.acquire();
            times.push_back(now() - start);
        }
    }
    QObject::disconnect(counting);
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

/// The longest time between two layer states of a healthy server that sends 30 a second, in seconds.
double longestGap(const QByteArray& attack)
{
    const GuardedClient client;
    FakeServer server;
    Connection connection = Client::get().addServer(server, "Product");
    QSemaphore received;
    double last = 0;
    double longest = 0;
    const QMetaObject::Connection watching = QObject::connect(
        client.stack(), &citp_stack::layerStatus, client.stack(),
        [&, key = server.key()](const QString& from) {
            if (from == key) {
                longest = last > 0 ? std::max(longest, now() - last) : 0;
                last = now();
                received.release();
            }
        },
        Qt::DirectConnection);
    {
        const auto attacker = attack.isEmpty() ? nullptr : std::make_unique<Attacker>(attack);
        const QByteArray state = Messages::lsta();
        for (int count = 0; count < MeasuredStates; ++count) {
            connection.send(state);
            std::this_thread::sleep_for(StateInterval);
        }
        received.acquire(MeasuredStates);
    }
    QObject::disconnect(watching);
    connection.close();
    return longest;
}

void registerGuarded(const std::string& name, double (*measure)(const QByteArray&), const QByteArray& attack)
{
    benchmark::RegisterBenchmark(("Guarded/" + name).c_str(),
                                 [measure, attack](benchmark::State& state) {
                                     for (auto _ : state) {
                                         state.SetIterationTime(measure(attack));
                                     }
                                 })
        ->UseManualTime()
        ->Iterations(1)
        ->Unit(benchmark::kMicrosecond);
}
} // namespace

void registerGuardedClients();

void registerGuardedClients()
{
    const QByteArray noSize = Wire::withSize(Wire::message("XXXX", {}), 0);
    const QByteArray lie = Wire::msex(2, "ELIn", Wire::u8(1) + Wire::u16(65535));
    registerGuarded("round_trip/undisturbed", roundTrip, {});
    registerGuarded("round_trip/no_size", roundTrip, noSize);
    registerGuarded("round_trip/wrong_count", roundTrip, lie);
    registerGuarded("gap/undisturbed", longestGap, {});
    registerGuarded("gap/wrong_count", longestGap, lie);
}
