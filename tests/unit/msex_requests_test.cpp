// The MSEX requests: their images on the wire, and what they do with arguments that do not fit.
// SPDX-License-Identifier: Apache-2.0
#include "msex_testing.h"

#include <citp/citp_msg_msex_requests.h>

using namespace CITP;

namespace {
using Bytes = std::vector<unsigned char>;
using Texts = std::vector<QString>;

const char* const versions[] = {"1_0", "1_1", "1_2"};

QString text(const char* characters)
{
    return QString::fromLatin1(characters);
}

template <typename Request>
QByteArray serialised(const Request& request)
{
    // Something in the buffer, to see it replaced.
    QByteArray out("before");
    EXPECT_EQ(&(out >> request), &out);
    return out;
}

/// The body of the serialised request, in hex.
template <typename Request>
std::string bodyOf(const Request& request)
{
    return serialised(request).mid(Msg_MSEX::MIN_MSEX_LENGTH).toHex(' ').toStdString();
}

golden::Fields fieldsOf(const Msg_MSEX_GELI& m)
{
    return msex::headersOf(m)
        .add("libraryType", m.libraryType)
        .add("libraryParentId", m.libraryParentId)
        .addAll("libraryNumbers", m.libraryNumbers)
        .fields();
}

golden::Fields fieldsOf(const Msg_MSEX_GEIN& m)
{
    return msex::headersOf(m)
        .add("libraryType", m.libraryType)
        .add("libraryId", m.libraryId)
        .addAll("elementNumbers", m.elementNumbers)
        .fields();
}

golden::Fields fieldsOf(const Msg_MSEX_GELT& m)
{
    return msex::headersOf(m)
        .add("libraryType", m.libraryType)
        .addAll("libraryIds", m.libraryIds)
        .add("thumbnailHeight", m.thumbnailHeight)
        .add("thumbnailWidth", m.thumbnailWidth)
        .add("thumbnailFormat", m.thumbnailFormat)
        .fields();
}

golden::Fields fieldsOf(const Msg_MSEX_GETH& m)
{
    return msex::headersOf(m)
        .add("libraryType", m.libraryType)
        .add("libraryId", m.libraryId)
        .add("thumbnailHeight", m.thumbnailHeight)
        .add("thumbnailWidth", m.thumbnailWidth)
        .add("thumbnailFormat", m.thumbnailFormat)
        .addAll("elementNumbers", m.elementNumbers)
        .fields();
}

/// Holds @p request against the golden image @p name: members, debug text, and every byte on the wire.
template <typename Request>
void expectGolden(const std::string& name, const Request& request)
{
    SCOPED_TRACE(name);
    const golden::Message expected = golden::load(name);
    EXPECT_EQ(fieldsOf(request), expected.fields);
    EXPECT_EQ(golden::textOf(request), expected.text);
    EXPECT_EQ(serialised(request).toHex(' ').toStdString(), expected.bytes.toHex(' ').toStdString());
}
} // namespace

TEST(MsexRequests, GoldenGeliInEveryVersion)
{
    const char* const parents[] = {"", "1,2,0,0", "1,2,0,0"};
    for (unsigned char minor = 0; minor < 3; ++minor)
        expectGolden(std::string("geli_") + versions[minor],
                     Msg_MSEX_GELI(minor, 1, text(parents[minor]), Bytes{0, 255}));
}

TEST(MsexRequests, GoldenGeinInEveryVersion)
{
    const char* const ids[] = {"3", "3,2,1,0", "3,2,1,0"};
    for (unsigned char minor = 0; minor < 3; ++minor)
        expectGolden(std::string("gein_") + versions[minor], Msg_MSEX_GEIN(minor, 2, text(ids[minor]), Bytes{5, 6}));
}

TEST(MsexRequests, GoldenGeltInEveryVersion)
{
    const Texts fourLevels{text("1,2,3,4"), text("5,0,0,0")};
    const Texts ids[] = {Texts{text("7"), text("255")}, fourLevels, fourLevels};
    for (unsigned char minor = 0; minor < 3; ++minor)
        expectGolden(std::string("gelt_") + versions[minor],
                     Msg_MSEX_GELT(minor, 1, ids[minor], 120, 160, text("jpeg")));
}

TEST(MsexRequests, GoldenGethInEveryVersion)
{
    const char* const ids[] = {"8", "8,0,0,1", "8,0,0,1"};
    for (unsigned char minor = 0; minor < 3; ++minor)
        expectGolden(std::string("geth_") + versions[minor],
                     Msg_MSEX_GETH(minor, 1, text(ids[minor]), 120, 160, text("PNG"), Bytes{1, 2, 200}));
}

