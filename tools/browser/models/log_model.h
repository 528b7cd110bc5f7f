// LogModel: the last lines of the library's log, and the sink that collects them from all threads. LogFilter shows
// those of some contexts and levels.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/os_log.h>

#include <QAbstractTableModel>
#include <QMutex>
#include <QSortFilterProxyModel>
#include <QTime>
#include <QTimer>

#include <deque>
#include <vector>

namespace Browser {
/// Takes over the log while it exists. Window's thread, but for Write().
class LogModel : public QAbstractTableModel, private Os::Log::Sink
{
    Q_OBJECT

public:
    enum Column { Time, Level, Context, Text, ColumnCount };
    enum Role {
        LevelRole = Qt::UserRole ///< int, an Os::Log::Level
    };

    /// @param most lines that are kept
    explicit LogModel(int maxLines = 5000);
    ~LogModel() override;

    /// Whether every message is logged, with a dump of its bytes; if not, the environment's masks hold as at the start.
    void setTraffic(bool on);
    void clear();

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
    };

    void Write(const Os::Log::Line& line) override;
    void drain();

    const int m_maxLines;
    std::deque<Line> m_lines;
    QTimer m_drain;
    Os::Log::Sink* m_previousSink = nullptr;
    QMutex m_mutex; ///< guards what follows
    std::vector<Line> m_backlog;
    int m_dropped = 0; ///< came faster than they could be shown
};

class LogFilter : public QSortFilterProxyModel
{
    Q_OBJECT

public:
    /// @param context the dotted name; lines of it and of what is below it are shown; empty for all
    void setContext(const QString& context);
    /// @param levels a sum of Os::Log::Level
    void setLevels(int levels);

protected:
    bool filterAcceptsRow(int row, const QModelIndex& parent) const override;

private:
    QString m_context;
    int m_levels = 31;
};
} // namespace Browser
