// Escaping, line output and the log's way to standard error.
// SPDX-License-Identifier: Apache-2.0
#include "printing.h"

#include <QChar>
#include <QDateTime>
#include <QJsonDocument>
#include <cstdio>

namespace Console {
namespace {
// JSON escapes the same way, so one form serves plain text and JSON.
QString escaped(QChar unit)
{
    return QString("\\u%1").arg(static_cast<uint>(unit.unicode()), 4, 16, QLatin1Char('0'));
}

bool isHarmful(uint codePoint)
{
    switch (QChar::category(codePoint)) {
        case QChar::Other_Control:
        case QChar::Other_Format:
        case QChar::Other_Surrogate:
        case QChar::Separator_Line:
        case QChar::Separator_Paragraph:
            return true;
        default:
            return false;
    }
}

QString withoutControls(const QString& text, bool keepLineFeeds)
{
    QString out;
    out.reserve(text.size());
    for (int i = 0; i < text.size(); ++i) {
        const QChar unit = text.at(i);
        const bool isPair = unit.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate();
        const uint codePoint = isPair ? QChar::surrogateToUcs4(unit, text.at(i + 1)) : unit.unicode();
        const bool isHarmless = !isHarmful(codePoint) || (keepLineFeeds && unit == QLatin1Char('\n'));
        out += isHarmless ? QString(unit) : escaped(unit);
        if (isPair) {
            ++i;
            out += isHarmless ? QString(text.at(i)) : escaped(text.at(i));
        }
    }
    return out;
}

// One call for the whole line: lines of several threads then never mix.
void write(std::FILE* file, const QString& line)
{
    const QByteArray bytes = line.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), file);
    std::fflush(file);
}

// Traffic lines hold dumps of several lines; their line feeds are the library's own.
void logToStandardError(QtMsgType, const QMessageLogContext& context, const QString& text)
{
    write(stderr, QString("%1 %2: %3").arg(timeOfDay(), QString(context.category), withoutControls(text, true)));
}
} // namespace

QString harmless(const QString& text)
{
    return withoutControls(text, false);
}

void printLine(const QString& line)
{
    write(stdout, line);
}

void printJson(const QJsonObject& object)
{
    write(stdout, harmless(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact))));
}

void complain(const QString& line)
{
    write(stderr, "citp-console: " + line);
}

QString timeOfDay()
{
    return QDateTime::currentDateTime().toString("HH:mm:ss.zzz");
}

QString isoTime()
{
    const QDateTime now = QDateTime::currentDateTime();
    return now.toOffsetFromUtc(now.offsetFromUtc()).toString(Qt::ISODateWithMs);
}

void printLogOnStandardError()
{
    qInstallMessageHandler(logToStandardError);
}
} // namespace Console
