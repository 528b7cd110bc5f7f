// Escaping, line output and the log handler.
// SPDX-License-Identifier: Apache-2.0
#include "printing.h"

#include <QChar>
#include <QDateTime>
#include <QJsonDocument>
#include <cstdio>

namespace Console {
namespace {
// The same form as in JSON, so that it can be used in text and in JSON.
QString escape(QChar unit)
{
    return QString("\\u%1").arg(static_cast<uint>(unit.unicode()), 4, 16, QLatin1Char('0'));
}

bool needsEscape(uint codePoint)
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

// Writes the line with a single call, so that lines of several threads do not mix.
void write(std::FILE* file, const QString& line)
{
    const QByteArray bytes = line.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), file);
    std::fflush(file);
}

// The dumps in traffic log lines contain line feeds of the library, which are kept.
void logToStandardError(QtMsgType, const QMessageLogContext& context, const QString& text)
{
    write(stderr, QString("%1 %2: %3").arg(timeOfDay(), QString(context.category), escapeControls(text, true)));
}
} // namespace

QString escapeControls(const QString& text, bool keepLineFeeds)
{
    QString out;
    out.reserve(text.size());
    for (int i = 0; i < text.size(); ++i) {
        const QChar unit = text.at(i);
        const bool isPair = unit.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate();
        const uint codePoint = isPair ? QChar::surrogateToUcs4(unit, text.at(i + 1)) : unit.unicode();
        const bool isKept = !needsEscape(codePoint) || (keepLineFeeds && unit == QLatin1Char('\n'));
        out += isKept ? QString(unit) : escape(unit);
        if (isPair) {
            ++i;
            out += isKept ? QString(text.at(i)) : escape(text.at(i));
        }
    }
    return out;
}

void printLine(const QString& line)
{
    write(stdout, line);
}

void printLines(const QStringList& lines)
{
    for (const QString& line : lines)
        printLine(line);
}

void printJson(const QJsonObject& object)
{
    write(stdout, escapeControls(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact))));
}

void warn(const QString& line)
{
    write(stderr, "citp-console: " + line);
}

QString secondsText(qint64 milliseconds)
{
    return QString("%1 s").arg(static_cast<double>(milliseconds) / 1000.0);
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

void installLogHandler()
{
    qInstallMessageHandler(logToStandardError);
}
} // namespace Console
