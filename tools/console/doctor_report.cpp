// Results as coloured text, plain text or JSON.
// SPDX-License-Identifier: Apache-2.0
#include "doctor_report.h"

#include <unistd.h>

#include "printing.h"

namespace Console {
namespace {
const char* const Green = "\x1b[32m";
const char* const Red = "\x1b[31m";
const char* const Plain = "\x1b[0m";
constexpr int VerdictWidth = 9;
constexpr int CheckWidth = 11;
} // namespace

// By convention, a NO_COLOR variable with any non-empty value disables colours.
DoctorReport::DoctorReport(bool json)
    : m_json(json), m_coloured(isatty(STDOUT_FILENO) != 0 && qEnvironmentVariableIsEmpty("NO_COLOR"))
{
}

void DoctorReport::beginServer(const QString& key, const QString& name)
{
    m_server = key;
    m_names << name;
    if (!m_json)
        printLine(name);
}

void DoctorReport::ok(const QString& check, const QString& text)
{
    print("ok", Green, check, text, {});
}

void DoctorReport::failed(const QString& check, const QString& text, const QString& advice)
{
    ++m_failed;
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
        printJson({{"failed", m_failed}, {"skipped", m_skipped}});
    else if (m_names.isEmpty())
        printLine(verdict);
    else
        printLine((m_names.size() == 1 ? m_names.constFirst() : QString("%1 servers").arg(m_names.size())) + ": " +
                  verdict);
    return m_failed == 0;
}

void DoctorReport::print(const char* verdict, const char* colour, const QString& check, const QString& text,
                         const QString& advice)
{
    if (m_json) {
        QJsonObject object{{"check", check}, {"verdict", verdict}, {"text", text}};
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
    printLine(word + padding + check.leftJustified(CheckWidth) + text);
    if (!advice.isEmpty())
        printLine(QString(VerdictWidth + CheckWidth, ' ') + "-> " + advice);
}
} // namespace Console
