// Applies element lists to the rows, and tracks the pictures that the rows need.
// SPDX-License-Identifier: Apache-2.0
#include "element_model.h"

#include <QDateTime>
#include <QLocale>

#include <algorithm>

namespace Browser {
namespace {
// With more insertions and removals than this the model is reset instead.
constexpr int MaxRowChanges = 32;

// Most servers count seconds since 1970; a value that cannot be such a time is shown as a number.
QString timeText(quint64 timestamp)
{
    constexpr quint64 Year1980 = 315532800;
    constexpr quint64 Year2100 = 4102444800;
    if (timestamp < Year1980 || timestamp >= Year2100)
        return QString::number(timestamp);
    return QLocale().toString(QDateTime::fromSecsSinceEpoch(static_cast<qint64>(timestamp)), QLocale::ShortFormat);
}
} // namespace

ElementModel::ElementModel(Requests& requests, PictureStore& pictures) : m_requests(requests), m_pictures(pictures)
{
    connect(&m_requests, &Requests::elementsReceived, this, &ElementModel::handleElements);
    connect(&m_requests, &Requests::elementsFailed, this, &ElementModel::handleFailure);
    connect(&m_pictures, &PictureStore::changed, this, [this](const PictureId& id) {
        if (id.type == m_type && id.library == m_library)
            emitDataChanged(id.number);
    });
    connect(&m_pictures, &PictureStore::manyChanged, this, [this] {
        if (!m_elements.empty())
            Q_EMIT dataChanged(index(0), index(rowCount() - 1));
    });
    connect(&m_markTimer, &QTimer::timeout, this, &ElementModel::removeExpiredMarks);
}

void ElementModel::setState(State state, const QString& problem)
{
    m_state = state;
    m_problem = problem;
    Q_EMIT stateChanged();
}

void ElementModel::setLibrary(quint8 type, const QString& library)
{
    if (type == m_type && library == m_library && m_state != State::Failed)
        return;
    setElements({});
    m_requests.cancelQueuedElements();
    m_type = type;
    m_library = library;
    m_new.clear();
    m_invalidateAll = false;
    updateWantedPictures();
    setState(State::Loading);
    m_requests.requestElements(m_type, m_library);
}

void ElementModel::clear()
{
    setElements({});
    m_type = 0;
    m_library.clear();
    m_new.clear();
    updateWantedPictures();
    setState(State::Empty);
}

void ElementModel::reload()
{
    if (m_library.isEmpty())
        return;
    if (m_state != State::Loaded)
        setState(State::Loading);
    m_requests.requestElements(m_type, m_library);
}

void ElementModel::update(const LibraryUpdate& update)
{
    if (!update.elementsUpdated && !update.elementsMoved)
        return;
    if (update.type != m_type || update.library != m_library) {
        m_pictures.invalidateLibrary(update.type, update.library);
        return;
    }
    Numbers numbers;
    for (std::size_t i = 0; update.areElementsNamed && i < update.elements.size(); ++i) {
        if (update.elements[i])
            numbers.push_back(static_cast<quint8>(i));
    }
    // An update cannot identify one of several elements with the same number, and before MSEX 1.2 a request cannot hold
    // 256 numbers: request the whole list.
    if (m_hasDuplicateNumbers || numbers.size() > 255 || m_state != State::Loaded)
        numbers.clear();
    m_invalidateAll = m_invalidateAll || (numbers.empty() && update.elementsUpdated);
    m_requests.requestElements(m_type, m_library, numbers);
}

void ElementModel::setVisibleRows(int first, int last)
{
    m_firstVisible = qMax(first, 0);
    m_lastVisible = last;
    updateVisiblePictures();
}

// One id for each number, as rows of the same number share a picture.
std::vector<PictureId> ElementModel::picturesOf(int first, int last) const
{
    std::vector<PictureId> ids;
    std::bitset<256> listed;
    for (int row = first; row <= qMin(last, rowCount() - 1) && ids.size() < listed.size(); ++row) {
        const quint8 number = element(row).number;
        if (!listed[number])
            ids.push_back(pictureId(row));
        listed.set(number);
    }
    return ids;
}

void ElementModel::updateVisiblePictures()
{
    m_pictures.setWanted(PictureStore::Priority::Visible, picturesOf(m_firstVisible, m_lastVisible));
}

void ElementModel::updateWantedPictures()
{
    updateVisiblePictures();
    m_pictures.setWanted(PictureStore::Priority::Library, picturesOf(0, rowCount() - 1));
}

PictureId ElementModel::pictureId(int row, bool large) const
{
    return {m_type, m_library, element(row).number, large};
}

int ElementModel::rowOf(quint8 number) const
{
    return m_rowsOf[number].first;
}

int ElementModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_elements.size());
}

