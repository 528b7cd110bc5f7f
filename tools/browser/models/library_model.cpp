// The tree's nodes, and how the lists of the catalogue are merged into them.
// SPDX-License-Identifier: Apache-2.0
#include "library_model.h"

#include <QDeadlineTimer>
#include <QSet>

#include <algorithm>
#include <tuple>

#include "texts.h"

namespace Browser {
namespace {
using CITP::Catalogue;
using CITP::Library;

bool isSame(const Library& a, const Library& b)
{
    const auto all = [](const Library& library) {
        return std::tie(library.name, library.dmxMin, library.dmxMax, library.elements, library.subLibraries,
                        library.serialNumber);
    };
    return all(a) == all(b);
}
} // namespace

struct LibraryModel::Node
{
    quint8 type = 0;
    Library library;
    Node* parent = nullptr;
    std::vector<std::unique_ptr<Node>> children;
    bool isShown = false; ///< #children are those of the catalogue
    QDeadlineTimer isNewUntil;

    bool isType() const { return library.id == CITP::rootLibrary(); }
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

LibraryModel::LibraryModel() : m_root(std::make_unique<Node>())
{
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

void LibraryModel::setCatalogue(Catalogue* catalogue, const std::vector<quint8>& types)
{
    beginResetModel();
    m_catalogue = catalogue;
    m_root = std::make_unique<Node>();
    for (const quint8 type : types) {
        auto node = std::make_unique<Node>();
        node->type = type;
        node->library.id = CITP::rootLibrary();
        node->parent = m_root.get();
        m_root->children.push_back(std::move(node));
    }
    endResetModel();
    if (!m_catalogue)
        return;
    connect(m_catalogue, &Catalogue::librariesChanged, this, [this](quint8 type, const QString& library) {
        if (Node* const node = nodeOf(type, library))
            show(node);
    });
}

void LibraryModel::visit(Node* below, const std::function<void(Node*)>& action) const
{
    for (const auto& child : below->children) {
        action(child.get());
        visit(child.get(), action);
    }
}

void LibraryModel::reload()
{
    QList<std::pair<quint8, QString>> known;
    visit(m_root.get(), [&](const Node* node) {
        if (stateOf(node) != Catalogue::Unknown)
            known << std::pair(node->type, node->library.id);
    });
    for (const auto& [type, id] : std::as_const(known))
        m_catalogue->loadLibraries(type, id, true);
}

Catalogue::State LibraryModel::stateOf(const Node* node) const
{
    return m_catalogue->librariesState(node->type, node->library.id);
}

QString LibraryModel::problemOf(const Node* node) const
{
    return toSingleLine(m_catalogue->librariesProblem(node->type, node->library.id), 400);
}

QModelIndex LibraryModel::find(quint8 type, const QString& id) const
{
    const Node* const node = nodeOf(type, id);
    return node ? indexOf(node) : QModelIndex();
}

LibraryModel::Node* LibraryModel::nodeOf(quint8 type, const QString& id) const
{
    if (id == CITP::rootLibrary()) {
        const auto found = std::find_if(m_root->children.begin(), m_root->children.end(),
                                        [type](const auto& child) { return child->type == type; });
        return found == m_root->children.end() ? nullptr : found->get();
    }
    const Node* const parent = nodeOf(type, CITP::parentLibrary(id));
    const int row = parent ? parent->rowOf(id) : -1;
    return row < 0 ? nullptr : parent->children[static_cast<std::size_t>(row)].get();
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
           (parent.isValid() && node->canHaveChildren() && stateOf(node) != Catalogue::Loaded);
}

bool LibraryModel::canFetchMore(const QModelIndex& parent) const
{
    const Node* const node = nodeOf(parent);
    return parent.isValid() && node->canHaveChildren() && stateOf(node) == Catalogue::Unknown;
}

void LibraryModel::fetchMore(const QModelIndex& parent)
{
    if (canFetchMore(parent))
        m_catalogue->loadLibraries(nodeOf(parent)->type, nodeOf(parent)->library.id, true);
}

QVariant LibraryModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid())
        return {};
    const Node& node = *nodeOf(index);
    const Catalogue::State state = stateOf(&node);
    const QString problem = problemOf(&node);
    const QString name = node.isType() ? textForType(node.type) : toSingleLine(node.library.name);
    switch (role) {
        case Qt::DisplayRole:
            if (index.column() == 1)
                return node.isType() ? QVariant() : QVariant(node.library.elements);
            if (node.isType() && state == Catalogue::Loaded && node.children.empty())
                return tr("%1 (none)").arg(name);
            if (state == Catalogue::Loading)
                return tr("%1 (loading…)").arg(name);
            if (!problem.isEmpty())
                return QStringLiteral("%1 – %2").arg(name, problem);
            return node.isType() || !name.trimmed().isEmpty() ? name : tr("Library %1").arg(node.library.id);
        case Qt::TextAlignmentRole:
            return index.column() == 1 ? QVariant(int(Qt::AlignRight | Qt::AlignVCenter)) : QVariant();
        case Qt::ToolTipRole: {
            QStringList lines{node.isType() ? name : toSingleLine(node.library.name, CITP::maxNameLength)};
            if (!node.isType())
                lines << tr("Library %1").arg(node.library.id)
                      << tr("DMX %1–%2").arg(node.library.dmxMin).arg(node.library.dmxMax)
                      << tr("Elements: %1").arg(node.library.elements)
                      << tr("Sub-libraries: %1").arg(node.library.subLibraries);
            if (!problem.isEmpty())
                lines << problem;
            return toToolTip(lines);
        }
        case TypeRole:
            return node.type;
        case IdRole:
            return node.library.id;
        case ProblemRole:
            return problem;
        case IsNewRole:
            return !node.isNewUntil.hasExpired();
        case LoadingRole:
            return state == Catalogue::Loading;
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

// Rows that stay are the same rows afterwards, so that views keep their selection.
void LibraryModel::show(Node* node)
{
    emitDataChanged(node);
    if (stateOf(node) != Catalogue::Loaded)
        return;
    const std::vector<Library> libraries = m_catalogue->libraries(node->type, node->library.id);
    const bool isFirst = !std::exchange(node->isShown, true);
    if (isFirst && !libraries.empty()) {
        beginInsertRows(indexOf(node), 0, static_cast<int>(libraries.size()) - 1);
        for (const Library& library : libraries)
            insert(node, static_cast<int>(node->children.size()), library);
        endInsertRows();
        for (const auto& child : node->children)
            show(child.get());
        return;
    }
    const auto remove = [&](int row) {
        beginRemoveRows(indexOf(node), row, row);
        node->children.erase(node->children.begin() + row);
        endRemoveRows();
    };
    QSet<QString> listed;
    for (const Library& library : libraries)
        listed.insert(library.id);
    for (int row = static_cast<int>(node->children.size()) - 1; row >= 0; --row) {
        if (!listed.contains(node->children[static_cast<std::size_t>(row)]->library.id))
            remove(row);
    }
    for (std::size_t i = 0; i < libraries.size(); ++i) {
        const int row = static_cast<int>(i);
        const int formerRow = node->rowOf(libraries[i].id);
        if (formerRow == row) {
            Node* const child = node->children[i].get();
            const bool isChanged = !isSame(std::exchange(child->library, libraries[i]), libraries[i]);
            if (isChanged)
                markChanged(child);
            continue;
        }
        if (formerRow >= 0)
            remove(formerRow);
        beginInsertRows(indexOf(node), row, row);
        insert(node, row, libraries[i]);
        endInsertRows();
        markChanged(node->children[i].get());
        // A row that has moved is a new one, but what is below it may be loaded already.
        show(node->children[i].get());
    }
}

void LibraryModel::insert(Node* node, int row, const Library& library)
{
    auto child = std::make_unique<Node>();
    child->type = node->type;
    child->library = library;
    child->parent = node;
    node->children.insert(node->children.begin() + row, std::move(child));
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
    visit(m_root.get(), [&](Node* node) {
        if (!node->isNewUntil.hasExpired()) {
            isAnyNew = true;
        } else if (node->isNewUntil.deadline() != 0) {
            node->isNewUntil = QDeadlineTimer();
            emitDataChanged(node);
        }
    });
    if (!isAnyNew)
        m_markTimer.stop();
}
} // namespace Browser
