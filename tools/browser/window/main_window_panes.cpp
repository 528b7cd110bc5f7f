// Creates the window's panes, menus and status bar, and their default arrangement.
// SPDX-License-Identifier: Apache-2.0
#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QDockWidget>
#include <QGuiApplication>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QScreen>
#include <QScrollBar>
#include <QShortcut>
#include <QStatusBar>
#include <QStyle>
#include <QVBoxLayout>

#include "layer_delegate.h"
#include "library_delegate.h"
#include "main_window.h"
#include "models/texts.h"
#include "server_delegate.h"

namespace Browser {
namespace {
constexpr int LayerRowHeight = 44;

/// Adds @p text to the context menu of @p widget. @p key works while the widget has the focus.
template <typename Function>
void addToMenu(QWidget* widget, const QString& text, const QKeySequence& key, Function function)
{
    auto* const action = new QAction(text, widget);
    action->setShortcut(key);
    action->setShortcutContext(Qt::WidgetShortcut);
    QObject::connect(action, &QAction::triggered, widget, function);
    widget->addAction(action);
    widget->setContextMenuPolicy(Qt::ActionsContextMenu);
}

void makeTable(QTableView* view, const QString& name)
{
    view->setObjectName(name);
    view->setSelectionBehavior(QAbstractItemView::SelectRows);
    view->setSelectionMode(QAbstractItemView::SingleSelection);
    view->setShowGrid(false);
    view->setAlternatingRowColors(true);
    view->setWordWrap(false);
    view->setTextElideMode(Qt::ElideMiddle);
    view->setTabKeyNavigation(false);
    view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    view->setFrameShape(QFrame::NoFrame);
    view->verticalHeader()->hide();
    view->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    view->horizontalHeader()->setHighlightSections(false);
    view->horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    addToMenu(view, MainWindow::tr("&Copy the table"), QKeySequence::Copy,
              [view] { QGuiApplication::clipboard()->setText(tableText(*view->model())); });
}

int widthOf(const QWidget* widget, const QString& text)
{
    return widget->fontMetrics().horizontalAdvance(text) + 20;
}
} // namespace

QDockWidget* MainWindow::addPane(const QString& name, const QString& title, QWidget* content, Qt::DockWidgetArea area)
{
    auto* const pane = new QDockWidget(title, this);
    pane->setObjectName(name + QStringLiteral("Pane"));
    pane->setWidget(content);
    addDockWidget(area, pane);
    m_panes.push_back(pane);
    return pane;
}

void MainWindow::makeServers()
{
    auto* const content = new QWidget;
    m_onlyProblems = new QCheckBox(tr("Only with &problems"), content);
    m_onlyProblems->setObjectName(QStringLiteral("onlyProblems"));
    m_onlyProblems->setToolTip(tr("Shows only servers that are failing, lost or silent"));
    m_lost = new QPushButton(content);
    m_lost->setObjectName(QStringLiteral("lostServers"));
    m_lost->setCheckable(true);
    m_lost->setFlat(true);
    m_lost->setToolTip(tr("Shows or hides the servers that are lost"));
    m_servers = new QListView(content);
    m_servers->setObjectName(QStringLiteral("servers"));
    // Connected before setModel(): when the current row is removed, the view would make its neighbour current.
    connect(&m_session.filteredServers(), &QAbstractItemModel::rowsAboutToBeRemoved, m_servers,
            [this](const QModelIndex& /*parent*/, int first, int last) {
                const int row = m_servers->currentIndex().row();
                if (row >= first && row <= last)
                    m_servers->setCurrentIndex({});
            });
    m_servers->setModel(&m_session.filteredServers());
    // Set explicitly, or the view makes its first row current when it gets the focus.
    m_servers->setCurrentIndex({});
    m_servers->setItemDelegate(new ServerDelegate(m_servers));
    m_servers->setUniformItemSizes(true);
    m_servers->setFrameShape(QFrame::NoFrame);
    m_servers->setAccessibleName(tr("Servers"));
    m_servers->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_servers->setTextElideMode(Qt::ElideMiddle);
    addToMenu(m_servers, tr("&Copy the address"), QKeySequence::Copy, [this] {
        QGuiApplication::clipboard()->setText(m_servers->currentIndex().data(ServerModel::KeyRole).toString());
    });
    addToMenu(m_servers, tr("&Export the server as pages…"), {}, [this] { exportServer(); });
    auto* const layout = new QVBoxLayout(content);
    layout->setContentsMargins(4, 4, 4, 0);
    layout->setSpacing(4);
    layout->addWidget(m_onlyProblems);
    layout->addWidget(m_servers);
    layout->addWidget(m_lost);
    addPane(QStringLiteral("servers"), tr("Servers"), content, Qt::LeftDockWidgetArea);
    connect(m_onlyProblems, &QCheckBox::toggled, &m_session.filteredServers(), &ServerFilter::setOnlyProblems);
    connect(m_lost, &QPushButton::toggled, this, [this](bool on) {
        m_session.filteredServers().setShowsLost(on);
        showLost();
    });
    connect(&m_session.filteredServers(), &ServerFilter::foldedChanged, this, &MainWindow::showLost);
    showLost();
    connect(m_servers->selectionModel(), &QItemSelectionModel::currentChanged, this, [this](const QModelIndex& index) {
        if (index.isValid())
            m_session.chooseServer(index.data(ServerModel::KeyRole).toString());
    });
    const ServerModel& servers = m_session.servers();
    const auto follow = [this] {
        chooseInitialServer();
        updateServerCount();
        showElementState();
    };
    connect(&servers, &QAbstractItemModel::rowsInserted, this, follow);
    connect(&servers, &QAbstractItemModel::rowsRemoved, this, follow);
    connect(&servers, &QAbstractItemModel::dataChanged, this, follow);
}

void MainWindow::makeLibraries()
{
    m_librariesPane = new QWidget;
    m_search = new QLineEdit(m_librariesPane);
    m_search->setObjectName(QStringLiteral("search"));
    m_search->setPlaceholderText(tr("Filter by name (Ctrl+F)"));
    m_search->setToolTip(tr("Shows the loaded libraries whose name contains this text"));
    m_search->setClearButtonEnabled(true);
    m_search->setAccessibleName(tr("Filter of the libraries"));
    m_noHits = new QLabel(tr("No loaded library has this in its name."), m_librariesPane);
    m_noHits->setObjectName(QStringLiteral("noHits"));
    m_noHits->setWordWrap(true);
    m_noHits->hide();
    m_libraries = new QTreeView(m_librariesPane);
    m_libraries->setObjectName(QStringLiteral("libraries"));
    m_libraries->setModel(&m_session.filteredLibraries());
    m_libraries->setItemDelegate(new LibraryDelegate(m_libraries));
    m_libraries->setUniformRowHeights(true);
    m_libraries->setFrameShape(QFrame::NoFrame);
    m_libraries->setAccessibleName(tr("Libraries"));
    m_libraries->setTextElideMode(Qt::ElideMiddle);
    m_libraries->header()->setStretchLastSection(false);
    m_libraries->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    // Measured for the rows that are seen: the time for all of them would grow with the tree.
    m_libraries->header()->setResizeContentsPrecision(0);
    m_libraries->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    m_libraries->header()->setMinimumSectionSize(24);
    addToMenu(m_libraries, tr("&Export the library as pages…"), {}, [this] { exportLibrary(); });
    auto* const layout = new QVBoxLayout(m_librariesPane);
    layout->setContentsMargins(4, 4, 4, 0);
    layout->setSpacing(4);
    layout->addWidget(m_search);
    layout->addWidget(m_noHits);
    layout->addWidget(m_libraries);
    addPane(QStringLiteral("libraries"), tr("Libraries"), m_librariesPane, Qt::LeftDockWidgetArea);
    // A type's row has no count: its name, or the error, spans both columns.
    const auto span = [this] {
        for (int row = 0; row < m_libraries->model()->rowCount(); ++row)
            m_libraries->setFirstColumnSpanned(row, {}, true);
    };
    connect(m_libraries->model(), &QAbstractItemModel::modelReset, this, span);
    const auto showHits = [this] { m_noHits->setVisible(!m_session.filteredLibraries().hasHits()); };
    connect(m_libraries->model(), &QAbstractItemModel::modelReset, this, showHits);
    connect(m_libraries->model(), &QAbstractItemModel::rowsInserted, this, [this, showHits](const QModelIndex& parent) {
        // A filter that is remembered is there before the libraries.
        if (parent.isValid() && !m_search->text().trimmed().isEmpty())
            m_libraries->expand(parent);
        showHits();
    });
    connect(m_search, &QLineEdit::textChanged, this, [this, showHits](const QString& text) {
        // When the filter hides the current row, the view would make its neighbour current.
        m_libraries->setCurrentIndex({});
        m_session.filteredLibraries().setText(text);
        if (!text.trimmed().isEmpty())
            m_libraries->expandAll();
        revealLibrary();
        showHits();
    });
    connect(m_search, &QLineEdit::returnPressed, this, [this] { m_libraries->setFocus(); });
    connect(m_libraries->selectionModel(), &QItemSelectionModel::currentChanged, this, &MainWindow::showLibrary);
    connect(&m_session.filteredLibraries(), &QAbstractItemModel::rowsInserted, this, &MainWindow::revealLibrary);
    connect(&m_session.filteredLibraries(), &QAbstractItemModel::dataChanged, this, [this] { showElementState(); });
}

void MainWindow::makeElements()
{
    m_elementsPane = new QWidget(this);
    m_title = new ElidedLabel(m_elementsPane);
    QFont bold = m_title->font();
    bold.setBold(true);
    m_title->setFont(bold);
    m_note = new ElidedLabel(m_elementsPane);
    m_note->setObjectName(QStringLiteral("note"));
    m_progress = new QProgressBar(m_elementsPane);
    m_progress->setObjectName(QStringLiteral("progress"));
    m_progress->setAccessibleName(tr("Pictures loaded"));
    m_progress->setFormat(tr("%v of %m pictures"));
    m_progress->setMinimumWidth(80);
    m_cancel = new QPushButton(tr("&Cancel"), m_elementsPane);
    m_cancel->setObjectName(QStringLiteral("cancel"));
    m_cancel->setToolTip(tr("Cancels loading the pictures of this library (Esc)"));
    auto* const below = new QHBoxLayout;
    below->addWidget(m_note, 1);
    below->addWidget(m_progress);
    below->addWidget(m_cancel);
    m_tileSize = new QSlider(Qt::Horizontal, m_elementsPane);
    m_tileSize->setObjectName(QStringLiteral("tileSize"));
    m_tileSize->setRange(ElementGrid::MinTileWidth, ElementGrid::MaxTileWidth);
    m_tileSize->setPageStep(40);
    m_tileSize->setSingleStep(10);
    m_tileSize->setValue(ElementGrid::DefaultTileWidth);
    m_tileSize->setFixedWidth(100);
    m_tileSize->setAccessibleName(tr("Size of the tiles"));
    m_tileSize->setToolTip(tr("Size of the tiles (Ctrl and the mouse wheel, Ctrl++ and Ctrl+-)"));
    below->addWidget(m_tileSize);
    // The line keeps its height when the progress bar and the button are hidden.
    m_note->setMinimumHeight(m_cancel->sizeHint().height());
    m_elements = new ElementGrid(m_elementsPane);
    m_elements->setObjectName(QStringLiteral("elements"));
    m_elements->setModel(&m_session.elements());
    m_elements->setFrameShape(QFrame::NoFrame);
    m_elements->setAccessibleName(tr("Elements"));
    addToMenu(m_elements, tr("&Copy the picture"), QKeySequence::Copy, [this] { copyPicture(); });
    addToMenu(m_elements, tr("&Save the picture…"), QKeySequence::Save, [this] { savePicture(); });
    addToMenu(m_elements, tr("Copy the &DMX value"), QKeySequence(int(Qt::CTRL) | Qt::Key_D), [this] {
        const QModelIndex index = m_elements->currentIndex();
        if (index.isValid())
            QGuiApplication::clipboard()->setText(m_session.elements().dmxValue(index.row()));
    });
    addToMenu(m_elements, tr("Show the la&yer that plays it"), QKeySequence(int(Qt::CTRL) | Qt::Key_L),
              [this] { showLayerOfElement(); });
    addToMenu(m_elements, tr("&Load the picture again"), QKeySequence(int(Qt::CTRL) | Qt::Key_R),
              [this] { reloadPicture(); });
    auto* const layout = new QVBoxLayout(m_elementsPane);
    layout->setContentsMargins(8, 6, 8, 4);
    layout->setSpacing(4);
    layout->addWidget(m_title);
    layout->addLayout(below);
    layout->addWidget(m_elements, 1);
    setCentralWidget(m_elementsPane);
    showProgress(0, 0);

    ElementModel& elements = m_session.elements();
    connect(m_tileSize, &QSlider::valueChanged, m_elements, &ElementGrid::setTileWidth);
    connect(m_elements, &ElementGrid::tileWidthChanged, m_tileSize, &QSlider::setValue);
    connect(m_elements, &ElementGrid::visibleRowsChanged, &elements, &ElementModel::setVisibleRows);
    connect(&elements, &ElementModel::stateChanged, this, &MainWindow::showElementState);
    connect(&m_session.pictures(), &PictureStore::progress, this, &MainWindow::showProgress);
    connect(m_cancel, &QPushButton::clicked, this, [this] { m_session.pictures().cancel(); });
}

void MainWindow::makePreview()
{
    m_preview = new PreviewPane;
    addPane(QStringLiteral("preview"), tr("Element"), m_preview, Qt::RightDockWidgetArea);
    connect(m_elements->selectionModel(), &QItemSelectionModel::currentChanged, this, &MainWindow::showPreview);
    const ElementModel& elements = m_session.elements();
    connect(&elements, &QAbstractItemModel::modelReset, this, &MainWindow::showPreview);
    connect(&elements, &QAbstractItemModel::dataChanged, this, [this](const QModelIndex& from, const QModelIndex& to) {
        const int row = m_elements->currentIndex().row();
        if (row < from.row() || row > to.row())
            return;
        showPreview();
    });
    connect(&m_session.pictures(), &PictureStore::changed, this, [this](const CITP::PictureId& id) {
        if (id.number == m_number)
            showPicture();
    });
    connect(&m_session.pictures(), &PictureStore::manyChanged, this, &MainWindow::showPicture);
}

void MainWindow::makeLayers()
{
    m_layers = new QTableView;
    makeTable(m_layers, QStringLiteral("layers"));
    m_layers->setAccessibleName(tr("Layers"));
    m_layers->setModel(&m_session.layers());
    m_layers->setItemDelegate(new LayerDelegate(m_layers));
    m_layers->horizontalHeader()->setSectionResizeMode(LayerModel::Name, QHeaderView::Stretch);
    addToMenu(m_layers, tr("Show the &element"), QKeySequence(int(Qt::CTRL) | Qt::Key_L),
              [this] { showElementOfLayer(); });
    connect(m_layers, &QAbstractItemView::activated, this, &MainWindow::showElementOfLayer);
    QDockWidget* const pane = addPane(QStringLiteral("layers"), tr("Layers"), m_layers, Qt::BottomDockWidgetArea);
    connect(&m_session.layers(), &LayerModel::ageChanged, pane, [this, pane] {
        const QString age = m_session.layers().age();
        pane->setWindowTitle(age.isEmpty() ? tr("Layers") : tr("Layers (%1)", "how old their status is").arg(age));
        m_layers->viewport()->update();
    });
}

void MainWindow::makePatch()
{
    m_patch = new QTableView;
    makeTable(m_patch, QStringLiteral("patch"));
    m_patch->setAccessibleName(tr("Fixture patch"));
    auto* const sorted = new QSortFilterProxyModel(m_patch);
    sorted->setSourceModel(&m_session.patch());
    m_patch->setModel(sorted);
    m_patch->setSortingEnabled(true);
    addToMenu(m_patch, tr("&Sort by this column"), QKeySequence(int(Qt::CTRL) | Qt::Key_T), [this] {
        const QHeaderView& header = *m_patch->horizontalHeader();
        const int column = qMax(0, m_patch->currentIndex().column());
        const bool isAscending =
            header.sortIndicatorSection() == column && header.sortIndicatorOrder() == Qt::AscendingOrder;
        m_patch->sortByColumn(column, isAscending ? Qt::DescendingOrder : Qt::AscendingOrder);
    });
    m_patch->sortByColumn(PatchModel::Identifier, Qt::AscendingOrder);
    m_patch->horizontalHeader()->setStretchLastSection(true);
    addPane(QStringLiteral("patch"), tr("Fixture patch"), m_patch, Qt::BottomDockWidgetArea);
}

void MainWindow::fitTables()
{
    const int line = fontMetrics().height();
    const int rowHeight = qMax(int(LayerRowHeight), line + 16);
    for (QWidget* const list : {static_cast<QWidget*>(m_servers), static_cast<QWidget*>(m_libraries)})
        list->setMinimumWidth(fontMetrics().averageCharWidth() * 15);
    m_layers->verticalHeader()->setDefaultSectionSize(rowHeight);
    const std::vector<std::pair<int, int>> widths{
        {LayerModel::Layer, widthOf(this, tr("Layer"))},
        {LayerModel::Picture, rowHeight * 4 / 3 + 8},
        {LayerModel::Position, widthOf(this, tr("Position (h:min:s.frames)"))},
        {LayerModel::FrameRate, widthOf(this, tr("000 fps"))},
        {LayerModel::Place, widthOf(this, QStringLiteral("1,255,255,255 / 255"))},
        {LayerModel::Output, widthOf(this, tr("Output"))},
        {LayerModel::Flags, widthOf(this, tr("playing, backwards"))}};
    for (const auto& [column, width] : widths)
        m_layers->setColumnWidth(column, width);
    m_patch->verticalHeader()->setDefaultSectionSize(line + 8);
    m_patch->setColumnWidth(PatchModel::Make, widthOf(this, tr("Manufacturer of fixtures")));
    for (const int column : {PatchModel::Identifier, PatchModel::Universe, PatchModel::Channel, PatchModel::Channels})
        m_patch->setColumnWidth(column, widthOf(this, tr("Universe")) + 16);
}

void MainWindow::makeLog()
{
    m_log = new LogPane(m_session.log());
    addPane(QStringLiteral("log"), tr("Log"), m_log, Qt::BottomDockWidgetArea);
}

void MainWindow::makeSearch()
{
    m_searchPane = new SearchPane(m_session.search());
    addPane(QStringLiteral("search"), tr("Search"), m_searchPane, Qt::BottomDockWidgetArea);
    connect(m_searchPane, &SearchPane::chosen, this, [this](const SearchModel::Hit& hit) {
        // The model may be searched anew meanwhile.
        const SearchModel::Hit copy = hit;
        openElement(copy.server, copy.type, copy.library, copy.number);
    });
}

// The tabs already show the panes' names; title bars would only take space from the lists.
void MainWindow::makeFrame()
{
    fitTables();
    setCorner(Qt::BottomLeftCorner, Qt::LeftDockWidgetArea);
    setCorner(Qt::BottomRightCorner, Qt::BottomDockWidgetArea);
    setTabPosition(Qt::BottomDockWidgetArea, QTabWidget::North);
    for (const char* const name : {"layersPane", "patchPane", "logPane", "searchPane"})
        findChild<QDockWidget*>(QLatin1String(name))->setTitleBarWidget(new QWidget(this));
    const QScreen* const screen = QGuiApplication::primaryScreen();
    const QSize room = screen ? screen->availableSize() : QSize(1280, 720);
    resize(qMin(room.width(), qMax(1180, room.width() * 4 / 5)), qMin(room.height(), qMax(680, room.height() * 4 / 5)));
    setTabOrder(m_onlyProblems, m_servers);
    setTabOrder(m_servers, m_lost);
    setTabOrder(m_lost, m_search);
    setTabOrder(m_search, m_libraries);
    setTabOrder(m_libraries, m_elements);
    setTabOrder(m_elements, m_cancel);
    setTabOrder(m_cancel, m_tileSize);
    m_servers->setFocus();
}

// Also if its pane is closed or behind another.
void MainWindow::goTo(QWidget* widget)
{
    for (QWidget* above = widget->parentWidget(); above; above = above->parentWidget()) {
        if (auto* const pane = qobject_cast<QDockWidget*>(above)) {
            pane->show();
            pane->raise();
        }
    }
    widget->setFocus(Qt::ShortcutFocusReason);
}

void MainWindow::makeMenus()
{
    QMenu* const file = menuBar()->addMenu(tr("&File"));
    file->addAction(tr("Export the &library as pages…"), this, &MainWindow::exportLibrary)
        ->setObjectName(QStringLiteral("exportLibrary"));
    file->addAction(tr("&Export the server as pages…"), this, &MainWindow::exportServer)
        ->setObjectName(QStringLiteral("exportServer"));
    file->addSeparator();
    file->addAction(tr("&Settings…"), this, &MainWindow::editPreferences)->setShortcut(Qt::CTRL | Qt::Key_Comma);
    file->addSeparator();
    QAction* const quit = file->addAction(tr("&Quit"), this, &QWidget::close);
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));

    QMenu* const server = menuBar()->addMenu(tr("&Server"));
    QAction* const reload = server->addAction(tr("&Reload"), this, [this] { m_session.reload(); });
    reload->setShortcut(QKeySequence(Qt::Key_F5));
    QAction* const cancel =
        server->addAction(tr("&Cancel loading pictures"), this, [this] { m_session.pictures().cancel(); });
    cancel->setShortcut(QKeySequence(Qt::Key_Escape));
    QAction* const retry =
        server->addAction(tr("Load &failed pictures again"), this, [this] { m_session.pictures().retry(); });
    retry->setShortcut(QKeySequence(int(Qt::CTRL) | int(Qt::SHIFT) | Qt::Key_R));
    server->addSeparator();
    m_quiet = server->addAction(tr("&Quiet mode"));
    m_quiet->setObjectName(QStringLiteral("quietMode"));
    m_quiet->setCheckable(true);
    m_quiet->setShortcut(Qt::CTRL | Qt::Key_M);
    m_quiet->setToolTip(tr("Requests only what is opened or looked at"));
    connect(m_quiet, &QAction::triggered, this, [this](bool on) {
        Preferences preferences = m_session.preferences();
        preferences.isQuiet = on;
        setPreferences(preferences);
    });
    m_adapterMenu = server->addMenu(tr("Network &adapter"));
    connect(m_adapterMenu, &QMenu::aboutToShow, this, &MainWindow::fillAdapterMenu);

    QMenu* const view = menuBar()->addMenu(tr("&View"));
    for (QDockWidget* const pane : m_panes)
        view->addAction(pane->toggleViewAction());
    view->addSeparator();
    const auto resize = [this](int by) { m_elements->setTileWidth(m_elements->tileWidth() + by); };
    view->addAction(tr("&Larger tiles"), this, [resize] { resize(20); })->setShortcut(QKeySequence::ZoomIn);
    view->addAction(tr("S&maller tiles"), this, [resize] { resize(-20); })->setShortcut(QKeySequence::ZoomOut);

    QMenu* const go = menuBar()->addMenu(tr("&Go"));
    const auto addPlace = [&](const QString& text, int key, QWidget* widget) {
        QAction* const action = go->addAction(text, this, [this, widget] { goTo(widget); });
        action->setShortcut(QKeySequence(key));
    };
    addPlace(tr("&Servers"), int(Qt::CTRL) | Qt::Key_1, m_servers);
    addPlace(tr("&Libraries"), int(Qt::CTRL) | Qt::Key_2, m_libraries);
    addPlace(tr("&Elements"), int(Qt::CTRL) | Qt::Key_3, m_elements);
    addPlace(tr("La&yers"), int(Qt::CTRL) | Qt::Key_4, m_layers);
    addPlace(tr("Fixture &patch"), int(Qt::CTRL) | Qt::Key_5, m_patch);
    addPlace(tr("L&og"), int(Qt::CTRL) | Qt::Key_6, m_log->findChild<QTableView*>(QStringLiteral("log")));
    view->addSeparator();
    view->addAction(tr("&Reset layout"), this, &MainWindow::resetLayout)->setObjectName(QStringLiteral("resetLayout"));
    addPlace(tr("Search in &all servers"), int(Qt::CTRL) | int(Qt::SHIFT) | Qt::Key_F, m_searchPane->text());
    addPlace(tr("&Filter the libraries"), int(Qt::CTRL) | Qt::Key_F, m_search);

    QMenu* const help = menuBar()->addMenu(tr("&Help"));
    help->addAction(tr("&Guide"), this, &MainWindow::showHelp)->setShortcut(QKeySequence::HelpContents);
    help->addAction(tr("&About the CITP Browser"), this, &MainWindow::showAbout)
        ->setObjectName(QStringLiteral("aboutBrowser"));
}

