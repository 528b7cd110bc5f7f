// Where inbound messages go: the routing, and what is said about those that go nowhere.
// SPDX-License-Identifier: Apache-2.0
#include "stack_fixture.h"

#include <citp/citp_msg_msex_requests.h>

namespace {
using Texts = std::vector<std::string>;
}

class DispatchTest : public StackTest
{
protected:
    void SetUp() override
    {
        StackTest::SetUp();
        enable();
        logEverything();
        log.clear();
    }

    /// The lines of "CITP.Stack" that @p datagram, sent over UDP, leads to.
    Texts linesFor(const QByteArray& datagram)
    {
        log.clear();
        m_server.sendDatagram(datagram);
        // The line of a second datagram tells that the first one is through.
        m_server.sendDatagram(Wire::message("END!", {}));
        EXPECT_TRUE(waitForLine("unhandled CITP END!"));
        Texts lines = log.texts();
        lines.pop_back();
        return lines;
    }

    std::string key() const { return m_server.key().toStdString(); }

    FakeServer m_server;
};

TEST_F(DispatchTest, NineteenBytesHaveAnInvalidSize)
{
    log.allowFailureLines("invalid size for CITP");
    m_server.sendDatagram(Wire::message("MSEX", {}).left(19));
    ASSERT_TRUE(waitForLine("invalid size for CITP"));
    const std::vector<LogCapture::Entry> lines = log.entries();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].context, "CITP.Stack.Traffic");
    EXPECT_EQ(lines[0].level, 1u);
    EXPECT_EQ(lines[0].text.rfind("<- 127.0.0.2 ", 0), 0u);
    EXPECT_GT(lines[0].text.size(), std::string("<- 127.0.0.2 ").size() + 19);
    EXPECT_EQ(lines[1].context, "CITP.Stack");
    EXPECT_EQ(lines[1].level, 8u);
    EXPECT_TRUE(recorder->events().empty());
}

TEST_F(DispatchTest, AnotherFirstWordIsLostInTheByteStream)
{
    QByteArray bytes = Wire::message("MSEX", {});
    bytes[3] = 'Q';
    log.expectFailureLine("lost in the byte stream");
    m_server.sendDatagram(bytes);
    ASSERT_TRUE(waitForLine("lost in the byte stream"));
    EXPECT_EQ(log.texts(), Texts{"lost in the byte stream"});
    EXPECT_EQ(log.entries().back().level, 8u);
}

TEST_F(DispatchTest, AnUnknownLayerIsUnhandled)
{
    EXPECT_EQ(linesFor(Wire::message("PINX", {})), Texts{"unhandled CITP PINX"});
    EXPECT_EQ(linesFor(Wire::message("msex", {})), Texts{"unhandled CITP msex"});
    for (const LogCapture::Entry& line : log.entries()) {
        EXPECT_EQ(line.level, 1u) << line.text;
    }
}

TEST_F(DispatchTest, MessagesTooShortForTheirLayerHaveAnEmptyCode)
{
    for (int size = 20; size <= 23; ++size) {
        EXPECT_EQ(linesFor(Wire::pinf("PLoc").left(size)), Texts{"unhandled PINF "}) << size;
    }
    for (int size = 20; size <= 25; ++size) {
        EXPECT_EQ(linesFor(Wire::msex(2, "LSta").left(size)), Texts{"unhandled MSEX "}) << size;
    }
    for (int size = 20; size <= 27; ++size) {
        EXPECT_EQ(linesFor(Wire::fptc("Ptch").left(size)), Texts{"unhandled FPTC "}) << size;
    }
}

TEST_F(DispatchTest, CodesAreComparedWithTheirCase)
{
    EXPECT_EQ(linesFor(Wire::msex(0, "elin")), Texts{"unhandled MSEX elin"});
    EXPECT_EQ(linesFor(Wire::pinf("ploc")), Texts{"unhandled PINF ploc"});
    EXPECT_EQ(linesFor(Wire::fptc("PTCH")), Texts{"unhandled FPTC PTCH"});
}

TEST_F(DispatchTest, WhatOnlyTheConsoleSendsIsUnhandled)
{
    EXPECT_EQ(linesFor(Wire::msex(2, "GELI")), Texts{"unhandled MSEX GELI"});
    EXPECT_EQ(linesFor(Wire::msex(2, "CInf")), Texts{"unhandled MSEX CInf"});
    EXPECT_EQ(linesFor(Wire::fptc("SPtc")), Texts{"unhandled FPTC SPtc"});
}

TEST_F(DispatchTest, APnamFromAnySourceIsIgnoredWithoutAWord)
{
    EXPECT_EQ(linesFor(Wire::pinf("PNam", Wire::text8("Name"))), Texts{});
    Connection connection = admit(m_server);
    recorder->clear();
    log.clear();
    connection.send(Wire::pinf("PNam", Wire::text8("Name")));
    sendMarker(m_server, connection);
    EXPECT_EQ(log.texts(), Texts{});
    EXPECT_EQ(recorder->events().size(), 1u);
}

