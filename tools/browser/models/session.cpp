// Connects the inbox, the requests and the models.
// SPDX-License-Identifier: Apache-2.0
#include "session.h"

#include <citp/citp_msg_fptc.h>

#include "adapters.h"

namespace Browser {
Session::Session()
    : m_pictures(m_requests), m_libraries(m_requests), m_elements(m_requests, m_pictures), m_layers(m_pictures)
{
    m_filteredLibraries.setSourceModel(&m_libraries);
    connect(&m_inbox, &Inbox::serverAnnounced, &m_servers, &ServerModel::setAnnounced);
    connect(&m_inbox, &Inbox::serverUp, this, &Session::setUp);
    connect(&m_inbox, &Inbox::serverDown, this, &Session::setDown);
    connect(&m_inbox, &Inbox::librariesArrived, &m_requests, &Requests::handleLibraries);
    connect(&m_inbox, &Inbox::elementsArrived, &m_requests, &Requests::handleElements);
    connect(&m_inbox, &Inbox::pictureArrived, &m_requests, &Requests::handlePicture);
    connect(&m_inbox, &Inbox::libraryUpdated, this, [this](const LibraryUpdate& update) {
        if (update.server != m_chosen || !m_requests.isOpen())
            return;
        m_libraries.update(update);
        m_elements.update(update);
    });
    connect(&m_inbox, &Inbox::layersArrived, this, [this](const QString& server, const LayerStates& layers) {
        if (server == m_chosen && m_requests.isOpen())
            m_layers.setLayers(layers);
    });
    connect(&m_inbox, &Inbox::fixturesArrived, this, [this](const QString& server, const Fixtures& fixtures) {
        if (server == m_chosen && m_requests.isOpen())
            m_patch.addFixtures(fixtures);
    });
    connect(&m_inbox, &Inbox::adapterChanged, this, [this](const AdapterState& adapter) {
        if (!m_adapter.name.isEmpty() && adapter.name != m_adapter.name)
            m_servers.removeUnconnected();
        m_adapter = adapter;
        Q_EMIT adapterChanged();
    });
}

Session::~Session() = default;

void Session::start(const Tools::StackOptions& options)
{
    m_isStarted = true;
    m_inbox.start(options);
    CITP::citp_stack::Get()->setOptions(options.options);
    CITP::citp_stack::Get()->setEnabled(true);
}

void Session::open(const Server& server)
{
    // A server with another MSEX version or other library types is a different one, even at the same address: what was
    // loaded does not apply to it.
    const Server& former = m_requests.server();
    const bool isAnother =
        m_shown != server.key || former.msexMinor != server.msexMinor || former.libraryTypes != server.libraryTypes;
    m_shown = server.key;
    if (isAnother) {
        m_elements.clear();
        m_pictures.clear();
    }
    m_requests.open(server);
    if (isAnother) {
        m_libraries.setServer(server);
    } else {
        // The reloaded list tells which pictures of the shown library have changed. All others are invalidated.
        m_pictures.invalidateAllExcept(m_elements.type(), m_elements.rowCount() > 0 ? m_elements.library() : QString());
        m_libraries.reload();
        m_elements.reload();
        m_pictures.retry();
    }
    m_patch.clear();
    // The stack has requested the patch when the server came up, but its answer may have arrived before this call.
    CITP::citp_stack::Get()->sendMsg(server.key, CITP::Msg_FPTC_SPTC(nullptr));
}

void Session::chooseServer(const QString& key)
{
    if (key == m_chosen)
        return;
    m_chosen = key;
    m_shown.clear();
    m_inbox.setServer(key);
    m_requests.close(tr("another server was chosen"));
    m_elements.clear();
    m_pictures.clear();
    m_libraries.clear();
    m_layers.clear();
    m_patch.clear();
    if (m_servers.stateOf(key) == ServerModel::State::Up)
        open(m_servers.server(key));
    Q_EMIT chosenChanged();
}

void Session::chooseLibrary(quint8 type, const QString& library)
{
    m_elements.setLibrary(type, library);
}

void Session::reload()
{
    if (!m_requests.isOpen())
        return;
    m_libraries.reload();
    m_elements.reload();
    m_pictures.invalidateAll();
    // The server does not report removed fixtures.
    m_patch.clear();
    CITP::citp_stack::Get()->sendMsg(m_chosen, CITP::Msg_FPTC_SPTC(nullptr));
}

void Session::chooseAdapter(const QString& name)
{
    Browser::chooseAdapter(name);
    if (!m_isStarted)
        return;
    // The stack selects its adapter when it opens its socket, which it does when it is enabled.
    CITP::citp_stack::Get()->setEnabled(false);
    CITP::citp_stack::Get()->setEnabled(true);
}

void Session::setUp(const Server& server)
{
    m_servers.setUp(server);
    m_log.setServerName(server.key, server.name);
    if (server.key != m_chosen)
        return;
    open(server);
    Q_EMIT chosenChanged();
}

void Session::setDown(const QString& key)
{
    m_servers.setDown(key);
    if (key != m_chosen)
        return;
    m_layers.clear();
    // Pending and wanted pictures fail, so that no tile waits forever.
    m_requests.close(tr("server lost"));
    m_pictures.failAll(tr("server lost"));
    Q_EMIT chosenChanged();
}
} // namespace Browser
