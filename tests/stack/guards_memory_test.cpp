// The recommended guards and the memory of an application that does not process its events: what waits is limited,
// whatever sends it.
// SPDX-License-Identifier: Apache-2.0
#include "process_figures.h"
#include "stack_fixture.h"

#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_thumbnails.h>
#include <citp/citp_options.h>

#include <QTest>

#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <utility>

using CITP::citp_options;
using CITP::citp_stack;

namespace {
constexpr long MemoryBound = 32 * 1024; // KiB
constexpr long FlatBound = 256;         // KiB, for what the test itself does meanwhile

/// How long the application sleeps after the server has been stopped.
std::chrono::milliseconds sleepingTime()
{
    const char* const seconds = std::getenv("CITP_SLEEP_SECONDS");
    return std::chrono::milliseconds(seconds ? 1000 * std::atoi(seconds) : 500);
}

/// MSEX 1.0, three layers; 501 bytes.
QByteArray layerStatus()
{
    QByteArray body = Wire::u8(3);
    for (unsigned layer = 0; layer < 3; ++layer) {
        body += Wire::u8(layer) + Wire::u8(0) + Wire::u8(1) + Wire::u8(1) + Wire::u8(1) +
                Wire::ucs2(std::string(69, 'n').c_str()) + Wire::u32(10) + Wire::u32(100) + Wire::u8(25) + Wire::u32(1);
    }
    return Wire::msex(0, "LSta", body);
}

QByteArray picture()
{
    constexpr unsigned size = 30 * 1024;
    return Wire::msex(0, "EThn",
                      Wire::u8(1) + Wire::u8(2) + Wire::u8(6) + QByteArray("JPEG") + Wire::u16(320) + Wire::u16(240) +
                          Wire::u16(size) + QByteArray(static_cast<int>(size), 'p'));
}

/// The message that takes the most memory for each of its bytes: libraries with one-digit numbers and empty names.
QByteArray smallestLibraries()
{
    const QByteArray library = Wire::u8(1) + Wire::u8(0) + Wire::u8(9) + Wire::ucs2("") + Wire::u8(1);
    return Wire::msex(0, "ELIn", Wire::u8(1) + Wire::u8(255) + library.repeated(255));
}
} // namespace

class GuardsMemoryTest : public StackTest
{
protected:
    void SetUp() override
    {
        StackTest::SetUp();
        recorder.reset(); // would itself grow with every message
        log.allowFailureLines("The remote host closed the connection");
        citp_options options = citp_options::recommended();
        options.setObserver([this](const citp_options::Event& event) {
            if (event.guard == citp_options::UnreadNotifications) {
                ++m_reports;
            }
        });
        stack->setOptions(options);
        enable();
        tick();
        const auto count = [this] { ++m_emitted; };
        m_counting.connect(&citp_stack::layerStatus, count);
        m_counting.connect(&citp_stack::elementThumbnail, count);
        m_counting.connect(&citp_stack::libraryInfo, count);
        const auto receive = [this] { ++m_delivered; };
        QObject::connect(stack, &citp_stack::layerStatus, &m_application, receive);
        QObject::connect(stack, &citp_stack::elementThumbnail, &m_application, receive);
        QObject::connect(stack, &citp_stack::libraryInfo, &m_application, receive);
        // These connections are ordered before what is emitted, also in the eyes of the thread sanitizer.
        runOnWorker([] {});
    }

    void TearDown() override
    {
        m_counting.disconnect();
        stack->setOptions(citp_options());
        StackTest::TearDown();
    }

