// Contact sheets: overview pictures that show many thumbnails with their names.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <QString>
#include <QStringList>
#include <vector>

namespace Console {
/// One cell of a sheet. Control characters must already be escaped.
struct SheetCell
{
    QString section; ///< heading, e.g. the library; printed once above consecutive cells of the same section
    QString label;   ///< below the picture
};

/// Draws the sheets, at most 300 cells on each, and writes them as JPEG files: "contact-sheet.jpg",
/// "contact-sheet-2.jpg" and so on. A sheet is written when its last cell has been drawn, so that only a few pictures
/// are in memory. Requires a QGuiApplication.
class ContactSheets
{
public:
    /// @param folder for the files
    /// @param title at the top of each sheet, with control characters escaped
    /// @param cells all cells, in order
    ContactSheets(const QString& folder, const QString& title, std::vector<SheetCell> cells);
    ~ContactSheets();
    ContactSheets(const ContactSheets&) = delete;
    ContactSheets& operator=(const ContactSheets&) = delete;

    /// Draws the cell @p index, each at most once.
    /// @param detail below the label, smaller: format and size, or the error; control characters must be escaped
    /// @param image a null image if the picture is missing
    void draw(std::size_t index, const QString& detail, const QImage& image);

    /// The paths of the sheets that were written.
    const QStringList& paths() const { return m_paths; }
    /// Why the first sheet that could not be written failed; empty if there is none.
    const QString& problem() const { return m_problem; }

private:
    struct Sheet;

    void save(const Sheet& sheet);

    const QString m_title;
    const std::vector<SheetCell> m_cells;
    std::vector<Sheet> m_sheets;
    QStringList m_paths;
    QString m_problem;
};
} // namespace Console
