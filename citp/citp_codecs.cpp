// Field codecs, debug text, and the log contexts of the message classes.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_codecs.h>

#include "citp_log_p.h"
#include "citp_msex_fields_p.h"
#include "citp_wire_p.h"

#include <QtEndian>

#include <algorithm>
#include <array>
#include <cstring>

namespace CITP {
namespace {
/// Writes @p value in decimal, at most ten characters, so that it ends before @p end.
/// @return the first character
template <typename Character>
Character* writeDecimal(Character* end, unsigned int value)
{
    for (; value > 9; value /= 10) {
        *--end = Character('0' + value % 10);
    }
    *--end = Character('0' + value);
    return end;
}

/// A level of a library identifier in decimal, followed by a comma.
struct LevelText
{
    std::array<char16_t, 4> text;
    std::size_t length;
};

/// All levels, "0," to "255,".
constexpr std::array<LevelText, 256> levelTexts = [] {
    std::array<LevelText, 256> texts{};
    for (std::size_t level = 0; level < texts.size(); ++level) {
        auto& [text, length] = texts[level];
        if (level > 99) {
            text[length++] = static_cast<char16_t>(u'0' + level / 100);
        }
        if (level > 9) {
            text[length++] = static_cast<char16_t>(u'0' + level / 10 % 10);
        }
        text[length++] = static_cast<char16_t>(u'0' + level % 10);
        text[length++] = u',';
    }
    return texts;
}();

/// The low 8 bits of the number at the start of the field from @p digit to @p end; 0 if there is none. White space and
/// a sign may precede the number. Users type these fields, so trailing characters are ignored. Unsigned arithmetic
/// keeps the low bits correct for any number of digits.
unsigned int levelFromField(const QChar* digit, const QChar* end)
{
    // Only ASCII white space.
    while (digit != end &&
           (*digit == QLatin1Char(' ') || (*digit >= QLatin1Char('\t') && *digit <= QLatin1Char('\r')))) {
        ++digit;
    }
    const bool negative = digit != end && *digit == QLatin1Char('-');
    if (digit != end && (negative || *digit == QLatin1Char('+'))) {
        ++digit;
    }
    unsigned int value = 0;
    for (; digit != end && *digit >= QLatin1Char('0') && *digit <= QLatin1Char('9'); ++digit) {
        value = value * 10 + (digit->unicode() - u'0');
    }
    return (negative ? 0 - value : value) & 0xff;
}
} // namespace

QString codeText(const char* bytes)
{
    switch (qFromLittleEndian<quint32>(bytes)) {
        case codeNumber("CITP"):
            return QStringLiteral("CITP");
        case codeNumber("MSEX"):
            return QStringLiteral("MSEX");
        case codeNumber("SInf"):
            return QStringLiteral("SInf");
        case codeNumber("ELIn"):
            return QStringLiteral("ELIn");
        case codeNumber("ELUp"):
            return QStringLiteral("ELUp");
        case codeNumber("MEIn"):
            return QStringLiteral("MEIn");
        case codeNumber("EEIn"):
            return QStringLiteral("EEIn");
        case codeNumber("GLEI"):
            return QStringLiteral("GLEI");
        case codeNumber("LSta"):
            return QStringLiteral("LSta");
        case codeNumber("ELTh"):
            return QStringLiteral("ELTh");
        case codeNumber("EThn"):
            return QStringLiteral("EThn");
        case codeNumber("JPEG"):
            return QStringLiteral("JPEG");
        case codeNumber("PNG "):
            return QStringLiteral("PNG ");
        case codeNumber("RGB8"):
            return QStringLiteral("RGB8");
        default:
            return QString(QLatin1String(bytes, 4));
    }
}

QString libraryIdText(quint32 id)
{
    // From a table: lists hold an identifier in each record, and formatted output costs more than the rest of a record.
    char16_t text[4 * 4];
    char16_t* end = text;
    for (int level = 0; level < 4; ++level, id >>= 8) {
        const LevelText& added = levelTexts[id & 0xff];
        // Always copies four characters; the next level overwrites the excess.
        std::memcpy(end, added.text.data(), sizeof(added.text));
        end += added.length;
    }
    return QStringView(text, end - 1).toString();
}

QString get8bitunicode(const QByteArray& data, unsigned int start)
{
    return WireReader(data, start).text8();
}

unsigned short getShort(const QByteArray& data, unsigned int offset)
{
    if (qint64(offset) + 2 > data.size()) {
        return 0;
    }
    return qFromLittleEndian<quint16>(data.constData() + offset);
}

int getUCS2(QString& out, const QByteArray& data, unsigned int offset)
{
    WireReader reader(data, offset);
    const qint64 start = reader.position();
    out = reader.ucs2();
    return static_cast<int>(reader.position() - start);
}

QString& addToStr(QString& text, const QString& label, const QString& value)
{
    return text.append(label).append(value);
}

QString& addToStr(QString& text, const QString& label, unsigned int value)
{
    QChar digits[10];
    QChar* const end = digits + 10;
    const QChar* const begin = writeDecimal(end, value);
    return text.append(label).append(begin, static_cast<int>(end - begin));
}

unsigned int fromLibraryFormat(const QString& text)
{
    if (!text.contains(QLatin1Char(','))) {
        return text.toUInt();
    }
    unsigned int id = 0;
    int shift = 0;
    const QChar* field = text.cbegin();
    while (shift < 32) {
        const QChar* const end = std::find(field, text.cend(), QLatin1Char(','));
        if (field != end) {
            id |= levelFromField(field, end) << shift;
            shift += 8;
        }
        if (end == text.cend()) {
            break;
        }
        field = end + 1;
    }
    return id;
}

QString& fromLibraryFormat(QString& out, unsigned int id)
{
    out = libraryIdText(id);
    return out;
}

unsigned int fromGraphicFormat(const QString& text)
{
    const QChar first = text.isEmpty() ? QChar() : text.at(0).toUpper();
    if (first == QLatin1Char('P')) {
        return codeNumber("PNG ");
    }
    if (first == QLatin1Char('R')) {
        return codeNumber("RGB8");
    }
    return codeNumber("JPEG");
}

QString& fromGraphicFormat(QString& out, unsigned int format)
{
    char bytes[4];
    qToLittleEndian<quint32>(format, bytes);
    out = codeText(bytes);
    return out;
}

QString hexDump(const QByteArray& data)
{
    constexpr int bytesPerLine = 16;
    constexpr int columnOffset = 12 + 3 * bytesPerLine;
    constexpr int charactersPerLine = columnOffset + bytesPerLine + 1;
    static const char digits[] = "0123456789abcdef";

    QByteArray dump;
    // Limited, because a server can announce any size and consoles may have a 32-bit address space.
    constexpr qint64 maxReserved = 1 << 20; // bytes of data
    const qint64 lines = qMin<qint64>(data.size(), maxReserved) / bytesPerLine + 1;
    dump.reserve(static_cast<decltype(dump.size())>(lines * charactersPerLine));
    // The character column of every line follows the width of 16 bytes in hexadecimal.
    for (qint64 offset = 0; offset < data.size(); offset += bytesPerLine) {
        char line[charactersPerLine];
        std::memset(line, ' ', sizeof(line));
        char* const offsetEnd = line + 10;
        std::memset(line, '0', 10);
        writeDecimal(offsetEnd, static_cast<unsigned int>(offset));
        char* hex = line + 12;
        char* column = line + columnOffset;
        const auto count = static_cast<int>(qMin<qint64>(bytesPerLine, data.size() - offset));
        for (int i = 0; i < count; ++i) {
            const char character = data.constData()[offset + i];
            const auto byte = static_cast<unsigned char>(character);
            hex[0] = digits[byte >> 4];
            hex[1] = digits[byte & 0xf];
            hex += 3;
            // The printable characters of the "C" locale, so that a dump does not depend on the user's locale.
            *column++ = byte >= 0x20 && byte < 0x7f ? character : '.';
        }
        if (count == bytesPerLine) {
            *column++ = '\n';
        }
        dump.append(line, static_cast<int>(column - line));
    }
    return QString::fromLatin1(dump);
}

Os::Log::Context& CITPLogContext()
{
    static Os::Log::Context context("CITP");
    return context;
}

Os::Log::Context& messageLogContext()
{
    static Os::Log::Context context("Message", &CITPLogContext());
    return context;
}
} // namespace CITP
