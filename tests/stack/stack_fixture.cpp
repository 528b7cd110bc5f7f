// StackTest: set-up and the waits that all tests of the stack share.
// SPDX-License-Identifier: Apache-2.0
#include "stack_fixture.h"

#include "worker_call.h"

#include <citp_system/artnet_adapter.h>

#include <QTimer>

#include <sys/ioctl.h>

#include <algorithm>

using CITP::citp_stack;

StackTest::StackTest() : log(LogCapture::get()), stack(citp_stack::Get()) {}

void StackTest::SetUp()
{
    // Also where there is no namespace, nothing leaves the machine.
    ArtNet::Adapter::Choose("lo");
    recorder.emplace(stack);
    tick();
    log.clear();
}

void StackTest::TearDown()
{
    recorder.reset();
    stack->setEnabled(false);
    tick();
    if (m_ticksHeld) {
        runOnWorker([this] { stack->findChild<QTimer*>()->start(); });
    }
    closeLeftovers();
    Os::Log::SetMask("CITP.*", Os::Log::DefaultMask);
    EXPECT_EQ(log.verdict(), "");
}

void StackTest::tick()
{
    runOnWorker([this] { QMetaObject::invokeMethod(stack, "timepop", Qt::DirectConnection); });
}

void StackTest::holdTicks()
{
    m_ticksHeld = true;
    runOnWorker([this] { stack->findChild<QTimer*>()->stop(); });
}

void StackTest::runOnWorker(const std::function<void()>& work)
{
    runOnThreadOf(stack, work);
}

void StackTest::enable()
{
    stack->setEnabled(true);
    tick();
}

void StackTest::logEverything()
{
    Os::Log::SetMask("CITP.*", 31);
}

void StackTest::armReset()
{
    stack->setEnabled(false);
    stack->setEnabled(true);
}

Connection StackTest::connectTo(FakeServer& server, const char* name)
{
    server.announce(name);
    Connection connection = server.accept();
    for (const QByteArray& expected : Wire::greeting()) {
        EXPECT_EQ(connection.receive().toHex(), expected.toHex());
    }
    return connection;
}

Connection StackTest::admit(FakeServer& server, const char* product, const char* name)
{
    Connection connection = connectTo(server, name);
    connection.send(Wire::sinf(product));
    EXPECT_TRUE(waitFor([this, &server] { return isListed(server); }))
        << "not announced: " << server.key().toStdString();
    return connection;
}

void StackTest::settle(const FakeServer& server, Connection& connection)
{
    connection.sendSegment(QByteArray());
    EXPECT_TRUE(waitFor([&server] {
        int unread = 0;
        const int descriptor = stackDescriptor(server);
        return descriptor < 0 || (ioctl(descriptor, FIONREAD, &unread) == 0 && unread == 0);
    }));
    runOnWorker([] {}); // the slot that read is through now
}

void StackTest::sendMarker(const FakeServer& server, Connection& connection)
{
    static unsigned fixture = 60000;
    connection.send(Wire::ptch(++fixture));
    EXPECT_TRUE(waitForEvent("patchMessage " + server.key().toStdString() + " " + std::to_string(fixture)));
}

bool StackTest::isListed(const FakeServer& server) const
{
    const std::vector<citp_stack::SERV_ID> servers = stack->getServers();
    return std::find(servers.begin(), servers.end(), server.key()) != servers.end();
}

bool StackTest::waitForEvent(const std::string& event, int count) const
{
    return waitFor([this, &event, count] { return recorder->count(event) >= count; });
}

bool StackTest::waitForLine(const std::string& text, int count) const
{
    return waitFor([this, &text, count] { return log.count(text) >= count; });
}