QVariant ElementModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const Element& item = element(index.row());
    const PictureId picture = pictureId(index.row());
    switch (role) {
        case NumberRole:
            return item.number;
        case Qt::DisplayRole:
        case NameRole:
            return toSingleLine(item.name);
        case DetailsRole: {
            QStringList facts;
            if (item.width > 0 && item.height > 0)
                facts << tr("%1×%2").arg(item.width).arg(item.height);
            if (m_kind == Kind::Media && item.frameRate > 0)
                facts << tr("%1 s").arg(QLocale().toString(item.length / double(item.frameRate), 'f', 1))
                      << tr("%1 fps").arg(item.frameRate);
            if (m_kind == Kind::Effects)
                facts << tr("Parameters: %1").arg(item.parameters.size());
            return facts.join(QStringLiteral("  "));
        }
        case PictureRole:
            return m_pictures.find(picture);
        case PictureStateRole:
            return static_cast<int>(m_pictures.state(picture));
        case ProblemRole:
            return m_pictures.problem(picture);
        case IsNewRole:
            return m_new.contains(item.number);
        case Qt::AccessibleTextRole:
            return QStringLiteral("%1, %2, %3")
                .arg(item.number)
                .arg(toSingleLine(item.name), data(index, DetailsRole).toString());
        default:
            return {};
    }
}

std::vector<std::pair<QString, QString>> ElementModel::fields(int row) const
{
    const Element& item = element(row);
    std::vector<std::pair<QString, QString>> fields{{tr("Name"), toSingleLine(item.name, 400)},
                                                    {tr("Number"), QString::number(item.number)},
                                                    {tr("Library"), m_library},
                                                    {tr("DMX"), tr("%1–%2").arg(item.dmxMin).arg(item.dmxMax)}};
    if (m_kind == Kind::Media) {
        fields.emplace_back(tr("Size"), tr("%1 × %2 pixels").arg(item.width).arg(item.height));
        fields.emplace_back(tr("Length"), item.frameRate > 0 ? tr("%1 frames, %2 s")
                                                                   .arg(item.length)
                                                                   .arg(QLocale().toString(
                                                                       item.length / double(item.frameRate), 'f', 2))
                                                             : tr("%1 frames").arg(item.length));
        fields.emplace_back(tr("Frame rate"), tr("%1 frames per second").arg(item.frameRate));
    }
    if (m_kind != Kind::Effects)
        fields.emplace_back(tr("Timestamp"), timeText(item.timestamp));
    if (m_kind == Kind::Effects)
        fields.emplace_back(tr("Parameters"),
                            item.parameters.isEmpty() ? tr("none") : item.parameters.join(QStringLiteral(", ")));
    fields.emplace_back(tr("Serial number"), QString::number(item.serial));
    return fields;
}

void ElementModel::handleElements(quint8 type, const Numbers& numbers, const ElementListPtr& list)
{
    if (type != m_type || list->library != m_library)
        return;
    m_kind = list->kind;
    if (numbers.empty() || m_state != State::Loaded)
        replaceElements(*list);
    else
        mergeElements(numbers, *list);
    updateWantedPictures();
    setState(State::Loaded, list->dropped > 0 ? tr("empty entries in the answer: %1").arg(list->dropped) : QString());
}

void ElementModel::replaceElements(const ElementList& list)
{
    const bool isFirst = m_state != State::Loaded;
    std::array<Element, 256> before;
    std::bitset<256> known;
    for (const Element& old : m_elements) {
        if (!known[old.number])
            before[old.number] = old;
        known.set(old.number);
    }
    setElements(list.elements);
    if (isFirst && !known.any())
        return;
    std::bitset<256> seen;
    bool isAnyChanged = false;
    for (const Element& now : m_elements) {
        if (seen[now.number])
            continue;
        seen.set(now.number);
        if (known[now.number] && before[now.number] == now)
            continue;
        isAnyChanged = true;
        markChanged(now.number);
    }
    // The update reported a change that the list does not show, so a picture must have changed.
    if (m_invalidateAll && !isAnyChanged)
        m_pictures.invalidateLibrary(m_type, m_library);
    m_invalidateAll = false;
}

