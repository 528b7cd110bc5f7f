// The simulator's request parser and stream cutter alone: every length, every byte, and streams in pieces.
// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <QByteArray>
#include <random>

#include "framing.h"
#include "requests.h"

using namespace MediaServer;

namespace {
QByteArray hex(const char* digits)
{
    return QByteArray::fromHex(digits);
}

// One message of each kind, and of each MSEX version where it matters.
const std::vector<std::pair<RequestKind, QByteArray>>& samples()
{
    const char* const msexHeader = "43495450 01 00 0500 00000000 0100 0000 4D534558";
    static const std::vector<std::pair<RequestKind, QByteArray>> all = {
        {RequestKind::PeerName, hex("43495450 01 00 0000 1D000000 0100 0000 50494E46 504E616D 5461726E00")},
        {RequestKind::SendPatch,
         hex("43495450 01 00 0000 22000000 0100 0000 46505443 53507463 00000000 0200 0100 0201")},
        {RequestKind::ClientInfo, hex(msexHeader) + hex("01 02 43496E66 03 0001 0101 0201")},
        {RequestKind::ListLibraries, hex(msexHeader) + hex("01 00 47454C49 01 02 03 04")},
        {RequestKind::ListLibraries, hex(msexHeader) + hex("01 01 47454C49 01 01020304 02 03 04")},
        {RequestKind::ListLibraries, hex(msexHeader) + hex("01 02 47454C49 01 01020304 0200 03 04")},
        {RequestKind::ListElements, hex(msexHeader) + hex("01 00 4745496E 01 07 02 03 04")},
        {RequestKind::ListElements, hex(msexHeader) + hex("01 01 4745496E 01 01020304 02 03 04")},
        {RequestKind::ListElements, hex(msexHeader) + hex("01 02 4745496E 01 01020304 0200 03 04")},
        {RequestKind::LibraryThumbnails, hex(msexHeader) + hex("01 00 47454C54 4A504547 A000 7800 01 01 02 03 04")},
        {RequestKind::LibraryThumbnails,
         hex(msexHeader) + hex("01 01 47454C54 4A504547 A000 7800 01 01 02 01020304 05060708")},
        {RequestKind::LibraryThumbnails,
         hex(msexHeader) + hex("01 02 47454C54 4A504547 A000 7800 01 01 0200 01020304 05060708")},
        {RequestKind::ElementThumbnails, hex(msexHeader) + hex("01 00 47455468 504E4720 A000 7800 01 01 07 02 03 04")},
        {RequestKind::ElementThumbnails,
         hex(msexHeader) + hex("01 01 47455468 504E4720 A000 7800 01 01 01020304 02 03 04")},
        {RequestKind::ElementThumbnails,
         hex(msexHeader) + hex("01 02 47455468 504E4720 A000 7800 01 01 01020304 0200 03 04")},
    };
    return all;
}
} // namespace

TEST(MediaserverRequest, ReadsEachKind)
{
    for (const auto& [kind, message] : samples()) {
        const Request request = parseRequest(message);
        SCOPED_TRACE(message.toHex().toStdString());
        EXPECT_EQ(request.kind, kind);
        const bool numbered = kind == RequestKind::ListLibraries || kind == RequestKind::ListElements ||
                              kind == RequestKind::ElementThumbnails;
        EXPECT_EQ(request.numbers, numbered ? (std::vector<quint8>{3, 4}) : std::vector<quint8>{});
        if (numbered && request.versionMinor > 0) {
            EXPECT_EQ(request.libraryId, 0x04030201U);
        }
        if (kind == RequestKind::ListElements && request.versionMinor == 0) {
            EXPECT_EQ(request.libraryId, 7U);
        }
        if (kind == RequestKind::LibraryThumbnails) {
            EXPECT_EQ(request.libraryIds, request.versionMinor == 0 ? (std::vector<quint32>{3, 4})
                                                                    : (std::vector<quint32>{0x04030201, 0x08070605}));
        }
        if (kind == RequestKind::LibraryThumbnails || kind == RequestKind::ElementThumbnails) {
            EXPECT_EQ(request.format.toStdString(), kind == RequestKind::LibraryThumbnails ? "JPEG" : "PNG ");
            EXPECT_EQ(request.width, 160);
            EXPECT_EQ(request.height, 120);
        }
    }
    EXPECT_EQ(parseRequest(samples().at(0).second).peerName.toStdString(), "Tarn");
    EXPECT_EQ(parseRequest(samples().at(1).second).fixtures, (std::vector<quint16>{1, 258}));
    EXPECT_EQ(parseRequest(samples().at(2).second).versions, (std::vector<quint16>{0x100, 0x101, 0x102}));
    EXPECT_EQ(parseRequest(samples().at(2).second).index, 5);
}

