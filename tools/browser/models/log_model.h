// LogModel: the last lines of the library's log, and the sink that collects them from all threads. LogFilter filters
// them by context and level.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/os_log.h>

#include <QAbstractTableModel>
#include <QHash>
#include <QMutex>
#include <QSortFilterProxyModel>
#include <QTime>
#include <QTimer>

#include <deque>
#include <vector>

namespace Browser {
/// Installs itself as the log's sink while it exists. GUI thread, except Write().
class LogModel : public QAbstractTableModel, private Os::Log::Sink
{
    Q_OBJECT

public:
    enum Column { Time, Level, Context, Server, Text, ColumnCount };
    enum Role {
        LevelRole = Qt::UserRole ///< int, an Os::Log::Level
    };

    /// @param maxLines number of lines that are kept
    explicit LogModel(int maxLines = 5000);
    ~LogModel() override;

    /// Logs every message with a dump of its bytes if @p on; else restores the masks of the environment.
    void setTraffic(bool on);
    void clear();
    /// Sets the name that the Server column shows for lines whose text holds the server key @p key.
    void setServerName(const QString& key, const QString& name);

    /// All lines with their whole texts, also those that no filter shows, with a tab between two columns.
    QString wholeText() const;
    static QString textForLevel(int level);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    struct Line
    {
        QTime time;
        int level = 0;
        QString context;
        QString text;
        QString server; ///< the first server key in #text; empty if there is none
    };

    void Write(const Os::Log::Line& line) override;
    void drain();

    const int m_maxLines;
    std::deque<Line> m_lines;
    QHash<QString, QString> m_serverNames; ///< by key; kept after a server is lost, for the lines about it
    QTimer m_drain;
    Os::Log::Sink* m_previousSink = nullptr;
    QMutex m_mutex; ///< guards #m_backlog and #m_dropped
    std::vector<Line> m_backlog;
    int m_dropped = 0; ///< lines that did not fit into #m_backlog
};

class LogFilter : public QSortFilterProxyModel
{
    Q_OBJECT

public:
    /// @param context dotted name; lines of this context and its descendants are shown; empty for all
    void setContext(const QString& context);
    /// @param levels mask of Os::Log::Level bits
    void setLevels(int levels);

protected:
    bool filterAcceptsRow(int row, const QModelIndex& parent) const override;

private:
    QString m_context;
    int m_levels = 31;
};
} // namespace Browser
