// Fuzz target: the framing and the dispatch of the real stack, over a real connection to a server that sends the input.
//
// The input: a byte of options, the lengths of the pieces in which the stream is sent, and the stream. What the stack
// makes of it is held against a simulation of the framing.
// SPDX-License-Identifier: Apache-2.0
#include "stack_harness.h"
#include "wait.h"
#include "wire.h"

#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_msg_msex_thumbnails.h>
#include <citp/citp_msg_peer.h>

#include <sys/socket.h>

using namespace CITP;

namespace {
enum Option : unsigned {
    EndByReset = 1,
    LogEverything = 2,
    SlowServer = 4, ///< introduces itself first, as a product that is sent one request at a time
    Requests = 24   ///< as many requests, by eights, are sent before the stream comes
};

/// What the stack must make of a stream.
struct Outcome
{
    bool endless = false;  ///< a size of 0: the stack looks at it for ever, as it is meant to
    int releases = 0;      ///< messages that let a waiting request go
    int announcements = 0; ///< each may have the stack try a host in vain
    fuzz::Complaints complaints;
    std::vector<std::string> events;

    bool isUp() const { return std::find(events.begin(), events.end(), "U") != events.end(); }
};

template <typename Message>
bool isValid(const QByteArray& message)
{
    return Message(message).valid;
}

bool isNotified(const QByteArray& message, const QByteArray& code)
{
    if (message.mid(16, 4) == "FPTC")
        return message.size() >= 28 && code == "Ptch" && isValid<Msg_FPTC_PTCH>(message);
    if (message.mid(16, 4) != "MSEX" || message.size() < 26)
        return false;
    return (code == "ELIn" && isValid<Msg_MSEX_ELIN>(message)) || (code == "MEIn" && isValid<Msg_MSEX_MEIN>(message)) ||
           (code == "EEIn" && isValid<Msg_MSEX_EEIN>(message)) || (code == "GLEI" && isValid<Msg_MSEX_GLEI>(message)) ||
           (code == "ELUp" && isValid<Msg_MSEX_ELUP>(message)) || (code == "LSta" && isValid<Msg_MSEX_LSTA>(message)) ||
           (code == "ELTh" && isValid<Msg_MSEX_ELTH>(message)) || (code == "EThn" && isValid<Msg_MSEX_ETHN>(message));
}

void dispatch(const QByteArray& message, Outcome& outcome)
{
    if (message.size() < 20) {
        ++outcome.complaints.tooShort;
        return;
    }
    if (!message.startsWith("CITP")) {
        ++outcome.complaints.lost;
        return;
    }
    const QByteArray code = Wire::code(message);
    const bool msex = message.mid(16, 4) == "MSEX" && message.size() >= 26;
    if (message.mid(16, 4) == "PINF" && code == "PLoc")
        ++outcome.announcements;
    if (msex && code == "SInf" && !outcome.isUp()) {
        outcome.events.push_back("U");
    }
    if (isNotified(message, code))
        outcome.events.push_back(code.toStdString());
    if (msex && (code == "ELIn" || code == "MEIn"))
        ++outcome.releases;
}

Outcome simulate(const QByteArray& stream)
{
    Outcome outcome;
    qint64 position = 0;
    while (stream.size() - position >= 20) {
        quint32 size = 0;
        for (int index = 3; index >= 0; --index)
            size = size << 8 | static_cast<unsigned char>(stream.at(static_cast<int>(position) + 8 + index));
        if (size == 0) {
            outcome.endless = true;
            return outcome;
        }
        if (stream.size() - position < static_cast<qint64>(size))
            break;
        dispatch(stream.mid(static_cast<int>(position), static_cast<int>(size)), outcome);
        position += size;
    }
    if (outcome.isUp())
        outcome.events.push_back("D");
    return outcome;
}

/// The requests that have come to the server by now.
int countRequests(Connection& connection, int expected)
{
    int count = 0;
    while (const auto request = connection.tryReceive(count < expected ? TestTimeout : 0)) {
        FUZZ_REQUIRE(Wire::code(*request) == "GELI");
        ++count;
    }
    return count;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::Input input(data, size);
    const unsigned options = input.u8();
    const std::vector<int> lengths = input.lengths();
    const QByteArray stream = input.rest();

    const QByteArray introduction = options & SlowServer ? Wire::sinf("coolux") : QByteArray();
    const Outcome outcome = simulate(introduction + stream);
    // A few hosts that are not there are enough, and slow.
    if (outcome.endless || outcome.announcements > 2)
        return 0;

    fuzz::StackHarness& harness = fuzz::StackHarness::get();
    static FakeServer* const server = new FakeServer;
    Os::Log::SetMask("CITP.Stack.*", options & LogEverything ? 31 : Os::Log::DefaultMask);
    Os::Log::SetMask("CITP", options & LogEverything ? 31 : Os::Log::DefaultMask);
    harness.takeEvents(server->key());
    harness.sink().take();

    server->announce();
    {
        Connection connection = server->accept();
        for (const QByteArray& expected : Wire::greeting())
            FUZZ_REQUIRE(connection.receive() == expected);
        std::uint64_t sent = 0;
        const auto send = [&](const QByteArray& bytes) {
            connection.send(bytes);
            sent += static_cast<std::uint64_t>(bytes.size());
            harness.settle(*server, sent);
        };
        send(introduction);
        const int requests = static_cast<int>((options & Requests) / 8);
        for (int index = 0; index < requests; ++index)
            FUZZ_REQUIRE(harness.stack()->sendMsg(server->key(), Msg_MSEX_GELI(0, 1, QString(), {})));
        for (const QByteArray& piece : fuzz::pieces(stream, lengths))
            send(piece);
        if (requests > 0) {
            // Without pacing all go at once. The stream itself may switch pacing on, too late for these.
            const int due = introduction.isEmpty() ? requests : std::min(requests, 1 + outcome.releases);
            FUZZ_REQUIRE(countRequests(connection, due) == due);
        }
        if (options & EndByReset) {
            connection.reset();
        } else {
            shutdown(connection.descriptor(), SHUT_WR);
            connection.waitForEnd();
            connection.close();
        }
    }
    harness.waitForNoServers();
    closeLeftovers();

    FUZZ_REQUIRE(harness.takeEvents(server->key()) == outcome.events);
    FUZZ_REQUIRE(harness.sink().take() == outcome.complaints);
    return 0;
}
