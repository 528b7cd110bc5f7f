// ElementModel: the elements of one library, with their pictures as they come.
//
// One row an element, in the server's order; the numbers of a long list may repeat, and rows of the same number share a
// picture. Window's thread.
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
        DetailsRole,               ///< QString: size, length and frame rate, as far as the kind has them
        PictureRole,               ///< QImage; null if there is none (yet)
        PictureStateRole,          ///< int, a PictureStore::State
        ProblemRole,               ///< QString: why there is no picture; empty if there is nothing wrong
        IsNewRole                  ///< bool: has come or changed a moment ago
    };

    /// @param requests, pictures outlive this object
    ElementModel(Requests& requests, PictureStore& pictures);

    /// Shows the elements of @p library, and asks for them. Its pictures are wanted from here on.
    void setLibrary(quint8 type, const QString& library);
    /// Shows nothing.
    void clear();
    /// Asks for the list again; what is the same stays as it is.
    void reload();
    /// Asks for what the update touches.
    void update(const LibraryUpdate& update);

    /// The rows that can be seen; their pictures are asked for first. @p last below @p first: none.
    void setVisibleRows(int first, int last);

    State state() const { return m_state; }
    QString problem() const { return m_problem; } ///< empty unless Failed
    quint8 type() const { return m_type; }
    QString library() const { return m_library; } ///< empty if none is shown
    Kind kind() const { return m_kind; }
    const Element& element(int row) const { return m_elements[static_cast<std::size_t>(row)]; }
    /// @param large the one for the preview
    PictureId pictureId(int row, bool large = false) const;
    /// The first row of the element @p number; -1 if there is none.
    int rowOf(quint8 number) const;

    /// Each field of an element with its name, for people.
    std::vector<std::pair<QString, QString>> fields(int row) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

Q_SIGNALS:
    /// state() or problem() says something else now.
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
    void updateWantedPictures();
    void updateVisiblePictures();
    void markAsNew(quint8 number);
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
    std::array<Rows, 256> m_rowsOf; ///< the rows of each number lie between these
    bool m_hasDuplicateNumbers = false;
    bool m_invalidateAll = false; ///< the next list comes because anything may have changed
    int m_firstVisible = 0;
    int m_lastVisible = -1;
    QHash<quint8, QDeadlineTimer> m_new;
    QTimer m_markTimer; ///< runs while something is marked as new
};
} // namespace Browser
