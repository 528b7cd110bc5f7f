// Inbox: receives the stack's signals in its own thread. It passes on only what the window shows, converted to values,
// with pictures decoded and frequent messages batched.
//
// Neither a flood of messages nor a large message blocks the window. Created in the GUI thread, which also calls the
// public functions. Everything else runs in the inbox's thread, and signals are emitted there.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_stack.h>

#include <QMutex>
#include <QObject>
#include <QThread>
#include <QTimer>

#include "announcements.h"
#include "values.h"

namespace Browser {
class Inbox : public QObject
{
    Q_OBJECT

public:
    Inbox();
    /// Stops the thread; no signal is emitted afterwards.
    ~Inbox() override;

    /// Passes on messages of the server @p key only, or of no server if empty. Servers up and down are always reported.
    void setServer(const QString& key);

    /// Starts the thread. Connect the signals first.
    void start(const Tools::StackOptions& options = {});

Q_SIGNALS:
    void serverAnnounced(const QString& key, const QString& name);
    void serverUp(const Browser::Server& server);
    void serverDown(const QString& key);
    void librariesArrived(const Browser::LibraryListPtr& list);
    void elementsArrived(const Browser::ElementListPtr& list);
    void pictureArrived(const Browser::Picture& picture);
    void libraryUpdated(const Browser::LibraryUpdate& update);
    /// At most 25 times a second.
    void layersArrived(const QString& server, const Browser::LayerStates& layers);
    /// Fixtures are batched over 50 ms.
    void fixturesArrived(const QString& server, const Browser::Fixtures& fixtures);
    void adapterChanged(const Browser::AdapterState& adapter);

private:
    void initialize();
    void cleanUp();
    bool isCurrent(const QString& key);
    void reportServerUp(const QString& key);
    void handleLibraries(const QString& key, const CITP::Msg_MSEX_ELIN& message);
    template <typename Message, typename Items>
    void handleElements(const QString& key, const Message& message, const Items& items, Kind kind);
    void handlePicture(const QString& key, const CITP::Msg_MSEX_ETHN& message);
    void handleUpdate(const QString& key, const CITP::Msg_MSEX_ELUP& message);
    void handleLayers(const QString& key, const CITP::Msg_MSEX_LSTA& message);
    void handleFixture(const QString& key, const CITP::Msg_FPTC_PTCH& message);
    void emitLayers();
    void emitFixtures();

    QThread m_thread;
    QMutex m_mutex; ///< guards #m_server
    QString m_server;
    Tools::StackOptions m_options; ///< written before the thread starts
    // Used in the inbox's thread only.
    Announcements* m_announcements = nullptr;
    QTimer* m_layerTimer = nullptr;
    QTimer* m_fixtureTimer = nullptr;
    QString m_layersOf;
    LayerStates m_layers;
    bool m_hasLayers = false;
    QString m_fixturesOf;
    Fixtures m_fixtures;
};
} // namespace Browser
