// Widths of characters, as the C library knows them.
// SPDX-License-Identifier: Apache-2.0
#include "terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <QVector>
#include <clocale>
#include <cwchar>

namespace Console {
namespace {
constexpr int MaxUnitsPerColumn = 4;

// Selects UTF-8 in this thread, because the C library knows no widths in the C locale.
class Utf8Locale
{
public:
    Utf8Locale() : m_previous(uselocale(utf8())) {}
    ~Utf8Locale() { uselocale(m_previous); }
    Utf8Locale(const Utf8Locale&) = delete;
    Utf8Locale& operator=(const Utf8Locale&) = delete;

private:
    // Null, which uselocale() ignores, if the system has no such locale.
    static locale_t utf8()
    {
        static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        return locale;
    }

    const locale_t m_previous;
};

// Terminals show characters that the C library does not know in one column.
int columnsOfCharacter(uint codePoint)
{
    const int columns = wcwidth(static_cast<wchar_t>(codePoint));
    return columns < 0 ? 1 : columns;
}
} // namespace

QSize terminalSize(int descriptor)
{
    winsize window{};
    if (isatty(descriptor) == 0 || ioctl(descriptor, TIOCGWINSZ, &window) != 0)
        return {};
    return {window.ws_col, window.ws_row};
}

int columnsOf(const QString& text)
{
    const Utf8Locale utf8;
    int columns = 0;
    for (const uint codePoint : text.toUcs4())
        columns += columnsOfCharacter(codePoint);
    return columns;
}

QString clipped(const QString& text, int columns)
{
    // Any number of marks may follow a character, so the length is limited too.
    const int maxUnits = MaxUnitsPerColumn * columns;
    if (text.size() <= maxUnits && columnsOf(text) <= columns)
        return text;
    const Utf8Locale utf8;
    const QChar ellipsis(0x2026);
    QString out;
    int used = 1;
    for (const uint codePoint : text.toUcs4()) {
        used += columnsOfCharacter(codePoint);
        if (used > columns || out.size() >= maxUnits)
            break;
        out += QString::fromUcs4(reinterpret_cast<const char32_t*>(&codePoint), 1);
    }
    return out + ellipsis;
}

QStringList wrapped(const QString& text, int columns)
{
    QStringList lines;
    QString line;
    const QStringList words = text.split(' ');
    for (const QString& word : words) {
        if (!line.trimmed().isEmpty() && columnsOf(line) + columnsOf(word) > columns) {
            lines << line.chopped(1);
            line.clear();
        }
        line += word + ' ';
    }
    return lines << line.chopped(1);
}

QString padded(const QString& text, int columns, bool isRight)
{
    const QString spaces(qMax(0, columns - columnsOf(text)), ' ');
    return isRight ? spaces + text : text + spaces;
}
} // namespace Console
