// The stack on the loopback interface, processor clocks of threads, and the messages that servers send.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "fake_server.h"
#include "wait.h"

#include <citp/citp_stack.h>

#include <QByteArray>
#include <QSemaphore>
#include <QString>
#include <QThread>

#include <ctime>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

/// The processor time of a thread.
class ThreadClock
{
public:
    /// The clock of the calling thread.
    static ThreadClock ofCurrentThread();
    /// In seconds. Any thread, while the clock's thread exists.
    double seconds() const;

private:
    clockid_t m_clock = 0;
};

/// Seconds of the monotonic clock.
double now();

/// Runs @p work in the thread of @p object, which must run an event loop, and waits for its end.
void runInThreadOf(QObject* object, const std::function<void()>& work);

/// A blocking socket that is connected to @p server; the caller closes it.
int connectTo(const FakeServer& server);

/// A thread with an event loop; the destructor stops it.
class LoopThread
{
public:
    LoopThread();
    ~LoopThread();
    LoopThread(const LoopThread&) = delete;
    LoopThread& operator=(const LoopThread&) = delete;

    /// An object that lives in this thread, as receiver of signals and of runInThreadOf().
    QObject* context() const { return m_context; }
    ThreadClock clock() const { return m_clock; }

private:
    QThread m_thread;
    QObject* m_context;
    ThreadClock m_clock;
};

/// The process's stack, enabled.
class Client
{
public:
    static Client& get();

    CITP::citp_stack* stack() const { return m_stack; }
    ThreadClock workerClock() const { return m_workerClock; }
    /// Removes all servers.
    void reset();
    /// Announces @p server and waits until the stack reports it as up.
    Connection addServer(FakeServer& server, const char* product);

private:
    Client();

    CITP::citp_stack* m_stack;
    ThreadClock m_workerClock;
};

/// Answers each message with an ELIn until the connection ends.
class Responder
{
public:
    explicit Responder(Connection& connection);
    ~Responder();
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;

private:
    Connection& m_connection;
    std::thread m_thread;
};

/// Waits for the ELUp that ends a flood. The signal is received in the thread of @p receiver.
class EndOfFlood
{
public:
    explicit EndOfFlood(QObject* receiver);
    ~EndOfFlood();
    EndOfFlood(const EndOfFlood&) = delete;
    EndOfFlood& operator=(const EndOfFlood&) = delete;
    void wait() { m_seen.acquire(); }

private:
    QSemaphore m_seen;
    QMetaObject::Connection m_connection;
};

namespace Messages {
QByteArray lsta(); ///< MSEX 1.2, 7 layers, about 500 bytes
QByteArray ethn(); ///< MSEX 1.0, a picture of 30 KB
QByteArray pnam(); ///< as long as lsta(); the stack discards it after framing
QByteArray elin(); ///< one library
QByteArray sinf(); ///< of a server that is not paced
QByteArray end();  ///< an ELUp, see EndOfFlood
} // namespace Messages
