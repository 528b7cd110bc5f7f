// LibraryModel: the libraries of a catalogue as a tree. A level is loaded when it is expanded.
//
// The top rows are the library types. Column 0 is the name, column 1 the number of elements. GUI thread.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/catalogue.h>

#include <QAbstractItemModel>
#include <QTimer>

#include <functional>
#include <memory>

namespace Browser {
class LibraryModel : public QAbstractItemModel
{
    Q_OBJECT

public:
    enum Role {
        TypeRole = Qt::UserRole, ///< int, the MSEX library type
        IdRole,                  ///< QString; CITP::rootLibrary() for a type's own row
        ProblemRole,             ///< QString: why its sub-libraries are missing; empty if there is no problem
        IsNewRole,               ///< bool: was added or changed in the last seconds
        LoadingRole              ///< bool: its sub-libraries have been requested
    };

    LibraryModel();
    ~LibraryModel() override;

    /// Shows @p types of @p catalogue, with no libraries loaded.
    /// @param catalogue must outlive its use; null for none
    void setCatalogue(CITP::Catalogue* catalogue, const std::vector<quint8>& types = {});
    /// Loads again every level that was loaded or has failed; unchanged rows stay.
    void reload();

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
    Node* nodeOf(quint8 type, const QString& id) const;
    QModelIndex indexOf(const Node* node, int column = 0) const;
    CITP::Catalogue::State stateOf(const Node* node) const;
    QString problemOf(const Node* node) const;
    void emitDataChanged(const Node* node);
    void show(Node* node);
    void insert(Node* node, int row, const CITP::Library& library);
    void markChanged(Node* node);
    void removeExpiredMarks();
    /// Calls @p action for each node.
    void visit(Node* below, const std::function<void(Node*)>& action) const;

    CITP::Catalogue* m_catalogue = nullptr;
    std::unique_ptr<Node> m_root;
    QTimer m_markTimer; ///< active while a library is marked as new
};
} // namespace Browser
