// The window's reactions to the user and to changes of the models. main_window_panes.cpp creates the panes.
// SPDX-License-Identifier: Apache-2.0
#include "main_window.h"

#include <citp/citp_stack.h>

#include <QActionGroup>
#include <QApplication>
#include <QClipboard>
#include <QCloseEvent>
#include <QDockWidget>
#include <QFileInfo>
#include <QHeaderView>
#include <QImageWriter>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QSaveFile>
#include <QSettings>
#include <QStatusBar>
#include <QStyle>

#include <dlfcn.h>

#include <utility>

#include "exporting.h"
#include "help_window.h"
#include "models/adapters.h"
#include "models/texts.h"
#include "painting.h"
#include "saving.h"
#include "settings_dialog.h"

namespace Browser {
namespace {
constexpr int MessageMs = 5000;

// The file has the version in its name.
QString libraryFile()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&CITP::citp_stack::Get), &info) == 0)
        return {};
    return QFileInfo(QFile::decodeName(info.dli_fname)).canonicalFilePath();
}
} // namespace

MainWindow::MainWindow(Session& session) : m_session(session)
{
    setWindowTitle(tr("CITP Browser"));
    setDockNestingEnabled(true);
    makeElements();
    makeServers();
    makeLibraries();
    makePreview();
    makeLayers();
    makePatch();
    makeLog();
    makeSearch();
    makeMenus();
    makeStatus();
    makeFrame();
    setHintColours();
    connect(&m_session, &Session::chosenChanged, this, &MainWindow::showChosen);
    connect(&m_session, &Session::adapterChanged, this, &MainWindow::showAdapter);
    connect(&m_session, &Session::preferencesChanged, this, &MainWindow::showPreferences);
    restoreSettings();
    showPreferences();
    showAdapter();
    showChosen();
    chooseInitialServer();
    updateServerCount();
}

MainWindow::~MainWindow() = default;

void MainWindow::changeEvent(QEvent* event)
{
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        setHintColours();
    if (event->type() == QEvent::FontChange)
        fitTables();
}

// The desktop's own are often too pale to read.
void MainWindow::setHintColours()
{
    for (QLineEdit* const field : {m_search, m_searchPane->text()}) {
        QPalette colours = field->palette();
        colours.setColor(QPalette::PlaceholderText, dimmed(palette()));
        field->setPalette(colours);
    }
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    saveSettings();
    event->accept();
}

QString MainWindow::serverName() const
{
    return m_session.servers().nameOf(m_session.chosenServer());
}

// Unless a server is chosen already: chooses the saved server once it is up or, without a saved one, the first server
// that comes up.
void MainWindow::chooseInitialServer()
{
    if (!m_session.chosenServer().isEmpty())
        return;
    const ServerModel& servers = m_session.servers();
    for (int row = 0; row < servers.rowCount(); ++row) {
        const QModelIndex index = servers.index(row);
        const bool isLast = index.data(ServerModel::KeyRole).toString() == m_lastServer;
        const bool isUp = index.data(ServerModel::StateRole).toInt() == static_cast<int>(ServerModel::State::Up);
        if (isUp && (isLast || m_lastServer.isEmpty())) {
            m_servers->setCurrentIndex(m_session.filteredServers().mapFromSource(index));
            return;
        }
    }
}

void MainWindow::showChosen()
{
    const ServerModel& servers = m_session.servers();
    const QModelIndex server =
        m_session.filteredServers().mapFromSource(servers.index(servers.rowOf(m_session.chosenServer())));
    if (server.isValid() && m_servers->currentIndex() != server)
        m_servers->setCurrentIndex(server);
    showElementState();
    if (m_session.isChosenUp() && !m_libraries->currentIndex().isValid())
        expandMedia();
    revealLibrary();
}

void MainWindow::expandMedia()
{
    const QModelIndex media =
        m_session.filteredLibraries().mapFromSource(m_session.libraries().find(1, CITP::rootLibrary()));
    if (media.isValid())
        m_libraries->expand(media);
}