    /// Waits, without processing an event of this thread, until @p condition holds.
    static bool sleepUntil(const std::function<bool()>& condition)
    {
        for (int waited = 0; waited < TestTimeout; waited += 10) {
            if (condition()) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    /// Waits until nothing more is emitted and no server can send any more.
    bool sleepUntilQuiet()
    {
        long emittedBefore = -1;
        long sentBefore = -1;
        return sleepUntil([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(500));
            runOnWorker([] {});
            const bool isEmitting = std::exchange(emittedBefore, m_emitted) != m_emitted;
            const bool isSending = std::exchange(sentBefore, m_sent) != m_sent;
            return !isEmitting && !isSending;
        });
    }

    /// Has a server send @p message at full speed until the guard stops it, and on while the application sleeps.
    void sleepWhileSent(const QByteArray& message)
    {
        FakeServer server;
        Connection connection = connectTo(server);
        connection.send(Wire::sinf("Product"));
        // Whatever is set up at the first message is there before the measurement.
        connection.send(message);
        ASSERT_TRUE(waitFor([this] { return m_delivered == 1; }));
        const ProcessFigures before = ProcessFigures::now();

        std::atomic<bool> done{false};
        m_sent = 1;
        std::thread sender([&] {
            while (!done && connection.trySend(message)) {
                ++m_sent;
            }
        });
        EXPECT_TRUE(sleepUntil([this] { return m_reports > 0; }));
        EXPECT_TRUE(sleepUntilQuiet()) << "the server is not slowed down";
        const ProcessFigures full = ProcessFigures::now();
        const long sentThen = m_sent;
        std::this_thread::sleep_for(sleepingTime());
        const ProcessFigures later = ProcessFigures::now();
        std::printf("%d bytes a message: %ld wait, heap +%ld KiB, later +%ld KiB, resident +%ld and +%ld KiB\n",
                    static_cast<int>(message.size()), m_emitted - m_delivered, full.heapKiB - before.heapKiB,
                    later.heapKiB - before.heapKiB, full.residentKiB - before.residentKiB,
                    later.residentKiB - before.residentKiB);
        if (MemoryIsTelling) {
            EXPECT_LE(full.heapKiB - before.heapKiB, MemoryBound);
            EXPECT_LE(later.heapKiB - full.heapKiB, FlatBound);
        }
        done = true;
        EXPECT_TRUE(waitFor([&] { return m_delivered >= sentThen; }));
        sender.join();
        EXPECT_TRUE(waitFor([&] { return m_delivered == m_sent; })) << "messages were lost";
    }

    long emitted() const { return m_emitted; }

private:
    QObject m_application;
    DirectReceiver<citp_stack> m_counting{stack};
    std::atomic<long> m_emitted{0};
    std::atomic<long> m_sent{0};
    std::atomic<int> m_reports{0};
    long m_delivered = 0;
};

TEST_F(GuardsMemoryTest, LayerStatesAtFullSpeed)
{
    sleepWhileSent(layerStatus());
}

TEST_F(GuardsMemoryTest, PicturesAtFullSpeed)
{
    sleepWhileSent(picture());
}

TEST_F(GuardsMemoryTest, TheWorstMessageAtFullSpeed)
{
    sleepWhileSent(smallestLibraries());
}

TEST_F(GuardsMemoryTest, DatagramsAtFullSpeed)
{
    const FakeServer sender;
    const QByteArray message = smallestLibraries();
    const ProcessFigures before = ProcessFigures::now();
    for (int count = 0; count < 20000; ++count) {
        sender.sendDatagram(message);
    }
    EXPECT_TRUE(sleepUntilQuiet());
    const ProcessFigures full = ProcessFigures::now();
    std::printf("datagrams: %ld wait, heap +%ld KiB\n", emitted(), full.heapKiB - before.heapKiB);
    if (MemoryIsTelling) {
        EXPECT_LE(full.heapKiB - before.heapKiB, MemoryBound);
    }
    // A server is found nevertheless.
    FakeServer server;
    server.announce();
    EXPECT_TRUE(server.tryAccept(TestTimeout));
}

TEST_F(GuardsMemoryTest, ConnectionsThatEndAndComeBack)
{
    FakeServer server;
    const QByteArray messages = smallestLibraries().repeated(40);
    const ProcessFigures before = ProcessFigures::now();
    int rounds = 0;
    for (; rounds < 100; ++rounds) {
        std::optional<Connection> connection;
        for (int attempt = 0; attempt < 20 && !connection; ++attempt) {
            server.announce();
            connection = server.tryAccept(100);
        }
        if (!connection) {
            break; // its last connection waits to be read
        }
        connection->trySend(messages);
        shutdown(connection->descriptor(), SHUT_WR);
    }
    EXPECT_TRUE(sleepUntilQuiet());
    const ProcessFigures full = ProcessFigures::now();
    std::printf("%d connections: %ld wait, heap +%ld KiB\n", rounds, emitted(), full.heapKiB - before.heapKiB);
    if (MemoryIsTelling) {
        EXPECT_LE(full.heapKiB - before.heapKiB, MemoryBound);
    }
}
