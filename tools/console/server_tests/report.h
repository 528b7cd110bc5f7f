// Report: the results of the server tests on the terminal and as JSON lines, and what has changed since another report.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "../new_file.h"
#include "framework.h"

namespace Console::ServerTests {
/// The verdicts of an earlier report, by test and MSEX version.
using Verdicts = QMap<QPair<int, QString>, Verdict>;
/// Reads them from JSON lines.
/// @throws Failure if the file cannot be read or has none
Verdicts readVerdicts(const QString& file);

class Report
{
public:
    /// @param json file for JSON lines, which are written as they come; empty: none
    /// @throws Failure if it cannot be written
    Report(const QString& server, const QString& json);

    /// Prints and writes a result.
    void add(const Result& result);
    /// Writes what is better or worse than in @p old, and the counts.
    /// @param end empty, or why the tests ended early
    /// @return the same as lines, to be printed
    QStringList finish(const Verdicts& old, const QString& end);

    const std::vector<Result>& results() const { return m_results; }
    int count(Verdict verdict) const;
    /// Why the JSON file is not complete; empty if it is.
    const QString& problem() const { return m_problem; }

private:
    void write(const QJsonObject& object);

    const QString m_server;
    const QString m_path;
    std::optional<NewFile> m_file;
    qint64 m_size = 0; ///< bytes of whole lines
    QString m_problem;
    std::vector<Result> m_results;
};

/// "401 in MSEX 1.2", or "301".
QString numberText(const Result& result);
/// "40 passed, 1 warning, 2 failed, ...".
QString countsText(const Report& report);
} // namespace Console::ServerTests
