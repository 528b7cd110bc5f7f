// The command "test": runs the tests of a media server and writes the reports.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex_thumbnails.h>
#include <citp_system/os_log.h>

#include <optional>

#include "../commands.h"
#include "../printing.h"
#include "../shutdown.h"
#include "../terminal.h"
#include "html_report.h"
#include "picture_file.h"

namespace Console::ServerTests {
namespace {
constexpr int ExitBroken = 3;
const QSize CoverSize(128, 96);

int listTests()
{
    for (const Area& area : areas()) {
        for (const TestCase& test : area.tests) {
            printLine(QString("%1  %2: %3").arg(test.number).arg(area.name, test.name));
            printLine(QString("     does: %1").arg(test.wire));
            printLine(QString("     expects: %1").arg(test.expected));
        }
    }
    return 0;
}

bool isNamed(const QStringList& names, const Area& area, const TestCase& test)
{
    return names.contains(area.name) || names.contains(QString::number(test.number));
}

bool isSelected(const Options& options, const Area& area, const TestCase& test)
{
    return (options.only.isEmpty() || isNamed(options.only, area, test)) && !isNamed(options.skip, area, test);
}

bool isAnySelected(const Options& options)
{
    for (const Area& area : areas()) {
        for (const TestCase& test : area.tests) {
            if (isSelected(options, area, test))
                return true;
        }
    }
    return false;
}

QStringList unknownIn(QStringList names)
{
    for (const Area& area : areas()) {
        names.removeAll(area.name);
        for (const TestCase& test : area.tests)
            names.removeAll(QString::number(test.number));
    }
    return names;
}

// The pictures of the top-level media libraries.
std::vector<LibraryPicture> coversOf(Bench& bench)
{
    std::vector<LibraryPicture> pictures;
    try {
        const QByteArray request = libraryPicturesRequest(bench.minor(), 1, {}, CoverSize, "JPEG");
        for (const QByteArray& answer : bench.askAll(request, "ELTh")) {
            const CITP::Msg_MSEX_ELTH message(answer);
            const Tools::PictureFile file = Tools::toPictureFile(CITP::pictureOf(message), CoverSize);
            if (file.problem.isEmpty())
                pictures.push_back(
                    {"library " + message.LibraryId, file.content, file.extension == "png" ? "png" : "jpeg"});
        }
    } catch (const Finding&) {
        // The report has none.
    }
    return pictures;
}

// Runs the tests and notes why they ended.
class Run
{
public:
    explicit Run(const Options& options)
        : m_options(options),
          m_old(options.compare.isEmpty() ? Verdicts() : readVerdicts(options.compare)),
          m_html(options.html),
          m_hasHtml(openHtml()),
          m_bench(options),
          m_report(m_bench.key(), options.jsonFile)
    {
    }

    int run()
    {
        allowTimeToEnd();
        std::optional<OutputFailure> lost;
        std::vector<LibraryPicture> pictures;
        try {
            runAll();
            if (m_bench.isGone())
                m_end = "the server accepts no connection any more";
            else if (m_report.results().size() == static_cast<std::size_t>(m_report.count(Verdict::NotRun)))
                m_end = "no test could be run";
            else if (!m_hasVersions)
                m_end = "the server does not tell its MSEX versions";
            if (m_hasHtml && m_report.count(Verdict::Broken) == 0)
                pictures = coversOf(m_bench);
        } catch (const Interrupted&) {
            m_end = "interrupted";
        } catch (const OutputFailure& failure) {
            lost = failure;
            m_end = "the output could not be written";
        }
        finish(pictures, lost);
        if (m_report.count(Verdict::Failed) > 0)
            return ExitFailure;
        const bool isComplete = m_end.isEmpty() && m_problem.isEmpty() && m_report.problem().isEmpty();
        return isComplete && m_report.count(Verdict::Broken) == 0 ? 0 : ExitBroken;
    }

private:
    bool openHtml()
    {
        if (!m_options.html.isEmpty() && !m_html.open())
            throw Failure{QString("cannot write %1: %2").arg(escapeControls(m_options.html), m_html.problem())};
        return !m_options.html.isEmpty();
    }

    void runAll()
    {
        std::vector<int> versions = m_bench.versions();
        for (const Area& area : areas()) {
            for (const TestCase& test : area.tests) {
                if (!isSelected(m_options, area, test))
                    continue;
                const bool isForEach = (test.conditions & TestCase::EachVersion) != 0;
                // A greeting may be missed.
                if (isForEach && versions.empty())
                    versions = m_bench.versions();
                m_hasVersions = m_hasVersions && (!isForEach || !versions.empty());
                const int highest = versions.empty() ? 0 : versions.back();
                for (const int minor : isForEach && !versions.empty() ? versions : std::vector<int>{highest})
                    m_report.add(m_bench.run(area, test, minor));
            }
        }
    }

    // The files first: the output may be lost, or not be read.
    void finish(const std::vector<LibraryPicture>& pictures, const std::optional<OutputFailure>& lost)
    {
        const QStringList lines = m_report.finish(m_old, m_end);
        if (m_hasHtml && (!m_html.write(htmlReport(m_report, m_bench.key(), m_end, pictures)) || !m_html.commit()))
            m_problem = QString("cannot write %1: %2").arg(escapeControls(m_options.html), m_html.problem());
        const QString death = m_bench.isGone() ? QString(
                                                     "server %1 accepts no connection any more: the tests that were "
                                                     "left were not run")
                                                     .arg(m_bench.key())
                                               : QString();
        for (const QString& problem : {death, m_problem, m_report.problem()}) {
            if (!problem.isEmpty())
                warn(problem);
        }
        if (lost)
            throw *lost;
        printLines(lines);
    }

    const Options& m_options;
    const Verdicts m_old;
    NewFile m_html;
    const bool m_hasHtml;
    Bench m_bench;
    Report m_report;
    bool m_hasVersions = true; ///< false if tests lack the versions of the server
    QString m_end;             ///< why the tests ended early
    QString m_problem;         ///< of the HTML file
};

int runTests(const Options& options)
{
    if (options.list)
        return listTests();
    const QStringList unknown = unknownIn(options.only + options.skip);
    if (!unknown.isEmpty()) {
        warn(QString("'%1' is neither a test nor an area; 'citp-console test --list' lists them")
                 .arg(unknown.constFirst()));
        return ExitUsageError;
    }
    if (!isAnySelected(options)) {
        warn("--only and --skip leave no test; 'citp-console test --list' lists them");
        return ExitUsageError;
    }
    // The tests say what is wrong with messages.
    if (options.log.isEmpty() && qEnvironmentVariableIsEmpty("OS_LOG_MASKS"))
        Os::Log::SetMask("CITP.*", Os::Log::Critical);
    try {
        return Run(options).run();
    } catch (const Failure& failure) {
        warn(failure.text);
    } catch (const Interrupted&) {
        warn("interrupted");
    } catch (const OutputFailure& failure) {
        if (failure.isClosed)
            throw;
        warn("not all output could be written; is the disk full?");
    }
    return ExitBroken;
}
} // namespace
} // namespace Console::ServerTests

int Console::testServer(const Options& options)
{
    return ServerTests::runTests(options);
}
