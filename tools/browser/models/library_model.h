// LibraryModel: the element libraries of the chosen server as a tree. A level is requested when it is expanded.
//
// The top rows are the library types. Column 0 is the name, column 1 the number of elements. GUI thread.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QAbstractItemModel>
#include <QTimer>

#include <memory>

#include "requests.h"

namespace Browser {
class LibraryModel : public QAbstractItemModel
{
    Q_OBJECT

public:
    enum Role {
        TypeRole = Qt::UserRole, ///< int, the MSEX library type
        IdRole,                  ///< QString; RootLibrary for a type's own row
        ProblemRole,             ///< QString: why its sub-libraries are missing; empty if there is no problem
        IsNewRole,               ///< bool: was added or changed in the last seconds
        LoadingRole              ///< bool: its sub-libraries have been requested
    };

    /// @param requests must outlive this object
    explicit LibraryModel(Requests& requests);
    ~LibraryModel() override;

    /// Shows the library types of @p server, with no libraries loaded.
    void setServer(const Server& server);
    /// Shows no server.
    void clear();
    /// Requests again every level that was loaded or has failed; unchanged rows stay.
    void reload();
    /// Requests the loaded libraries that the update affects.
    void update(const LibraryUpdate& update);

    /// The library's index; invalid if it is not loaded.
    QModelIndex find(quint8 type, const QString& id) const;

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    bool hasChildren(const QModelIndex& parent = {}) const override;
    bool canFetchMore(const QModelIndex& parent) const override;
    void fetchMore(const QModelIndex& parent) override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

    static QString textForType(int type);

private:
    struct Node;

    Node* nodeOf(const QModelIndex& index) const;
    Node* find(Node* below, quint8 type, const QString& id) const;
    QModelIndex indexOf(const Node* node, int column = 0) const;
    void emitDataChanged(const Node* node);
    void request(Node* node, const Numbers& numbers = {});
    void reload(Node* node);
    void handleLibraries(quint8 type, const QString& parent, const Numbers& numbers, const LibraryListPtr& list);
    void mergeLibraries(Node* node, const Numbers& numbers, const std::vector<Library>& libraries);
    void replaceLibraries(Node* node, const std::vector<Library>& libraries);
    void insertLibrary(Node* node, int row, const Library& library);
    void updateLibrary(Node* node, const Library& library);
    void removeRow(Node* node, int row);
    void handleFailure(quint8 type, const QString& parent, const QString& problem);
    void markChanged(Node* node);
    void removeExpiredMarks();

    Requests& m_requests;
    std::unique_ptr<Node> m_root;
    QTimer m_markTimer; ///< active while a library is marked as new
};
} // namespace Browser
