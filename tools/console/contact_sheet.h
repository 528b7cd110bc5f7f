// Contact sheets: all pictures on one, with their names, so that one look tells whether they are right.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>
#include <vector>

namespace Console {
/// One cell of a sheet.
struct SheetCell
{
    QString section; ///< heading above the first cell of a run with the same; e.g. the library
    QString label;   ///< below the picture
    QString detail;  ///< below the label, smaller; format and size, or what is wrong
    QString file;    ///< picture file; empty for a picture that is missing
};

/// Draws @p cells, at most a few hundred on each sheet, and writes the sheets as PNG files into @p folder:
/// "contact-sheet.png", "contact-sheet-2.png" and so on. Needs a QGuiApplication.
/// @param title at the head of each sheet; shown as it is, like the cells' texts
/// @return the paths written
/// @throws Failure if a file cannot be written
QStringList writeContactSheets(const QString& folder, const QString& title, const std::vector<SheetCell>& cells);
} // namespace Console
