// Applies the lists of the catalogue to the rows, and tracks the pictures that the rows need.
// SPDX-License-Identifier: Apache-2.0
#include "element_model.h"

#include <QDateTime>
#include <QLocale>
#include <QMimeData>
#include <QUrl>

#include <algorithm>
#include <array>
#include <bitset>

#include "texts.h"

namespace Browser {
namespace {
using CITP::Catalogue;
using CITP::Element;
using CITP::ElementKind;

// With more insertions and removals than this the model is reset instead.
constexpr std::size_t MaxRowChanges = 32;
constexpr int MaxParametersShown = 255;

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

ElementModel::ElementModel(PictureStore& pictures) : m_pictures(pictures)
{
    connect(&m_pictures, &PictureStore::changed, this, [this](const CITP::PictureId& id) {
        if (id.type == m_type && id.library == m_library)
            emitDataChanged(rowOf(id.number));
    });
    connect(&m_pictures, &PictureStore::manyChanged, this, [this] {
        if (!m_elements.empty())
            Q_EMIT dataChanged(index(0), index(rowCount() - 1));
    });
    connect(&m_markTimer, &QTimer::timeout, this, &ElementModel::removeExpiredMarks);
}

void ElementModel::setCatalogue(Catalogue* catalogue)
{
    m_catalogue = catalogue;
    if (m_catalogue) {
        connect(m_catalogue, &Catalogue::elementsChanged, this, [this](quint8 type, const QString& library) {
            if (type == m_type && library == m_library)
                show();
        });
    }
    setLibrary(0, {});
}

ElementModel::State ElementModel::state() const
{
    if (m_library.isEmpty())
        return State::Empty;
    switch (m_catalogue->elementsState(m_type, m_library)) {
        case Catalogue::Loaded:
            return State::Loaded;
        case Catalogue::Failed:
            return State::Failed;
        default:
            return State::Loading;
    }
}

QString ElementModel::problem() const
{
    return m_library.isEmpty() ? QString() : toSingleLine(m_catalogue->elementsProblem(m_type, m_library), 400);
}

void ElementModel::setLibrary(quint8 type, const QString& library)
{
    if (type == m_type && library == m_library && state() != State::Failed && !library.isEmpty())
        return;
    m_type = type;
    m_library = library;
    m_isShown = false;
    m_new.clear();
    if (!library.isEmpty() && m_catalogue->elementsState(type, library) != Catalogue::Loaded)
        m_catalogue->loadElements(type, library, true);
    show();
}

void ElementModel::reload()
{
    if (!m_library.isEmpty())
        m_catalogue->loadElements(m_type, m_library, true);
}

void ElementModel::show()
{
    setElements(m_library.isEmpty() ? std::vector<Element>() : m_catalogue->elements(m_type, m_library));
    m_isShown = state() == State::Loaded;
    setVisibleRows(m_firstVisible, m_lastVisible);
    m_pictures.setWanted(PictureStore::Priority::Library, picturesOf(0, rowCount() - 1));
    Q_EMIT stateChanged();
}

void ElementModel::setVisibleRows(int first, int last)
{
    m_firstVisible = qMax(first, 0);
    m_lastVisible = last;
    m_pictures.setWanted(PictureStore::Priority::Visible, picturesOf(m_firstVisible, m_lastVisible));
}

std::vector<CITP::PictureId> ElementModel::picturesOf(int first, int last) const
{
    std::vector<CITP::PictureId> ids;
    for (int row = first; row <= qMin(last, rowCount() - 1); ++row)
        ids.push_back(pictureId(row));
    return ids;
}

CITP::PictureId ElementModel::pictureId(int row, const QSize& size) const
{
    return {m_catalogue->server(), m_type, m_library, element(row).number, CITP::versionOf(element(row)), size};
}

int ElementModel::rowOf(int number) const
{
    const auto found = std::find_if(m_elements.begin(), m_elements.end(),
                                    [number](const Element& element) { return element.number == number; });
    return found == m_elements.end() ? -1 : static_cast<int>(found - m_elements.begin());
}

QImage ElementModel::picture(int row) const
{
    const QImage large = m_pictures.find(pictureId(row, PreviewPixels));
    return large.isNull() ? m_pictures.find(pictureId(row)) : large;
}

Qt::ItemFlags ElementModel::flags(const QModelIndex& index) const
{
    return QAbstractListModel::flags(index) | (index.isValid() ? Qt::ItemIsDragEnabled : Qt::NoItemFlags);
}

QStringList ElementModel::mimeTypes() const
{
    return {QStringLiteral("application/x-qt-image"), QStringLiteral("text/uri-list")};
}

// File managers take files, other programs often only images.
QMimeData* ElementModel::mimeData(const QModelIndexList& indexes) const
{
    const QImage image = indexes.isEmpty() ? QImage() : picture(indexes.first().row());
    if (image.isNull())
        return nullptr;
    auto* const data = new QMimeData;
    data->setImageData(image);
    if (!m_dragged)
        m_dragged = std::make_unique<QTemporaryDir>();
    const QString path = m_dragged->filePath(pictureFileName(element(indexes.first().row()).name));
    if (image.save(path))
        data->setUrls({QUrl::fromLocalFile(path)});
    return data;
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
    const CITP::PictureId picture = pictureId(index.row());
    switch (role) {
        case NumberRole:
            return item.number;
        case Qt::DisplayRole:
        case NameRole:
            return toSingleLine(item.name);
        case Qt::ToolTipRole:
            return toToolTip({toSingleLine(item.name, CITP::maxNameLength), data(index, DetailsRole).toString()});
        case DetailsRole: {
            QStringList facts;
            if (item.width > 0 && item.height > 0)
                facts << tr("%1×%2").arg(item.width).arg(item.height);
            if (kind() == ElementKind::Media && item.frameRate > 0)
                facts << frameTime(item.length, item.frameRate);
            if (kind() == ElementKind::Effects)
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
                                                    {tr("DMX value"), dmxValue(row)},
                                                    {tr("DMX values"), tr("%1–%2").arg(item.dmxMin).arg(item.dmxMax)}};
    if (kind() == ElementKind::Media) {
        fields.emplace_back(tr("Size"), tr("%1 × %2 pixels").arg(item.width).arg(item.height));
        fields.emplace_back(tr("Length (h:min:s.frames)"), frameTime(item.length, item.frameRate));
        fields.emplace_back(tr("Frames"), QString::number(item.length));
        fields.emplace_back(tr("Frame rate"), tr("%1 frames per second").arg(item.frameRate));
    }
    if (kind() != ElementKind::Effects)
        fields.emplace_back(tr("Timestamp"), timeText(item.timestamp));
    if (kind() == ElementKind::Effects)
        fields.emplace_back(
            tr("Parameters"),
            item.parameters.isEmpty()
                ? tr("none")
                : toSingleLine(item.parameters.mid(0, MaxParametersShown).join(QStringLiteral(", ")), 4000));
    fields.emplace_back(tr("Serial number"), QString::number(item.serialNumber));
    return fields;
}

// Inserts and removes single rows if few differ, so that views keep their scroll position and selection.
void ElementModel::setElements(const std::vector<Element>& elements)
{
    const auto byNumber = [](const Element& a, const Element& b) { return a.number < b.number; };
    std::array<const Element*, 256> before{};
    std::bitset<256> wanted;
    std::bitset<256> known;
    if (elements.empty() && m_elements.empty())
        return;
    const std::vector<Element> former = m_elements;
    for (const Element& element : elements)
        wanted.set(element.number);
    for (const Element& element : former) {
        known.set(element.number);
        before[element.number] = &element;
    }
    const bool areSorted = std::is_sorted(elements.begin(), elements.end(), byNumber) &&
                           std::is_sorted(former.begin(), former.end(), byNumber);
    const bool areSameRows = std::equal(elements.begin(), elements.end(), former.begin(), former.end(),
                                        [](const Element& a, const Element& b) { return a.number == b.number; });
    const bool areFewChanges = areSorted && (wanted ^ known).count() <= MaxRowChanges;
    if (!m_isShown || (!areSameRows && !areFewChanges)) {
        beginResetModel();
        m_elements = elements;
        endResetModel();
    } else {
        for (int row = rowCount() - 1; row >= 0; --row) {
            if (wanted[element(row).number])
                continue;
            beginRemoveRows({}, row, row);
            m_elements.erase(m_elements.begin() + row);
            endRemoveRows();
        }
        for (int row = 0; row < static_cast<int>(elements.size()); ++row) {
            const Element& element = elements[static_cast<std::size_t>(row)];
            if (known[element.number])
                continue;
            beginInsertRows({}, row, row);
            m_elements.insert(m_elements.begin() + row, element);
            endInsertRows();
        }
        m_elements = elements;
    }
    for (int row = 0; m_isShown && row < rowCount(); ++row) {
        const Element* const old = before[element(row).number];
        if (old && *old == element(row))
            continue;
        m_new[element(row).number].setRemainingTime(NewMarkMs);
        m_markTimer.start(MarkCheckMs);
        emitDataChanged(row);
    }
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
        emitDataChanged(rowOf(number));
    }
    if (m_new.isEmpty())
        m_markTimer.stop();
}

void ElementModel::emitDataChanged(int row)
{
    if (row >= 0)
        Q_EMIT dataChanged(index(row), index(row));
}
} // namespace Browser