void MainWindow::showLibrary(const QModelIndex& index)
{
    if (!index.isValid())
        return;
    const QString id = index.data(LibraryModel::IdRole).toString();
    if (id == CITP::rootLibrary())
        return;
    if (id != m_wantedLibrary || index.data(LibraryModel::TypeRole).toInt() != m_wantedType)
        m_wantedNumber = -1;
    m_wantedLibrary.clear();
    m_session.chooseLibrary(static_cast<quint8>(index.data(LibraryModel::TypeRole).toInt()), id);
}

// Selects the wanted library, or the shown one again after its row was removed and inserted. Loads what is above it.
void MainWindow::revealLibrary()
{
    const ElementModel& elements = m_session.elements();
    LibraryModel& libraries = m_session.libraries();
    const bool isWanted = !m_wantedLibrary.isEmpty() && m_session.chosenServer() == m_wantedServer;
    const QString library = isWanted ? m_wantedLibrary : elements.library();
    const quint8 type = isWanted ? m_wantedType : elements.type();
    if (library.isEmpty() || (!isWanted && m_libraries->currentIndex().isValid()))
        return;
    const QModelIndex found = libraries.find(type, library);
    const QModelIndex index = m_session.filteredLibraries().mapFromSource(found);
    if (index.isValid()) {
        m_libraries->setCurrentIndex(index);
    } else if (!found.isValid() && m_session.isChosenUp()) {
        QString above = CITP::parentLibrary(library);
        while (above != CITP::rootLibrary() && !libraries.find(type, above).isValid())
            above = CITP::parentLibrary(above);
        libraries.fetchMore(libraries.find(type, above));
    }
}

// The names of the library's parents and its own.
QString MainWindow::libraryPath(quint8 type, const QString& library) const
{
    QStringList names;
    for (QModelIndex index = m_session.libraries().find(type, library); index.isValid(); index = index.parent())
        names.prepend(index.data().toString());
    return names.isEmpty() ? library : names.join(QStringLiteral(" › "));
}

QString MainWindow::elementMessage() const
{
    const ServerModel& servers = m_session.servers();
    const ElementModel& elements = m_session.elements();
    if (m_session.chosenServer().isEmpty()) {
        const AdapterState& adapter = m_session.adapter();
        if (servers.rowCount() > 0)
            return tr("Choose a server on the left.");
        if (adapter.address.isEmpty())
            return tr("No network adapter to listen on: %1.\nThe button in the lower right corner selects another.")
                .arg(adapter.problem.isEmpty() ? adapter.reason
                                               : tr("%1: %2; %3", "adapter, what is wrong, and why it is used")
                                                     .arg(adapter.name, adapter.problem, adapter.reason));
        return tr("No media server found on %1 (%2) yet.\nServers announce themselves about once a second. If none "
                  "appears, check the cable, the adapter in the lower right corner and the log.")
            .arg(adapter.name, adapter.address);
    }
    switch (elements.state()) {
        case ElementModel::State::Loading:
            return tr("Loading the elements of the library…");
        case ElementModel::State::Failed:
            return tr("The elements could not be loaded: %1.\nPress F5 to try again.").arg(elements.problem());
        case ElementModel::State::Loaded:
            return tr("This library has no elements.");
        case ElementModel::State::Empty:
            break;
    }
    if (!m_session.isChosenUp())
        return tr("%1 is not connected. Its content is loaded when it connects.").arg(serverName());
    return tr("Choose a library to see its elements.");
}

void MainWindow::showElementState()
{
    const ElementModel& elements = m_session.elements();
    m_elements->setMessage(elementMessage());
    const QString server = m_session.chosenServer().isEmpty() ? QString() : serverName();
    QString title = server.isEmpty() ? tr("No server chosen") : server;
    if (!elements.library().isEmpty())
        title = tr("%1 › %2", "server, and path of the library")
                    .arg(server, libraryPath(elements.type(), elements.library()));
    m_title->setText(title);
    m_title->setToolTip(title.toHtmlEscaped());
    showNote();
    selectWanted();
    if (elements.state() == ElementModel::State::Empty || elements.state() == ElementModel::State::Loading)
        showPreview();
}

