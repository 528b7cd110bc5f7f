// Fuzz target: what citp-console makes of a capture. The input is a byte of options and, depending on it, one TCP
// stream with the way its segments arrive, or frames as a capture file holds them.
//
// SPDX-License-Identifier: Apache-2.0
#include "fuzz_input.h"

#include <citp_system/os_log.h>
#include <pcap/dlt.h>

#include <algorithm>
#include <string>

#include "decode/event.h"
#include "decode/event_text.h"
#include "decode/summary.h"

using namespace Console;
using Tools::Budget;
using Tools::Classifier;
using Tools::Decoder;
using Tools::MessageCutter;
using Tools::readPacket;
using Tools::StreamItem;
using Tools::TcpStream;

namespace {
/// What a stream came to, in words.
class Words
{
public:
    std::function<void(const StreamItem&)> out()
    {
        return [this](const StreamItem& cut) {
            m_text += std::to_string(static_cast<int>(cut.kind)) + ' ' + cut.message.toHex().toStdString() + ' ' +
                      cut.text.toStdString() + '\n';
            m_bytes += cut.message.size();
        };
    }
    const std::string& text() const { return m_text; }
    qint64 bytes() const { return m_bytes; }

private:
    std::string m_text;
    qint64 m_bytes = 0;
};

/// However the segments of a stream arrive, if all arrive at all, the same comes out.
void checkStream(fuzz::Input& input, bool startsAtMessage)
{
    const std::uint32_t first = input.u32();
    const unsigned order = input.u8();
    const std::vector<int> lengths = input.lengths();
    const QByteArray stream = input.rest();

    Budget wholeBudget(1 << 20);
    Words expected;
    {
        MessageCutter cutter(expected.out(), wholeBudget, startsAtMessage);
        cutter.bytes(stream, 0);
        FUZZ_REQUIRE(cutter.capacity() <= 4 * ((1 << 20) - wholeBudget.left()));
        cutter.finish(true);
    }
    FUZZ_REQUIRE(expected.bytes() <= stream.size());
    FUZZ_REQUIRE(wholeBudget.left() == 1 << 20);

    struct Segment
    {
        int offset;
        QByteArray bytes;
    };
    std::vector<Segment> segments;
    int offset = 0;
    for (const QByteArray& piece : fuzz::pieces(stream, lengths)) {
        segments.push_back({offset, piece});
        offset += static_cast<int>(piece.size());
    }
    if ((order & 1) != 0)
        std::reverse(segments.begin(), segments.end());
    if ((order & 2) != 0)
        std::rotate(segments.begin(), segments.begin() + static_cast<int>(segments.size() / 2), segments.end());

    Budget budget(1 << 20);
    Words words;
    {
        MessageCutter cutter(words.out(), budget, startsAtMessage);
        TcpStream pieces(cutter, budget);
        pieces.start(first);
        for (const Segment& segment : segments) {
            // Repeated, and begun earlier than need be: what overlaps must not count twice.
            const int earlier = (order & 4) != 0 ? std::min(segment.offset, 9) : 0;
            const fuzz::ExactBytes exact(
                stream.mid(segment.offset - earlier, earlier + static_cast<int>(segment.bytes.size())));
            for (int times = (order & 8) != 0 ? 2 : 1; times > 0; --times)
                pieces.add(first + static_cast<std::uint32_t>(segment.offset - earlier), exact.view(),
                           static_cast<int>(exact.view().size()), 0);
            FUZZ_REQUIRE(cutter.capacity() <= 4 * ((1 << 20) - budget.left()));
        }
        pieces.acknowledge(first + static_cast<std::uint32_t>(stream.size()) + 1, 0);
        pieces.finish();
        cutter.finish(true);
    }
    FUZZ_REQUIRE(words.text() == expected.text());
    FUZZ_REQUIRE(budget.left() == 1 << 20);
}

/// Frames of any kind do no harm, nothing is kept beyond the budget, and no more comes out than went in.
void checkFrames(fuzz::Input& input, int linkType)
{
    struct Frame
    {
        qint64 timeUs;
        fuzz::ExactBytes bytes;
    };
    std::vector<Frame> frames;
    qint64 timeUs = 0;
    qint64 total = 0;
    while (!input.isEmpty()) {
        // Up to 25 s between two, so that some are given up.
        timeUs += input.u8() * 100000;
        const unsigned low = input.u8();
        const QByteArray bytes = input.bytes(low | (input.u8() & 0x07) << 8);
        total += bytes.size();
        frames.push_back({timeUs, fuzz::ExactBytes(bytes)});
    }

    Classifier classifier;
    for (const Frame& frame : frames)
        classifier.learn(readPacket(linkType, frame.bytes.view(), frame.timeUs));
    Summary summary;
    qint64 said = 0;
    Decoder decoder(classifier, [&](const Event& event) {
        said += event.message.size();
        FUZZ_REQUIRE((event.kind == StreamItem::Kind::Message) == !event.message.isEmpty());
        FUZZ_REQUIRE(!toText(event).isEmpty() && !toJson(event).isEmpty());
        summary.add(event);
    });
    for (const Frame& frame : frames) {
        decoder.add(readPacket(linkType, frame.bytes.view(), frame.timeUs));
        FUZZ_REQUIRE(decoder.heldBytes() >= 0 && decoder.heldBytes() <= Decoder::MaxHeldBytes);
    }
    decoder.finish();
    FUZZ_REQUIRE(decoder.heldBytes() == 0);
    FUZZ_REQUIRE(said <= total);
    FUZZ_REQUIRE(summary.lines().isEmpty() == summary.objects().empty());
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const bool isQuiet = [] {
        Os::Log::SetMask("CITP.Message", 0);
        return true;
    }();
    static_cast<void>(isQuiet);
    constexpr int LinkTypes[] = {DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_NULL, DLT_RAW, DLT_IPV4, DLT_LOOP};
    fuzz::Input input(data, size);
    const unsigned options = input.u8();
    if (options < 2)
        checkStream(input, options == 0);
    else
        checkFrames(input, LinkTypes[options % std::size(LinkTypes)]);
    return 0;
}
