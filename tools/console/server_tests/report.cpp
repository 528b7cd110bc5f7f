// Printing, JSON lines, and the comparison of reports.
// SPDX-License-Identifier: Apache-2.0
#include "report.h"

#include <unistd.h>

#include <QFile>
#include <QJsonDocument>
#include <algorithm>

#include "../decode/message_fields.h"
#include "../printing.h"
#include "../shutdown.h"
#include "../terminal.h"

namespace Console::ServerTests {
namespace {
constexpr int ListIndent = 18;
// Of an earlier report; those that are written are shorter.
constexpr qint64 MaxLine = 16 << 20;

QJsonObject toJson(const Exchange& exchange)
{
    QJsonObject object{{"direction", exchange.isSent ? "sent" : "received"},
                       {"code", QString::fromLatin1(codeOf(exchange.message))},
                       {"size", exchange.size},
                       {"bytes", QString::fromLatin1(exchange.message.toHex())}};
    if (exchange.message.size() == exchange.size)
        object.insert("fields", fieldsOf(exchange.message));
    return object;
}

QJsonObject toJson(const Result& result)
{
    QJsonObject object{{"record", "test"},
                       {"number", result.test->number},
                       {"area", result.area},
                       {"name", result.test->name},
                       {"verdict", toText(result.verdict)},
                       {"texts", QJsonArray::fromStringList(result.texts)},
                       {"wire", result.test->wire},
                       {"expected", result.test->expected}};
    if (!result.version.isEmpty())
        object.insert("version", result.version);
    QJsonObject measured;
    for (auto figure = result.measured.begin(); figure != result.measured.end(); ++figure)
        measured.insert(figure.key(), figure.value());
    object.insert("measured", measured);
    if (result.verdict == Verdict::Failed || result.verdict == Verdict::Warning) {
        QJsonArray messages;
        for (const Exchange& exchange : result.exchanges)
            messages.append(toJson(exchange));
        object.insert("messages", messages);
    }
    return object;
}

void printIndented(const QString& text, int indent)
{
    const int columns = terminalSize().width() - indent;
    const QStringList lines = columns < 2 * indent ? QStringList(text) : wrapped(text, columns);
    for (const QString& line : lines)
        printLine(QString(indent, ' ') + line);
}

// 0 the best; -1: says nothing of the server.
int rankOf(Verdict verdict)
{
    return verdict == Verdict::NotRun || verdict == Verdict::Broken ? -1 : static_cast<int>(verdict);
}
} // namespace

Verdicts readVerdicts(const QString& file)
{
    QFile input(file);
    if (!input.open(QIODevice::ReadOnly))
        throw Failure{QString("cannot read %1: %2").arg(escapeControls(file), input.errorString())};
    Verdicts verdicts;
    int damaged = 0;
    while (!input.atEnd()) {
        const QJsonObject object = QJsonDocument::fromJson(input.readLine(MaxLine)).object();
        damaged += object.isEmpty() ? 1 : 0;
        for (const Verdict verdict : AllVerdicts) {
            if (object.value("record").toString() == "test" && object.value("verdict").toString() == toText(verdict))
                verdicts.insert({object.value("number").toInt(), object.value("version").toString()}, verdict);
        }
    }
    if (verdicts.isEmpty())
        throw Failure{QString("%1 is not a report of 'citp-console test --json'").arg(escapeControls(file))};
    if (damaged > 0)
        warn(QString("%1 is damaged; lines that are left out: %2").arg(escapeControls(file)).arg(damaged));
    return verdicts;
}

Report::Report(const QString& server, const QString& json) : m_server(server), m_path(json)
{
    if (json.isEmpty())
        return;
    m_file.emplace(json);
    // Under its name at once: what is written so far remains, whatever happens.
    if (!m_file->open() || !m_file->commit())
        throw Failure{QString("cannot write %1: %2").arg(escapeControls(json), m_file->problem())};
    write({{"record", "server"}, {"server", server}, {"time", isoTime()}, {"program", "citp-console " CITP_VERSION}});
}

void Report::write(const QJsonObject& object)
{
    if (!m_file || !m_problem.isEmpty())
        return;
    const QByteArray line =
        escapeControls(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact))).toUtf8() + '\n';
    if (m_file->write(line)) {
        m_size += line.size();
        return;
    }
    m_problem = QString("%1 is not complete: %2").arg(escapeControls(m_path), m_file->problem());
    // A part of a line is of no use.
    if (ftruncate(m_file->descriptor(), static_cast<off_t>(m_size)) != 0)
        m_problem += ", and its last line is cut off";
}

void Report::add(const Result& result)
{
    m_results.push_back(result);
    write(toJson(result));
    printLine(QString("%1 %2 %3  %4")
                  .arg(toText(result.verdict).leftJustified(8), QString::number(result.test->number),
                       result.version.leftJustified(3), result.test->name));
    for (const QString& text : result.texts)
        printIndented(escapeControls(text), ListIndent);
    for (auto figure = result.measured.begin(); figure != result.measured.end(); ++figure)
        printIndented(QString("%1: %2").arg(figure.key()).arg(figure.value()), ListIndent);
}

QStringList Report::finish(const Verdicts& old, const QString& end)
{
    QStringList lines;
    for (const Result& result : m_results) {
        const auto before = old.find({result.test->number, result.version});
        if (before == old.end() || rankOf(*before) < 0 || rankOf(result.verdict) < 0 || *before == result.verdict)
            continue;
        const bool isBetter = rankOf(result.verdict) < rankOf(*before);
        lines << QString("%1: %2, %3: %4, was %5")
                     .arg(isBetter ? "better" : "worse", numberText(result), result.test->name, toText(result.verdict),
                          toText(*before));
        QJsonObject object{{"record", "change"},
                           {"number", result.test->number},
                           {"verdict", toText(result.verdict)},
                           {"before", toText(*before)},
                           {"isBetter", isBetter}};
        if (!result.version.isEmpty())
            object.insert("version", result.version);
        write(object);
    }
    QJsonObject object{{"record", "result"}};
    for (const Verdict verdict : AllVerdicts)
        object.insert(toText(verdict), count(verdict));
    if (!end.isEmpty())
        object.insert("end", end);
    write(object);
    lines << QString("server %1: %2%3").arg(m_server, countsText(*this), end.isEmpty() ? QString() : "; " + end);
    return lines;
}

int Report::count(Verdict verdict) const
{
    return static_cast<int>(std::count_if(m_results.begin(), m_results.end(),
                                          [&](const Result& result) { return result.verdict == verdict; }));
}

QString numberText(const Result& result)
{
    return QString::number(result.test->number) + (result.version.isEmpty() ? QString() : " in MSEX " + result.version);
}

QString countsText(const Report& report)
{
    QStringList counts;
    for (const Verdict verdict : AllVerdicts) {
        const int count = report.count(verdict);
        if (count > 0 || verdict == Verdict::Passed || verdict == Verdict::Failed)
            counts << QString("%1 %2%3").arg(count).arg(toText(verdict),
                                                        verdict == Verdict::Warning && count > 1 ? "s" : "");
    }
    return counts.join(", ");
}
} // namespace Console::ServerTests
