// The tree's nodes, and how answers are merged into them.
// SPDX-License-Identifier: Apache-2.0
#include "library_model.h"

#include <QDeadlineTimer>
#include <QSet>

#include <algorithm>

namespace Browser {
namespace {
constexpr quint8 LastKnownType = 3;
} // namespace

struct LibraryModel::Node
{
    enum class State { Unknown, Loading, Loaded };

    quint8 type = 0;
    Library library;
    Node* parent = nullptr;
    std::vector<std::unique_ptr<Node>> children;
    State state = State::Unknown;
    QString problem;
    QDeadlineTimer isNewUntil;

    bool isType() const { return library.id == RootLibrary; }
    bool canHaveChildren() const { return isType() || library.subLibraries > 0; }
    int row() const
    {
        const auto found = std::find_if(parent->children.begin(), parent->children.end(),
                                        [this](const auto& child) { return child.get() == this; });
        return static_cast<int>(found - parent->children.begin());
    }
    int rowOf(const QString& id) const
    {
        const auto found =
            std::find_if(children.begin(), children.end(), [&](const auto& child) { return child->library.id == id; });
        return found == children.end() ? -1 : static_cast<int>(found - children.begin());
    }
};

LibraryModel::LibraryModel(Requests& requests) : m_requests(requests), m_root(std::make_unique<Node>())
{
    connect(&m_requests, &Requests::librariesReceived, this, &LibraryModel::handleLibraries);
    connect(&m_requests, &Requests::librariesFailed, this, &LibraryModel::handleFailure);
    connect(&m_markTimer, &QTimer::timeout, this, &LibraryModel::removeExpiredMarks);
}

LibraryModel::~LibraryModel() = default;

QString LibraryModel::textForType(int type)
{
    switch (type) {
        case 1:
            return tr("Media");
        case 2:
            return tr("Effects");
        case 3:
            return tr("Generic");
        default:
            return tr("Generic (type %1)").arg(type);
    }
}

void LibraryModel::setServer(const Server& server)
{
    beginResetModel();
    m_root = std::make_unique<Node>();
    for (quint8 type = 1; type < 16; ++type) {
        const bool isListed = server.libraryTypes == 0 ? type <= LastKnownType : (server.libraryTypes >> type & 1) != 0;
        // Generic elements exist since MSEX 1.1.
        if (!isListed || (server.msexMinor == 0 && type >= LastKnownType))
            continue;
        auto node = std::make_unique<Node>();
        node->type = type;
        node->library.id = RootLibrary;
        node->parent = m_root.get();
        m_root->children.push_back(std::move(node));
    }
    endResetModel();
}

void LibraryModel::clear()
{
    beginResetModel();
    m_root = std::make_unique<Node>();
    endResetModel();
}

void LibraryModel::reload()
{
    for (const auto& child : m_root->children)
        reload(child.get());
}

void LibraryModel::reload(Node* node)
{
    if (node->state != Node::State::Unknown || !node->problem.isEmpty())
        request(node);
    for (const auto& child : node->children)
        reload(child.get());
}

void LibraryModel::update(const LibraryUpdate& update)
{
    const bool touchesLibraries = update.librariesUpdated || update.librariesMoved;
    // In MSEX 1.0 the root has no id, but only the root has libraries below it.
    const bool isRoot = update.library == RootLibrary || (m_requests.server().msexMinor == 0 && touchesLibraries);
    Node* const node = find(m_root.get(), update.type, isRoot ? RootLibrary : update.library);
    if (!node)
        return;
    // The parent's list holds this library's number of elements and sub-libraries.
    if (!isRoot && node->parent && (touchesLibraries || update.elementsMoved || update.elementsUpdated))
        request(node->parent, {numberOf(update.library)});
    if (!touchesLibraries || node->state != Node::State::Loaded)
        return;
    Numbers numbers;
    for (std::size_t i = 0; update.areLibrariesNamed && i < update.libraries.size(); ++i) {
        if (update.libraries[i])
            numbers.push_back(static_cast<quint8>(i));
    }
    request(node, numbers.size() < 256 ? numbers : Numbers());
}

QModelIndex LibraryModel::find(quint8 type, const QString& id) const
{
    const Node* const node = find(m_root.get(), type, id);
    return node ? indexOf(node) : QModelIndex();
}

LibraryModel::Node* LibraryModel::find(Node* below, quint8 type, const QString& id) const
{
    for (const auto& child : below->children) {
        if (child->type != type)
            continue;
        if (child->library.id == id)
            return child.get();
        if (Node* const found = find(child.get(), type, id))
            return found;
    }
    return nullptr;
}

LibraryModel::Node* LibraryModel::nodeOf(const QModelIndex& index) const
{
    return index.isValid() ? static_cast<Node*>(index.internalPointer()) : m_root.get();
}

QModelIndex LibraryModel::indexOf(const Node* node, int column) const
{
    return node->parent ? createIndex(node->row(), column, const_cast<Node*>(node)) : QModelIndex();
}

QModelIndex LibraryModel::index(int row, int column, const QModelIndex& parent) const
{
    Node* const node = nodeOf(parent);
    if (row < 0 || row >= static_cast<int>(node->children.size()) || column < 0 || column > 1)
        return {};
    return createIndex(row, column, node->children[static_cast<std::size_t>(row)].get());
}

QModelIndex LibraryModel::parent(const QModelIndex& child) const
{
    return child.isValid() ? indexOf(nodeOf(child)->parent) : QModelIndex();
}

int LibraryModel::rowCount(const QModelIndex& parent) const
{
    return parent.column() > 0 ? 0 : static_cast<int>(nodeOf(parent)->children.size());
}

int LibraryModel::columnCount(const QModelIndex& /*parent*/) const
{
    return 2;
}

bool LibraryModel::hasChildren(const QModelIndex& parent) const
{
    const Node* const node = nodeOf(parent);
    return !node->children.empty() ||
           (parent.isValid() && node->canHaveChildren() && node->state != Node::State::Loaded);
}

bool LibraryModel::canFetchMore(const QModelIndex& parent) const
{
    const Node* const node = nodeOf(parent);
    return parent.isValid() && node->canHaveChildren() && node->state == Node::State::Unknown &&
           node->problem.isEmpty();
}

void LibraryModel::fetchMore(const QModelIndex& parent)
{
    if (canFetchMore(parent))
        request(nodeOf(parent));
}

QVariant LibraryModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid())
        return {};
    const Node& node = *nodeOf(index);
    const QString name = node.isType() ? textForType(node.type) : toSingleLine(node.library.name);
    switch (role) {
        case Qt::DisplayRole:
            if (index.column() == 1)
                return node.isType() ? QVariant() : QVariant(node.library.elements);
            if (node.isType() && node.state == Node::State::Loaded && node.children.empty())
                return tr("%1 (none)").arg(name);
            if (node.state == Node::State::Loading)
                return tr("%1 (loading…)").arg(name);
            if (!node.problem.isEmpty())
                return QStringLiteral("%1 – %2").arg(name, node.problem);
            return node.isType() || !name.trimmed().isEmpty() ? name : tr("Library %1").arg(node.library.id);
        case Qt::TextAlignmentRole:
            return index.column() == 1 ? QVariant(int(Qt::AlignRight | Qt::AlignVCenter)) : QVariant();
        case Qt::ToolTipRole: {
            QStringList lines{name};
            if (!node.isType())
                lines << tr("Library %1").arg(node.library.id)
                      << tr("DMX %1–%2").arg(node.library.dmxMin).arg(node.library.dmxMax)
                      << tr("Elements: %1").arg(node.library.elements)
                      << tr("Sub-libraries: %1").arg(node.library.subLibraries);
            if (!node.problem.isEmpty())
                lines << node.problem;
            return lines.join(QLatin1Char('\n')).toHtmlEscaped().replace(QLatin1Char('\n'), QStringLiteral("<br>"));
        }
        case TypeRole:
            return node.type;
        case IdRole:
            return node.library.id;
        case ProblemRole:
            return node.problem;
        case IsNewRole:
            return !node.isNewUntil.hasExpired();
        case LoadingRole:
            return node.state == Node::State::Loading;
        default:
            return {};
    }
}