void MainWindow::showNote()
{
    const ElementModel& elements = m_session.elements();
    QString note;
    if (!m_session.chosenServer().isEmpty() && !m_session.isChosenUp())
        note = tr("not connected");
    else if (elements.rowCount() > 0)
        note = tr("Elements: %1").arg(elements.rowCount());
    const int failed = m_session.pictures().failed();
    if (elements.rowCount() > 0 && m_session.isChosenUp() && failed > 0)
        note += tr(" – %1 of %2 pictures failed").arg(failed).arg(m_session.pictures().total());
    if (elements.rowCount() > 0 && !elements.problem().isEmpty())
        note += QStringLiteral(" – ") + elements.problem();
    m_note->setText(note);
    m_note->setToolTip(note.toHtmlEscaped());
}

void MainWindow::showProgress(int done, int total)
{
    const bool isBusy = done < total && m_session.isChosenUp();
    if (!isBusy)
        showNote();
    m_progress->setMaximum(qMax(1, total));
    m_progress->setValue(done);
    m_progress->setVisible(isBusy);
    // Hiding the focused button would move the focus to an arbitrary widget.
    if (!isBusy && m_cancel->hasFocus())
        m_elements->setFocus();
    m_cancel->setVisible(isBusy);
}

void MainWindow::copyPicture()
{
    const QModelIndex index = m_elements->currentIndex();
    if (!index.isValid())
        return;
    const QImage image = m_session.elements().picture(index.row());
    if (!image.isNull())
        QGuiApplication::clipboard()->setImage(image);
}

void MainWindow::savePicture()
{
    const QModelIndex index = m_elements->currentIndex();
    if (!index.isValid())
        return;
    const QImage image = m_session.elements().picture(index.row());
    if (image.isNull())
        return;
    saveAs(this, tr("Save the picture"), pictureFileName(m_session.elements().element(index.row()).name),
           tr("Pictures (*.png *.jpg *.jpeg)"), [image](const QString& path) {
               // What is replaced stays if something fails.
               QSaveFile file(path);
               QImageWriter writer(&file, QFileInfo(path).suffix().toLower().toLatin1());
               QString problem;
               if (file.open(QIODevice::WriteOnly) && !writer.write(image))
                   problem = writer.errorString();
               else if (!file.isOpen() || !file.commit())
                   problem = file.errorString();
               return problem.isEmpty() ? QString() : tr("The picture could not be saved: %1.").arg(problem);
           });
}

// Shows the element once its server is up and its library is loaded.
void MainWindow::openElement(const QString& server, quint8 type, const QString& library, int number)
{
    m_session.chooseServer(server);
    m_wantedServer = server;
    m_wantedType = type;
    m_wantedLibrary = library;
    m_wantedNumber = number;
    // The tree may not have it yet, or may hide it.
    m_session.chooseLibrary(type, library);
    revealLibrary();
    selectWanted();
}

void MainWindow::selectWanted()
{
    const ElementModel& elements = m_session.elements();
    if (m_wantedNumber < 0 || elements.state() != ElementModel::State::Loaded)
        return;
    const int row = elements.rowOf(std::exchange(m_wantedNumber, -1));
    if (row < 0) {
        statusBar()->showMessage(tr("The library does not have this element any more."), MessageMs);
        return;
    }
    m_elements->setCurrentIndex(elements.index(row));
    goTo(m_elements);
}

void MainWindow::showElementOfLayer()
{
    const int row = m_layers->currentIndex().row();
    if (row < 0)
        return;
    const CITP::Layer layer = m_session.layers().layer(row);
    openElement(m_session.chosenServer(), layer.type, layer.library, layer.element);
}

// The next one, if several layers play the element.
void MainWindow::showLayerOfElement()
{
    const QModelIndex index = m_elements->currentIndex();
    const ElementModel& elements = m_session.elements();
    const LayerModel& layers = m_session.layers();
    for (int i = 1; index.isValid() && i <= layers.rowCount(); ++i) {
        const int row = (qMax(-1, m_layers->currentIndex().row()) + i) % layers.rowCount();
        const CITP::Layer& layer = layers.layer(row);
        if (layer.type != elements.type() || layer.library != elements.library() ||
            layer.element != elements.element(index.row()).number)
            continue;
        m_layers->setCurrentIndex(layers.index(row, 0));
        goTo(m_layers);
        return;
    }
    if (index.isValid())
        statusBar()->showMessage(tr("No layer plays this element."), MessageMs);
}

