// ElementModel: the elements of one library, with their pictures as they arrive.
//
// One row for each element, in the server's order. In a long list numbers may repeat; rows of the same number share a
// picture. GUI thread.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QAbstractListModel>
#include <QDeadlineTimer>
#include <QHash>
#include <QTimer>

#include "picture_store.h"
#include "requests.h"

namespace Browser {
class ElementModel : public QAbstractListModel
{
    Q_OBJECT

public:
    enum class State { Empty, Loading, Loaded, Failed };

    enum Role {
        NumberRole = Qt::UserRole, ///< int
        NameRole,                  ///< QString, in one line
        DetailsRole,               ///< QString: size, length and frame rate, if the kind has them
        PictureRole,               ///< QImage; null if there is none yet
        PictureStateRole,          ///< int, a PictureStore::State
        ProblemRole,               ///< QString: why there is no picture; empty if there is no problem
        IsNewRole                  ///< bool: was added or changed in the last seconds
    };

    /// @param requests, pictures must outlive this object
    ElementModel(Requests& requests, PictureStore& pictures);

    /// Shows @p library: requests its elements and then their pictures.
    void setLibrary(quint8 type, const QString& library);
    /// Shows no library.
    void clear();
    /// Requests the list again; unchanged elements keep their pictures.
    void reload();
    /// Requests what the update affects.
    void update(const LibraryUpdate& update);

    /// Sets the visible rows; their pictures are requested first. If @p last < @p first, none is visible.
    void setVisibleRows(int first, int last);

    State state() const { return m_state; }
    QString problem() const { return m_problem; } ///< for the user; empty if there is none
    quint8 type() const { return m_type; }
    QString library() const { return m_library; } ///< empty if no library is shown
    Kind kind() const { return m_kind; }
    const Element& element(int row) const { return m_elements[static_cast<std::size_t>(row)]; }
    /// @param large true for the preview's picture, false for the tile's
    PictureId pictureId(int row, bool large = false) const;
    /// The first row with the element number @p number; -1 if there is none.
    int rowOf(quint8 number) const;

    /// All fields of an element as name and value, for the user.
    std::vector<std::pair<QString, QString>> fields(int row) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

Q_SIGNALS:
    /// state() or problem() has changed.
    void stateChanged();

private:
    struct Rows
    {
        int first = -1;
        int last = -1;
    };

    void setState(State state, const QString& problem = {});
    void handleElements(quint8 type, const Numbers& numbers, const ElementListPtr& list);
    void replaceElements(const ElementList& list);
    void mergeElements(const Numbers& numbers, const ElementList& list);
    void handleFailure(quint8 type, const QString& library, const QString& problem);
    void setElements(std::vector<Element> elements);
    void indexRows();
    std::vector<PictureId> picturesOf(int first, int last) const;
    void updateWantedPictures();
    void updateVisiblePictures();
    void markChanged(quint8 number);
    void removeExpiredMarks();
    void emitDataChanged(quint8 number);

    Requests& m_requests;
    PictureStore& m_pictures;
    quint8 m_type = 0;
    QString m_library;
    Kind m_kind = Kind::Media;
    State m_state = State::Empty;
    QString m_problem;
    std::vector<Element> m_elements;
    std::array<Rows, 256> m_rowsOf; ///< first and last row of each number
    bool m_hasDuplicateNumbers = false;
    bool m_invalidateAll = false; ///< the pending list was requested because any element may have changed
    int m_firstVisible = 0;
    int m_lastVisible = -1;
    QHash<quint8, QDeadlineTimer> m_new;
    QTimer m_markTimer; ///< active while an element is marked as new
};
} // namespace Browser
