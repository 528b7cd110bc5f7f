// StackTest: a stack that is switched on before each test and off after it, with its log and its signals recorded.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "fake_server.h"
#include "log_capture.h"
#include "network.h"
#include "recorder.h"
#include "wait.h"
#include "wire.h"

#include <citp/citp_stack.h>

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

class StackTest : public testing::Test
{
protected:
    StackTest();
    void SetUp() override;
    void TearDown() override;

    /// The heartbeat, now instead of within 2000 ms, on the stack's thread.
    void tick();
    /// From here to the end of the test only tick() ticks.
    void holdTicks();
    /// Runs @p work on the stack's thread and waits for it.
    void runOnWorker(const std::function<void()>& work);
    void enable();
    /// Switches the severity-1 lines on.
    void logEverything();
    /// Makes the next tick drop all servers and open discovery afresh, as an adapter change does.
    void armReset();

    /// Has @p server found and connected, and takes its greeting.
    Connection connectTo(FakeServer& server, const char* name = "Server");
    /// The same, and has it announced to the application.
    Connection admit(FakeServer& server, const char* product = "Product", const char* name = "Server");
    /// A paced one.
    Connection admitPaced(FakeServer& server, const char* name = "Server") { return admit(server, "ArKaos", name); }

    /// Waits until the stack has handled all that was sent to it on this connection.
    void settle(const FakeServer& server, Connection& connection);
    /// Sends a message with which nothing else is confused, and waits for its signal: what was sent before is done.
    void sendMarker(const FakeServer& server, Connection& connection);

    bool isListed(const FakeServer& server) const;
    bool waitForEvent(const std::string& event, int count = 1) const;
    bool waitForLine(const std::string& text, int count = 1) const;

    LogCapture& log;
    CITP::citp_stack* const stack;
    std::optional<Recorder> recorder;

private:
    bool m_ticksHeld = false;
};
