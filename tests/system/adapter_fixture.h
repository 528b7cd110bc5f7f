// What the adapter tests share: pairs of virtual adapters, and a callback that keeps the notices it gets.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "network.h"

#include <citp_system/os_network_adapter.h>

#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

/// Runs many `ip` commands in one process, one command a line, so that they follow each other at once.
void ipBatch(const std::string& commands);

/// Skips unless the test has a network namespace of its own. Begins with veth pair v0/v1, v0 down, v1 up.
class AdapterTest : public testing::Test
{
protected:
    void SetUp() override;
};

/// Keeps the notices it gets.
class Recorder : public Os::NetworkAdapterMonitor::Callback
{
public:
    struct Notice
    {
        std::string name;
        Os::NetworkAdapter::State state;
        int reason;
    };

    ~Recorder() override;
    void Changed(const Os::NetworkAdapter& adapter, const Os::NetworkAdapter::State& state, int reason) override;

    /// Waits until the latest notice about @p name has a state that fits.
    /// @return whether that came about within a time that no test needs
    bool waitFor(const std::string& name, const std::function<bool(const Os::NetworkAdapter::State&)>& fits);
    std::vector<Notice> notices(const std::string& name = {}) const;
    void clear();

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Notice> m_notices;
};

/// Keeps the monitor's thread inside a callback from construction to release(), so that all that happens in between
/// reaches the monitor as one burst, however slow the machine is.
class HeldMonitor : private Os::NetworkAdapterMonitor::Callback
{
public:
    HeldMonitor();
    ~HeldMonitor() override;
    void release();

private:
    void Changed(const Os::NetworkAdapter&, const Os::NetworkAdapter::State&, int) override;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_held = false;
    bool m_released = false;
};

/// Returns when the monitor has delivered all notices of changes made before.
void letTheMonitorCatchUp();

/// Waits until the kernel has seen the carrier of an adapter that was brought up, which it does a moment later.
void waitForCarrier(const std::string& name);
