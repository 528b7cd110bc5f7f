// The pacing under load: four application threads send while the server answers.
// SPDX-License-Identifier: Apache-2.0
#include "stack_fixture.h"

#include <citp/citp_msg_msex_requests.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <random>
#include <thread>

namespace {
constexpr int Threads = 4;
constexpr int RequestsPerThread = 1500;

/// A request's sender and number, which travel as levels of its library.
QString library(int thread, int number)
{
    return QStringLiteral("%1,%2,%3,0").arg(thread).arg(number >> 8).arg(number & 0xff);
}

struct Request
{
    int thread;
    int number;
    bool paced;
};

Request parse(const QByteArray& message)
{
    const QByteArray code = Wire::code(message);
    const int at = code == "GELT" ? 38 : code == "GETh" ? 36 : 27;
    const auto byte = [&message](int offset) { return static_cast<unsigned char>(message.at(offset)); };
    return {byte(at), byte(at + 1) << 8 | byte(at + 2), code == "GELI" || code == "GEIn"};
}
} // namespace

class PacingStressTest : public StackTest
{
protected:
    void SetUp() override
    {
        StackTest::SetUp();
        enable();
        log.clear();
    }

    /// Sends the requests of one thread: about every second one paced.
    void sendRequests(int thread)
    {
        std::minstd_rand random(static_cast<unsigned>(thread + 1));
        for (int number = 0; number < RequestsPerThread; ++number) {
            const QString id = library(thread, number);
            bool sent = false;
            switch (random() % 4) {
                case 0:
                    sent = stack->sendMsg(m_server.key(), CITP::Msg_MSEX_GELI(2, 1, id, {}));
                    break;
                case 1:
                    sent = stack->sendMsg(m_server.key(), CITP::Msg_MSEX_GEIN(2, 1, id, {}));
                    break;
                case 2:
                    sent =
                        stack->sendMsg(m_server.key(), CITP::Msg_MSEX_GELT(2, 1, {id}, 60, 80, QStringLiteral("JPEG")));
                    break;
                default:
                    sent = stack->sendMsg(m_server.key(),
                                          CITP::Msg_MSEX_GETH(2, 1, id, 60, 80, QStringLiteral("JPEG"), {}));
            }
            if (!sent) {
                ++m_refused;
            }
            if (random() % 16 == 0) {
                std::this_thread::yield();
            }
        }
    }

    void run(bool unsolicitedAnswers)
    {
        Connection connection = admitPaced(m_server);
        std::vector<std::thread> threads;
        for (int thread = 0; thread < Threads; ++thread) {
            threads.emplace_back([this, thread] { sendRequests(thread); });
        }
        std::vector<Request> received;
        while (static_cast<int>(received.size()) < Threads * RequestsPerThread) {
            std::optional<QByteArray> message = connection.tryReceive(TestTimeout);
            if (!message) {
                ADD_FAILURE() << "only " << received.size() << " requests came";
                break;
            }
            received.push_back(parse(*message));
            if (received.back().paced) {
                if (!unsolicitedAnswers) {
                    // A second one that was let go too early would be on its way by now.
                    while (const std::optional<QByteArray> next = connection.tryReceive(0)) {
                        received.push_back(parse(*next));
                        EXPECT_FALSE(received.back().paced) << "two requests outstanding";
                    }
                } else if (received.size() % 5 == 0) {
                    connection.send(Wire::elin(1));
                }
                connection.send(Wire::code(*message) == "GELI" ? Wire::elin(1) : Wire::mein(1));
            }
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(m_refused, 0);
        EXPECT_FALSE(connection.tryReceive(0));
        checkOrder(received);
        // All is answered: the server is idle again, and its next requests go one at a time.
        sendMarker(m_server, connection);
        EXPECT_TRUE(stack->sendMsg(m_server.key(), CITP::Msg_MSEX_GELI(2, 1, library(9, 1), {})));
        EXPECT_EQ(parse(connection.receive()).number, 1);
        EXPECT_TRUE(stack->sendMsg(m_server.key(), CITP::Msg_MSEX_GELI(2, 1, library(9, 2), {})));
        EXPECT_TRUE(stack->sendMsg(m_server.key(), CITP::Msg_PEER_PNAM(QStringLiteral("end"))));
        EXPECT_EQ(Wire::code(connection.receive()), "PNam");
    }

    /// Every request once; of each thread the paced ones in order, the others in order, and no paced one before
    /// another one that the thread sent earlier.
    void checkOrder(const std::vector<Request>& received)
    {
        std::map<int, int> lastPaced;
        std::map<int, int> lastOther;
        std::map<int, std::vector<int>> seen;
        for (const Request& request : received) {
            seen[request.thread].push_back(request.number);
            int& last = request.paced ? lastPaced.try_emplace(request.thread, -1).first->second
                                      : lastOther.try_emplace(request.thread, -1).first->second;
            EXPECT_GT(request.number, last) << "thread " << request.thread << " paced " << request.paced;
            if (!request.paced) {
                const auto paced = lastPaced.find(request.thread);
                EXPECT_TRUE(paced == lastPaced.end() || paced->second < request.number)
                    << "thread " << request.thread << ": " << paced->second << " overtook " << request.number;
            }
            last = request.number;
        }
        EXPECT_EQ(seen.size(), static_cast<std::size_t>(Threads));
        for (auto& [thread, numbers] : seen) {
            std::sort(numbers.begin(), numbers.end());
            ASSERT_EQ(numbers.size(), static_cast<std::size_t>(RequestsPerThread)) << "thread " << thread;
            for (int number = 0; number < RequestsPerThread; ++number) {
                ASSERT_EQ(numbers[static_cast<std::size_t>(number)], number) << "thread " << thread;
            }
        }
    }

    std::atomic<int> m_refused{0};
    FakeServer m_server;
};

TEST_F(PacingStressTest, EveryRequestGoesOutOnceInOrderAndNeverTwoAreOutstanding)
{
    run(false);
}

TEST_F(PacingStressTest, UnsolicitedAnswersLoseAndRepeatNothing)
{
    run(true);
}
