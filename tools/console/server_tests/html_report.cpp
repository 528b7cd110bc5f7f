// The page: counts, pictures, the table of all tests, and for each that did not pass what was asked and what came.
// SPDX-License-Identifier: Apache-2.0
#include "html_report.h"

#include <citp/citp_codecs.h>

#include <QJsonDocument>

#include "../decode/message_fields.h"
#include "../printing.h"

namespace Console::ServerTests {
namespace {
const char* const Style =
    "body { margin: 1.5em; font-family: sans-serif; max-width: 75em }\n"
    "table { border-collapse: collapse }\n"
    "td, th { text-align: left; vertical-align: top; padding: 0.2em 0.8em; border-bottom: 1px solid #ccc }\n"
    "pre { background: #f2f2f2; padding: 0.5em; overflow: auto; max-height: 30em }\n"
    "figure { display: inline-block; margin: 0.5em }\n"
    ".passed { color: #1a7f37 } .failed, .broken { color: #b30000; font-weight: bold } .warning { color: #8a5a00 }\n";
constexpr int MaxDumped = 512;

QString escaped(const QString& text)
{
    return escapeControls(text).toHtmlEscaped();
}

QString paragraph(const char* title, const QString& text)
{
    return QString("<p><b>%1:</b> %2</p>\n").arg(title, escaped(text));
}

QString exchangeText(const Exchange& exchange)
{
    QString text = QString("<p>%1 %2, %3 bytes</p>\n<pre>")
                       .arg(exchange.isSent ? "&rarr; sent" : "&larr; received",
                            escaped(QString::fromLatin1(codeOf(exchange.message))))
                       .arg(exchange.size);
    if (exchange.message.size() == exchange.size)
        text += escaped(QString::fromUtf8(QJsonDocument(fieldsOf(exchange.message)).toJson())).replace("\\u000a", "\n");
    text += QString::fromLatin1(CITP::hexDump(exchange.message.left(MaxDumped)).toLatin1()).toHtmlEscaped();
    if (exchange.size > MaxDumped)
        text += "\n...";
    return text + "</pre>\n";
}

QString anchorOf(const Result& result)
{
    return QString("test-%1-%2").arg(result.test->number).arg(result.version);
}

QString rowOf(const Result& result)
{
    const QString verdict = toText(result.verdict);
    const bool hasDetails = result.verdict != Verdict::Passed && result.verdict != Verdict::NotRun;
    QStringList texts = result.texts;
    for (auto figure = result.measured.begin(); figure != result.measured.end(); ++figure)
        texts << QString("%1: %2").arg(figure.key()).arg(figure.value());
    return QString("<tr><td>%1</td><td>%2</td><td>%3</td><td class=\"%4\">%5</td><td>%6</td></tr>\n")
        .arg(hasDetails ? QString("<a href=\"#%1\">%2</a>").arg(anchorOf(result)).arg(result.test->number)
                        : QString::number(result.test->number),
             result.version, escaped(result.test->name), verdict.section(' ', 0, 0), verdict,
             escaped(texts.join("; ")));
}

QString detailsOf(const Result& result)
{
    QString text =
        QString("<h2 id=\"%1\">%2, %3</h2>\n").arg(anchorOf(result), numberText(result), escaped(result.test->name));
    text += paragraph("The test", result.test->wire);
    text += paragraph("Expected", result.test->expected);
    text += paragraph(result.verdict == Verdict::Warning ? "Odd" : "Found", result.texts.join("; "));
    for (const Exchange& exchange : result.exchanges)
        text += exchangeText(exchange);
    return text;
}
} // namespace

QByteArray htmlReport(const Report& report, const QString& server, const QString& end,
                      const std::vector<LibraryPicture>& pictures)
{
    const QString title = QString("Tests of the media server %1").arg(escaped(server));
    QString page = QString(
                       "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>%1</title>\n"
                       "<style>\n%2</style>\n</head>\n<body>\n<h1>%1</h1>\n<p>%3, citp-console %4: %5%6</p>\n")
                       .arg(title, QString(Style), isoTime(), QString(CITP_VERSION), countsText(report),
                            end.isEmpty() ? QString() : "; " + escaped(end));
    for (const LibraryPicture& picture : pictures)
        page += QString("<figure><img alt=\"\" src=\"data:image/%1;base64,%2\"><figcaption>%3</figcaption></figure>\n")
                    .arg(picture.type, QString::fromLatin1(picture.content.toBase64()), escaped(picture.caption));
    page += "<table>\n<tr><th>test</th><th>MSEX</th><th>name</th><th>result</th><th></th></tr>\n";
    for (const Result& result : report.results())
        page += rowOf(result);
    page += "</table>\n";
    for (const Result& result : report.results()) {
        if (result.verdict != Verdict::Passed && result.verdict != Verdict::NotRun)
            page += detailsOf(result);
    }
    return (page + "</body>\n</html>\n").toUtf8();
}
} // namespace Console::ServerTests
