// LibraryModel: the element libraries of the chosen server as a tree, each level asked for when it is opened.
//
// Top rows are the types of libraries. Column 0 is the name, column 1 the number of elements. Window's thread.
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
        ProblemRole,             ///< QString: why its sub-libraries are not there; empty if there is nothing wrong
        IsNewRole,               ///< bool: has come or changed a moment ago
        LoadingRole              ///< bool: its sub-libraries are on their way
    };

    /// @param requests outlives this object
    explicit LibraryModel(Requests& requests);
    ~LibraryModel() override;

    /// Shows the types of the server, nothing of them loaded.
    void setServer(const Server& server);
    /// Shows nothing.
    void clear();
    /// Asks again for all that was loaded or has failed; what is the same stays as it is.
    void reload();
    /// Asks for what the update touches, as far as it was loaded.
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
    void markAsNew(Node* node);
    void removeExpiredMarks();

    Requests& m_requests;
    std::unique_ptr<Node> m_root;
    QTimer m_markTimer; ///< runs while something is marked as new
};
} // namespace Browser
