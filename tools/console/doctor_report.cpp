// Results as coloured text, plain text or JSON.
// SPDX-License-Identifier: Apache-2.0
#include "doctor_report.h"

#include <unistd.h>

#include "printing.h"
#include "terminal.h"

namespace Console {
namespace {
const char* const Green = "\x1b[32m";
const char* const Red = "\x1b[31m";
const char* const Plain = "\x1b[0m";
constexpr int VerdictWidth = 9;
constexpr int CheckWidth = 11;
// On a narrower terminal, the text is not wrapped below its beginning.
constexpr int MinTextWidth = 30;

// @param start of the first line, as wide as the indent of the others
void printWrapped(const QString& text, const QString& indent = {}, const QString& start = {})
{
    const int columns = terminalSize().width() - static_cast<int>(indent.size());
    const QString lines = columns < MinTextWidth ? text : wrapped(text, columns).join('\n' + indent);
    printLine(start + lines);
}
} // namespace

// By convention, a NO_COLOR variable with any non-empty value disables colours.
DoctorReport::DoctorReport(bool json, const QString& wanted)
    : m_json(json),
      m_coloured(isatty(STDOUT_FILENO) != 0 && qEnvironmentVariableIsEmpty("NO_COLOR")),
      m_name(wanted.isEmpty() ? QString() : QString("server '%1'").arg(escapeControls(wanted)))
{
}

void DoctorReport::beginServer(const QString& key, const QString& name)
{
    m_server = key;
    m_name = name;
    ++m_servers;
    if (!m_json)
        printWrapped(name);
}

void DoctorReport::ok(const QString& check, const QString& text)
{
    print("ok", Green, check, text, {});
}

void DoctorReport::failed(const QString& check, const QString& text, const QString& advice)
{
    ++m_failed;
    if (m_servers > 0 && !m_failedNames.contains(m_name))
        m_failedNames << m_name;
    print("FAILED", Red, check, text, advice);
}

void DoctorReport::note(const QString& check, const QString& text, const QString& advice)
{
    print("note", nullptr, check, text, advice);
}

void DoctorReport::skipped(const QString& check, const QString& reason)
{
    ++m_skipped;
    print("skipped", nullptr, check, reason, {});
}

bool DoctorReport::finish()
{
    QString verdict = "all checks passed";
    if (m_failed > 0)
        verdict = QString("%1 failed, %2 skipped").arg(m_failed).arg(m_skipped);
    else if (m_skipped > 0)
        verdict = QString("no check failed, %1 skipped").arg(m_skipped);
    if (m_json)
        printJson({{"record", "result"}, {"failed", m_failed}, {"skipped", m_skipped}});
    else if (m_servers > 1)
        printWrapped(QString("%1 servers: %2").arg(QString::number(m_servers), verdict) + failedServers());
    else
        printWrapped((m_name.isEmpty() ? QString() : m_name + ": ") + verdict);
    return m_failed == 0;
}

void DoctorReport::print(const char* verdict, const char* colour, const QString& check, const QString& text,
                         const QString& advice)
{
    if (m_json) {
        QJsonObject object{{"record", "check"}, {"check", check}, {"verdict", verdict}, {"text", text}};
        if (!m_server.isEmpty())
            object.insert("server", m_server);
        if (!advice.isEmpty())
            object.insert("advice", advice);
        printJson(object);
        return;
    }
    QString word(verdict);
    const QString padding(VerdictWidth - word.size(), ' ');
    if (m_coloured && colour)
        word = colour + word + Plain;
    const QString indent(VerdictWidth + CheckWidth, ' ');
    printWrapped(text, indent, word + padding + check.leftJustified(CheckWidth));
    if (!advice.isEmpty())
        printWrapped(advice, indent + "   ", indent + "-> ");
}

QString DoctorReport::failedServers() const
{
    constexpr int MaxNames = 5;
    QStringList names = m_failedNames.mid(0, MaxNames);
    if (m_failedNames.size() > MaxNames)
        names << QString("%1 more").arg(m_failedNames.size() - MaxNames);
    return names.isEmpty() ? QString() : " (" + names.join("; ") + ')';
}
} // namespace Console
