// Layout and drawing of contact sheets.
// SPDX-License-Identifier: Apache-2.0
#include "contact_sheet.h"

#include <QDir>
#include <QFontMetrics>
#include <QImage>
#include <QImageReader>
#include <QPainter>
#include <QSaveFile>

#include "shutdown.h"

namespace Console {
namespace {
constexpr int MaxCellsPerSheet = 300;
// Qt 5 cannot draw beyond 32767 pixels. Many small sections reach this height before a sheet is full.
constexpr int MaxSheetHeight = 30000;
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

// A cell and its position.
struct PlacedCell
{
    const SheetCell* cell;
    QPoint position;
    bool opensSection; ///< a section heading is drawn above it
};

struct Layout
{
    std::vector<PlacedCell> cells;
    QSize size;
};

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
Layout arrange(const SheetCell* begin, const SheetCell* end)
{
    Layout layout;
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
        sheet.fill(Paper);
        m_painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
    }

    void title(const QString& text) { write(QRect(Gap, 0, m_width - 2 * Gap, TitleHeight), text, Ink, 17, true); }

    void cell(const PlacedCell& placed)
    {
        const QPoint position = placed.position;
        if (placed.opensSection) {
            const QRect heading(position.x(), position.y() - SectionHeight, m_width - 2 * Gap, SectionHeight - 6);
            m_painter.setPen(Line);
            m_painter.drawLine(heading.topLeft(), heading.topRight());
            write(heading, placed.cell->section, Ink, 14, true);
        }
        const QRect frame(position, PictureSize);
        const bool hasPicture = picture(frame, *placed.cell);
        write(QRect(position.x(), frame.bottom() + 2, PictureSize.width(), LabelHeight), placed.cell->label, Ink, 12,
              false);
        write(QRect(position.x(), frame.bottom() + 1 + LabelHeight, PictureSize.width(), DetailHeight),
              placed.cell->detail, hasPicture ? FaintInk : MissingInk, 10, false);
    }

private:
    bool picture(const QRect& frame, const SheetCell& cell)
    {
        const QImage image = cell.file.isEmpty() ? QImage() : QImageReader(cell.file).read();
        m_painter.fillRect(frame, image.isNull() ? Missing : Frame);
        if (image.isNull()) {
            m_painter.setPen(QPen(MissingInk, 1.5));
            m_painter.drawLine(frame.topLeft(), frame.bottomRight());
            m_painter.drawLine(frame.bottomLeft(), frame.topRight());
            return false;
        }
        QRect target(QPoint(), image.size().scaled(frame.size(), Qt::KeepAspectRatio).expandedTo(QSize(1, 1)));
        target.moveCenter(frame.center());
        m_painter.drawImage(target, image);
        return true;
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

void save(const QImage& sheet, const QString& path)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || !sheet.save(&file, "png") || !file.commit())
        throw Failure{QString("could not write %1: %2").arg(path, file.errorString())};
}
} // namespace

QStringList writeContactSheets(const QString& folder, const QString& title, const std::vector<SheetCell>& cells)
{
    QStringList paths;
    for (std::size_t first = 0; first < cells.size();) {
        const std::size_t count = std::min(cells.size() - first, static_cast<std::size_t>(MaxCellsPerSheet));
        const Layout layout = arrange(cells.data() + first, cells.data() + first + count);
        first += layout.cells.size();
        QImage sheet(layout.size, QImage::Format_RGB32);
        {
            SheetPainter painter(sheet);
            painter.title(title);
            for (const PlacedCell& placed : layout.cells)
                painter.cell(placed);
        }
        const QString name =
            paths.isEmpty() ? QString("contact-sheet.png") : QString("contact-sheet-%1.png").arg(paths.size() + 1);
        paths << QDir(folder).filePath(name);
        save(sheet, paths.constLast());
    }
    return paths;
}
} // namespace Console
