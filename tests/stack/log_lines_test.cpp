// Each log line of the stack: the operation, the source file and the context that it names, and its form.
// SPDX-License-Identifier: Apache-2.0
#include "stack_fixture.h"

#include <citp/citp_msg_msex_libraries.h>
#include <citp_system/artnet_adapter.h>

#include <algorithm>
#include <map>
#include <string>

class LogLinesTest : public StackTest
{
};

namespace {
struct Origin
{
    std::string context;
    unsigned level;
    std::string function;
};

/// By the beginning of the line.
const std::map<std::string, Origin> origins{
    {"CITP processing now ", {"CITP.Stack", Os::Log::State, "void CITP::citp_stack::setEnabled(bool)"}},
    {"Network adapter change detected",
     {"CITP.Stack", Os::Log::State,
      "virtual void CITP::citp_stack::Changed(const Os::NetworkAdapter&, const Os::NetworkAdapter::State&, int)"}},
    {"Binding to address ", {"CITP.Stack", Os::Log::State, "void CITP::citp_stack::timepop()"}},
    {"Bind failed", {"CITP.Stack", Os::Log::Failure, "void CITP::citp_stack::timepop()"}},
    {"Multicast join failed", {"CITP.Stack", Os::Log::Failure, "void CITP::citp_stack::timepop()"}},
    {"UDP socket started ", {"CITP.Stack", Os::Log::State, "void CITP::citp_stack::timepop()"}},
    {"start connect to ",
     {"CITP.Stack", Os::Log::Traffic, "void CITP::citp_stack::handlePLOC(const QString&, const CITP::Msg_PEER_PLOC&)"}},
    {"connected to ", {"CITP.Stack", Os::Log::Traffic, "void CITP::citp_stack::rxconnected()"}},
    {"disconnected", {"CITP.Stack", Os::Log::Traffic, "void CITP::citp_stack::rxdisconnected()"}},
    {"Connection refused", {"CITP.Stack", Os::Log::Failure, "void CITP::citp_stack::rxerror()"}},
    {"The remote host closed the connection", {"CITP.Stack", Os::Log::Failure, "void CITP::citp_stack::rxerror()"}},
    {"removed ", {"CITP.Stack", Os::Log::State, "void CITP::citp_stack::removeTCP(int)"}},
    {"added ",
     {"CITP.Stack", Os::Log::State, "void CITP::citp_stack::handleSINF(const QString&, const CITP::Msg_MSEX_SINF&)"}},
    {"sendMsg failed: ",
     {"CITP.Stack", Os::Log::Failure, "bool CITP::citp_stack::sendMsg(const QString&, const CITP::Msg_Header&)"}},
    {"invalid size for CITP",
     {"CITP.Stack", Os::Log::Failure, "void CITP::citp_stack::processMsgIn(QByteArray&, const QString&)"}},
    {"lost in the byte stream",
     {"CITP.Stack", Os::Log::Failure, "void CITP::citp_stack::processMsgIn(QByteArray&, const QString&)"}},
    {"unhandled CITP ",
     {"CITP.Stack", Os::Log::Traffic, "void CITP::citp_stack::processMsgIn(QByteArray&, const QString&)"}},
    {"unhandled PINF ",
     {"CITP.Stack", Os::Log::Traffic, "void CITP::citp_stack::processMsgIn(QByteArray&, const QString&)"}},
    {"unhandled MSEX ",
     {"CITP.Stack", Os::Log::Traffic, "void CITP::citp_stack::processMsgIn(QByteArray&, const QString&)"}},
    {"unhandled FPTC ",
     {"CITP.Stack", Os::Log::Traffic, "void CITP::citp_stack::processMsgIn(QByteArray&, const QString&)"}},
    {"PLOC: ",
     {"CITP.Stack.Ploc", Os::Log::Traffic, "void CITP::citp_stack::processMsgIn(QByteArray&, const QString&)"}},
    {"<- ",
     {"CITP.Stack.Traffic", Os::Log::Traffic, "void CITP::citp_stack::processMsgIn(QByteArray&, const QString&)"}},
    {"-> ",
     {"CITP.Stack.Traffic", Os::Log::Traffic, "void CITP::citp_stack::rxPassDown(const SERV_ID&, const QByteArray&)"}},
};

/// clang writes a blank before & where g++ writes none.
std::string normalised(std::string signature)
{
    for (std::size_t at = 0; (at = signature.find(" &", at)) != std::string::npos;) {
        signature.erase(at, 1);
    }
    return signature;
}
} // namespace

