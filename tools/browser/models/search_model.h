// SearchModel: the libraries and elements of all servers that a text is found in, by name or number.
//
// With the first text it begins to load what all servers hold, a few libraries at a time. GUI thread.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/catalogue.h>
#include <citp_client/directory.h>

#include <QAbstractTableModel>
#include <QTimer>

#include <deque>
#include <map>
#include <memory>

namespace Browser {
class SearchModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { Name, Number, Kind, Library, Server, ColumnCount };

    /// A library, or an element of one.
    struct Hit
    {
        QString server;
        quint8 type;
        QString library;
        int number; ///< of the element; -1 for the library
        QString name;

        bool operator==(const Hit& other) const
        {
            return server == other.server && type == other.type && library == other.library && number == other.number &&
                   name == other.name;
        }
        bool operator!=(const Hit& other) const { return !(*this == other); }
    };

    static constexpr int MaxHits = 500;
    static constexpr int MaxElements = 200000; ///< of all servers; further libraries are not loaded
    /// Of all servers. Beyond it, the servers that hold most are left out.
    static constexpr int MaxLibraries = 100000;

    /// @param requests,directory must outlive this object
    SearchModel(CITP::Requests& requests, CITP::Directory& directory);
    ~SearchModel() override;

    /// Shows what has all of @p text in its name, in any case, or a number that begins with it; nothing if it is empty.
    void setText(const QString& text);
    const Hit& hit(int row) const { return m_hits[static_cast<std::size_t>(row)]; }
    /// How far the search has come, for the user.
    QString state() const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

Q_SIGNALS:
    void stateChanged();

private:
    struct Content;

    void follow(const QString& key);
    void load(Content& content);
    void leaveOutLargest();
    void search();
    void searchSoon();
    bool isLoading() const;

    CITP::Requests& m_requests;
    CITP::Directory& m_directory;
    std::map<QString, std::unique_ptr<Content>> m_contents; ///< by server; empty until something is searched
    std::map<QString, CITP::Server> m_leftOut;              ///< by #MaxLibraries
    bool m_isActive = false;
    QString m_text;
    std::vector<Hit> m_hits;
    bool m_areAll = true; ///< #m_hits; else there are more
    QTimer m_search;
};
} // namespace Browser
