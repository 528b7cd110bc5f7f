// The stack on the loopback for the benchmarks, the clocks of its threads, and the messages that servers flood it with.
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
#include <vector>

/// The processor time that a thread has used.
class ThreadClock
{
public:
    /// Of the calling thread.
    static ThreadClock ofThisThread();
    /// In seconds; from any thread while that one lives.
    double seconds() const;

private:
    clockid_t m_clock = 0;
};

/// Seconds of a clock that only goes forward.
double now();

/// Runs @p work on the thread of @p object, which has an event loop, and waits for it.
void runOn(QObject* object, const std::function<void()>& work);

/// A thread with an event loop, which ends with the object.
class LoopThread
{
public:
    LoopThread();
    ~LoopThread();
    LoopThread(const LoopThread&) = delete;
    LoopThread& operator=(const LoopThread&) = delete;

    /// An object on this thread, to run things there and to be the receiver of signals.
    QObject* place() const { return m_place; }
    ThreadClock clock() const { return m_clock; }

private:
    QThread m_thread;
    QObject* m_place;
    ThreadClock m_clock;
};

/// The one stack of the process, switched on. Its ticks come when they are called for as well as by themselves.
class Seat
{
public:
    static Seat& get();

    CITP::citp_stack* stack() const { return m_stack; }
    ThreadClock workerClock() const { return m_workerClock; }
    void tick();
    /// Drops all servers and makes ready for new ones.
    void clear();
    /// Has @p server found, greeted and announced.
    Connection admit(FakeServer& server, const char* product);

private:
    Seat();

    CITP::citp_stack* m_stack;
    ThreadClock m_workerClock;
};

/// Tells of every ELUp, with which a flood ends, on the thread where @p receiver lives.
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
QByteArray ethn(); ///< MSEX 1.0, 30 KB of picture
QByteArray pnam(); ///< as long as lsta(): the stack cuts it from the stream and drops it
QByteArray elin(); ///< one library
QByteArray sinf(); ///< of a server that is not paced
QByteArray end();  ///< an ELUp
} // namespace Messages