QVariant LibraryModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    return section == 0 ? tr("Library") : tr("Elements");
}

void LibraryModel::emitDataChanged(const Node* node)
{
    if (node->parent)
        Q_EMIT dataChanged(indexOf(node), indexOf(node, 1));
}

void LibraryModel::request(Node* node, const Numbers& numbers)
{
    if (numbers.empty()) {
        node->problem.clear();
        if (node->state == Node::State::Unknown)
            node->state = Node::State::Loading;
        emitDataChanged(node);
    }
    m_requests.requestLibraries(node->type, node->library.id, numbers);
}

void LibraryModel::handleLibraries(quint8 type, const QString& parent, const Numbers& numbers,
                                   const LibraryListPtr& list)
{
    Node* const node = find(m_root.get(), type, parent);
    if (!node)
        return;
    if (numbers.empty())
        replaceLibraries(node, list->libraries);
    else
        mergeLibraries(node, numbers, list->libraries);
}

void LibraryModel::replaceLibraries(Node* node, const std::vector<Library>& libraries)
{
    const bool isFirst = node->state != Node::State::Loaded;
    node->state = Node::State::Loaded;
    node->problem.clear();
    emitDataChanged(node);
    if (isFirst && node->children.empty()) {
        if (libraries.empty())
            return;
        beginInsertRows(indexOf(node), 0, static_cast<int>(libraries.size()) - 1);
        for (const Library& library : libraries) {
            auto child = std::make_unique<Node>();
            child->type = node->type;
            child->library = library;
            child->parent = node;
            node->children.push_back(std::move(child));
        }
        endInsertRows();
        return;
    }
    QSet<QString> listed;
    for (const Library& library : libraries)
        listed.insert(library.id);
    for (int row = static_cast<int>(node->children.size()) - 1; row >= 0; --row) {
        if (!listed.contains(node->children[static_cast<std::size_t>(row)]->library.id))
            removeRow(node, row);
    }
    for (std::size_t i = 0; i < libraries.size(); ++i) {
        const bool isInPlace = i < node->children.size() && node->children[i]->library.id == libraries[i].id;
        if (isInPlace) {
            updateLibrary(node->children[i].get(), libraries[i]);
            continue;
        }
        const int formerRow = node->rowOf(libraries[i].id);
        if (formerRow >= 0)
            removeRow(node, formerRow);
        insertLibrary(node, static_cast<int>(i), libraries[i]);
    }
}

