// The golden messages over a real connection: however the stream is cut, each comes out whole, once, and at once.
// SPDX-License-Identifier: Apache-2.0
#include "golden.h"
#include "golden_messages.h"
#include "stack_fixture.h"

#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_thumbnails.h>

#include <QDeadlineTimer>

#include <sys/ioctl.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

using CITP::citp_stack;

namespace {
/// Every signal with the debug text of its message, in the order in which the stack emits them.
class Texts
{
public:
    void add(const char* code, const std::string& text)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_list.push_back(std::string(code) + " " + text);
        m_changed.notify_all();
    }

    bool waitForCount(std::size_t count)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::milliseconds(TestTimeout), [&] { return m_list.size() >= count; });
    }

    std::vector<std::string> take()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return std::move(m_list);
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_list;
};
} // namespace

class GoldenStreamTest : public StackTest
{
protected:
    void SetUp() override
    {
        StackTest::SetUp();
        enable();
        listen<CITP::Msg_MSEX_ELIN>("ELIn", &citp_stack::libraryInfo);
        listen<CITP::Msg_MSEX_ELUP>("ELUp", &citp_stack::libraryUpdated);
        listen<CITP::Msg_MSEX_MEIN>("MEIn", &citp_stack::mediaInfo);
        listen<CITP::Msg_MSEX_EEIN>("EEIn", &citp_stack::effectInfo);
        listen<CITP::Msg_MSEX_GLEI>("GLEI", &citp_stack::genericInfo);
        listen<CITP::Msg_MSEX_LSTA>("LSta", &citp_stack::layerStatus);
        listen<CITP::Msg_MSEX_ELTH>("ELTh", &citp_stack::libraryThumbnail);
        listen<CITP::Msg_MSEX_ETHN>("EThn", &citp_stack::elementThumbnail);
        listen<CITP::Msg_FPTC_PTCH>("Ptch", &citp_stack::patchMessage);
        m_receiver.connect(&citp_stack::serverUp, [this](const QString& key) {
            CITP::Msg_MSEX_SINF sinf;
            stack->getServerInfo(key, &sinf, nullptr);
            add("SInf", sinf);
        });
    }

    void TearDown() override
    {
        m_receiver.disconnect();
        StackTest::TearDown();
    }

    /// Sends @p bytes and waits until the stack has taken them from the kernel, so that what is sent next is a read of
    /// its own.
    void sendPiece(const QByteArray& bytes)
    {
        m_connection->send(bytes);
        const QDeadlineTimer deadline(TestTimeout);
        int unread = 1;
        while (ioctl(m_stackDescriptor, FIONREAD, &unread) == 0 && unread > 0) {
            ASSERT_FALSE(deadline.hasExpired()) << "the stack does not read";
            std::this_thread::yield();
        }
    }

    /// Sends @p message, once for each entry of @p cuts, in pieces that end after that many bytes, and expects one
    /// signal each time before anything follows.
    void expectOneSignalEach(const GoldenMessage& message, const std::vector<std::vector<int>>& cuts)
    {
        SCOPED_TRACE(message.name);
        const std::string expected = message.code + " " + message.text;
        for (std::size_t sending = 0; sending < cuts.size(); ++sending) {
            prepareFor(message);
            int from = 0;
            for (const int to : cuts[sending]) {
                ASSERT_NO_FATAL_FAILURE(sendPiece(message.bytes.mid(from, to - from)));
                from = to;
            }
            ASSERT_NO_FATAL_FAILURE(sendPiece(message.bytes.mid(from)));
            ASSERT_TRUE(m_texts.waitForCount(sending + 1)) << "sending " << sending;
        }
        runOnWorker([] {});
        EXPECT_EQ(m_texts.take(), std::vector<std::string>(cuts.size(), expected));
    }

    /// The first SInf of a connection is the one that counts; the record is made to wait for it again.
    void prepareFor(const GoldenMessage& message)
    {
        if (message.code == "SInf") {
            runOnWorker([this] { stack->m_servers.value(m_server.key())->m_notified = false; });
        }
    }

    void connectServer()
    {
        m_connection.emplace(connectTo(m_server));
        m_connection->sendSegment(QByteArray()); // from now on nothing waits for what comes behind it
        m_stackDescriptor = stackDescriptor(m_server);
        ASSERT_GE(m_stackDescriptor, 0);
    }

    FakeServer m_server;
    std::optional<Connection> m_connection;

private:
    template <typename Message>
    void add(const char* code, const Message& message)
    {
        QString text;
        text >> message;
        m_texts.add(code, golden::quoted(text));
    }

    template <typename Message>
    void listen(const char* code, void (citp_stack::*signal)(const citp_stack::SERV_ID&, const Message&))
    {
        m_receiver.connect(signal, [this, code](const QString&, const Message& message) { add(code, message); });
    }

    Texts m_texts;
    DirectReceiver<citp_stack> m_receiver{stack};
    int m_stackDescriptor = -1;
};

TEST_F(GoldenStreamTest, EveryAnswerComesOutOnceHoweverItIsCutInTwo)
{
    connectServer();
    for (const GoldenMessage& message : goldenAnswers()) {
        std::vector<std::vector<int>> cuts;
        for (int at = 1; at < static_cast<int>(message.bytes.size()); ++at) {
            cuts.push_back({at});
        }
        ASSERT_NO_FATAL_FAILURE(expectOneSignalEach(message, cuts));
    }
}

TEST_F(GoldenStreamTest, EveryAnswerComesOutOnceByteByByte)
{
    connectServer();
    for (const GoldenMessage& message : goldenAnswers()) {
        std::vector<int> everywhere;
        for (int at = 1; at < static_cast<int>(message.bytes.size()); ++at) {
            everywhere.push_back(at);
        }
        ASSERT_NO_FATAL_FAILURE(expectOneSignalEach(message, {everywhere, everywhere}));
    }
}
