// Layout and drawing of contact sheets.
// SPDX-License-Identifier: Apache-2.0
#include "contact_sheet.h"

#include <QBuffer>
#include <QDir>
#include <QFontMetrics>
#include <QPainter>
#include <algorithm>
#include <iterator>
#include <utility>

#include "new_file.h"
#include "printing.h"

namespace Console {
// A cell and its position.
struct PlacedCell
{
    const SheetCell* cell;
    QPoint position;
    bool opensSection; ///< a section heading is drawn above it
};

struct SheetLayout
{
    std::vector<PlacedCell> cells;
    QSize size;
};

namespace {
constexpr int MaxCellsPerSheet = 300;
// Bounds the memory for a sheet to 56 MB. Many small sections reach this height before a sheet is full.
constexpr int MaxSheetHeight = 8000;
// Not PNG, which takes ten times the processor time, most of the command, for four times the bytes.
constexpr int JpegQuality = 90;
constexpr int MinColumns = 4;
constexpr int MaxColumns = 10;
constexpr QSize PictureSize(160, 120);
constexpr int Gap = 14;
constexpr int LabelHeight = 18;
constexpr int DetailHeight = 15;
constexpr int TitleHeight = 40;
constexpr int SectionHeight = 30;
constexpr int CellWidth = PictureSize.width() + Gap;
constexpr int CellHeight = PictureSize.height() + LabelHeight + DetailHeight + Gap;

const QColor Paper(32, 33, 36);
const QColor Ink(235, 235, 235);
const QColor FaintInk(165, 165, 165);
const QColor Line(80, 80, 84);
const QColor Frame(58, 59, 63);
const QColor Missing(92, 40, 40);
const QColor MissingInk(255, 150, 140);

// As many columns as the longest section has cells, within the limits.
int columnsFor(const SheetCell* begin, const SheetCell* end)
{
    int columns = MinColumns;
    int run = 0;
    for (const SheetCell* cell = begin; cell != end; ++cell) {
        run = cell != begin && (cell - 1)->section == cell->section ? run + 1 : 1;
        columns = qBound(columns, run, MaxColumns);
    }
    return columns;
}

// Lays out the first cells, as many as fit on one sheet.
SheetLayout arrange(const SheetCell* begin, const SheetCell* end)
{
    SheetLayout layout;
    const int columns = columnsFor(begin, end);
    int column = 0;
    int y = TitleHeight;
    const QString* section = nullptr;
    for (const SheetCell* cell = begin; cell != end; ++cell) {
        const bool opens = !section || *section != cell->section;
        if (column == columns || (opens && column > 0)) {
            column = 0;
            y += CellHeight;
        }
        if (opens)
            y += SectionHeight;
        if (y + CellHeight > MaxSheetHeight)
            break;
        layout.size = QSize(Gap + columns * CellWidth, y + CellHeight);
        section = &cell->section;
        layout.cells.push_back({cell, QPoint(Gap + column * CellWidth, y), opens});
        ++column;
    }
    return layout;
}

class SheetPainter
{
public:
    explicit SheetPainter(QImage& sheet) : m_painter(&sheet), m_width(sheet.width())
    {
        m_painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
    }

    void title(const QString& text) { write(QRect(Gap, 0, m_width - 2 * Gap, TitleHeight), text, Ink, 17, true); }

