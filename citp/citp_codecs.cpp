// Field codecs, debug text and the log contexts of the message classes.
// SPDX-License-Identifier: Apache-2.0
#include "citp_codecs.h"

#include "citp_log_p.h"
#include "citp_msex_fields_p.h"
#include "citp_wire_p.h"

#include <QStringList>
#include <QtEndian>

namespace CITP {
namespace {
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
    // By hand: lists have one in each record, and a formatted print costs more than the rest of the record.
    char16_t text[4 * 3 + 3];
    char16_t* end = text;
    for (int shift = 0; shift < 32; shift += 8) {
        const quint32 level = id >> shift & 0xff;
        if (shift != 0)
            *end++ = u',';
        if (level > 99)
            *end++ = static_cast<char16_t>(u'0' + level / 100);
        if (level > 9)
            *end++ = static_cast<char16_t>(u'0' + level / 10 % 10);
        *end++ = static_cast<char16_t>(u'0' + level % 10);
    }
    return QStringView(text, end).toString();
}

QString get8bitunicode(const QByteArray& data, unsigned int start)
{
    return WireReader(data, start).text8();
}

unsigned short getShort(const QByteArray& data, unsigned int offset)
{
    if (qint64(offset) + 2 > data.size())
        return 0;
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
    out = libraryIdText(id);
    return out;
}

unsigned int fromGraphicFormat(const QString& text)
{
    const QChar first = text.isEmpty() ? QChar() : text.at(0).toUpper();
    if (first == QLatin1Char('P'))
        return codeNumber("PNG ");
    if (first == QLatin1Char('R'))
        return codeNumber("RGB8");
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