// A requested library that is missing in the answer no longer exists.
void LibraryModel::mergeLibraries(Node* node, const Numbers& numbers, const std::vector<Library>& libraries)
{
    node->problem.clear();
    emitDataChanged(node);
    for (int row = static_cast<int>(node->children.size()) - 1; row >= 0; --row) {
        const QString id = node->children[static_cast<std::size_t>(row)]->library.id;
        const bool isRequested = std::find(numbers.begin(), numbers.end(), numberOf(id)) != numbers.end();
        const bool isListed =
            std::any_of(libraries.begin(), libraries.end(), [&](const Library& library) { return library.id == id; });
        if (isRequested && !isListed)
            removeRow(node, row);
    }
    for (const Library& library : libraries) {
        const int known = node->rowOf(library.id);
        if (known >= 0) {
            updateLibrary(node->children[static_cast<std::size_t>(known)].get(), library);
            continue;
        }
        const auto place = std::find_if(node->children.begin(), node->children.end(), [&](const auto& child) {
            return numberOf(child->library.id) > numberOf(library.id);
        });
        insertLibrary(node, static_cast<int>(place - node->children.begin()), library);
    }
}

void LibraryModel::insertLibrary(Node* node, int row, const Library& library)
{
    auto child = std::make_unique<Node>();
    child->type = node->type;
    child->library = library;
    child->parent = node;
    beginInsertRows(indexOf(node), row, row);
    node->children.insert(node->children.begin() + row, std::move(child));
    endInsertRows();
    markChanged(node->children[static_cast<std::size_t>(row)].get());
}

void LibraryModel::updateLibrary(Node* node, const Library& library)
{
    const Library& old = node->library;
    const bool isSame = old.name == library.name && old.elements == library.elements &&
                        old.subLibraries == library.subLibraries && old.serial == library.serial &&
                        old.dmxMin == library.dmxMin && old.dmxMax == library.dmxMax;
    node->library = library;
    if (!isSame)
        markChanged(node);
}

void LibraryModel::removeRow(Node* node, int row)
{
    beginRemoveRows(indexOf(node), row, row);
    node->children.erase(node->children.begin() + row);
    endRemoveRows();
}

void LibraryModel::handleFailure(quint8 type, const QString& parent, const QString& problem)
{
    Node* const node = find(m_root.get(), type, parent);
    if (!node)
        return;
    if (node->state == Node::State::Loading)
        node->state = Node::State::Unknown;
    node->problem = problem;
    emitDataChanged(node);
}

void LibraryModel::markChanged(Node* node)
{
    node->isNewUntil.setRemainingTime(NewMarkMs);
    emitDataChanged(node);
    m_markTimer.start(MarkCheckMs);
}

void LibraryModel::removeExpiredMarks()
{
    bool isAnyNew = false;
    const std::function<void(Node*)> visit = [&](Node* node) {
        for (const auto& child : node->children) {
            if (!child->isNewUntil.hasExpired()) {
                isAnyNew = true;
            } else if (child->isNewUntil.deadline() != 0) {
                child->isNewUntil = QDeadlineTimer();
                emitDataChanged(child.get());
            }
            visit(child.get());
        }
    };
    visit(m_root.get());
    if (!isAnyNew)
        m_markTimer.stop();
}
} // namespace Browser
