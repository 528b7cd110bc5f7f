// Session: the models, their data sources, and the chosen server and library; everything except the window.
//
// GUI thread; at most one instance at a time.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>

#include "element_model.h"
#include "inbox.h"
#include "layer_model.h"
#include "library_filter.h"
#include "library_model.h"
#include "log_model.h"
#include "patch_model.h"
#include "picture_store.h"
#include "requests.h"
#include "server_model.h"
#include "stack_options.h"

namespace Browser {
class Session : public QObject
{
    Q_OBJECT

public:
    Session();
    ~Session() override;

    /// Starts the discovery of servers.
    void start(const Tools::StackOptions& options = {});

    LogModel& log() { return m_log; }
    ServerModel& servers() { return m_servers; }
    LibraryModel& libraries() { return m_libraries; }
    LibraryFilter& filteredLibraries() { return m_filteredLibraries; }
    ElementModel& elements() { return m_elements; }
    LayerModel& layers() { return m_layers; }
    PatchModel& patch() { return m_patch; }
    PictureStore& pictures() { return m_pictures; }
    Requests& requests() { return m_requests; }

    /// Shows the server @p key, or none if empty. If it is not up, its content is loaded once it is.
    void chooseServer(const QString& key);
    QString chosenServer() const { return m_chosen; }
    bool isChosenUp() const { return m_requests.isOpen(); }
    /// Shows a library of the chosen server.
    void chooseLibrary(quint8 type, const QString& library);
    /// Requests everything that is shown again from the chosen server.
    void reload();

    /// Searches for servers on the adapter @p name from now on; empty lets the library select one.
    void chooseAdapter(const QString& name);
    const AdapterState& adapter() const { return m_adapter; }

Q_SIGNALS:
    /// chosenServer() or isChosenUp() has changed.
    void chosenChanged();
    void adapterChanged();

private:
    void open(const Server& server);
    void setUp(const Server& server);
    void setDown(const QString& key);

    LogModel m_log;
    Inbox m_inbox;
    Requests m_requests;
    PictureStore m_pictures;
    ServerModel m_servers;
    LibraryModel m_libraries;
    LibraryFilter m_filteredLibraries;
    ElementModel m_elements;
    LayerModel m_layers;
    PatchModel m_patch;
    QString m_chosen;
    QString m_shown; ///< key of the server whose content the models hold
    AdapterState m_adapter;
    bool m_isStarted = false;
};
} // namespace Browser
