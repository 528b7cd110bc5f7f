// The characters that are replaced or left out.
// SPDX-License-Identifier: Apache-2.0
#include "texts.h"

#include "picture_file.h"

#include <QCoreApplication>
#include <QRegularExpression>
#include <QStringList>

namespace Browser {
namespace {
// No written language needs more on one character.
constexpr int MaxCombiningMarks = 4;
} // namespace

QString toSingleLine(const QString& text, int longest)
{
    QString line;
    int marks = 0;
    for (const QChar c : text.left(longest)) {
        marks = c.isMark() ? marks + 1 : 0;
        const QChar::Category category = c.category();
        const bool isBlank = category == QChar::Other_Control || category == QChar::Other_Format ||
                             category == QChar::Separator_Line || category == QChar::Separator_Paragraph;
        if (marks <= MaxCombiningMarks)
            line += isBlank ? QChar(QLatin1Char(' ')) : c;
    }
    if (text.size() > longest) {
        if (line.at(line.size() - 1).isHighSurrogate())
            line.chop(1);
        line += QChar(0x2026);
    }
    return line;
}

QString fileNameOf(const QString& name)
{
    static const QRegularExpression unsafe(QStringLiteral(R"([/\\:*?"<>|]|^\.+)"));
    return toSingleLine(name, 80).replace(unsafe, QStringLiteral("_")).trimmed();
}

QString pictureFileName(const QString& name)
{
    const QString safe = Tools::withoutPictureExtension(fileNameOf(name));
    return (safe.isEmpty() ? QStringLiteral("picture") : safe) + QStringLiteral(".png");
}

QString frameTime(quint32 frames, int frameRate)
{
    if (frameRate <= 0)
        return QCoreApplication::translate("Browser::Texts", "%1 frames").arg(frames);
    const auto rate = static_cast<quint32>(frameRate);
    const quint32 seconds = frames / rate;
    const auto padded = [](quint32 number, int digits) {
        return QStringLiteral("%1").arg(number, digits, 10, QLatin1Char('0'));
    };
    return QStringLiteral("%1:%2:%3.%4")
        .arg(QString::number(seconds / 3600), padded(seconds / 60 % 60, 2), padded(seconds % 60, 2),
             padded(frames % rate, rate > 100 ? 3 : 2));
}

QString tableText(const QAbstractItemModel& model)
{
    QString text;
    for (int row = -1; row < model.rowCount(); ++row) {
        QStringList cells;
        for (int column = 0; column < model.columnCount(); ++column)
            cells << (row < 0 ? model.headerData(column, Qt::Horizontal) : model.index(row, column).data()).toString();
        text += cells.join(QLatin1Char('\t')) + QLatin1Char('\n');
    }
    return text;
}

QString toToolTip(const QStringList& lines)
{
    return lines.join(QLatin1Char('\n')).toHtmlEscaped().replace(QLatin1Char('\n'), QStringLiteral("<br>"));
}
} // namespace Browser
