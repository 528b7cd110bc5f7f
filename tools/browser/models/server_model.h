// ServerModel: the media servers of the network, with the state of each.
//
// One row for each server, sorted by address. GUI thread.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/directory.h>

#include <QAbstractListModel>

namespace Browser {
class ServerModel : public QAbstractListModel
{
    Q_OBJECT

public:
    using State = CITP::Server::State;

    enum Role {
        KeyRole = Qt::UserRole, ///< QString
        StateRole,              ///< int, a State
        NameRole,               ///< QString; the address if the server has no name
        ProductRole,            ///< QString, product and version; empty until the server is up
        StateTextRole,          ///< QString: the state, or since when an Up server gives no sign of life
        IsSilentRole,           ///< bool: is Up, but gives no sign of life
        AddressRole             ///< QString, address and port
    };

    /// Servers announce themselves about once a second.
    static constexpr qint64 SilentMs = 5000;

    /// @param directory must outlive this object
    explicit ServerModel(CITP::Directory& directory);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

    /// The row of the server @p key; -1 if there is none.
    int rowOf(const QString& key) const;
    /// The server's name in one line, else its key.
    QString nameOf(const QString& key) const;
    State stateOf(const QString& key) const;
    /// The number of servers that are up.
    int countUp() const;

protected:
    void timerEvent(QTimerEvent* event) override;

private:
    void update(const QString& key);
    bool isSilent(const CITP::Server& server) const;
    QString stateText(const CITP::Server& server) const;

    CITP::Directory& m_directory;
    QStringList m_keys;   ///< in the order of the rows
    QStringList m_silent; ///< keys of the rows that are shown as silent
};
} // namespace Browser