// A requested element that is missing in the answer no longer exists.
void ElementModel::mergeElements(const Numbers& numbers, const ElementList& list)
{
    std::bitset<256> requested;
    for (const quint8 number : numbers)
        requested.set(number);
    std::vector<Element> elements;
    for (const Element& old : m_elements) {
        if (!requested[old.number])
            elements.push_back(old);
    }
    for (const Element& now : list.elements) {
        if (!requested[now.number])
            continue;
        const auto place = std::find_if(elements.begin(), elements.end(),
                                        [&](const Element& element) { return element.number > now.number; });
        elements.insert(place, now);
    }
    setElements(std::move(elements));
    for (const Element& now : list.elements)
        markChanged(now.number);
}

void ElementModel::handleFailure(quint8 type, const QString& library, const QString& problem)
{
    if (type == m_type && library == m_library)
        setState(m_elements.empty() ? State::Failed : State::Loaded, problem);
}

// Inserts and removes single rows if few differ, so that views keep their scroll position and selection.
void ElementModel::setElements(std::vector<Element> elements)
{
    const auto isSameRow = [](const Element& a, const Element& b) { return a.number == b.number; };
    std::bitset<256> wanted;
    std::bitset<256> known;
    for (const Element& element : elements)
        wanted.set(element.number);
    for (const Element& element : m_elements)
        known.set(element.number);
    const bool areSameRows = elements.size() == m_elements.size() &&
                             std::equal(elements.begin(), elements.end(), m_elements.begin(), isSameRow);
    const bool isSorted = std::is_sorted(elements.begin(), elements.end(),
                                         [](const Element& a, const Element& b) { return a.number < b.number; }) &&
                          std::is_sorted(m_elements.begin(), m_elements.end(),
                                         [](const Element& a, const Element& b) { return a.number < b.number; });
    const bool areFewChanges = isSorted && elements.size() == wanted.count() && m_elements.size() == known.count() &&
                               known.any() && wanted.any() && (wanted ^ known).count() <= MaxRowChanges;
    if (!areSameRows && !areFewChanges) {
        beginResetModel();
        m_elements = std::move(elements);
        indexRows();
        endResetModel();
        return;
    }
    if (!areSameRows) {
        for (int row = rowCount() - 1; row >= 0; --row) {
            if (wanted[element(row).number])
                continue;
            beginRemoveRows({}, row, row);
            m_elements.erase(m_elements.begin() + row);
            endRemoveRows();
        }
        for (std::size_t i = 0; i < elements.size(); ++i) {
            if (known[elements[i].number])
                continue;
            beginInsertRows({}, static_cast<int>(i), static_cast<int>(i));
            m_elements.insert(m_elements.begin() + static_cast<std::ptrdiff_t>(i), elements[i]);
            endInsertRows();
        }
    }
    m_elements = std::move(elements);
    indexRows();
    if (!m_elements.empty())
        Q_EMIT dataChanged(index(0), index(rowCount() - 1));
}

void ElementModel::indexRows()
{
    m_rowsOf.fill({});
    m_hasDuplicateNumbers = false;
    for (int row = 0; row < rowCount(); ++row) {
        Rows& rows = m_rowsOf[element(row).number];
        m_hasDuplicateNumbers = m_hasDuplicateNumbers || rows.first >= 0;
        if (rows.first < 0)
            rows.first = row;
        rows.last = row;
    }
}

void ElementModel::markChanged(quint8 number)
{
    for (const bool large : {false, true})
        m_pictures.invalidate({m_type, m_library, number, large});
    m_new[number].setRemainingTime(NewMarkMs);
    m_markTimer.start(MarkCheckMs);
    emitDataChanged(number);
}

void ElementModel::removeExpiredMarks()
{
    for (auto mark = m_new.begin(); mark != m_new.end();) {
        if (!mark->hasExpired()) {
            ++mark;
            continue;
        }
        const quint8 number = mark.key();
        mark = m_new.erase(mark);
        emitDataChanged(number);
    }
    if (m_new.isEmpty())
        m_markTimer.stop();
}

void ElementModel::emitDataChanged(quint8 number)
{
    const Rows& rows = m_rowsOf[number];
    if (rows.first >= 0 && rows.last < rowCount())
        Q_EMIT dataChanged(index(rows.first), index(rows.last));
}
} // namespace Browser
