// How long the stack waits for a request to a paced server to be written. No clock is read: this program takes the
// place of the system's poll(), through which Qt waits, and notes the time-outs that it is given.
// SPDX-License-Identifier: Apache-2.0
#include "stack_fixture.h"

#include <citp/citp_msg_msex_requests.h>

#include <QTcpSocket>

#include <dlfcn.h>
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <mutex>

namespace {
std::atomic<int> watched{-1}; // the descriptor whose waits are noted
std::mutex waitsMutex;
std::vector<long> waits; // ms; -1 is for ever

void note(const pollfd* entries, nfds_t count, long milliseconds)
{
    if (count == 1 && entries->fd == watched) {
        const std::lock_guard<std::mutex> lock(waitsMutex);
        waits.push_back(milliseconds);
    }
}

long inMilliseconds(const timespec* time)
{
    return time ? static_cast<long>(time->tv_sec * 1000 + time->tv_nsec / 1000000) : -1;
}

template <typename Function>
Function* systems(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
} // namespace

// The names that end in _chk are what the first two become where the distribution builds Qt with buffer checks.
#pragma GCC visibility push(default)
extern "C" {
int poll(pollfd* entries, nfds_t count, int milliseconds)
{
    static auto* const real = systems<int(pollfd*, nfds_t, int)>("poll");
    note(entries, count, milliseconds);
    return real(entries, count, milliseconds);
}

int ppoll(pollfd* entries, nfds_t count, const timespec* time, const sigset_t* signals)
{
    static auto* const real = systems<int(pollfd*, nfds_t, const timespec*, const sigset_t*)>("ppoll");
    note(entries, count, inMilliseconds(time));
    return real(entries, count, time, signals);
}

int __poll_chk(pollfd* entries, nfds_t count, int milliseconds, std::size_t size)
{
    static auto* const real = systems<int(pollfd*, nfds_t, int, std::size_t)>("__poll_chk");
    note(entries, count, milliseconds);
    return real(entries, count, milliseconds, size);
}

int __ppoll_chk(pollfd* entries, nfds_t count, const timespec* time, const sigset_t* signals, std::size_t size)
{
    static auto* const real =
        systems<int(pollfd*, nfds_t, const timespec*, const sigset_t*, std::size_t)>("__ppoll_chk");
    note(entries, count, inMilliseconds(time));
    return real(entries, count, time, signals, size);
}
}
#pragma GCC visibility pop

class FlushTimeoutTest : public StackTest
{
protected:
    /// A GEIn of @p size bytes.
    static CITP::Msg_MSEX_GEIN request(int size)
    {
        for (std::size_t count = 0;; ++count) {
            const CITP::Msg_MSEX_GEIN message(2, 1, QStringLiteral("1,0,0,0"), std::vector<unsigned char>(count));
            QByteArray bytes;
            bytes >> message;
            if (bytes.size() >= size) {
                EXPECT_EQ(bytes.size(), size);
                return message;
            }
        }
    }

    /// The first wait for a request of @p size bytes to a paced server that does not read, in ms.
    long firstWait(int size)
    {
        FakeServer server("127.0.0.2", 4096);
        Connection connection = admitPaced(server);
        fillStackSocket(server);
        const auto descriptor = [&] {
            watched = static_cast<int>(stack->m_servers[server.key()]->m_socket->socketDescriptor());
        };
        runOnWorker(descriptor);
        log.expectFailureLine("Network operation timed out");
        EXPECT_TRUE(stack->sendMsg(server.key(), request(size)));
        EXPECT_TRUE(waitForEvent("serverDown " + server.key().toStdString()));
        watched = -1;
        const std::lock_guard<std::mutex> lock(waitsMutex);
        const long first = waits.empty() ? 0 : waits.front();
        waits.clear();
        return first;
    }

    /// What is left of the time when the wait begins is what Qt passes on. Where the machine was busy in between, that
    /// says nothing, and the next attempt is taken.
    void expectWait(int size)
    {
        enable();
        long longest = 0;
        for (int attempt = 0; attempt < 10 && longest <= size - 4; ++attempt) {
            const long first = firstWait(size);
            ASSERT_LE(first, size);
            longest = std::max(longest, first);
        }
        EXPECT_GT(longest, size - 4);
    }
};

TEST_F(FlushTimeoutTest, ARequestOf64BytesIsWaitedFor64Milliseconds)
{
    expectWait(64);
}

TEST_F(FlushTimeoutTest, ARequestOf100BytesIsWaitedFor100Milliseconds)
{
    expectWait(100);
}