TEST(MsexRequests, GeliInVersion10HasNoParentId)
{
    const Msg_MSEX_GELI request(0, 1, text("9,9,9,9"), Bytes{0, 1});
    EXPECT_EQ(bodyOf(request), "01 02 00 01");
    EXPECT_EQ(serialised(request).size(), 30);
}

TEST(MsexRequests, GeliInVersion12WithoutNumbersHasATwoByteCountOf0)
{
    EXPECT_EQ(bodyOf(Msg_MSEX_GELI(2, 1, text("1,0,0,0"), Bytes{})), "01 01 00 00 00 00 00");
}

TEST(MsexRequests, GeinInVersion10SendsTheLibraryAsOneByte)
{
    EXPECT_EQ(bodyOf(Msg_MSEX_GEIN(0, 1, text("3"), Bytes{5})), "01 03 01 05");
}

TEST(MsexRequests, GeltTakesHeightBeforeWidthAndSendsWidthBeforeHeight)
{
    EXPECT_EQ(bodyOf(Msg_MSEX_GELT(1, 1, Texts{text("1,2,3,4")}, 120, 160, text("jpeg"))),
              "4a 50 45 47 a0 00 78 00 01 01 01 01 02 03 04");
}

TEST(MsexRequests, GethTakesHeightBeforeWidthAndSendsWidthBeforeHeight)
{
    EXPECT_EQ(bodyOf(Msg_MSEX_GETH(0, 1, text("7"), 0x0102, 0x0304, text("r"), Bytes{})),
              "52 47 42 38 04 03 02 01 01 01 07 00");
}

TEST(MsexRequests, GethInVersion11WithAShortLibraryIdIsInvalidAndLeavesTheBufferAlone)
{
    const Msg_MSEX_GETH request(1, 1, text("1,2"), 120, 160, text("JPEG"), Bytes{1});
    EXPECT_FALSE(request.valid);
    EXPECT_EQ(serialised(request), QByteArray("before"));
}

TEST(MsexRequests, GethInVersion10WithAShortLibraryIdIsValid)
{
    const Msg_MSEX_GETH request(0, 1, text("7"), 120, 160, text("JPEG"), Bytes{1});
    EXPECT_TRUE(request.valid);
    EXPECT_EQ(serialised(request).size(), 26 + 9 + 1 + 1 + 1 + 1);
}

TEST(MsexRequests, GethCountsSevenCharactersAsEnough)
{
    EXPECT_FALSE(Msg_MSEX_GETH(2, 1, text("1,0,0,"), 1, 1, text("JPEG"), Bytes{}).valid);
    EXPECT_TRUE(Msg_MSEX_GETH(2, 1, text("1,0,0,0"), 1, 1, text("JPEG"), Bytes{}).valid);
    EXPECT_FALSE(Msg_MSEX_GETH(9, 1, text("1,0,0,"), 1, 1, text("JPEG"), Bytes{}).valid);
}

TEST(MsexRequests, TheOtherRequestsAreValidWithAShortLibraryId)
{
    EXPECT_TRUE(Msg_MSEX_GELI(1, 1, text("1,2"), Bytes{}).valid);
    EXPECT_TRUE(Msg_MSEX_GEIN(1, 1, text("1,2"), Bytes{}).valid);
    EXPECT_TRUE(Msg_MSEX_GELT(1, 1, Texts{text("1,2")}, 1, 1, text("JPEG")).valid);
    EXPECT_EQ(bodyOf(Msg_MSEX_GEIN(1, 1, text("1,2"), Bytes{})), "01 01 02 00 00 00");
}

TEST(MsexRequests, GeinInVersion10With256ElementsWritesACountOf0AndAllNumbers)
{
    Bytes numbers(256);
    for (unsigned index = 0; index < 256; ++index)
        numbers[index] = static_cast<unsigned char>(index);
    const QByteArray out = serialised(Msg_MSEX_GEIN(0, 1, text("3"), numbers));
    ASSERT_EQ(out.size(), 26 + 3 + 256);
    EXPECT_EQ(out[28], '\0');
    EXPECT_EQ(out.mid(29), QByteArray(reinterpret_cast<const char*>(numbers.data()), 256));
    EXPECT_EQ(Msg_Header::messageSize(out), 26 + 3 + 256);
}

