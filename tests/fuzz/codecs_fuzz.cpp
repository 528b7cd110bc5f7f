// Fuzz target: the field codecs, each held against an oracle that is as plain as can be. The input is an offset of four
// bytes and the buffer.
// SPDX-License-Identifier: Apache-2.0
#include "fuzz_input.h"

#include <citp/citp_codecs.h>

#include <QString>
#include <QStringList>

#include <string>

using namespace CITP;

namespace {
using Bytes = std::vector<unsigned char>;

/// Byte @p index of @p data, which may lie anywhere.
bool byteAt(const Bytes& data, std::uint64_t index, unsigned& value)
{
    if (index >= data.size())
        return false;
    value = data[static_cast<std::size_t>(index)];
    return true;
}

void checkTexts(const QByteArray& view, const Bytes& data, unsigned offset)
{
    QString expected;
    unsigned value = 0;
    for (std::uint64_t at = offset; byteAt(data, at, value) && value != 0; ++at)
        expected += QChar(static_cast<char16_t>(value));
    FUZZ_REQUIRE(get8bitunicode(view, offset) == expected);

    expected.clear();
    int consumed = 0;
    unsigned low = 0;
    unsigned high = 0;
    for (std::uint64_t at = offset; byteAt(data, at, low) && byteAt(data, at + 1, high); at += 2) {
        const unsigned unit = low | high << 8;
        consumed += 2;
        if (unit == 0)
            break;
        if (unit != 0xfeff || consumed > 2)
            expected += QChar(static_cast<char16_t>(unit));
    }
    QString text(QStringLiteral("left over"));
    FUZZ_REQUIRE(getUCS2(text, view, offset) == consumed);
    FUZZ_REQUIRE(text == expected);

    const bool whole = byteAt(data, offset, low) && byteAt(data, std::uint64_t(offset) + 1, high);
    FUZZ_REQUIRE(getShort(view, offset) == (whole ? (low | high << 8) : 0));
}

void checkHexDump(const QByteArray& view, const Bytes& data)
{
    std::string expected;
    std::string column;
    char part[32];
    for (std::size_t index = 0; index < data.size(); ++index) {
        if (index % 16 == 0) {
            std::snprintf(part, sizeof part, "%010u  ", static_cast<unsigned>(index));
            expected += part;
        }
        std::snprintf(part, sizeof part, "%2.2x ", static_cast<unsigned>(data[index]));
        expected += part;
        column += data[index] >= ' ' && data[index] <= '~' ? static_cast<char>(data[index]) : '.';
        if (index % 16 == 15) {
            expected += column + "\n";
            column.clear();
        }
    }
    if (!column.empty()) {
        expected += std::string(3 * (16 - column.size()), ' ') + column;
    }
    FUZZ_REQUIRE(hexDump(view).toStdString() == expected);
}

/// The decimal number @p field, its low @p bits; only for a field of digits alone.
std::uint64_t decimal(const QString& field, int bits)
{
    std::uint64_t value = 0;
    for (const QChar digit : field)
        value = (value * 10 + (digit.unicode() - u'0')) & ((std::uint64_t(1) << bits) - 1);
    return value;
}

void checkLibraryFormat(const QString& text)
{
    const unsigned id = fromLibraryFormat(text);
    QString back(QStringLiteral("left over"));
    FUZZ_REQUIRE(fromLibraryFormat(fromLibraryFormat(back, id)) == id);
    const QStringList levels = back.split(QLatin1Char(','));
    FUZZ_REQUIRE(levels.size() == 4);
    for (int level = 0; level < 4; ++level)
        FUZZ_REQUIRE(levels.at(level).toUInt() == (id >> (8 * level) & 0xff));

    for (const QChar character : text)
        if (character != QLatin1Char(',') && (character < QLatin1Char('0') || character > QLatin1Char('9')))
            return; // what people may type besides is the codec's own business
    unsigned expected = 0;
    if (!text.contains(QLatin1Char(','))) {
        const QString digits = text.size() > 18 ? QString() : text;
        const std::uint64_t value = decimal(digits, 63);
        expected = value <= 0xffffffffU ? static_cast<unsigned>(value) : 0;
        if (text.size() > 18)
            return; // may carry any number of leading zeros
    } else {
        int shift = 0;
        for (const QString& field : text.split(QLatin1Char(','))) {
            if (!field.isEmpty() && shift < 32) {
                expected |= static_cast<unsigned>(decimal(field, 32) & 0xff) << shift;
                shift += 8;
            }
        }
    }
    FUZZ_REQUIRE(id == expected);
}

void checkGraphicFormat(const QString& text, unsigned format)
{
    const char16_t first = text.isEmpty() ? u'\0' : text.at(0).unicode();
    const char* const expected = first == u'P' || first == u'p'   ? "PNG "
                                 : first == u'R' || first == u'r' ? "RGB8"
                                                                  : "JPEG";
    QString back(QStringLiteral("left over"));
    FUZZ_REQUIRE(fromGraphicFormat(back, fromGraphicFormat(text)) == QLatin1String(expected));

    fromGraphicFormat(back, format);
    FUZZ_REQUIRE(back.size() == 4);
    for (int index = 0; index < 4; ++index)
        FUZZ_REQUIRE(back.at(index).unicode() == (format >> (8 * index) & 0xff));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::Input input(data, size);
    const std::uint32_t offset = input.u32();
    const QByteArray rest = input.rest();
    const fuzz::ExactBytes exact(rest);
    const QByteArray view = exact.view();
    const Bytes bytes(rest.begin(), rest.end());

    checkTexts(view, bytes, offset);
    checkTexts(view, bytes, offset % (static_cast<unsigned>(bytes.size()) + 2));
    checkTexts(view, bytes, 0);
    checkHexDump(view, bytes);

    QString wide;
    getUCS2(wide, view, 0);
    for (const QString& text : {get8bitunicode(view, 0), wide}) {
        checkLibraryFormat(text);
        checkGraphicFormat(text, offset);
        QString joined(QStringLiteral("before"));
        addToStr(addToStr(joined, text, text), text, offset);
        FUZZ_REQUIRE(joined == QStringLiteral("before") + text + text + text + QString::number(offset));
    }
    return 0;
}
