// Collects lines from all threads in a backlog and adds them to the model in batches.
// SPDX-License-Identifier: Apache-2.0
#include "log_model.h"

#include <QRegularExpression>

#include "texts.h"

namespace Browser {
namespace {
constexpr int BatchMs = 100;
constexpr std::size_t MaxBacklog = 2000;
constexpr int MaxLineLength = 400;
} // namespace

LogModel::LogModel(int maxLines) : m_maxLines(maxLines)
{
    // From here on other threads may call Write().
    m_previousSink = Os::Log::SetSink(this);
    connect(&m_drain, &QTimer::timeout, this, &LogModel::drain);
    m_drain.start(BatchMs);
}

LogModel::~LogModel()
{
    Os::Log::SetSink(m_previousSink);
}

void LogModel::setTraffic(bool on)
{
    Os::Log::SetMask("CITP.*", on ? Os::Log::DefaultMask | Os::Log::Traffic : Os::Log::DefaultMask);
    // Restores the masks that the user has set in the environment.
    if (!on)
        Os::Log::SetMasks(qgetenv("OS_LOG_MASKS").toStdString());
}

void LogModel::Write(const Os::Log::Line& line)
{
    Line collected;
    collected.time = QTime::currentTime();
    collected.level = static_cast<int>(line.level);
    collected.context = QString::fromStdString(line.context.GetName());
    // Not all lines are valid UTF-8: text may be Latin-1, or cut within a character.
    collected.text = QString::fromUtf8(line.text.c_str()).replace(QChar::ReplacementCharacter, QLatin1Char('?'));
    const QMutexLocker lock(&m_mutex);
    if (m_backlog.size() < MaxBacklog)
        m_backlog.push_back(collected);
    else
        ++m_dropped;
}

void LogModel::drain()
{
    std::vector<Line> lines;
    {
        const QMutexLocker lock(&m_mutex);
        lines.swap(m_backlog);
        if (m_dropped > 0) {
            Line note;
            note.time = QTime::currentTime();
            note.level = Os::Log::Warning;
            note.context = QStringLiteral("CITP");
            note.text = tr("lines dropped because too many arrived at a time: %1").arg(m_dropped);
            lines.push_back(note);
        }
        m_dropped = 0;
    }
    if (lines.empty())
        return;
    if (static_cast<int>(lines.size()) > m_maxLines)
        lines.erase(lines.begin(), lines.end() - m_maxLines);
    static const QRegularExpression serverKey(QStringLiteral(R"(\b\d{1,3}(\.\d{1,3}){3}:\d{1,5}\b)"));
    for (Line& line : lines)
        line.server = serverKey.match(line.text).captured();
    const int over = rowCount() + static_cast<int>(lines.size()) - m_maxLines;
    if (over > 0) {
        beginRemoveRows({}, 0, over - 1);
        m_lines.erase(m_lines.begin(), m_lines.begin() + over);
        endRemoveRows();
    }
    beginInsertRows({}, rowCount(), rowCount() + static_cast<int>(lines.size()) - 1);
    m_lines.insert(m_lines.end(), lines.begin(), lines.end());
    endInsertRows();
}

void LogModel::clear()
{
    beginResetModel();
    m_lines.clear();
    endResetModel();
}

void LogModel::setServerName(const QString& key, const QString& name)
{
    m_serverNames[key] = name;
    for (int row = 0; row < rowCount(); ++row) {
        if (m_lines[static_cast<std::size_t>(row)].server == key)
            Q_EMIT dataChanged(index(row, Server), index(row, Server));
    }
}

QString LogModel::wholeText() const
{
    QString text;
    for (const Line& line : m_lines) {
        // What follows a line break is no line of the log.
        QStringList parts = line.text.split(QLatin1Char('\n'));
        for (QString& part : parts)
            part = toSingleLine(part, static_cast<int>(part.size()));
        const QStringList columns{line.time.toString(QStringLiteral("HH:mm:ss.zzz")), textForLevel(line.level),
                                  line.context, toSingleLine(m_serverNames.value(line.server)),
                                  parts.join(QStringLiteral("\n\t"))};
        text += columns.join(QLatin1Char('\t')) + QLatin1Char('\n');
    }
    return text;
}

QString LogModel::textForLevel(int level)
{
    switch (level) {
        case Os::Log::Traffic:
            return tr("traffic");
        case Os::Log::State:
            return tr("state");
        case Os::Log::Warning:
            return tr("warning");
        case Os::Log::Failure:
            return tr("failure");
        case Os::Log::Critical:
            return tr("critical");
        default:
            return QString::number(level);
    }
}

int LogModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_lines.size());
}

int LogModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant LogModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const Line& line = m_lines[static_cast<std::size_t>(index.row())];
    if (role == LevelRole)
        return line.level;
    if (role != Qt::DisplayRole)
        return {};
    switch (index.column()) {
        case Time:
            return line.time.toString(QStringLiteral("HH:mm:ss.zzz"));
        case Level:
            return textForLevel(line.level);
        case Context:
            return line.context;
        case Server:
            return m_serverNames.value(line.server);
        case Text:
            return toSingleLine(line.text, MaxLineLength);
        default:
            return {};
    }
}

QVariant LogModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
        case Time:
            return tr("Time");
        case Level:
            return tr("Level");
        case Context:
            return tr("Context");
        case Server:
            return tr("Server");
        case Text:
            return tr("Text");
        default:
            return {};
    }
}

void LogFilter::setContext(const QString& context)
{
    m_context = context;
    invalidateFilter();
}

void LogFilter::setLevels(int levels)
{
    m_levels = levels;
    invalidateFilter();
}

bool LogFilter::filterAcceptsRow(int row, const QModelIndex& parent) const
{
    const QAbstractItemModel& model = *sourceModel();
    if ((model.index(row, 0, parent).data(LogModel::LevelRole).toInt() & m_levels) == 0)
        return false;
    if (m_context.isEmpty())
        return true;
    const QString context = model.index(row, LogModel::Context, parent).data().toString();
    return context == m_context || context.startsWith(m_context + QLatin1Char('.'));
}
} // namespace Browser
