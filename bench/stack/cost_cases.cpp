// The instructions of the stack for a message, without guards and with the recommended ones. Everything runs on the
// stack's thread, one step after the other, so that the counts repeat.
// SPDX-License-Identifier: Apache-2.0
#include "cost_cases.h"
#include "client.h"

#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_options.h>
#include <valgrind/callgrind.h>

#include <QCoreApplication>

#include <cstdio>
#include <stdexcept>
#include <string>

using CITP::citp_options;
using CITP::citp_stack;

namespace {
constexpr int Rounds = 20;
constexpr int BlockBytes = 50000; // fits into the kernel's buffers and into one turn

/// Calls @p round a few times for callgrind, which sums them up under @p name.
void count(const std::string& name, const std::function<void()>& round)
{
    constexpr int warmUps = 3;
    for (int warmUp = 0; warmUp < warmUps; ++warmUp) {
        round();
    }
    // Callgrind books what the functions that are running cost before with the first dump of a thread.
    CALLGRIND_DUMP_STATS;
    CALLGRIND_ZERO_STATS;
    for (int counted = 0; counted < Rounds; ++counted) {
        round();
    }
    CALLGRIND_DUMP_STATS_AT(name.c_str());
}

/// Processes the events of the stack's thread, which is the calling one, until @p done is set, and resets it.
void processUntil(bool& done)
{
    while (!done) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    done = false;
}

/// A server whose messages and requests are counted.
class CountedServer
{
public:
    CountedServer(const char* product, std::string contender)
        : m_stack(Client::get().stack()),
          m_contender(std::move(contender)),
          m_connection(Client::get().addServer(m_server, product))
    {
    }
    ~CountedServer()
    {
        m_connection.close();
        Client::get().reset();
    }
    CountedServer(const CountedServer&) = delete;
    CountedServer& operator=(const CountedServer&) = delete;

    /// Counts the reading of a block of equal messages. With @p isQueued a receiver gets them through an event queue.
    void read(const std::string& name, const QByteArray& message, bool isQueued = false)
    {
        const QByteArray block = message.repeated(BlockBytes / static_cast<int>(message.size()) + 1) + Messages::end();
        run([&] {
            QObject receiver;
            bool done = false;
            const Qt::ConnectionType type = isQueued ? Qt::QueuedConnection : Qt::DirectConnection;
            QObject::connect(
                m_stack, &citp_stack::libraryUpdated, &receiver, [&done] { done = true; }, type);
            if (isQueued) {
                QObject::connect(
                    m_stack, &citp_stack::layerStatus, &receiver, [] {}, type);
            }
            count("Cost/" + name + '/' + m_contender, [&] {
                m_connection.send(block);
                processUntil(done);
            });
        });
    }

    /// Counts requests whose answers are not awaited.
    void send(const std::string& name)
    {
        constexpr int requests = 100;
        run([&] {
            count("Cost/" + name + '/' + m_contender, [&] {
                for (int sent = 0; sent < requests; ++sent) {
                    m_stack->sendMsg(m_server.key(), request());
                }
                for (int received = 0; received < requests; ++received) {
                    QCoreApplication::processEvents();
                    m_connection.receive();
                }
            });
        });
    }

    /// Counts requests that are answered one by one.
    void roundTrip(const std::string& name)
    {
        constexpr int requests = 50;
        const QByteArray answer = Messages::elin();
        run([&] {
            QObject receiver;
            bool done = false;
            QObject::connect(
                m_stack, &citp_stack::libraryInfo, &receiver, [&done] { done = true; }, Qt::QueuedConnection);
            count("Cost/" + name + '/' + m_contender, [&] {
                for (int sent = 0; sent < requests; ++sent) {
                    m_stack->sendMsg(m_server.key(), request());
                    std::optional<QByteArray> received;
                    while (!(received = m_connection.tryReceive(0))) {
                        QCoreApplication::processEvents();
                    }
                    m_connection.send(answer);
                    processUntil(done);
                }
            });
        });
    }

private:
    static CITP::Msg_MSEX_GELI request() { return CITP::Msg_MSEX_GELI(0, 1, QString(), {1}); }
    void run(const std::function<void()>& work) { runInThreadOf(m_stack, work); }

    citp_stack* const m_stack;
    const std::string m_contender;
    FakeServer m_server;
    Connection m_connection;
};

void countAll(const std::string& contender)
{
    {
        CountedServer server("Product", contender);
        server.read("framing", Messages::pnam());
        server.read("parse_LSta500", Messages::lsta());
        server.read("parse_EThn30K", Messages::ethn());
        server.read("queue_LSta500", Messages::lsta(), true);
        server.send("send");
        server.roundTrip("round_trip");
    }
    CountedServer server("ArKaos", contender);
    server.roundTrip("round_trip_paced");
}
} // namespace

int countCosts()
{
    if (!RUNNING_ON_VALGRIND) {
        std::fputs("citp_bench_stack: --instructions needs callgrind: run scripts/bench --instructions\n", stderr);
        return 2;
    }
    std::printf("runs %d\n", Rounds);
    countAll("off");
    Client::get().stack()->setOptions(citp_options::recommended());
    Client::get().reset();
    countAll("on");
    return 0;
}
