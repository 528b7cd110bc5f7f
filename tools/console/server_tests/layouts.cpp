// A reader that is controlled by a table of the layouts.
// SPDX-License-Identifier: Apache-2.0
#include "layouts.h"

#include <QHash>

#include "probe.h"

namespace Console::ServerTests {
namespace {
// One character for each field. Of all MSEX versions: 1 2 4 8 an integer of so many bytes; t a text of bytes, u of
// UCS-2, both with a terminator; P a picture behind its size; b a count of one byte and # a count, each followed by the
// fields of an entry in parentheses; n a number as wide as a count (one byte, since 1.2 two); L a library (one byte,
// since 1.1 four). Since 1.1 only: m as n. Since 1.2 only: T one byte, S four, U 36, B 64, and all fields in braces.
const char* layoutOf(const QByteArray& code)
{
    static const QHash<QByteArray, const char*> all{
        {"PLoc", "2ttt"},          {"PNam", "t"},           {"SInf", "Uu11{1b(2)2b(4)b(4)}b(t)"},
        {"ELIn", "1#(LS11umn)"},   {"ELUp", "1L1B"},        {"MEIn", "L#(1S11u82241)"},
        {"EEIn", "L#(1S11ub(u))"}, {"GLEI", "TL#(1S11u8)"}, {"LSta", "b(11TL1u4414)"},
        {"ELTh", "1L422P"},        {"EThn", "1L1422P"},     {"Ptch", "21122tt"},
    };
    return all.value(code);
}

class StrictReader
{
public:
    explicit StrictReader(const QByteArray& message)
        : m_message(message),
          m_at(message.mid(16, 4) == "MSEX" ? 26 : (message.mid(16, 4) == "FPTC" ? 28 : 24)),
          m_minor(message.mid(16, 4) == "MSEX" ? static_cast<quint8>(message.at(21)) : 0)
    {
    }

    void run(const char* layout)
    {
        fields(layout);
        if (m_problem.text.isEmpty() && m_at < m_message.size()) {
            m_problem.text = QString("%1 bytes follow the last field").arg(m_message.size() - m_at);
            m_problem.isTrailing = true;
        }
    }
    const LayoutProblem& problem() const { return m_problem; }
    int entries() const { return m_entries; }

private:
    // Reads fields up to the end of the text or the bracket that ends it.
    // @return behind the bracket
    const char* fields(const char* layout)
    {
        while (*layout != 0 && *layout != ')' && *layout != '}') {
            const char field = *layout++;
            if (field == '{')
                layout = m_minor >= 2 ? fields(layout) : behind(layout, '}');
            else if (field == 'b' || field == '#')
                layout = group(layout + 1, number(field == 'b' ? 1 : countWidth()));
            else if (m_problem.text.isEmpty())
                read(field);
        }
        return *layout == 0 ? layout : layout + 1;
    }

    // @param layout behind the parenthesis
    const char* group(const char* layout, int count)
    {
        const bool isOutermost = !m_isInEntry;
        for (int i = 0; i < count && m_problem.text.isEmpty(); ++i) {
            m_isInEntry = true;
            fields(layout);
            if (isOutermost && !m_problem.text.isEmpty() && !m_problem.isText)
                m_problem.text = QString("entry %1 of %2 is not whole: %3").arg(i + 1).arg(count).arg(m_problem.text);
        }
        if (isOutermost) {
            m_isInEntry = false;
            m_entries = count;
        }
        return behind(layout, ')');
    }

    static const char* behind(const char* layout, char bracket)
    {
        for (int depth = 1; *layout != 0; ++layout) {
            depth += *layout == (bracket == ')' ? '(' : '{') ? 1 : 0;
            depth -= *layout == bracket ? 1 : 0;
            if (depth == 0)
                return layout + 1;
        }
        return layout;
    }

    int countWidth() const { return m_minor >= 2 ? 2 : 1; }

    void read(char field)
    {
        switch (field) {
            case 't':
                return text(1);
            case 'u':
                return text(2);
            case 'P':
                return skip(number(2));
            case 'n':
                return skip(countWidth());
            case 'm':
                return skip(m_minor >= 1 ? countWidth() : 0);
            case 'L':
                return skip(m_minor == 0 ? 1 : 4);
            case 'T':
                return skip(m_minor >= 2 ? 1 : 0);
            case 'S':
                return skip(m_minor >= 2 ? 4 : 0);
            case 'U':
                return skip(m_minor >= 2 ? 36 : 0);
            case 'B':
                return skip(m_minor >= 2 ? 64 : 0);
            default:
                return skip(field - '0');
        }
    }

    void skip(int bytes)
    {
        if (m_at + bytes > m_message.size())
            m_problem.text = QString("the field at offset %1 needs %2 bytes, and %3 are left")
                                 .arg(m_at)
                                 .arg(bytes)
                                 .arg(m_message.size() - m_at);
        m_at += bytes;
    }

    int number(int bytes)
    {
        const int start = m_at;
        if (m_problem.text.isEmpty())
            skip(bytes);
        int value = 0;
        for (int i = 0; m_problem.text.isEmpty() && i < bytes; ++i)
            value |= static_cast<quint8>(m_message.at(start + i)) << (8 * i);
        return value;
    }

    void text(int width)
    {
        const int start = m_at;
        for (; m_at + width <= m_message.size(); m_at += width) {
            if (m_message.mid(m_at, width) == QByteArray(width, '\0')) {
                m_at += width;
                return;
            }
        }
        m_problem.text = QString("the text at offset %1 has no terminator").arg(start);
        m_problem.isText = true;
    }

    const QByteArray& m_message;
    int m_at;
    int m_minor;
    int m_entries = 0;
    bool m_isInEntry = false;
    LayoutProblem m_problem;
};
} // namespace

LayoutProblem layoutProblem(const QByteArray& message)
{
    const char* const layout = layoutOf(codeOf(message));
    if (!layout)
        return {};
    StrictReader reader(message);
    reader.run(layout);
    return reader.problem();
}

int entriesIn(const QByteArray& message)
{
    const char* const layout = layoutOf(codeOf(message));
    if (!layout)
        return -1;
    StrictReader reader(message);
    reader.run(layout);
    return reader.problem().text.isEmpty() || reader.problem().isTrailing ? reader.entries() : -1;
}
} // namespace Console::ServerTests
