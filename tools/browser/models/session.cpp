// Connects the client layer and the models.
// SPDX-License-Identifier: Apache-2.0
#include "session.h"

#include <tuple>

namespace Browser {
namespace {
constexpr int AdapterIntervalMs = 1000;

// What was loaded does not apply to another server, even if it has the same address.
bool isSame(const CITP::Server& a, const CITP::Server& b)
{
    return std::tie(a.key, a.uuid, a.msexMinor, a.types) == std::tie(b.key, b.uuid, b.msexMinor, b.types);
}
} // namespace

Session::Content::Content(CITP::Requests& requests, const CITP::Server& s)
    : server(s), catalogue(requests, s.key), layers(requests.transport(), s.key)
{
}

Session::Session(const QString& pictureFolder)
    : m_requests(m_transport),
      m_pictureFolder(pictureFolder),
      m_pictureFiles(m_requests, pictureFolder),
      m_directory(m_transport),
      m_pictures(m_pictureFiles),
      m_servers(m_directory),
      m_search(m_requests, m_directory),
      m_elements(m_pictures),
      m_layers(m_pictures)
{
    m_filteredServers.setSourceModel(&m_servers);
    m_filteredLibraries.setSourceModel(&m_libraries);
    m_directory.followLayers();
    connect(&m_directory, &CITP::Directory::changed, this, &Session::follow);
    connect(&m_adapterTimer, &QTimer::timeout, this, &Session::checkAdapter);
}

Session::~Session()
{
    show(nullptr);
}

void Session::start(const Tools::StackOptions& options)
{
    m_isStarted = true;
    m_options = options.options;
    m_preferences.groups = m_options.discoveryGroups();
    CITP::citp_stack::Get()->setOptions(m_options);
    CITP::citp_stack::Get()->setEnabled(true);
    m_adapterTimer.start(AdapterIntervalMs);
    QMetaObject::invokeMethod(this, &Session::checkAdapter, Qt::QueuedConnection);
}

void Session::setPreferences(const Preferences& preferences)
{
    m_preferences = preferences;
    m_requests.setTimeout(preferences.timeout);
    m_requests.setRateLimit(preferences.requestsPerSecond, preferences.kilobytesPerSecond * 1000);
    m_requests.setQuiet(preferences.isQuiet);
    if (m_isStarted && m_options.discoveryGroups() != preferences.groups) {
        m_options.setDiscoveryGroups(preferences.groups);
        CITP::citp_stack::Get()->setOptions(m_options);
    }
    Q_EMIT preferencesChanged();
}

void Session::checkAdapter()
{
    const AdapterState adapter = adapterInUse();
    if (adapter == m_adapter)
        return;
    m_adapter = adapter;
    Q_EMIT adapterChanged();
}

void Session::chooseServer(const QString& key)
{
    if (key == m_chosen)
        return;
    m_chosen = key;
    m_isUp = false;
    m_filteredServers.setChosen(key);
    show(nullptr);
    follow(key);
    Q_EMIT chosenChanged();
}

void Session::follow(const QString& key)
{
    const CITP::Server server = m_directory.server(key);
    const bool isUp = server.state == CITP::Server::Up;
    if (isUp)
        m_log.setServerName(key, m_servers.nameOf(key));
    if (key != m_chosen || isUp == m_isUp)
        return;
    m_isUp = isUp;
    if (isUp && !(m_content && isSame(m_content->server, server)))
        show(std::make_unique<Content>(m_requests, server));
    else if (isUp)
        m_pictures.retry();
    if (isUp)
        requestPatch();
    m_pictures.setServerUp(isUp);
    Q_EMIT chosenChanged();
}

void Session::show(std::unique_ptr<Content> content)
{
    CITP::Catalogue* const catalogue = content ? &content->catalogue : nullptr;
    m_libraries.setCatalogue(catalogue, content ? content->server.types : std::vector<quint8>());
    m_elements.setCatalogue(catalogue);
    m_layers.setLayers(content ? &content->layers : nullptr, catalogue);
    m_pictures.clear();
    m_content = std::move(content);
    if (!m_content) {
        m_patch.setPatch(nullptr);
        m_fixtures.reset();
    }
}

// The server does not report removed fixtures.
void Session::requestPatch()
{
    auto patch = std::make_unique<CITP::Patch>(m_transport, m_chosen);
    m_patch.setPatch(patch.get());
    m_fixtures = std::move(patch);
}

void Session::chooseLibrary(quint8 type, const QString& library)
{
    if (m_content)
        m_elements.setLibrary(type, library);
}

void Session::reload()
{
    if (!m_isUp)
        return;
    m_libraries.reload();
    m_elements.reload();
    m_pictures.reload();
    requestPatch();
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
} // namespace Browser
