// StackHarness: the process's real stack, switched on, with a fake server beside it, for the fuzz targets that drive
// it.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "fake_server.h"
#include "fuzz_input.h"

#include <citp/citp_stack.h>
#include <citp_system/os_log.h>

#include <QByteArray>
#include <QString>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

class QTcpSocket;

namespace fuzz {
/// What a stream or datagram of some number of bytes is too short for, and what does not begin like a message.
struct Complaints
{
    int tooShort = 0;
    int lost = 0;
    bool operator==(const Complaints& other) const { return tooShort == other.tooShort && lost == other.lost; }
};

/// Counts the stack's complaints about its input; takes all other lines as they come.
class ComplaintSink : public Os::Log::Sink
{
public:
    void Write(const Os::Log::Line& line) override;
    /// What has been counted since the last call.
    Complaints take();

private:
    std::mutex m_mutex;
    Complaints m_complaints; ///< guarded by the mutex
};

class StackHarness
{
public:
    /// The process's harness; the first call switches the stack on. Never destroyed.
    /// Ends the process with status 125, "skipped", where there is no network namespace: the stack takes the discovery
    /// port, and what an input announces is connected to.
    static StackHarness& get();

    CITP::citp_stack* stack() const { return m_stack; }
    ComplaintSink& sink() { return m_sink; }

    /// Runs @p work on the stack's thread and waits for it. What was posted to that thread before has been done then.
    void onWorker(const std::function<void()>& work) const;
    /// Waits until the stack has read all @p sent bytes that @p server has sent on its connection, and has acted on
    /// them, or has ended the connection.
    void settle(const FakeServer& server, std::uint64_t sent) const;
    /// Waits until the stack knows no server any more; tells of the hosts that it cannot find itself.
    void waitForNoServers() const;

    /// The events since the last call, which for the first one is none, in order: "U" for serverUp, "D" for serverDown,
    /// and the message's code for a notification; only those of @p key. An event of another server is kept out.
    std::vector<std::string> takeEvents(const QString& key);

private:
    StackHarness();
    void listen();
    void add(const QString& key, const char* event);

    ComplaintSink m_sink;
    CITP::citp_stack* m_stack;
    bool m_isListening = false;
    std::mutex m_mutex;
    std::vector<std::pair<QString, std::string>> m_events; ///< guarded by the mutex
};
} // namespace fuzz
