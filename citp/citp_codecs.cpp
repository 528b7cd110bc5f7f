// Field codecs, debug text and the log contexts of the message classes.
// SPDX-License-Identifier: Apache-2.0
#include "citp_codecs.h"

#include "citp_log_p.h"

#include <QStringList>
#include <QtEndian>

#include <algorithm>

namespace CITP {
namespace {
/// The text of a code in its wire form: the four characters, the first in the lowest byte.
constexpr unsigned int code(char a, char b, char c, char d)
{
    return static_cast<unsigned int>(a) | static_cast<unsigned int>(b) << 8 | static_cast<unsigned int>(c) << 16 |
           static_cast<unsigned int>(d) << 24;
}

/// The low 8 bits of the number that @p field begins with, blanks and a sign before it allowed; 0 if there is none.
/// People type such fields, so what follows the digits is let pass. Unsigned arithmetic keeps the low bits right
/// however many digits there are.
unsigned int levelFromField(const QString& field)
{
    auto digit = field.cbegin();
    while (digit != field.cend() && digit->isSpace())
        ++digit;
    const bool negative = digit != field.cend() && *digit == QLatin1Char('-');
    if (digit != field.cend() && (negative || *digit == QLatin1Char('+')))
        ++digit;
    unsigned int value = 0;
    for (; digit != field.cend() && *digit >= QLatin1Char('0') && *digit <= QLatin1Char('9'); ++digit)
        value = value * 10 + (digit->unicode() - u'0');
    return (negative ? 0 - value : value) & 0xff;
}
} // namespace

QString get8bitunicode(const QByteArray& data, unsigned int start)
{
    if (qint64(start) >= data.size())
        return {};
    const char* const begin = data.constData() + start;
    const char* const end = std::find(begin, data.constData() + data.size(), '\0');
    return begin == end ? QString() : QString(QLatin1String(begin, end));
}

unsigned short getShort(const QByteArray& data, unsigned int offset)
{
    if (qint64(offset) + 2 > data.size())
        return 0;
    return qFromLittleEndian<quint16>(data.constData() + offset);
}

int getUCS2(QString& out, const QByteArray& data, unsigned int offset)
{
    constexpr char16_t byteOrderMark = 0xfeff;
    out.clear();
    int consumed = 0;
    // 64-bit sums: an offset near 2^32 must not wrap around into the buffer.
    while (qint64(offset) + consumed + 2 <= data.size()) {
        const char16_t unit = qFromLittleEndian<quint16>(data.constData() + offset + consumed);
        consumed += 2;
        if (unit == 0)
            break;
        // Unit by unit, because Qt's converters would drop or swap byte-order marks further on and repair surrogates.
        if (consumed != 2 || unit != byteOrderMark)
            out.append(QChar(unit));
    }
    return consumed;
}

QString& addToStr(QString& text, const QString& label, const QString& value)
{
    return text.append(label).append(value);
}

QString& addToStr(QString& text, const QString& label, unsigned int value)
{
    return text.append(label).append(QString::number(value));
}

unsigned int fromLibraryFormat(const QString& text)
{
    if (!text.contains(QLatin1Char(',')))
        return text.toUInt();
    unsigned int id = 0;
    int shift = 0;
    const QStringList fields = text.split(QLatin1Char(','));
    for (const QString& field : fields) {
        if (field.isEmpty())
            continue;
        id |= levelFromField(field) << shift;
        shift += 8;
        if (shift == 32)
            break;
    }
    return id;
}

QString& fromLibraryFormat(QString& out, unsigned int id)
{
    out = QString::asprintf("%u,%u,%u,%u", id & 0xff, id >> 8 & 0xff, id >> 16 & 0xff, id >> 24);
    return out;
}

unsigned int fromGraphicFormat(const QString& text)
{
    const QChar first = text.isEmpty() ? QChar() : text.at(0).toUpper();
    if (first == QLatin1Char('P'))
        return code('P', 'N', 'G', ' ');
    if (first == QLatin1Char('R'))
        return code('R', 'G', 'B', '8');
    return code('J', 'P', 'E', 'G');
}

QString& fromGraphicFormat(QString& out, unsigned int format)
{
    out.clear();
    for (int shift = 0; shift < 32; shift += 8)
        out.append(QLatin1Char(static_cast<char>(format >> shift & 0xff)));
    return out;
}

QString hexDump(const QByteArray& data)
{
    constexpr int bytesPerLine = 16;
    constexpr int charactersPerLine = 12 + 3 * bytesPerLine + bytesPerLine + 1;
    static const char digits[] = "0123456789abcdef";

    QByteArray dump;
    // Bounded, because a server may state any size, and sizes are 32 bits wide on the consoles.
    constexpr qint64 mostReserved = 1 << 20; // bytes of data
    const qint64 lines = qMin<qint64>(data.size(), mostReserved) / bytesPerLine + 1;
    dump.reserve(static_cast<decltype(dump.size())>(lines * charactersPerLine));
    char column[bytesPerLine];
    int pending = 0;
    int offset = 0;
    for (const char character : data) {
        if (pending == 0)
            dump.append(QByteArray::number(offset).rightJustified(10, '0')).append("  ", 2);
        const auto byte = static_cast<unsigned char>(character);
        dump.append(digits[byte >> 4]).append(digits[byte & 0xf]).append(' ');
        // The printable characters of the "C" locale, so that a dump does not change with the console's language.
        column[pending++] = byte >= 0x20 && byte < 0x7f ? character : '.';
        ++offset;
        if (pending == bytesPerLine) {
            dump.append(column, pending).append('\n');
            pending = 0;
        }
    }
    if (pending != 0) {
        const int blanks = 3 * (bytesPerLine - pending);
        dump.append(QByteArray(blanks, ' ')).append(column, pending);
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