void MainWindow::makeStatus()
{
    m_counts = new QLabel(this);
    m_counts->setObjectName(QStringLiteral("counts"));
    m_adapter = new QPushButton(this);
    m_adapter->setObjectName(QStringLiteral("adapter"));
    m_adapter->setMenu(m_adapterMenu);
    m_adapter->setFlat(true);
    m_quietNote = new QPushButton(tr("Quiet mode"), this);
    m_quietNote->setObjectName(QStringLiteral("quietNote"));
    m_quietNote->setToolTip(tr("Requests only what is opened or looked at. Click to load everything again (Ctrl+M)."));
    connect(m_quietNote, &QPushButton::clicked, m_quiet, &QAction::trigger);
    statusBar()->addWidget(m_counts);
    statusBar()->addPermanentWidget(m_quietNote);
    statusBar()->addPermanentWidget(m_adapter);
}

void MainWindow::showEvent(QShowEvent* event)
{
    QMainWindow::showEvent(event);
    // Panes can be resized only after the window has its size.
    if (!m_hasLayout)
        QMetaObject::invokeMethod(this, &MainWindow::resetLayout, Qt::QueuedConnection);
    m_hasLayout = true;
}

void MainWindow::resetLayout()
{
    const auto pane = [this](const char* name) { return findChild<QDockWidget*>(QLatin1String(name)); };
    for (QDockWidget* const each : m_panes) {
        each->setFloating(false);
        each->show();
    }
    for (const char* const name : {"serversPane", "librariesPane"})
        addDockWidget(Qt::LeftDockWidgetArea, pane(name));
    addDockWidget(Qt::RightDockWidgetArea, pane("previewPane"));
    for (const char* const name : {"layersPane", "patchPane", "logPane", "searchPane"})
        addDockWidget(Qt::BottomDockWidgetArea, pane(name));
    splitDockWidget(pane("serversPane"), pane("librariesPane"), Qt::Horizontal);
    tabifyDockWidget(pane("layersPane"), pane("patchPane"));
    tabifyDockWidget(pane("layersPane"), pane("logPane"));
    tabifyDockWidget(pane("layersPane"), pane("searchPane"));
    pane("layersPane")->raise();
    resizeDocks({pane("serversPane"), pane("librariesPane"), pane("previewPane")},
                {qMin(width() * 15 / 100, 260), qMin(width() * 16 / 100, 320), qMin(width() * 22 / 100, 600)},
                Qt::Horizontal);
    resizeDocks({pane("layersPane")}, {height() * 28 / 100}, Qt::Vertical);
}
} // namespace Browser
