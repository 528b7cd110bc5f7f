// Fuzz target: the discovery datagrams. The input is a byte of options, the lengths of the datagrams and their bytes,
// all of one sender; a second sender then announces a server, and the stack must find it as if nothing had been.
// SPDX-License-Identifier: Apache-2.0
#include "stack_harness.h"
#include "wire.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::Input input(data, size);
    const bool logEverything = input.u8() & 1;
    std::vector<QByteArray> datagrams;
    for (const int length : input.lengths())
        datagrams.push_back(input.bytes(static_cast<std::size_t>(length)));
    datagrams.push_back(input.rest());

    fuzz::StackHarness& harness = fuzz::StackHarness::get();
    // Where the announcements of the input lead, every connection is refused.
    static FakeServer* const stranger = [] {
        FakeServer* const made = new FakeServer("127.0.0.2");
        made->stopListening();
        return made;
    }();
    static FakeServer* const server = new FakeServer("127.0.0.3");
    Os::Log::SetMask("CITP.*", logEverything ? 31 : Os::Log::DefaultMask);
    Os::Log::SetMask("CITP.Message", 0);
    harness.takeEvents(server->key());
    harness.sink().take();

    fuzz::Complaints expected;
    for (const QByteArray& datagram : datagrams) {
        stranger->sendDatagram(datagram);
        if (datagram.size() < 20)
            ++expected.tooShort;
        else if (!datagram.startsWith("CITP"))
            ++expected.lost;
    }
    server->announce();
    {
        Connection connection = server->accept();
        for (const QByteArray& message : Wire::greeting())
            FUZZ_REQUIRE(connection.receive() == message);
        const QByteArray introduction = Wire::sinf("Product");
        connection.send(introduction);
        harness.settle(*server, static_cast<std::uint64_t>(introduction.size()));
        FUZZ_REQUIRE(harness.stack()->getServers() == std::vector<QString>{server->key()});
        connection.reset();
    }
    harness.waitForNoServers();
    closeLeftovers();
    FUZZ_REQUIRE((harness.takeEvents(server->key()) == std::vector<std::string>{"U", "D"}));
    FUZZ_REQUIRE(harness.sink().take() == expected);
    return 0;
}