void MainWindow::reloadPicture()
{
    const QModelIndex index = m_elements->currentIndex();
    if (!index.isValid())
        return;
    m_session.pictures().reload(m_session.elements().pictureId(index.row()));
    m_session.pictures().reload(m_session.elements().pictureId(index.row(), PreviewPixels));
}

void MainWindow::exportServer()
{
    if (!m_session.isChosenUp()) {
        statusBar()->showMessage(tr("Choose a server that is up."), MessageMs);
        return;
    }
    exportPages(this, m_session, {m_session.directory().server(m_session.chosenServer())});
}

void MainWindow::exportLibrary()
{
    const ElementModel& elements = m_session.elements();
    if (!m_session.isChosenUp() || elements.library().isEmpty()) {
        statusBar()->showMessage(tr("Choose a library of a server that is up."), MessageMs);
        return;
    }
    const QString name = m_session.libraries().find(elements.type(), elements.library()).data().toString();
    exportPages(this, m_session,
                {m_session.directory().server(m_session.chosenServer()), elements.type(), elements.library(), name});
}

void MainWindow::showPreview()
{
    const QModelIndex index = m_elements->currentIndex();
    ElementModel& elements = m_session.elements();
    m_hasPreview = index.isValid() && index.row() < elements.rowCount();
    if (!m_hasPreview) {
        m_preview->clear();
        m_session.pictures().setWanted(PictureStore::Priority::Preview, {});
        return;
    }
    m_number = elements.element(index.row()).number;
    m_preview->setFields(elements.fields(index.row()));
    m_session.pictures().setWanted(PictureStore::Priority::Preview, {elements.pictureId(index.row(), PreviewPixels)});
    showPicture();
}

void MainWindow::showPicture()
{
    if (!m_hasPreview)
        return;
    const ElementModel& elements = m_session.elements();
    const PictureStore& pictures = m_session.pictures();
    const int row = elements.rowOf(m_number);
    if (row < 0)
        return;
    const CITP::PictureId large = elements.pictureId(row, PreviewPixels);
    const CITP::PictureId small = elements.pictureId(row);
    const QImage image = pictures.find(large);
    QString text = tr("loading…");
    if (pictures.state(large) == PictureStore::State::Failed)
        text = tr("No picture: %1").arg(pictures.problem(large));
    else if (pictures.state(large) == PictureStore::State::Cancelled || !m_session.isChosenUp())
        text = tr("not loaded");
    m_preview->setPicture(image.isNull() ? pictures.find(small) : image, text);
}

void MainWindow::fillAdapterMenu()
{
    m_adapterMenu->clear();
    // QMenu::clear() deletes the actions, but not their group.
    delete m_adapterMenu->findChild<QActionGroup*>();
    auto* const group = new QActionGroup(m_adapterMenu);
    const QString choice = adapterChoice();
    const auto add = [&](const QString& text, const QString& name) {
        QAction* const action = m_adapterMenu->addAction(text);
        action->setCheckable(true);
        action->setChecked(name == choice);
        group->addAction(action);
        connect(action, &QAction::triggered, this, [this, name] {
            QSettings().setValue(QStringLiteral("adapter"), name);
            m_session.chooseAdapter(name);
        });
    };
    add(tr("&Automatic"), {});
    m_adapterMenu->addSeparator();
    bool isPresent = choice.isEmpty();
    for (const AdapterOption& option : availableAdapters()) {
        add(QString(option.text).replace(QLatin1Char('&'), QStringLiteral("&&")), option.name);
        isPresent = isPresent || option.name == choice;
    }
    if (!isPresent)
        add(tr("%1 (missing)").arg(choice), choice);
}

void MainWindow::showAdapter()
{
    const AdapterState& adapter = m_session.adapter();
    QString text = tr("Adapter: none");
    if (!adapter.address.isEmpty())
        text = tr("Adapter: %1, %2").arg(adapter.name, adapter.address);
    else if (!adapter.name.isEmpty())
        text = tr("Adapter: %1").arg(adapter.name);
    if (!adapter.problem.isEmpty())
        text += QStringLiteral(" – ") + adapter.problem;
    m_adapter->setText(text);
    m_adapter->setIcon(adapter.problem.isEmpty() ? QIcon() : style()->standardIcon(QStyle::SP_MessageBoxWarning));
    m_adapter->setToolTip(adapter.reason.toHtmlEscaped());
    showElementState();
}

