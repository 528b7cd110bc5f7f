// Fuzz target: the memory that a stream costs the process with the recommended guards, held to a number of bytes for
// each byte on the wire. The input: a byte of options, the lengths of the pieces in which the stream is sent, and the
// stream, which may be sent several times over.
//
// With CITP_FUZZ_GUARDS=off in the environment the target searches for the worst stream without guards and fails at
// none.
// SPDX-License-Identifier: Apache-2.0
#include "heap_count.h"
#include "stack_harness.h"
#include "wire.h"

#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_thumbnails.h>
#include <citp/citp_options.h>

#include <QCoreApplication>
#include <QTimer>

#include <sys/socket.h>

#include <cstring>

using namespace CITP;

namespace {
enum Option : unsigned {
    Introduced = 1, ///< the server introduces itself first
    Repeats = 6     ///< the stream is sent 1, 4, 16 or 64 times, as often as fits into MaxSent
};

constexpr std::int64_t MaxSent = 32 * 1024; // far less than what the guard of unread notifications lets wait

/// The promise: what the process takes for each byte of a stream, with a copy that waits for a receiver in another
/// thread.
constexpr std::int64_t BytesPerByte = 40;
/// And what it takes beside it, once for a stream: the report of a guard and the lists of events of both threads, and
/// the registry's copy of the server's information, which exists beside the parsed one for a moment. Its longest list,
/// of at most 255 sources that share their texts with the parsed ones, takes 24 bytes for each, and a source takes one
/// byte of the message.
constexpr std::int64_t PerStream = 4 * 1024 + 255 * 24;
/// A server that is announced takes a record and a socket, whose number is limited and not their bytes.
constexpr std::int64_t PerAnnouncement = 64 * 1024;
constexpr int MaxAnnouncements = 2; // hosts that are not there are slow

#ifdef __clang__
/// libFuzzer takes each of these for a branch: more memory for a byte is progress.
__attribute__((section("__libfuzzer_extra_counters"))) std::uint8_t reached[512];
#else
std::uint8_t reached[512];
#endif

bool isGuarded()
{
    static const bool guarded = [] {
        const char* const guards = std::getenv("CITP_FUZZ_GUARDS");
        return !guards || std::strcmp(guards, "off") != 0;
    }();
    return guarded;
}

/// An application that listens to everything and, until read(), processes no event.
class BusyApplication
{
public:
    explicit BusyApplication(citp_stack* stack)
    {
        qRegisterMetaType<Msg_FPTC_PTCH>("CITP::Msg_FPTC_PTCH");
        listen(stack, &citp_stack::libraryThumbnail);
        listen(stack, &citp_stack::elementThumbnail);
        listen(stack, &citp_stack::libraryInfo);
        listen(stack, &citp_stack::mediaInfo);
        listen(stack, &citp_stack::effectInfo);
        listen(stack, &citp_stack::genericInfo);
        listen(stack, &citp_stack::libraryUpdated);
        listen(stack, &citp_stack::layerStatus);
        listen(stack, &citp_stack::patchMessage);
        listen(stack, &citp_stack::serverUp);
        listen(stack, &citp_stack::serverDown);
    }
    // All events of the thread: Qt keeps the places of those that are sent to one object.
    static void read() { QCoreApplication::sendPostedEvents(); }

private:
    template <typename Signal>
    void listen(citp_stack* stack, Signal signal)
    {
        QObject::connect(stack, signal, &m_receiver, [] {});
    }

