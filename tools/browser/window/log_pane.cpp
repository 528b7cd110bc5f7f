// The controls of the filter, and the table, which scrolls with the log while it is at its end.
// SPDX-License-Identifier: Apache-2.0
#include "log_pane.h"

#include <QClipboard>
#include <QDateTime>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QSaveFile>
#include <QScrollBar>
#include <QToolButton>
#include <QVBoxLayout>

#include "models/texts.h"
#include "saving.h"

namespace Browser {
LogPane::LogPane(LogModel& log, QWidget* parent)
    : QWidget(parent),
      m_log(log),
      m_context(new QComboBox(this)),
      m_level(new QComboBox(this)),
      m_traffic(new QCheckBox(tr("&Traffic"), this)),
      m_view(new QTableView(this))
{
    m_filter.setSourceModel(&m_log);
    m_context->addItem(tr("All contexts"), QString());
    for (const char* const context : {"CITP", "CITP.Message", "CITP.Stack", "CITP.Stack.Ploc", "CITP.Stack.Traffic"})
        m_context->addItem(QString::fromLatin1(context), QString::fromLatin1(context));
    m_level->addItem(tr("All levels"), 31);
    m_level->addItem(tr("State and above"), 30);
    m_level->addItem(tr("Warnings and above"), 28);
    m_level->addItem(tr("Failures and above"), 24);
    // Their longest texts would make the window wider than a small screen.
    m_context->setMinimumWidth(40);
    m_level->setMinimumWidth(40);
    m_context->setObjectName(QStringLiteral("logContext"));
    m_level->setObjectName(QStringLiteral("logLevel"));
    m_traffic->setObjectName(QStringLiteral("logTraffic"));
    m_traffic->setToolTip(tr("Logs every message that is sent or received, with its bytes"));

    m_context->setAccessibleName(tr("Context"));
    m_context->setToolTip(tr("Context of the lines that are shown"));
    m_level->setAccessibleName(tr("Level"));
    m_level->setToolTip(tr("Level of the lines that are shown"));
    // Narrower than push buttons, which would not fit into a window of 800 pixels with Qt 5.
    auto* const clear = new QToolButton(this);
    clear->setText(tr("Cl&ear"));
    auto* const copy = new QToolButton(this);
    copy->setText(tr("C&opy"));
    copy->setObjectName(QStringLiteral("logCopy"));
    copy->setToolTip(tr("Copies the lines that are shown, with their headings"));
    auto* const saveButton = new QToolButton(this);
    saveButton->setText(tr("S&ave…"));
    saveButton->setObjectName(QStringLiteral("logSave"));
    saveButton->setToolTip(tr("Saves all lines to a file, whole, also those that are not shown"));
    auto* const controls = new QHBoxLayout;
    controls->setSpacing(4);
    for (QWidget* const widget : std::initializer_list<QWidget*>{m_context, m_level, m_traffic})
        controls->addWidget(widget);
    controls->addStretch();
    controls->addWidget(copy);
    controls->addWidget(saveButton);
    controls->addWidget(clear);
    auto* const layout = new QVBoxLayout(this);
    layout->setContentsMargins(4, 4, 4, 0);
    layout->addLayout(controls);
    layout->addWidget(m_view);

    m_view->setObjectName(QStringLiteral("log"));
    m_view->setAccessibleName(tr("Log"));
    m_view->setModel(&m_filter);
    m_view->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_view->setShowGrid(false);
    m_view->setWordWrap(false);
    m_view->setTabKeyNavigation(false);
    m_view->verticalHeader()->hide();
    // Fixed row heights: the time to measure every row would grow with the log.
    m_view->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_view->verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 4);
    m_view->horizontalHeader()->setStretchLastSection(true);
    m_view->horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    const QFontMetrics metrics = fontMetrics();
    m_view->setColumnWidth(LogModel::Time, metrics.horizontalAdvance(QStringLiteral("00:00:00.0000")) + 12);
    m_view->setColumnWidth(LogModel::Level, metrics.horizontalAdvance(QStringLiteral("warning 00")) + 12);
    m_view->setColumnWidth(LogModel::Context, metrics.horizontalAdvance(QStringLiteral("CITP.Stack.Traffic")) + 16);
    m_view->setColumnWidth(LogModel::Server, metrics.horizontalAdvance(QStringLiteral("Name of a server")) + 16);

    connect(m_context, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            [this] { m_filter.setContext(m_context->currentData().toString()); });
    connect(m_level, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &LogPane::applyLevels);
    connect(m_traffic, &QCheckBox::toggled, this, [this](bool on) { m_log.setTraffic(on); });
    connect(copy, &QToolButton::clicked, this, [this] { QGuiApplication::clipboard()->setText(tableText(m_filter)); });
    connect(saveButton, &QToolButton::clicked, this, &LogPane::save);
    connect(clear, &QToolButton::clicked, this, [this] { m_log.clear(); });
    connect(&m_filter, &QAbstractItemModel::rowsAboutToBeInserted, this, [this] {
        const QScrollBar* const bar = m_view->verticalScrollBar();
        m_isAtEnd = bar->value() == bar->maximum();
    });
    connect(&m_filter, &QAbstractItemModel::rowsInserted, this, &LogPane::followEnd);
}

void LogPane::applyLevels()
{
    m_filter.setLevels(m_level->currentData().toInt());
}

void LogPane::save()
{
    const QString name = QStringLiteral("citp-browser-%1.log")
                             .arg(QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss")));
    saveAs(this, tr("Save the log"), name, tr("Logs (*.log *.txt)"), [this](const QString& path) {
        QSaveFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.write(m_log.wholeText().toUtf8());
        return file.commit() ? QString() : tr("The log could not be saved: %1.").arg(file.errorString());
    });
}

void LogPane::followEnd()
{
    if (m_isAtEnd)
        m_view->scrollToBottom();
}
} // namespace Browser