void MainWindow::editPreferences()
{
    auto* const dialog = new SettingsDialog(m_session.preferences(), this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QDialog::accepted, this, [this, dialog] { setPreferences(dialog->preferences()); });
    dialog->open();
}

void MainWindow::setPreferences(const Preferences& preferences)
{
    preferences.save(m_session.preferences());
    m_session.setPreferences(preferences);
}

void MainWindow::showPreferences()
{
    m_quiet->setChecked(m_session.preferences().isQuiet);
    m_quietNote->setVisible(m_session.preferences().isQuiet);
}

void MainWindow::showHelp()
{
    (new HelpWindow(guideFolder(QCoreApplication::applicationDirPath()), this))->show();
}

void MainWindow::showAbout()
{
    auto* const box = new QMessageBox(this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setObjectName(QStringLiteral("about"));
    box->setWindowTitle(tr("About the CITP Browser"));
    box->setTextFormat(Qt::PlainText);
    box->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    box->setText(tr("CITP Browser %1").arg(QCoreApplication::applicationVersion()));
    box->setInformativeText(tr("Library: %1\nQt: %2").arg(libraryFile(), QString::fromLatin1(qVersion())));
    box->open();
}

void MainWindow::updateServerCount()
{
    const int all = m_session.servers().rowCount();
    m_counts->setText(all == 0 ? tr("No servers")
                               : tr("Servers up: %1 of %2").arg(m_session.servers().countUp()).arg(all));
}

void MainWindow::showLost()
{
    const int lost = m_session.filteredServers().folded();
    m_lost->setVisible(lost > 0);
    m_lost->setText(m_lost->isChecked() ? tr("▾ Lost servers: %1").arg(lost) : tr("▸ Lost servers: %1").arg(lost));
}

void MainWindow::restoreSettings()
{
    const QSettings settings;
    restoreGeometry(settings.value(QStringLiteral("geometry")).toByteArray());
    m_hasLayout = restoreState(settings.value(QStringLiteral("panes")).toByteArray());
    m_lastServer = settings.value(QStringLiteral("server")).toString();
    m_wantedServer = m_lastServer;
    m_wantedLibrary = settings.value(QStringLiteral("library")).toString();
    m_wantedType = static_cast<quint8>(settings.value(QStringLiteral("libraryType")).toInt());
    m_elements->setTileWidth(settings.value(QStringLiteral("tileWidth"), ElementGrid::DefaultTileWidth).toInt());
    m_onlyProblems->setChecked(settings.value(QStringLiteral("onlyProblems")).toBool());
    m_search->setText(settings.value(QStringLiteral("filter")).toString());
    for (const auto& [name, view] : {std::pair("layers", m_layers), std::pair("patch", m_patch)})
        view->horizontalHeader()->restoreState(settings.value(QLatin1String(name)).toByteArray());
}

void MainWindow::saveSettings() const
{
    QSettings settings;
    settings.setValue(QStringLiteral("geometry"), saveGeometry());
    settings.setValue(QStringLiteral("panes"), saveState());
    // Without a chosen server the saved one stays, even if it has not come up in this run.
    if (!m_session.chosenServer().isEmpty()) {
        settings.setValue(QStringLiteral("server"), m_session.chosenServer());
        const bool isWanted = !m_wantedLibrary.isEmpty() && m_session.chosenServer() == m_wantedServer;
        settings.setValue(QStringLiteral("library"), isWanted ? m_wantedLibrary : m_session.elements().library());
        settings.setValue(QStringLiteral("libraryType"), isWanted ? m_wantedType : m_session.elements().type());
    }
    settings.setValue(QStringLiteral("onlyProblems"), m_onlyProblems->isChecked());
    settings.setValue(QStringLiteral("tileWidth"), m_elements->tileWidth());
    settings.setValue(QStringLiteral("filter"), m_search->text());
    for (const auto& [name, view] : {std::pair("layers", m_layers), std::pair("patch", m_patch)})
        settings.setValue(QLatin1String(name), view->horizontalHeader()->saveState());
}
} // namespace Browser
