// The field and the table of hits.
// SPDX-License-Identifier: Apache-2.0
#include "search_pane.h"

#include <QHeaderView>
#include <QShortcut>
#include <QVBoxLayout>

namespace Browser {
SearchPane::SearchPane(SearchModel& search, QWidget* parent)
    : QWidget(parent),
      m_search(search),
      m_text(new QLineEdit(this)),
      m_state(new QLabel(search.state(), this)),
      m_hits(new QTableView(this))
{
    m_text->setObjectName(QStringLiteral("searchText"));
    m_text->setPlaceholderText(tr("Name or number (Ctrl+Shift+F)"));
    m_text->setAccessibleName(tr("Search in all servers"));
    m_text->setClearButtonEnabled(true);
    m_state->setObjectName(QStringLiteral("searchState"));
    m_state->setTextFormat(Qt::PlainText);
    m_state->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_hits->setObjectName(QStringLiteral("hits"));
    m_hits->setAccessibleName(tr("Hits"));
    m_hits->setModel(&m_search);
    m_hits->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_hits->setSelectionMode(QAbstractItemView::SingleSelection);
    m_hits->setShowGrid(false);
    m_hits->setWordWrap(false);
    m_hits->setTabKeyNavigation(false);
    m_hits->setTextElideMode(Qt::ElideMiddle);
    m_hits->setFrameShape(QFrame::NoFrame);
    m_hits->verticalHeader()->hide();
    m_hits->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_hits->verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 6);
    m_hits->horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    m_hits->horizontalHeader()->setSectionResizeMode(SearchModel::Name, QHeaderView::Stretch);
    const int character = fontMetrics().averageCharWidth();
    for (const auto& [column, characters] : {std::pair(SearchModel::Number, 12), std::pair(SearchModel::Kind, 16),
                                             std::pair(SearchModel::Library, 24), std::pair(SearchModel::Server, 36)})
        m_hits->setColumnWidth(column, characters * character);
    auto* const line = new QHBoxLayout;
    line->addWidget(m_text, 1);
    line->addWidget(m_state, 2);
    auto* const layout = new QVBoxLayout(this);
    layout->setContentsMargins(4, 4, 4, 0);
    layout->addLayout(line);
    layout->addWidget(m_hits);
    connect(m_text, &QLineEdit::textChanged, &m_search, &SearchModel::setText);
    connect(m_text, &QLineEdit::returnPressed, this, [this] { choose(m_search.index(0, 0)); });
    connect(m_hits, &QAbstractItemView::activated, this, &SearchPane::choose);
    connect(&m_search, &SearchModel::stateChanged, this, [this] {
        m_state->setText(m_search.state());
        m_state->setToolTip(m_search.state().toHtmlEscaped());
    });
    auto* const down = new QShortcut(Qt::Key_Down, m_text, nullptr, nullptr, Qt::WidgetShortcut);
    connect(down, &QShortcut::activated, this, [this] {
        m_hits->setFocus();
        m_hits->setCurrentIndex(m_search.index(0, 0));
    });
}

void SearchPane::choose(const QModelIndex& index)
{
    if (index.isValid())
        Q_EMIT chosen(m_search.hit(index.row()));
}
} // namespace Browser
