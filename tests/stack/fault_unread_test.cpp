// An application that does not process its events while a server sends at full speed: what piles up, and that it goes.
// SPDX-License-Identifier: Apache-2.0
#include "process_figures.h"
#include "stack_fixture.h"

#include <citp/citp_msg_msex_lsta.h>

#include <QTest>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

namespace {
constexpr auto Blocked = std::chrono::seconds(3);
/// What Qt keeps of a thread's event list once it has been that long, in bytes an event, with room for doubling.
constexpr long KeptPerMessage = 48;
constexpr long KeptBound = 256; // KiB beside it

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
} // namespace

class UnreadTest : public StackTest
{
};

TEST_F(UnreadTest, WhatPilesUpWhileTheApplicationIsBusyIsReleasedWhenItIsRead)
{
    recorder.reset(); // would itself grow with every message
    std::atomic<long> emitted{0};
    DirectReceiver counting(stack);
    counting.connect(&CITP::citp_stack::layerStatus, [&emitted] { ++emitted; });
    long delivered = 0;
    QObject application;
    QObject::connect(stack, &CITP::citp_stack::layerStatus, &application, [&delivered] { ++delivered; });
    enable();
    FakeServer server;
    Connection connection = admit(server);
    const QByteArray message = layerStatus();
    ASSERT_EQ(message.size(), 501);
    // Whatever is set up at the first message is there before the measurement.
    connection.send(message);
    ASSERT_TRUE(waitFor([&delivered] { return delivered == 1; }));
    const ProcessFigures before = ProcessFigures::now();

    std::atomic<bool> done{false};
    std::thread sender([&] {
        const QByteArray batch = message.repeated(20);
        while (!done && connection.trySend(batch)) {
        }
    });
    std::this_thread::sleep_for(Blocked);
    done = true;
    // The sender may wait for the stack, but never the stack for this thread.
    sender.join();
    // No event of this thread may be processed yet, so the waits that do are of no use here.
    for (long seen = -1; seen != emitted;) {
        seen = emitted;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        runOnWorker([] {});
    }
    const ProcessFigures full = ProcessFigures::now();
    const long piled = emitted - delivered;
    ASSERT_GT(piled, 0);

    ASSERT_TRUE(waitFor([&] { return delivered == emitted; }));
    runOnWorker([] {});
    const ProcessFigures after = ProcessFigures::now();
    const long grown = full.heapKiB - before.heapKiB;
    std::printf(
        "blocked for 3 s: %ld messages of %d bytes wait, heap +%ld KiB, %ld bytes a message; resident %ld, %ld "
        "and %ld KiB before, then and after\n",
        piled, static_cast<int>(message.size()), grown, grown * 1024 / piled, before.residentKiB, full.residentKiB,
        after.residentKiB);
    if (MemoryIsTelling) {
        EXPECT_LE(after.heapKiB, before.heapKiB + KeptBound + KeptPerMessage * piled / 1024);
        // Freed memory between what is still in use stays with the process, for the next time.
        EXPECT_LE(after.residentKiB - before.residentKiB, (full.residentKiB - before.residentKiB) / 4 + KeptBound);
    }
    EXPECT_EQ(full.descriptors, before.descriptors);
    EXPECT_EQ(full.threads, before.threads);
    counting.disconnect();
    armReset();
    tick();
}
