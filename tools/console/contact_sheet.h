// Contact sheets: overview pictures that show many thumbnails with their names.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>
#include <vector>

namespace Console {
/// One cell of a sheet.
struct SheetCell
{
    QString section; ///< heading, e.g. the library; printed once above consecutive cells of the same section
    QString label;   ///< below the picture
    QString detail;  ///< below the label, smaller: format and size, or the error
    QString file;    ///< picture file; empty if the picture is missing
};

/// Draws @p cells, at most 300 on a sheet, and writes the sheets as PNG files into @p folder: "contact-sheet.png",
/// "contact-sheet-2.png" and so on. Requires a QGuiApplication.
/// @param title at the top of each sheet; like the texts of the cells, control characters must already be escaped
/// @return the paths of the sheets
/// @throws Failure if a file cannot be written
QStringList writeContactSheets(const QString& folder, const QString& title, const std::vector<SheetCell>& cells);
} // namespace Console
