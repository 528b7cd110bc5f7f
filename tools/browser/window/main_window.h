// MainWindow: the panes, their selections, and the settings that are saved.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QLineEdit>
#include <QListView>
#include <QMainWindow>
#include <QProgressBar>
#include <QPushButton>
#include <QSlider>
#include <QTableView>
#include <QTreeView>

#include "element_grid.h"
#include "elided_label.h"
#include "log_pane.h"
#include "models/session.h"
#include "preview_pane.h"
#include "search_pane.h"

namespace Browser {
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    /// @param session must outlive this object
    explicit MainWindow(Session& session);
    ~MainWindow() override;

protected:
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    QDockWidget* addPane(const QString& name, const QString& title, QWidget* content, Qt::DockWidgetArea area);
    void makeServers();
    void makeLibraries();
    void makeElements();
    void makePreview();
    void makeLayers();
    void makePatch();
    void makeLog();
    void makeSearch();
    void makeMenus();
    void makeStatus();
    void makeFrame();
    void setHintColours();
    /// Gives the columns and rows of the tables room for their texts.
    void fitTables();
    /// Restores the default arrangement of the panes.
    void resetLayout();

    void chooseInitialServer();
    void showChosen();
    void showLibrary(const QModelIndex& index);
    void expandMedia();
    void revealLibrary();
    void showElementState();
    void showNote();
    void showProgress(int done, int total);
    void showPreview();
    void showPicture();
    void copyPicture();
    void savePicture();
    void reloadPicture();
    void exportServer();
    void exportLibrary();
    void goTo(QWidget* widget);
    void openElement(const QString& server, quint8 type, const QString& library, int number);
    void selectWanted();
    void showElementOfLayer();
    void showLayerOfElement();
    void fillAdapterMenu();
    void editPreferences();
    void setPreferences(const Preferences& preferences);
    void showPreferences();
    void showHelp();
    void showAbout();
    void showAdapter();
    void updateServerCount();
    void showLost();
    QString elementMessage() const;
    QString serverName() const;
    QString libraryPath(quint8 type, const QString& library) const;

    void restoreSettings();
    void saveSettings() const;

    Session& m_session;
    QListView* m_servers = nullptr;
    QCheckBox* m_onlyProblems = nullptr;
    QPushButton* m_lost = nullptr;
    QWidget* m_librariesPane = nullptr;
    QLineEdit* m_search = nullptr;
    QLabel* m_noHits = nullptr;
    QTreeView* m_libraries = nullptr;
    QWidget* m_elementsPane = nullptr;
    ElidedLabel* m_title = nullptr;
    ElidedLabel* m_note = nullptr;
    QProgressBar* m_progress = nullptr;
    QPushButton* m_cancel = nullptr;
    QSlider* m_tileSize = nullptr;
    ElementGrid* m_elements = nullptr;
    PreviewPane* m_preview = nullptr;
    QTableView* m_layers = nullptr;
    QTableView* m_patch = nullptr;
    LogPane* m_log = nullptr;
    SearchPane* m_searchPane = nullptr;
    QLabel* m_counts = nullptr;
    QAction* m_quiet = nullptr;
    QPushButton* m_quietNote = nullptr;
    QPushButton* m_adapter = nullptr;
    QMenu* m_adapterMenu = nullptr;
    std::vector<QDockWidget*> m_panes;
    QString m_lastServer;    ///< saved by the previous run
    QString m_wantedLibrary; ///< to be chosen once it is loaded; empty for none
    quint8 m_wantedType = 0; ///< its type
    QString m_wantedServer;  ///< its server
    int m_wantedNumber = -1; ///< of an element to be selected once the library is loaded; -1 for none
    quint8 m_number = 0;     ///< number of the element in the preview
    bool m_hasPreview = false;
    bool m_hasLayout = false;
};
} // namespace Browser