    QObject m_receiver;
};

/// What the framing makes of a stream, as far as this target must know it.
struct Outline
{
    bool isEndless = false; ///< a size of 0, which is looked at for ever without guards
    int announcements = 0;
};

Outline outlineOf(const QByteArray& stream)
{
    Outline outline;
    qint64 position = 0;
    while (stream.size() - position >= 20) {
        const QByteArray header = stream.mid(static_cast<int>(position), 24);
        quint32 size = 0;
        for (int index = 3; index >= 0; --index)
            size = size << 8 | static_cast<unsigned char>(header.at(8 + index));
        outline.isEndless = outline.isEndless || size == 0;
        outline.announcements += header.mid(16) == "PINFPLoc" ? 1 : 0;
        if (size == 0)
            break;
        position += size;
    }
    return outline;
}

/// Says where the search has come to, whenever it has come further.
void noteRatio(std::int64_t taken, std::int64_t sent, const QByteArray& stream)
{
    static std::int64_t most = 0;
    const std::int64_t ratio = taken / sent;
    std::int64_t step = 0; // each is an eighth more than the last
    for (std::int64_t bound = 1; bound < ratio && step < 511; bound += std::max<std::int64_t>(1, bound / 8))
        ++step;
    std::fill(reached, reached + step + 1, std::uint8_t(1));
    if (ratio > most) {
        most = ratio;
        std::fprintf(stderr, "worst so far: %lld bytes for each of %lld bytes: %s\n", static_cast<long long>(ratio),
                     static_cast<long long>(sent), stream.left(64).toHex().constData());
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::Input input(data, size);
    const unsigned options = input.u8();
    const std::vector<int> lengths = input.lengths();
    QByteArray stream = input.rest();
    if (stream.isEmpty())
        return 0;
    const int fitting = static_cast<int>(std::max<std::int64_t>(MaxSent / stream.size(), 1));
    if (isGuarded())
        stream = stream.repeated(std::min(1 << (options & Repeats), fitting));
    const Outline outline = outlineOf(stream);
    if (outline.announcements > MaxAnnouncements || (outline.isEndless && !isGuarded()))
        return 0;

    fuzz::StackHarness& harness = fuzz::StackHarness::get();
    static FakeServer* const server = new FakeServer;
    static const BusyApplication application(harness.stack());
    const auto tick = [&harness] {
        harness.onWorker([&harness] { QMetaObject::invokeMethod(harness.stack(), "timepop", Qt::DirectConnection); });
    };
    static const bool isSetUp = [&] {
        Os::Log::SetMask("CITP*", 0);
        // What the stack does every two seconds is no part of the measurement.
        harness.onWorker([&harness] { harness.stack()->findChild<QTimer*>()->stop(); });
        if (isGuarded()) {
            citp_options guards = citp_options::recommended();
            guards.setMaxServers(10000); // an input is a new server, and many come within a second
            harness.stack()->setOptions(guards);
        }
        return true;
    }();
    static_cast<void>(isSetUp);
    // Takes up the options, and forgets which server a guard has disconnected.
    tick();

    std::int64_t taken = 0;
    std::int64_t wire = 0;
    server->announce();
    {
        Connection connection = server->accept();
        for (const QByteArray& expected : Wire::greeting())
            FUZZ_REQUIRE(connection.receive() == expected);
        std::uint64_t sent = 0;
        const auto send = [&](const QByteArray& bytes) {
            const bool isOpen = connection.trySend(bytes);
            sent += static_cast<std::uint64_t>(bytes.size());
            harness.settle(*server, sent);
            return isOpen;
        };
        // Whatever is set up for the first bytes of a connection is there before the measurement.
        send(options & Introduced ? Wire::sinf("Product") : Wire::pinf("PNam"));
        const std::vector<QByteArray> pieces = fuzz::pieces(stream, lengths);
        const std::int64_t before = HeapCount::now();
        HeapCount::resetPeak();
        for (const QByteArray& piece : pieces)
            if (!send(piece))
                break;
        taken = HeapCount::peak() - before;
        wire = static_cast<std::int64_t>(stream.size());
        shutdown(connection.descriptor(), SHUT_WR);
        connection.waitForEnd();
        connection.close();
    }
    harness.waitForNoServers();
    closeLeftovers();
    BusyApplication::read();

    const std::int64_t allowance = PerStream + outline.announcements * PerAnnouncement;
    noteRatio(std::max<std::int64_t>(taken - allowance, 0), wire, stream);
    FUZZ_REQUIRE(!isGuarded() || taken <= BytesPerByte * wire + allowance);
    return 0;
}