    void cell(const PlacedCell& placed, const QString& detail, const QImage& image)
    {
        const QPoint position = placed.position;
        if (placed.opensSection) {
            const QRect heading(position.x(), position.y() - SectionHeight, m_width - 2 * Gap, SectionHeight - 6);
            m_painter.setPen(Line);
            m_painter.drawLine(heading.topLeft(), heading.topRight());
            write(heading, placed.cell->section, Ink, 14, true);
        }
        const QRect frame(position, PictureSize);
        picture(frame, image);
        write(QRect(position.x(), frame.bottom() + 2, PictureSize.width(), LabelHeight), placed.cell->label, Ink, 12,
              false);
        write(QRect(position.x(), frame.bottom() + 1 + LabelHeight, PictureSize.width(), DetailHeight), detail,
              image.isNull() ? MissingInk : FaintInk, 10, false);
    }

private:
    void picture(const QRect& frame, const QImage& image)
    {
        m_painter.fillRect(frame, image.isNull() ? Missing : Frame);
        if (image.isNull()) {
            m_painter.setPen(QPen(MissingInk, 1.5));
            m_painter.drawLine(frame.topLeft(), frame.bottomRight());
            m_painter.drawLine(frame.bottomLeft(), frame.topRight());
            return;
        }
        QRect target(QPoint(), image.size().scaled(frame.size(), Qt::KeepAspectRatio).expandedTo(QSize(1, 1)));
        target.moveCenter(frame.center());
        m_painter.drawImage(target, image);
    }

    // Writes one line. A text that is too long is elided in the middle, because names of clips often differ at the end.
    void write(const QRect& box, const QString& text, const QColor& ink, int pixels, bool isBold)
    {
        QFont font("sans-serif");
        font.setPixelSize(pixels);
        font.setBold(isBold);
        m_painter.setFont(font);
        m_painter.setPen(ink);
        const QString line = QFontMetrics(font).elidedText(text, Qt::ElideMiddle, box.width());
        m_painter.drawText(box, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine, line);
    }

    QPainter m_painter;
    int m_width;
};

} // namespace

struct ContactSheets::Sheet
{
    SheetLayout layout;
    std::size_t first; ///< index of its first cell
    QString path;
    std::size_t drawn = 0;
    QImage image; ///< only while some of the cells have been drawn
};

ContactSheets::ContactSheets(const QString& folder, const QString& title, std::vector<SheetCell> cells)
    : m_title(title), m_cells(std::move(cells))
{
    for (std::size_t first = 0; first < m_cells.size();) {
        const std::size_t count = std::min(m_cells.size() - first, static_cast<std::size_t>(MaxCellsPerSheet));
        Sheet sheet;
        sheet.layout = arrange(m_cells.data() + first, m_cells.data() + first + count);
        sheet.first = first;
        sheet.path = QDir(folder).filePath(m_sheets.empty() ? QString("contact-sheet.jpg")
                                                            : QString("contact-sheet-%1.jpg").arg(m_sheets.size() + 1));
        first += sheet.layout.cells.size();
        m_sheets.push_back(std::move(sheet));
    }
}

ContactSheets::~ContactSheets() = default;

void ContactSheets::draw(std::size_t index, const QString& detail, const QImage& image)
{
    const auto next = std::upper_bound(m_sheets.begin(), m_sheets.end(), index,
                                       [](std::size_t wanted, const Sheet& sheet) { return wanted < sheet.first; });
    Sheet& sheet = *std::prev(next);
    const bool isNew = sheet.image.isNull();
    if (isNew) {
        sheet.image = QImage(sheet.layout.size, QImage::Format_RGB32);
        sheet.image.fill(Paper);
    }
    {
        SheetPainter painter(sheet.image);
        if (isNew)
            painter.title(m_title);
        painter.cell(sheet.layout.cells[index - sheet.first], detail, image);
    }
    if (++sheet.drawn == sheet.layout.cells.size()) {
        save(sheet);
        sheet.image = QImage();
    }
}

// Encoded before the file is opened, so that a file is not left behind if the program is terminated meanwhile.
void ContactSheets::save(const Sheet& sheet)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    NewFile file(sheet.path);
    const bool isEncoded = sheet.image.save(&buffer, "jpeg", JpegQuality);
    if (isEncoded && file.open() && file.write(buffer.data()) && file.commit())
        m_paths << sheet.path;
    else if (m_problem.isEmpty())
        m_problem = QString("could not write %1: %2")
                        .arg(escapeControls(sheet.path), isEncoded ? file.problem() : QString("out of memory"));
}
} // namespace Console