TEST_F(DispatchTest, EveryAnswerAndStatusReachesItsSignal)
{
    Connection connection = admit(m_server);
    recorder->clear();
    connection.send(Wire::ethn(1) + Wire::elth(2) + Wire::elin(3) + Wire::mein(4) + Wire::eein(5) + Wire::glei(6) +
                    Wire::lsta(7) + Wire::elup(8) + Wire::ptch(9));
    ASSERT_TRUE(waitForEvent("patchMessage " + key() + " 9"));
    EXPECT_EQ(recorder->events(),
              (Texts{"elementThumbnail " + key() + " 1/4", "libraryThumbnail " + key() + " 2/4",
                     "libraryInfo " + key() + " 3", "mediaInfo " + key() + " 4", "effectInfo " + key() + " 5",
                     "genericInfo " + key() + " 6,0,0,0", "layerStatus " + key() + " 7",
                     "libraryUpdated " + key() + " 8", "patchMessage " + key() + " 9"}));
}

TEST_F(DispatchTest, MessagesOverUdpAreEmittedUnderTheSendersAddress)
{
    linesFor(Wire::lsta(7));
    linesFor(Wire::elin(3));
    linesFor(Wire::ptch(9));
    EXPECT_EQ(recorder->events(),
              (Texts{"layerStatus 127.0.0.2 7", "libraryInfo 127.0.0.2 3", "patchMessage 127.0.0.2 9"}));
}

TEST_F(DispatchTest, ASinfOverUdpIsDroppedWithoutAWord)
{
    EXPECT_EQ(linesFor(Wire::sinf("Product")), Texts{});
    EXPECT_TRUE(recorder->events().empty());
    EXPECT_EQ(stack->getNumNotified(), 0);
}

TEST_F(DispatchTest, InvalidMessagesAreDroppedWithoutALineOfTheStack)
{
    Connection connection = admit(m_server);
    recorder->clear();
    log.clear();
    connection.send(Wire::msex(3, "EEIn", QByteArray(40, '\0')) + Wire::msex(0, "GLEI", QByteArray(40, '\0')) +
                    Wire::msex(1, "LSta", QByteArray(40, '\0')) + Wire::msex(3, "ELUp", QByteArray(80, '\0')));
    sendMarker(m_server, connection);
    EXPECT_EQ(recorder->events().size(), 1u);
    EXPECT_EQ(log.texts(), Texts{});
}

TEST_F(DispatchTest, AMessageWithABadCitpHeaderIsDropped)
{
    Connection connection = admit(m_server);
    recorder->clear();
    for (const QByteArray& message : {Wire::elin(1), Wire::mein(1), Wire::eein(1), Wire::glei(1), Wire::lsta(1),
                                      Wire::elup(1), Wire::elth(1), Wire::ethn(1), Wire::ptch(1)}) {
        log.expectFailureLine("error reading CITP header: wrong CITP minor");
        connection.send(Wire::withCitpMinor(message, 1));
    }
    sendMarker(m_server, connection);
    EXPECT_EQ(recorder->events().size(), 1u);
}

TEST_F(DispatchTest, ADatagramMustBeAsLongAsItSays)
{
    log.expectFailureLine("error reading CITP header: header size != datagram size");
    m_server.sendDatagram(Wire::lsta(1) + "x");
    ASSERT_TRUE(waitForLine("error reading CITP header: header size != datagram size"));
    EXPECT_EQ(log.texts("CITP.Message"), Texts{"error reading CITP header: header size != datagram size"});
    runOnWorker([] {});
    EXPECT_TRUE(recorder->events().empty());
}

TEST_F(DispatchTest, DatagramsThatComeWhileOthersAreHandledAreNotLost)
{
    // The discovery socket's buffer holds some 170 of them.
    constexpr int Bursts = 12;
    constexpr int BurstLength = 40;
    int handled = 0;
    DirectReceiver receiver(stack);
    receiver.connect(&CITP::citp_stack::layerStatus, [this, &handled] {
        if (++handled <= Bursts) {
            for (int count = 0; count < BurstLength; ++count) {
                m_server.sendDatagram(Wire::lsta(2));
            }
        }
    });
    m_server.sendDatagram(Wire::lsta(1));
    EXPECT_TRUE(waitForEvent("layerStatus 127.0.0.2 2", Bursts * BurstLength))
        << recorder->count("layerStatus 127.0.0.2 2") << " of " << Bursts * BurstLength;
    receiver.disconnect();
}

TEST_F(DispatchTest, AThumbnailThatFailsToParseIsEmittedWithAnEmptyImage)
{
    Connection connection = admit(m_server);
    recorder->clear();
    QByteArray tooShort = Wire::elth(2);
    tooShort.chop(1);
    connection.send(Wire::withSize(tooShort, static_cast<quint32>(tooShort.size())));
    connection.send(Wire::msex(3, "EThn", QByteArray(40, '\0')));
    sendMarker(m_server, connection);
    const Texts events = recorder->events();
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0], "libraryThumbnail " + key() + " 2/0");
    EXPECT_EQ(events[1], "elementThumbnail " + key() + " /0");
}

TEST_F(DispatchTest, TheTrafficLineComesBeforeAnyCheckAndOnlyWhenAskedFor)
{
    Connection connection = admit(m_server);
    log.clear();
    connection.send(Wire::lsta(1));
    sendMarker(m_server, connection);
    EXPECT_EQ(log.texts("CITP.Stack.Traffic").size(), 2u);
    Os::Log::SetMask("CITP.*", Os::Log::DefaultMask);
    log.clear();
    sendMarker(m_server, connection);
    EXPECT_TRUE(log.entries().empty());
}
