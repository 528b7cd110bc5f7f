// ServerModel: the media servers of the network, with the state of each.
//
// One row a server, in the order of their addresses. Window's thread.
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
        Connecting, ///< has announced itself again, and has not introduced itself on a connection yet
        Up,
        Lost ///< was up; forgotten after a while
    };
    Q_ENUM(State)

    enum Role {
        KeyRole = Qt::UserRole, ///< QString
        StateRole,              ///< int, a State
        NameRole,               ///< QString; its address where it has none
        ProductRole,            ///< QString, product and version; empty until it is up
        AddressRole             ///< QString, with the port
    };

    ServerModel();

    /// @param milliseconds for which a lost server is kept; a minute unless set
    void setKeepTime(int milliseconds) { m_retentionMs = milliseconds; }

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

    /// The row of the server @p key; -1 if there is none.
    int rowOf(const QString& key) const;
    /// What the server said when it came up last; empty, but for the key, if it never did.
    Server server(const QString& key) const;
    State stateOf(const QString& key) const;
    static QString textFor(State state);
    /// The number of servers that are up.
    int countUp() const;

    void setAnnounced(const QString& key, const QString& name);
    void setUp(const Server& server);
    void setDown(const QString& key);
    /// Those that have only announced themselves are not heard any more: the adapter is another.
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
