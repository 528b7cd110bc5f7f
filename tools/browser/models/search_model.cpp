// Loads the content of the servers, and searches what is loaded.
// SPDX-License-Identifier: Apache-2.0
#include "search_model.h"

#include <QHash>
#include <QSet>

#include <algorithm>
#include <numeric>
#include <utility>

#include "library_model.h"
#include "texts.h"

namespace Browser {
namespace {
using CITP::Catalogue;

constexpr int SearchDelayMs = 150;  // while libraries arrive
constexpr int LibrariesAtOnce = 16; // asked for their elements

QString nameOf(quint8 type, const QString& library)
{
    return QStringLiteral("%1/%2").arg(type).arg(library);
}

// What was loaded does not apply to another server at the same address.
bool holdsTheSame(const CITP::Server& a, const CITP::Server& b)
{
    return a.uuid == b.uuid && a.types == b.types;
}
} // namespace

/// What one server holds.
struct SearchModel::Content
{
    Content(CITP::Requests& requests, const CITP::Server& s) : server(s), catalogue(requests, s.key) {}

    CITP::Server server; ///< as when it came up
    Catalogue catalogue;
    std::deque<std::pair<quint8, QString>> waiting; ///< libraries whose elements are to be loaded
    QSet<QString> known;                            ///< those that are or were there, with their types
    QHash<QString, int> sizes;                      ///< elements of the libraries
    QHash<QString, int> branches;                   ///< libraries directly below the libraries
    qint64 elements = 0;                            ///< of all libraries
    qint64 libraries = 0;                           ///< of all types
    bool isCut = false;                             ///< by #MaxElements
};

SearchModel::SearchModel(CITP::Requests& requests, CITP::Directory& directory)
    : m_requests(requests), m_directory(directory)
{
    m_search.setSingleShot(true);
    connect(&m_search, &QTimer::timeout, this, [this] {
        leaveOutLargest();
        search();
    });
    connect(&m_directory, &CITP::Directory::changed, this, &SearchModel::follow);
}

SearchModel::~SearchModel() = default;

void SearchModel::setText(const QString& text)
{
    m_text = text.trimmed();
    if (!m_text.isEmpty() && !m_isActive) {
        m_isActive = true;
        const QStringList keys = m_directory.keys();
        for (const QString& key : keys)
            follow(key);
    }
    search();
}

void SearchModel::follow(const QString& key)
{
    if (!m_isActive)
        return;
    const CITP::Server server = m_directory.server(key);
    const auto found = m_contents.find(key);
    if (server.key.isEmpty()) {
        m_leftOut.erase(key);
        if (found != m_contents.end()) {
            m_contents.erase(found);
            search();
        }
        return;
    }
    if (server.state != CITP::Server::Up)
        return;
    const auto leftOut = m_leftOut.find(key);
    if ((found != m_contents.end() && holdsTheSame(found->second->server, server)) ||
        (leftOut != m_leftOut.end() && holdsTheSame(leftOut->second, server)))
        return;
    m_leftOut.erase(key);
    auto& content = m_contents[key];
    content = std::make_unique<Content>(m_requests, server);
    Content* const it = content.get();
    connect(&it->catalogue, &Catalogue::librariesChanged, this, [this, it](quint8 type, const QString& library) {
        const int now = static_cast<int>(it->catalogue.libraries(type, library).size());
        it->libraries += now - std::exchange(it->branches[nameOf(type, library)], now);
        searchSoon();
    });
    connect(&it->catalogue, &Catalogue::elementsChanged, this, [this, it](quint8 type, const QString& library) {
        const int now = static_cast<int>(it->catalogue.elements(type, library).size());
        it->elements += now - std::exchange(it->sizes[nameOf(type, library)], now);
        searchSoon();
    });
    connect(&it->catalogue, &Catalogue::idle, this, [this, it] { load(*it); });
    for (const quint8 type : server.types)
        it->catalogue.loadAllLibraries(type);
    search();
}

// The next libraries, once the former have come.
void SearchModel::load(Content& content)
{
    // Each request would end at once, and all of them be repeated when the server is back.
    if (m_directory.server(content.server.key).state != CITP::Server::Up)
        return;
    if (content.waiting.empty()) {
        for (const quint8 type : content.server.types) {
            for (const CITP::Library& library : content.catalogue.allLibraries(type)) {
                const QString name = nameOf(type, library.id);
                if (library.elements > 0 && !content.known.contains(name)) {
                    content.known.insert(name);
                    content.waiting.emplace_back(type, library.id);
                }
            }
        }
    }
    qint64 elements = 0;
    for (const auto& other : m_contents)
        elements += other.second->elements;
    content.isCut = elements >= MaxElements && !content.waiting.empty();
    for (int i = 0; i < LibrariesAtOnce && !content.isCut && !content.waiting.empty(); ++i) {
        const auto [type, library] = content.waiting.front();
        content.waiting.pop_front();
        content.catalogue.loadElements(type, library);
    }
    searchSoon();
}

// So that the others, which may hold what is searched, stay within bounds. Not from a signal of the catalogue, which is
// deleted here.
void SearchModel::leaveOutLargest()
{
    const auto isSmaller = [](const auto& a, const auto& b) { return a.second->libraries < b.second->libraries; };
    const auto sum = [](qint64 libraries, const auto& content) { return libraries + content.second->libraries; };
    while (std::accumulate(m_contents.begin(), m_contents.end(), qint64(0), sum) > MaxLibraries) {
        const auto largest = std::max_element(m_contents.begin(), m_contents.end(), isSmaller);
        m_leftOut[largest->first] = largest->second->server;
        m_contents.erase(largest);
    }
}

// Not restarted: content may arrive more often than that for minutes.
void SearchModel::searchSoon()
{
    if (!m_search.isActive())
        m_search.start(SearchDelayMs);
}

bool SearchModel::isLoading() const
{
    return std::any_of(m_contents.begin(), m_contents.end(),
                       [](const auto& content) { return !content.second->catalogue.isIdle(); });
}

void SearchModel::search()
{
    // What begins with the text comes first.
    std::vector<Hit> first;
    std::vector<Hit> other;
    const auto match = [&](Hit hit, const QString& number) {
        const auto place = hit.name.indexOf(m_text, 0, Qt::CaseInsensitive);
        if (place == 0 || number.startsWith(m_text))
            first.push_back(std::move(hit));
        else if (place > 0)
            other.push_back(std::move(hit));
    };
    for (const auto& [key, content] : m_contents) {
        const auto isFull = [&] { return m_text.isEmpty() || first.size() > MaxHits; };
        for (const quint8 type : content->server.types) {
            if (isFull())
                break;
            for (const CITP::Library& library : content->catalogue.allLibraries(type)) {
                match({key, type, library.id, -1, library.name}, library.id);
                for (const CITP::Element& element : content->catalogue.elements(type, library.id))
                    match({key, type, library.id, element.number, element.name}, QString::number(element.number));
                if (isFull())
                    break;
                if (other.size() > MaxHits)
                    other.resize(MaxHits + 1);
            }
        }
    }
    first.insert(first.end(), other.begin(), other.end());
    m_areAll = first.size() <= MaxHits;
    if (!m_areAll)
        first.resize(MaxHits);
    // A reset takes the current row away.
    if (first != m_hits) {
        beginResetModel();
        m_hits = std::move(first);
        endResetModel();
    }
    Q_EMIT stateChanged();
}

QString SearchModel::state() const
{
    if (m_text.isEmpty())
        return tr("Searches the libraries and elements of all servers, by name and number.");
    QStringList facts{m_areAll ? tr("Hits: %1").arg(m_hits.size()) : tr("The first %1 hits").arg(m_hits.size())};
    if (isLoading())
        facts << (m_requests.isQuiet() ? tr("quiet mode: only what is loaded is searched") : tr("loading…"));
    if (std::any_of(m_contents.begin(), m_contents.end(), [](const auto& each) { return each.second->isCut; }))
        facts << tr("the servers hold more than is searched");
    if (!m_leftOut.empty()) {
        const QString name = toSingleLine(m_requests.nameOf(m_leftOut.begin()->first));
        facts << (m_leftOut.size() == 1 ? tr("too many libraries, not searched: %1").arg(name)
                                        : tr("too many libraries, not searched: %1 and %2 more")
                                              .arg(name, QString::number(m_leftOut.size() - 1)));
    }
    return facts.join(QStringLiteral(" – "));
}

int SearchModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_hits.size());
}

int SearchModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant SearchModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount() || (role != Qt::DisplayRole && role != Qt::ToolTipRole))
        return {};
    const Hit& found = hit(index.row());
    const auto content = m_contents.find(found.server);
    const auto nameText = [role](const QString& name) {
        return role == Qt::ToolTipRole ? toToolTip({toSingleLine(name, CITP::maxNameLength)}) : toSingleLine(name);
    };
    switch (index.column()) {
        case Name:
            return nameText(found.name);
        case Number:
            return found.number < 0 ? found.library : QString::number(found.number);
        case Kind:
            return found.number < 0 ? tr("library") : LibraryModel::textForType(found.type);
        case Library:
            return content == m_contents.end()
                       ? found.library
                       : nameText(content->second->catalogue.library(found.type, found.library).name);
        case Server:
            return nameText(m_requests.nameOf(found.server));
        default:
            return {};
    }
}

QVariant SearchModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
        case Name:
            return tr("Name");
        case Number:
            return tr("Number");
        case Kind:
            return tr("Kind");
        case Library:
            return tr("Library");
        case Server:
            return tr("Server");
        default:
            return {};
    }
}
} // namespace Browser
