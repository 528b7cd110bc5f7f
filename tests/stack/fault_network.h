// FaultNetworkTest: a console with two adapters, a switch for each of their networks, and hosts with media servers on
// them; every one of them in a network namespace of its own.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "child_process.h"
#include "far_host.h"
#include "stack_fixture.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// The show network is 2.0.0.0/24 on the console's adapter show0, the office's is 192.168.7.0/24 on office0. The
/// console is number 1 on both.
class FaultNetworkTest : public StackTest
{
protected:
    void SetUp() override;
    void TearDown() override;

    /// Connects the console to the network called @p name ("show" or "office") with its address there, or with
    /// @p address.
    void addConsoleAdapter(const std::string& name, const std::string& address = {});
    /// Pulls the cable of the console on that network out, or puts it in.
    void setConsoleCable(const std::string& name, bool in);

    /// A host called @p name with @p address, e.g. "2.0.0.20", on the network of that address.
    FarHost& addHost(const std::string& name, const std::string& address);
    /// Pulls the cable of that host out, or puts it in.
    void setHostCable(const std::string& name, bool in);
    /// The host loses its power: no connection is ended, nothing is said any more.
    void removeHost(const std::string& name);

    /// Starts the simulated media server on @p host, which announces itself ten times a second.
    /// It runs until it is killed or the test, with the stack switched off, is over.
    ChildProcess& startServer(const std::string& host, const std::vector<std::string>& options = {});

    /// Ticks until @p condition holds.
    bool tickUntil(const std::function<bool()>& condition);
    bool tickUntilUp(const std::string& key, int count = 1);
    bool tickUntilDown(const std::string& key, int count = 1);
    /// Waits until the adapter monitor has nothing more to tell, and lets the stack act on what it told.
    void waitForQuiet();
    /// Lets the stack go on for a while in which nothing is to happen to it: some ticks.
    void goOn();

    bool isListed(const std::string& key) const;
    /// The product that the server told.
    std::string productOf(const std::string& key) const;
    /// The address that the stack's end of the connection to @p server has; empty if there is none.
    static std::string consoleAddressTowards(const std::string& server);
    int upsOf(const std::string& key) const { return recorder->count("serverUp " + key); }
    int downsOf(const std::string& key) const { return recorder->count("serverDown " + key); }

private:
    std::optional<FarHost> m_switch;
    std::map<std::string, std::unique_ptr<FarHost>> m_hosts;
    std::vector<std::unique_ptr<ChildProcess>> m_servers;
};
