// A child that is forked while the stack is at work, and that ends without ever having been another program. It has
// none of its parent's threads, so that it must wait for none; that it does not is seen without a clock, as this
// program takes the place of the system's waits.
// SPDX-License-Identifier: Apache-2.0
#include "stack_fixture.h"

#include <QCoreApplication>

#include <dlfcn.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <ctime>

namespace {
constexpr int Status = 7;
constexpr int Waits = 9;

bool isChild = false;

/// Waits for a condition that nobody is left to fulfil end the child at once.
void refuseInChild()
{
    if (isChild) {
        _exit(Waits);
    }
}

template <typename Function>
Function* systems(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
} // namespace

#pragma GCC visibility push(default)
extern "C" {
// No search for leaks in the child: it does not know the stacks of the threads that only the parent has, and reports
// what they use.
int __lsan_is_turned_off();
int __lsan_is_turned_off()
{
    return isChild ? 1 : 0;
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    static auto* const real = systems<int(pthread_cond_t*, pthread_mutex_t*)>("pthread_cond_wait");
    refuseInChild();
    return real(condition, mutex);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* until)
{
    static auto* const real =
        systems<int(pthread_cond_t*, pthread_mutex_t*, const timespec*)>("pthread_cond_timedwait");
    refuseInChild();
    return real(condition, mutex, until);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock, const timespec* until)
{
    static auto* const real =
        systems<int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*)>("pthread_cond_clockwait");
    refuseInChild();
    return real(condition, mutex, clock, until);
}
}
#pragma GCC visibility pop

class ForkedChildTest : public StackTest
{
protected:
    /// How a child ends that does @p last and calls exit().
    static std::string endOfChild(void (*last)() = [] {})
    {
        const pid_t child = fork();
        if (child == 0) {
            isChild = true;
            last();
            std::exit(Status);
        }
        int status = 0;
        if (!waitFor([&] { return waitpid(child, &status, WNOHANG) == child; })) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            return "still running";
        }
        return WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                                 : "signal " + std::to_string(WTERMSIG(status));
    }
};

TEST_F(ForkedChildTest, EndsWithoutAWaitAndLeavesItsParentTheServers)
{
    enable();
    FakeServer server;
    Connection connection = admit(server);
    for (int round = 0; round < 10; ++round) {
        ASSERT_EQ(endOfChild(), "exit " + std::to_string(Status));
        EXPECT_TRUE(isListed(server));
        sendMarker(server, connection);
    }
    EXPECT_EQ(recorder->count("serverDown " + server.key().toStdString()), 0);
}

TEST_F(ForkedChildTest, DestroysItsApplicationObjectWithoutAWait)
{
    enable();
    FakeServer server;
    Connection connection = admit(server);
    // As main() does when it returns; the child does not come back there.
    ASSERT_EQ(endOfChild([] { QCoreApplication::instance()->~QCoreApplication(); }), "exit " + std::to_string(Status));
    sendMarker(server, connection);
}