TEST(MsexRequests, CountsAreCutToTheirWidthAndAllEntriesFollow)
{
    const QByteArray oneByte = serialised(Msg_MSEX_GELI(1, 1, text("0"), Bytes(300)));
    EXPECT_EQ(oneByte[31], static_cast<char>(44));
    EXPECT_EQ(oneByte.size(), 26 + 1 + 4 + 1 + 300);

    const QByteArray twoBytes = serialised(Msg_MSEX_GELI(2, 1, text("0"), Bytes(65536 + 258)));
    EXPECT_EQ(twoBytes.mid(31, 2).toHex(), QByteArray("0201"));
    EXPECT_EQ(twoBytes.size(), 26 + 1 + 4 + 2 + 65536 + 258);

    const QByteArray libraries = serialised(Msg_MSEX_GELT(0, 1, Texts(257, text("1")), 1, 1, text("JPEG")));
    EXPECT_EQ(libraries[36], static_cast<char>(1));
    EXPECT_EQ(libraries.size(), 26 + 9 + 1 + 1 + 257);
}

TEST(MsexRequests, AnUnknownVersionHasNeitherLibraryNorCount)
{
    EXPECT_EQ(bodyOf(Msg_MSEX_GELI(3, 1, text("1,2,3,4"), Bytes{8, 9})), "01 08 09");
    EXPECT_EQ(bodyOf(Msg_MSEX_GEIN(3, 1, text("1,2,3,4"), Bytes{8, 9})), "01 08 09");
    EXPECT_EQ(bodyOf(Msg_MSEX_GETH(3, 1, text("1,2,3,4"), 2, 3, text("JPEG"), Bytes{8, 9})),
              "4a 50 45 47 03 00 02 00 01 01 08 09");
}

TEST(MsexRequests, GeltTakesAnUnknownVersionAs12)
{
    const Texts ids{text("1,2,3,4")};
    EXPECT_EQ(bodyOf(Msg_MSEX_GELT(255, 1, ids, 2, 3, text("png"))), "50 4e 47 20 03 00 02 00 01 01 01 00 01 02 03 04");
    EXPECT_EQ(bodyOf(Msg_MSEX_GELT(255, 1, ids, 2, 3, text("png"))),
              bodyOf(Msg_MSEX_GELT(2, 1, ids, 2, 3, text("png"))));
}

TEST(MsexRequests, OneByteLibraryNumbersAreCutAndTextIs0)
{
    const Texts ids{text("260"), text("-1"), text("x"), text(""), text(" 7 "), text("1,2")};
    EXPECT_EQ(bodyOf(Msg_MSEX_GELT(0, 1, ids, 0, 0, text(""))), "4a 50 45 47 00 00 00 00 01 01 06 04 00 00 00 07 00");
}

TEST(MsexRequests, DefaultConstructedRequestsAreEmptyAndValid)
{
    const Msg_MSEX_GELI geli;
    const Msg_MSEX_GEIN gein;
    const Msg_MSEX_GELT gelt;
    const Msg_MSEX_GETH geth;
    EXPECT_TRUE(geli.valid && gein.valid && gelt.valid && geth.valid);
    EXPECT_TRUE(geli.libraryType == 0 && geli.libraryParentId.isEmpty() && geli.libraryNumbers.empty());
    EXPECT_TRUE(gein.libraryType == 0 && gein.libraryId.isEmpty() && gein.elementNumbers.empty());
    EXPECT_TRUE(gelt.libraryType == 0 && gelt.libraryIds.empty() && gelt.thumbnailFormat.isEmpty());
    EXPECT_TRUE(gelt.thumbnailHeight == 0 && gelt.thumbnailWidth == 0);
    EXPECT_TRUE(geth.libraryType == 0 && geth.libraryId.isEmpty() && geth.elementNumbers.empty());
    EXPECT_TRUE(geth.thumbnailHeight == 0 && geth.thumbnailWidth == 0 && geth.thumbnailFormat.isEmpty());
}

TEST(MsexRequests, CopyKeepsInvalidityAndAssignmentLeavesItAlone)
{
    const Msg_MSEX_GETH invalid(1, 4, text("1,2"), 5, 6, text("JPEG"), Bytes{1});
    EXPECT_FALSE(Msg_MSEX_GETH(invalid).valid);
    EXPECT_EQ(fieldsOf(Msg_MSEX_GETH(invalid)), fieldsOf(invalid));

    Msg_MSEX_GETH target;
    target = invalid;
    EXPECT_TRUE(target.valid);
    EXPECT_EQ(target.versionMinor, 1);
    EXPECT_EQ(target.libraryId, text("1,2"));
    EXPECT_EQ(target.elementNumbers, Bytes{1});
    EXPECT_EQ(target.contentType(), QString());
}
