// The picture and the table of fields.
// SPDX-License-Identifier: Apache-2.0
#include "preview_pane.h"

#include <QAction>
#include <QClipboard>
#include <QEvent>
#include <QGuiApplication>
#include <QHeaderView>
#include <QPainter>
#include <QVBoxLayout>

#include "painting.h"

namespace Browser {
PictureView::PictureView(QWidget* parent) : QWidget(parent)
{
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

void PictureView::show(const QImage& image, const QString& text)
{
    m_image = image;
    m_text = text;
    update();
}

void PictureView::paintEvent(QPaintEvent* /*event*/)
{
    QPainter painter(this);
    painter.fillRect(rect(), pictureBackground(palette()));
    if (!m_image.isNull()) {
        QRect place(QPoint(), m_image.size().scaled(size(), Qt::KeepAspectRatio));
        place.moveCenter(rect().center());
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(place, m_image);
        return;
    }
    painter.setPen(dimmed(palette()));
    painter.drawText(rect().adjusted(12, 12, -12, -12), Qt::AlignCenter | Qt::TextWordWrap, m_text);
}

PreviewPane::PreviewPane(QWidget* parent)
    : QWidget(parent), m_picture(new PictureView(this)), m_fields(new QTreeWidget(this))
{
    auto* const layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    m_picture->setAccessibleName(tr("Picture of the element"));
    layout->addWidget(m_picture);
    layout->addWidget(m_fields, 1);
    m_fields->setObjectName(QStringLiteral("fields"));
    m_fields->setColumnCount(2);
    m_fields->setHeaderHidden(true);
    m_fields->setRootIsDecorated(false);
    m_fields->setUniformRowHeights(true);
    m_fields->setFrameShape(QFrame::NoFrame);
    m_fields->header()->setStretchLastSection(true);
    m_fields->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    m_fields->setAccessibleName(tr("Fields of the element"));
    auto* const copy = new QAction(tr("&Copy the value"), m_fields);
    copy->setShortcut(QKeySequence::Copy);
    copy->setShortcutContext(Qt::WidgetShortcut);
    connect(copy, &QAction::triggered, this, [this] {
        if (const QTreeWidgetItem* const field = m_fields->currentItem())
            QGuiApplication::clipboard()->setText(field->text(1));
    });
    m_fields->addAction(copy);
    m_fields->setContextMenuPolicy(Qt::ActionsContextMenu);
    clear();
}

void PreviewPane::setPicture(const QImage& image, const QString& text)
{
    m_picture->show(image, text);
}

void PreviewPane::setFields(const std::vector<std::pair<QString, QString>>& fields)
{
    // Else a field would lose the selection with each picture that arrives.
    if (m_shown == fields)
        return;
    m_shown = fields;
    m_fields->clear();
    for (const auto& [name, value] : fields) {
        auto* const item = new QTreeWidgetItem(m_fields, {name, value});
        item->setSizeHint(0, QSize(fontMetrics().horizontalAdvance(name) + 16, fontMetrics().height() + 6));
        item->setToolTip(1, value.toHtmlEscaped());
    }
    colour();
}

void PreviewPane::colour()
{
    for (int i = 0; i < m_fields->topLevelItemCount(); ++i)
        m_fields->topLevelItem(i)->setForeground(0, dimmed(palette()));
}

void PreviewPane::changeEvent(QEvent* event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        colour();
}

void PreviewPane::clear()
{
    setPicture({}, tr("Choose an element to see it here."));
    setFields({});
}
} // namespace Browser
