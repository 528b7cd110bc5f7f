// Session: the models, the client layer beneath them, and the chosen server and library; everything except the window.
//
// GUI thread; at most one instance at a time.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QTimer>

#include <memory>

#include "adapters.h"
#include "element_model.h"
#include "layer_model.h"
#include "library_filter.h"
#include "library_model.h"
#include "log_model.h"
#include "patch_model.h"
#include "picture_store.h"
#include "preferences.h"
#include "search_model.h"
#include "server_filter.h"
#include "server_model.h"
#include "stack_options.h"

namespace Browser {
class Session : public QObject
{
    Q_OBJECT

public:
    /// @param pictureFolder in which pictures are kept for the next run; empty for none
    explicit Session(const QString& pictureFolder = {});
    ~Session() override;

    /// Starts the discovery of servers, on the groups that @p options has.
    void start(const Tools::StackOptions& options = {});

    LogModel& log() { return m_log; }
    ServerModel& servers() { return m_servers; }
    ServerFilter& filteredServers() { return m_filteredServers; }
    SearchModel& search() { return m_search; }
    LibraryModel& libraries() { return m_libraries; }
    LibraryFilter& filteredLibraries() { return m_filteredLibraries; }
    ElementModel& elements() { return m_elements; }
    LayerModel& layers() { return m_layers; }
    PatchModel& patch() { return m_patch; }
    PictureStore& pictures() { return m_pictures; }
    CITP::Transport& transport() { return m_transport; }
    CITP::Directory& directory() { return m_directory; }
    CITP::Requests& requests() { return m_requests; }
    const QString& pictureFolder() const { return m_pictureFolder; }

    /// Shows the server @p key, or none if empty. If it is not up, its content is loaded once it is.
    void chooseServer(const QString& key);
    QString chosenServer() const { return m_chosen; }
    bool isChosenUp() const { return m_isUp; }
    /// Shows a library of the chosen server.
    void chooseLibrary(quint8 type, const QString& library);
    /// Requests everything that is shown again from the chosen server.
    void reload();

    void setPreferences(const Preferences& preferences);
    const Preferences& preferences() const { return m_preferences; }

    /// Searches for servers on the adapter @p name from now on; empty lets the library select one.
    void chooseAdapter(const QString& name);
    const AdapterState& adapter() const { return m_adapter; }

Q_SIGNALS:
    /// chosenServer() or isChosenUp() has changed.
    void chosenChanged();
    void adapterChanged();
    void preferencesChanged();

private:
    /// What is known of the chosen server.
    struct Content
    {
        Content(CITP::Requests& requests, const CITP::Server& server);

        CITP::Server server; ///< as when it came up
        CITP::Catalogue catalogue;
        CITP::Layers layers;
    };

    void follow(const QString& key);
    void show(std::unique_ptr<Content> content);
    void requestPatch();
    void checkAdapter();

    LogModel m_log;
    CITP::StackTransport m_transport;
    CITP::Requests m_requests;
    const QString m_pictureFolder;
    CITP::Pictures m_pictureFiles;
    CITP::Directory m_directory;
    PictureStore m_pictures;
    ServerModel m_servers;
    ServerFilter m_filteredServers;
    SearchModel m_search;
    LibraryModel m_libraries;
    LibraryFilter m_filteredLibraries;
    ElementModel m_elements;
    LayerModel m_layers;
    PatchModel m_patch;
    std::unique_ptr<Content> m_content;
    std::unique_ptr<CITP::Patch> m_fixtures;
    QString m_chosen;
    bool m_isUp = false; ///< the chosen server
    QTimer m_adapterTimer;
    AdapterState m_adapter;
    Preferences m_preferences;
    CITP::citp_options m_options; ///< of the stack
    bool m_isStarted = false;
};
} // namespace Browser