TEST(MediaserverRequest, CallsEveryShorterMessageMalformed)
{
    for (const auto& [kind, message] : samples()) {
        for (int length = 0; length < message.size(); ++length) {
            const Request request = parseRequest(message.left(length));
            // A header alone, without a code of its layer, is cut short too.
            EXPECT_EQ(request.kind, RequestKind::Malformed) << message.toHex().toStdString() << ' ' << length;
            EXPECT_FALSE(request.problem.isEmpty());
        }
    }
}

TEST(MediaserverRequest, AnswersNoVersionThatItDoesNotKnow)
{
    for (const auto& [kind, message] : samples()) {
        if (kind == RequestKind::PeerName || kind == RequestKind::SendPatch || kind == RequestKind::ClientInfo)
            continue;
        QByteArray later = message;
        later[21] = 3;
        EXPECT_EQ(parseRequest(later).kind, RequestKind::Unknown);
        later = message;
        later[20] = 2;
        EXPECT_EQ(parseRequest(later).kind, RequestKind::Unknown);
    }
}

TEST(MediaserverRequest, TakesAnyBytes)
{
    std::mt19937 random(1);
    for (int round = 0; round < 200000; ++round) {
        QByteArray message = samples().at(random() % samples().size()).second;
        for (auto changes = random() % 8; changes > 0; --changes)
            message[static_cast<int>(random() % static_cast<quint32>(message.size()))] = static_cast<char>(random());
        const Request request = parseRequest(message);
        // A count is never believed beyond the bytes that are there.
        EXPECT_LE(
            request.numbers.size() + request.libraryIds.size() + request.fixtures.size() + request.versions.size(),
            static_cast<std::size_t>(message.size()));
    }
}

TEST(MediaserverRequest, CutsAStreamAtAnyPieceSize)
{
    QByteArray stream;
    std::vector<QByteArray> whole;
    for (const auto& [kind, sample] : samples()) {
        QByteArray message = sample;
        message[8] = static_cast<char>(message.size());
        whole.push_back(message);
        stream += message;
    }
    for (int piece = 1; piece <= stream.size(); ++piece) {
        MessageCutter cutter;
        std::vector<QByteArray> cut;
        for (int at = 0; at < stream.size(); at += piece) {
            cutter.append(stream.mid(at, piece));
            for (QByteArray message; cutter.next(message);)
                cut.push_back(message);
        }
        EXPECT_EQ(cut, whole) << piece;
        EXPECT_EQ(cutter.pending(), 0);
        EXPECT_TRUE(cutter.problem().isEmpty());
    }
}

TEST(MediaserverRequest, StaysBrokenAfterAnImpossibleSize)
{
    MessageCutter cutter;
    QByteArray message;
    cutter.append(hex("43495450 01 00 0000 13000000 0100 0000 50494E46"));
    EXPECT_FALSE(cutter.next(message));
    EXPECT_FALSE(cutter.problem().isEmpty());
    cutter.append(samples().at(0).second);
    EXPECT_FALSE(cutter.next(message));
}