TEST_F(LogLinesTest, EachNamesItsOperationFileAndContext)
{
    logEverything();
    for (const char* failure :
         {"Bind failed", "Multicast join failed", "Connection refused", "invalid size for CITP",
          "lost in the byte stream", "The remote host closed the connection", "sendMsg failed: server not found"}) {
        log.expectFailureLine(failure);
    }

    // Discovery that fails, then discovery that works.
    {
        const Descriptor taken = openDiscoveryPort(false);
        ASSERT_GE(taken.get(), 0);
        ArtNet::Adapter::Choose("none");
        enable();
        ArtNet::Adapter::Choose("lo");
    }
    stack->Changed(Os::NetworkAdapter("lo", {}), {}, 1);
    tick();

    // A server that refuses, and one that is removed after it has sent one message of each kind that is not handled.
    FakeServer refusing("127.0.0.3");
    refusing.stopListening();
    refusing.announce();
    EXPECT_TRUE(waitForLine("Connection refused"));
    FakeServer server;
    Connection connection = admit(server);
    stack->sendMsg(QStringLiteral("nobody"), CITP::Msg_MSEX_CInf());
    connection.send(Wire::withSize(Wire::message("MSEX", {}), 19).left(19));
    connection.send(Wire::message("MSEX", {}).replace(0, 4, "CITQ"));
    connection.send(Wire::message("PINX", {}));
    connection.send(Wire::pinf("Xxxx"));
    connection.send(Wire::msex(0, "Xxxx"));
    connection.send(Wire::fptc("Xxxx", Wire::u32(0)));
    sendMarker(server, connection);
    connection.close();
    EXPECT_TRUE(waitForEvent("serverDown " + server.key().toStdString()));
    EXPECT_TRUE(waitForLine("disconnected"));

    std::map<std::string, int> seen;
    for (const LogCapture::Entry& line : log.entries()) {
        const auto origin = std::find_if(origins.begin(), origins.end(), [&line](const auto& known) {
            return line.text.compare(0, known.first.size(), known.first) == 0;
        });
        if (origin == origins.end()) {
            ADD_FAILURE() << "not in the table: " << line.text;
            continue;
        }
        ++seen[origin->first];
        EXPECT_EQ(line.context, origin->second.context) << line.text;
        EXPECT_EQ(line.level, origin->second.level) << line.text;
        EXPECT_EQ(normalised(line.function), origin->second.function) << line.text;
        EXPECT_EQ(line.file, "citp_stack.cpp") << line.text;
        EXPECT_GT(line.line, 0) << line.text;
    }
    for (const auto& [text, origin] : origins) {
        EXPECT_GT(seen[text], 0) << "not written: " << text;
    }
}

TEST_F(LogLinesTest, NamesOfPeersAreWrittenInAscii)
{
    logEverything();
    enable();
    FakeServer server;
    // As single bytes on the wire; the last one is a no-break space.
    Connection connection = connectTo(server, "B\xFChne \xA0!");
    connection.send(Wire::sinf("Product"));
    const std::string key = server.key().toStdString();
    EXPECT_TRUE(waitForLine("added " + key + " B?hne ?! (total=1)"));
    connection.send(Wire::msex(0, "X\xE9xx"));
    EXPECT_TRUE(waitForLine("unhandled MSEX X?xx"));
    armReset();
    tick();
    EXPECT_EQ(log.count("removed " + key + " B?hne ?! (total=0)"), 1);
    for (const LogCapture::Entry& line : log.entries()) {
        EXPECT_TRUE(std::all_of(line.text.begin(), line.text.end(), [](char c) { return c > 0; })) << line.text;
    }
}

namespace {
/// Keeps what the stack's switch says while its line is written.
class SwitchSink : public Os::Log::Sink
{
public:
    explicit SwitchSink(const CITP::citp_stack* stack) : m_stack(stack), m_previous(Os::Log::SetSink(this)) {}
    ~SwitchSink() override { Os::Log::SetSink(m_previous); }
    void Write(const Os::Log::Line& line) override
    {
        if (std::string(line.text.c_str()) == "CITP processing now enabled") {
            wasEnabled = m_stack->m_enabled;
            wasReset = m_stack->m_resetPending;
            ++lines;
        }
    }

    bool wasEnabled = true;
    bool wasReset = true;
    int lines = 0;

private:
    const CITP::citp_stack* const m_stack;
    Os::Log::Sink* const m_previous;
};
} // namespace

TEST_F(LogLinesTest, TheSwitchIsLoggedBeforeItChanges)
{
    holdTicks();
    tick();
    const SwitchSink sink(stack);
    stack->setEnabled(true);
    EXPECT_EQ(sink.lines, 1);
    EXPECT_FALSE(sink.wasEnabled);
    EXPECT_FALSE(sink.wasReset);
    EXPECT_TRUE(stack->m_enabled);
    EXPECT_TRUE(stack->m_resetPending);
}
