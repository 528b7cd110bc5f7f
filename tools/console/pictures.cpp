// The characters and the length of the names.
// SPDX-License-Identifier: Apache-2.0
#include "pictures.h"

#include "picture_file.h"

namespace Console {
namespace {
constexpr int MaxNameBytes = 80;

bool isAllowed(uint codePoint)
{
    return QChar::isLetterOrNumber(codePoint) || QChar::isMark(codePoint) ||
           (codePoint < 0x80 && QByteArray("-+,()._").contains(static_cast<char>(codePoint)));
}
} // namespace

QString fileNamePart(const QString& name)
{
    QString part;
    int bytes = 0;
    for (const uint codePoint : name.normalized(QString::NormalizationForm_C).toUcs4()) {
        const QString character =
            isAllowed(codePoint) ? QString::fromUcs4(reinterpret_cast<const char32_t*>(&codePoint), 1) : QString("_");
        bytes += static_cast<int>(character.toUtf8().size());
        if (bytes > MaxNameBytes)
            break;
        part += character;
    }
    return part;
}

QString fileName(const QString& library, int element, const QString& name, const QString& extension)
{
    const QString part = Tools::withoutPictureExtension(fileNamePart(name));
    return QString("%1-%2%3.%4")
        .arg(QString(library).replace(',', '.'))
        .arg(element, 3, 10, QLatin1Char('0'))
        .arg(part.isEmpty() ? QString() : '-' + part, extension);
}
} // namespace Console
