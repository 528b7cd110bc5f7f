// ServerModel: the media servers of the network, with the state of each.
//
// One row for each server, sorted by address. GUI thread.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QAbstractListModel>
#include <QElapsedTimer>
#include <QTimer>

#include "values.h"

namespace Browser {
class ServerModel : public QAbstractListModel
{
    Q_OBJECT

public:
    enum class State {
        Seen,       ///< has announced itself
        Connecting, ///< has announced itself again, but has not sent its SInf on a connection yet
        Up,
        Lost ///< was up; removed after the keep time
    };
    Q_ENUM(State)

    enum Role {
        KeyRole = Qt::UserRole, ///< QString
        StateRole,              ///< int, a State
        NameRole,               ///< QString; the address if the server has no name
        ProductRole,            ///< QString, product and version; empty until the server is up
        AddressRole             ///< QString, address and port
    };

    ServerModel();

    /// @param milliseconds after which a lost server is removed; one minute by default
    void setKeepTime(int milliseconds) { m_retentionMs = milliseconds; }

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

    /// The row of the server @p key; -1 if there is none.
    int rowOf(const QString& key) const;
    /// The server's values from when it last came up; only the key is set if it never did.
    Server server(const QString& key) const;
    State stateOf(const QString& key) const;
    static QString textFor(State state);
    /// The number of servers that are up.
    int countUp() const;

    void setAnnounced(const QString& key, const QString& name);
    void setUp(const Server& server);
    void setDown(const QString& key);
    /// Removes servers that are not connected. For a change of the adapter: their announcements are not received any
    /// more.
    void removeUnconnected();

private:
    struct Row
    {
        Server server;
        State state = State::Seen;
        qint64 since = 0; ///< start of #state
        qint64 lastAnnounced = 0;
    };

    int rowFor(const Server& server, std::size_t maxRows);
    void setState(int row, State state);
    void removeExpired();

    std::vector<Row> m_rows;
    int m_retentionMs = 60000;
    QElapsedTimer m_clock;
    QTimer m_cleanupTimer;
};
} // namespace Browser
