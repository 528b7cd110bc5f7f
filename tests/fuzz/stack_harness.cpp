// StackHarness: set-up, the bounded waits, and one direct connection for each signal.
// SPDX-License-Identifier: Apache-2.0
#include "stack_harness.h"

#include "wait.h"
#include "worker_call.h"

#include <citp_system/artnet_adapter.h>

#include <QCoreApplication>
#include <QTcpSocket>

#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <linux/tcp.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <thread>
#include <utility>

using CITP::citp_stack;

namespace fuzz {
namespace {
/// Tries @p done again and again, at first without a pause, at most for about TestTimeout ms. @return whether it was
/// done
bool retry(const std::function<bool()>& done)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(TestTimeout);
    for (int round = 0; !done(); ++round) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        if (round > 20)
            std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}
/// On the stack's thread: its end of the connection to @p server, null if there is none.
const QTcpSocket* socketOf(const citp_stack* stack, const FakeServer& server)
{
    for (const QTcpSocket* socket : stack->findChildren<QTcpSocket*>())
        if (socket->peerName() == server.host() && socket->peerPort() == server.port())
            return socket;
    return nullptr;
}
} // namespace

void ComplaintSink::Write(const Os::Log::Line& line)
{
    if (line.level != Os::Log::Failure)
        return;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_complaints.tooShort += std::strcmp(line.text.c_str(), "invalid size for CITP") == 0 ? 1 : 0;
    m_complaints.lost += std::strcmp(line.text.c_str(), "lost in the byte stream") == 0 ? 1 : 0;
}

Complaints ComplaintSink::take()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_complaints, {});
}

StackHarness& StackHarness::get()
{
    static StackHarness* const harness = [] {
        if (!std::getenv("CITP_TEST_NAMESPACE")) {
            std::fprintf(stderr, "skipped: needs a network namespace of its own, see tests/in-namespace\n");
            std::_Exit(125);
        }
        std::signal(SIGPIPE, SIG_IGN);
        static int argc = 1;
        static char name[] = "fuzz";
        static char* argv[] = {name, nullptr};
        static QCoreApplication* const application = new QCoreApplication(argc, argv);
        (void)application;
        return new StackHarness;
    }();
    return *harness;
}

StackHarness::StackHarness()
{
    ArtNet::Adapter::Choose("lo");
    Os::Log::SetSink(&m_sink);
    Os::Log::SetMask("CITP.Message", 0);
    m_stack = citp_stack::Get();
    m_stack->setEnabled(true);
    onWorker([this] { QMetaObject::invokeMethod(m_stack, "timepop", Qt::DirectConnection); });
}

void StackHarness::listen()
{
    const auto on = [this](auto signal, const char* event) {
        onWorker([&] {
            QObject::connect(
                m_stack, signal, m_stack, [this, event](const QString& key) { add(key, event); }, Qt::DirectConnection);
        });
    };
    on(&citp_stack::serverUp, "U");
    on(&citp_stack::serverDown, "D");
    on(&citp_stack::libraryInfo, "ELIn");
    on(&citp_stack::mediaInfo, "MEIn");
    on(&citp_stack::effectInfo, "EEIn");
    on(&citp_stack::genericInfo, "GLEI");
    on(&citp_stack::libraryUpdated, "ELUp");
    on(&citp_stack::layerStatus, "LSta");
    on(&citp_stack::libraryThumbnail, "ELTh");
    on(&citp_stack::elementThumbnail, "EThn");
    on(&citp_stack::patchMessage, "Ptch");
}

void StackHarness::add(const QString& key, const char* event)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_events.emplace_back(key, event);
}

std::vector<std::string> StackHarness::takeEvents(const QString& key)
{
    if (!m_isListening) {
        m_isListening = true;
        listen();
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> events;
    for (const auto& [server, event] : m_events)
        if (server == key)
            events.push_back(event);
    m_events.clear();
    return events;
}

void StackHarness::onWorker(const std::function<void()>& work) const
{
    runOnThreadOf(m_stack, work);
}

void StackHarness::settle(const FakeServer& server, std::uint64_t sent) const
{
    // What the kernel has not delivered yet cannot be seen as unread, and a turn may leave the rest to the next one.
    qint64 waited = -1;
    const bool settled = retry([&] {
        bool isGone = false;
        tcp_info info = {};
        int unread = -1;
        qint64 waiting = -1;
        onWorker([&] {
            const QTcpSocket* const socket = socketOf(m_stack, server);
            isGone = !socket;
            if (isGone)
                return;
            const int descriptor = static_cast<int>(socket->socketDescriptor());
            socklen_t size = sizeof info;
            getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &size);
            ioctl(descriptor, FIONREAD, &unread);
            waiting = socket->bytesAvailable();
        });
        const bool isQuiet = std::exchange(waited, waiting) == waiting;
        return isGone || (isQuiet && unread == 0 && info.tcpi_bytes_received >= sent);
    });
    FUZZ_REQUIRE(settled);
}

void StackHarness::waitForNoServers() const
{
    const bool alone = retry([this] {
        bool none = false;
        onWorker([&] { none = m_stack->findChild<QTcpSocket*>() == nullptr; });
        return none;
    });
    FUZZ_REQUIRE(alone);
    FUZZ_REQUIRE(m_stack->getNumNotified() == 0);
}
} // namespace fuzz
