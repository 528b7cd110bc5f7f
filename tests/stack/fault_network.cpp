// FaultNetworkTest: bridges, virtual cables, and waits.
// SPDX-License-Identifier: Apache-2.0
#include "fault_network.h"

#include <citp_system/artnet_adapter.h>

#include <QTest>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdlib>

namespace {
constexpr int FirstDescriptor = 3;
constexpr int LastDescriptor = 1024; // above every descriptor that a test has open

std::string networkOf(const std::string& address)
{
    return address.compare(0, 2, "2.") == 0 ? "show" : "office";
}
} // namespace

void FaultNetworkTest::SetUp()
{
    if (!hasNamespace()) {
        GTEST_SKIP() << "needs a network namespace";
    }
    StackTest::SetUp();
    ArtNet::Adapter::Choose("");
    log.allowFailureLines("Multicast join failed");
    m_switch.emplace();
    for (const char* const network : {"show", "office"}) {
        m_switch->ip(std::string("link add ") + network + " type bridge");
        m_switch->ip(std::string("link set ") + network + " up");
    }
}

void FaultNetworkTest::TearDown()
{
    if (hasNamespace()) {
        StackTest::TearDown();
    }
}

namespace {
/// Waits until the kernel says whether the console's adapter of @p network has a carrier: it does so a second late, and
/// on a busy machine later. What is announced to the stack before is handled by waitForQuiet().
void waitForCarrier(const std::string& network, bool expected)
{
    EXPECT_TRUE(waitFor([&] {
        for (const Os::NetworkAdapter& adapter : Os::NetworkAdapter::GetAll()) {
            if (adapter.GetName() == network + "0") {
                return adapter.GetState().running == expected;
            }
        }
        return false;
    })) << network;
}
} // namespace

void FaultNetworkTest::addConsoleAdapter(const std::string& name, const std::string& address)
{
    ip("link add " + name + "0 type veth peer name console-" + name + " netns " + m_switch->id());
    m_switch->ip("link set console-" + name + " master " + name);
    m_switch->ip("link set console-" + name + " up");
    const std::string usual = name == "show" ? "2.0.0.1" : "192.168.7.1";
    ip("addr add " + (address.empty() ? usual : address) + "/24 dev " + name + "0");
    ip("link set " + name + "0 up");
    waitForCarrier(name, true);
}

void FaultNetworkTest::setConsoleCable(const std::string& name, bool in)
{
    m_switch->ip("link set console-" + name + (in ? " up" : " down"));
    waitForCarrier(name, in);
}

FarHost& FaultNetworkTest::addHost(const std::string& name, const std::string& address)
{
    std::unique_ptr<FarHost>& host = m_hosts[name];
    host = std::make_unique<FarHost>();
    const std::string network = networkOf(address);
    m_switch->ip("link add " + name + " type veth peer name net0 netns " + host->id());
    m_switch->ip("link set " + name + " master " + network);
    m_switch->ip("link set " + name + " up");
    host->ip("addr add " + address + "/24 dev net0");
    host->ip("link set net0 up");
    host->ip("route add 224.0.0.0/4 dev net0");
    return *host;
}

void FaultNetworkTest::setHostCable(const std::string& name, bool in)
{
    m_switch->ip("link set " + name + (in ? " up" : " down"));
}

void FaultNetworkTest::removeHost(const std::string& name)
{
    m_switch->ip("link del " + name);
    m_hosts.erase(name);
}

ChildProcess& FaultNetworkTest::startServer(const std::string& host, const std::vector<std::string>& options)
{
    std::vector<std::string> command = {MEDIASERVER, "--quiet", "--interval", "100"};
    command.insert(command.end(), options.begin(), options.end());
    m_hosts.at(host)->run([&] { m_servers.push_back(std::make_unique<ChildProcess>(command)); });
    return *m_servers.back();
}

bool FaultNetworkTest::tickUntil(const std::function<bool()>& condition)
{
    return waitFor([&] {
        tick();
        return condition();
    });
}

bool FaultNetworkTest::tickUntilUp(const std::string& key, int count)
{
    return tickUntil([&] { return upsOf(key) >= count; });
}

bool FaultNetworkTest::tickUntilDown(const std::string& key, int count)
{
    return tickUntil([&] { return downsOf(key) >= count; });
}

void FaultNetworkTest::waitForQuiet()
{
    int before = -1;
    while (before != log.count("Network adapter change detected")) {
        before = log.count("Network adapter change detected");
        QTest::qWait(1200);
    }
    tick();
}

void FaultNetworkTest::goOn()
{
    for (int i = 0; i < 10; ++i) {
        tick();
        QTest::qWait(100);
    }
}

bool FaultNetworkTest::isListed(const std::string& key) const
{
    const std::vector<CITP::citp_stack::SERV_ID> servers = stack->getServers();
    return std::find(servers.begin(), servers.end(), QString::fromStdString(key)) != servers.end();
}

std::string FaultNetworkTest::productOf(const std::string& key) const
{
    CITP::Msg_MSEX_SINF sinf;
    stack->getServerInfo(QString::fromStdString(key), &sinf, nullptr);
    return sinf.ProductName.toStdString();
}

std::string FaultNetworkTest::consoleAddressTowards(const std::string& server)
{
    in_addr wanted = {};
    inet_pton(AF_INET, server.c_str(), &wanted);
    for (int descriptor = FirstDescriptor; descriptor <= LastDescriptor; ++descriptor) {
        sockaddr_in peer = {};
        sockaddr_in own = {};
        socklen_t size = sizeof peer;
        if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) == 0 && peer.sin_family == AF_INET &&
            peer.sin_addr.s_addr == wanted.s_addr) {
            size = sizeof own;
            getsockname(descriptor, reinterpret_cast<sockaddr*>(&own), &size);
            char text[INET_ADDRSTRLEN] = {};
            inet_ntop(AF_INET, &own.sin_addr, text, sizeof text);
            return text;
        }
    }
    return {};
}
