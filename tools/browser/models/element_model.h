// ElementModel: the elements of one library of a catalogue, with their pictures as they arrive.
//
// One row for each element, in the server's order. GUI thread.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/catalogue.h>

#include <QAbstractListModel>
#include <QDeadlineTimer>
#include <QHash>
#include <QTemporaryDir>
#include <QTimer>

#include <memory>

#include "picture_store.h"

namespace Browser {
class ElementModel : public QAbstractListModel
{
    Q_OBJECT

public:
    enum class State { Empty, Loading, Loaded, Failed };

    enum Role {
        NumberRole = Qt::UserRole, ///< int
        NameRole,                  ///< QString, in one line
        DetailsRole,               ///< QString: size and length, if the kind has them; they fit into a tile
        PictureRole,               ///< QImage; null if there is none yet
        PictureStateRole,          ///< int, a PictureStore::State
        ProblemRole,               ///< QString: why there is no picture; empty if there is no problem
        IsNewRole                  ///< bool: was added or changed in the last seconds
    };

    /// @param pictures must outlive this object
    explicit ElementModel(PictureStore& pictures);

    /// @param catalogue of the shown server, with which no library is shown yet; must outlive its use. Null for none
    void setCatalogue(CITP::Catalogue* catalogue);
    /// Shows @p library, with the pictures of its elements. Loads it unless the catalogue has it.
    void setLibrary(quint8 type, const QString& library);
    /// Requests the list again.
    void reload();

    /// Sets the visible rows; their pictures are requested first. If @p last < @p first, none is visible.
    void setVisibleRows(int first, int last);

    State state() const;
    QString problem() const; ///< for the user; empty if there is none
    quint8 type() const { return m_type; }
    QString library() const { return m_library; } ///< empty if no library is shown
    CITP::ElementKind kind() const { return CITP::elementKind(m_type); }
    const CITP::Element& element(int row) const { return m_elements[static_cast<std::size_t>(row)]; }
    /// @param size TilePixels or PreviewPixels
    CITP::PictureId pictureId(int row, const QSize& size = TilePixels) const;
    /// The row of the element @p number; -1 if there is none.
    int rowOf(int number) const;

    /// The largest image there is of an element; null if there is none yet.
    QImage picture(int row) const;
    /// The DMX value that selects the element in its library: the lowest, if several do.
    QString dmxValue(int row) const { return QString::number(element(row).dmxMin); }

    /// All fields of an element as name and value, for the user.
    std::vector<std::pair<QString, QString>> fields(int row) const;

    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QStringList mimeTypes() const override;
    /// The picture as an image and as a file, to be dragged into other programs.
    QMimeData* mimeData(const QModelIndexList& indexes) const override;

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

Q_SIGNALS:
    /// state() or problem() has changed.
    void stateChanged();

private:
    void show();
    void setElements(const std::vector<CITP::Element>& elements);
    std::vector<CITP::PictureId> picturesOf(int first, int last) const;
    void removeExpiredMarks();
    void emitDataChanged(int row);

    PictureStore& m_pictures;
    CITP::Catalogue* m_catalogue = nullptr;
    quint8 m_type = 0;
    QString m_library;
    std::vector<CITP::Element> m_elements;
    bool m_isShown = false; ///< #m_elements is the library's list, not what was shown before it
    int m_firstVisible = 0;
    int m_lastVisible = -1;
    QHash<quint8, QDeadlineTimer> m_new;
    mutable std::unique_ptr<QTemporaryDir> m_dragged; ///< the files of mimeData()
    QTimer m_markTimer;                               ///< active while an element is marked as new
};
} // namespace Browser
