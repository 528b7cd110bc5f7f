// Lookup of recorded answers, and the timing of what was not asked for.
// SPDX-License-Identifier: Apache-2.0
#include "replay.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <map>

#include "lists.h"
#include "messages.h"
#include "questions.h"

namespace MediaServer {
namespace {
constexpr int PortOffset = 24;
constexpr qint64 DefaultPeriodUs = 1000000;
// Messages that arrived together, for example, are not repeated at the pace at which they arrived.
constexpr qint64 MinPauseUs = 20000;
constexpr qint64 MinPaceUs = 5000;
constexpr int MaxUnknown = 1000;

QByteArray withNumber(QByteArray message, int offset, quint16 value)
{
    message[offset] = static_cast<char>(value & 0xFF);
    message[offset + 1] = static_cast<char>(value >> 8);
    return message;
}

// After the last one of @p count messages, the mean time between two passes.
qint64 periodOf(qint64 firstUs, qint64 lastUs, qint64 count)
{
    const qint64 spanUs = lastUs - firstUs;
    if (count < 2 || spanUs <= 0)
        return DefaultPeriodUs;
    return qMax(spanUs + qMax(spanUs / (count - 1), MinPauseUs), count * MinPaceUs);
}

int toMs(qint64 us, double speed)
{
    return static_cast<int>(std::clamp<double>(std::ceil(static_cast<double>(us) / speed / 1000), 0, INT_MAX));
}

QString counted(qint64 count, const char* singular, const char* plural)
{
    return QString("%1 %2").arg(count).arg(QLatin1String(count == 1 ? singular : plural));
}
} // namespace

Replay::Replay(std::unique_ptr<Recording> recording, const Spool& spool, Unknown unknown, double speed)
    : m_recording(std::move(recording)), m_spool(spool), m_unknown(unknown), m_speed(speed)
{
    qint64 states = 0;
    qint64 firstUs = 0;
    qint64 lastUs = 0;
    for (const TimedMessage& message : m_recording->notifications) {
        if (!message.isLayerStatus)
            continue;
        firstUs = states++ == 0 ? message.timeUs : firstUs;
        lastUs = message.timeUs;
    }
    if (states > 0)
        m_statusPeriodUs =
            qMax(periodOf(firstUs, lastUs, states), m_recording->notifications.back().timeUs + 1 - firstUs);
}

QString Replay::name() const
{
    return m_recording->name.isEmpty() ? m_recording->key : m_recording->name;
}

QStringList Replay::report() const
{
    const Recording& recording = *m_recording;
    qint64 answered = 0;
    qint64 silent = 0;
    for (const RecordedAnswers& answers : recording.answers)
        ++(answers.empty() ? silent : answered);
    QStringList lines;
    const qint64 spanUs = recording.notifications.empty() ? 0 : recording.notifications.back().timeUs;
    lines << QString("replays %1: %2, %3 with answers, %4 in %5 s")
                 .arg(recording.key,
                      counted(static_cast<qint64>(recording.announcements.size()), "announcement", "announcements"),
                      counted(answered, "question", "questions"),
                      counted(static_cast<qint64>(recording.notifications.size()), "layer status or update",
                              "layer states and updates"))
                 .arg(static_cast<double>(spanUs) / 1e6, 0, 'f', 1);
    if (silent > 0)
        lines << counted(silent, "question was", "questions were") + " asked in the recording but not answered";
    QStringList missing;
    if (recording.announcements.empty())
        missing << "its announcements, one is made up";
    if (!recording.hasInformation)
        missing << "its SInf, so that consoles will not list it";
    if (recording.gaps > 0)
        missing << counted(recording.gaps, "gap", "gaps") + " of " + counted(recording.missingBytes, "byte", "bytes");
    if (recording.joined > 0)
        missing << counted(recording.joined, "beginning of a connection", "beginnings of connections");
    if (recording.unasked > 0)
        missing << counted(recording.unasked, "question whose answer is there, which is left out",
                           "questions whose answers are there, which are left out");
    if (recording.errors > 0)
        missing << counted(recording.errors, "part that is not CITP", "parts that are not CITP");
    if (recording.leftOut > 0)
        missing << counted(recording.leftOut, "message beyond the limits", "messages beyond the limits");
    if (!missing.isEmpty())
        lines << "missing: " + missing.join("; ");
    return lines;
}

QStringList Replay::unknownQuestions() const
{
    constexpr int MaxLines = 20;
    QList<QPair<qint64, QString>> counts;
    for (auto unknown = m_unknownCounts.begin(); unknown != m_unknownCounts.end(); ++unknown)
        counts.append({-unknown.value(), unknown.key()});
    std::sort(counts.begin(), counts.end());
    QStringList lines;
    qint64 others = m_otherUnknown;
    for (const auto& [count, text] : counts) {
        if (lines.size() < MaxLines)
            lines << QString("never asked in the recording: %1 times %2").arg(-count).arg(text);
        else
            others -= count;
    }
    if (others > 0)
        lines << QString("never asked in the recording: %1 times others").arg(others);
    return lines;
}

QByteArray Replay::nextAnnouncement(quint16 port, int& waitMs)
{
    const std::deque<TimedMessage>& all = m_recording->announcements;
    if (all.empty()) {
        waitMs = toMs(DefaultPeriodUs, m_speed);
        return peerLocation(name(), port);
    }
    if (!m_announcing.isValid())
        m_announcing.start();
    const QByteArray message = m_spool.read(all[m_announced].message);
    if (++m_announced == all.size()) {
        m_announced = 0;
        ++m_announceRound;
    }
    const qint64 periodUs = periodOf(0, all.back().timeUs, static_cast<qint64>(all.size()));
    const qint64 due = m_announceRound * periodUs + all[m_announced].timeUs;
    waitMs = qMax(1, toMs(due - playedUs(m_announcing), m_speed));
    return message.size() < PortOffset + 2 ? message : withNumber(message, PortOffset, port);
}

std::vector<QByteArray> Replay::greeting() const
{
    std::vector<QByteArray> messages;
    for (const Stored& stored : m_recording->greeting)
        messages.push_back(read(stored, 0));
    return messages;
}

Answers Replay::answersTo(const Request& request, const QByteArray& message, Turns& turns)
{
    Answers answers;
    int unknown = 0;
    for (const Request& single : singleRequests(request)) {
        const QByteArray key = keyOf(single, message);
        if (append(key, request.index, {}, turns, answers))
            continue;
        // A list of all contains what is asked.
        Request all = single;
        all.numbers.clear();
        const bool isList = single.kind == RequestKind::ListLibraries || single.kind == RequestKind::ListElements;
        if (isList && append(keyOf(all, message), request.index, single.numbers, turns, answers))
            continue;
        if (isForAll(single) && appendEach(key, request.index, turns, answers))
            continue;
        ++unknown;
        const Answers other = answerUnknown(single);
        answers.messages.insert(answers.messages.end(), other.messages.begin(), other.messages.end());
    }
    answers.note = textOf(request) + QString(": %1 sent").arg(answers.messages.size());
    if (unknown > 0)
        answers.note += ", never asked in the recording";
    return answers;
}

void Replay::rewind()
{
    m_announcing.invalidate();
    m_announced = 0;
    m_announceRound = 0;
    rewindNotifications();
}

void Replay::rewindNotifications()
{
    m_notifying.invalidate();
    m_notified = 0;
    m_notifyRound = 0;
}

QByteArray Replay::nextNotification(int& waitMs)
{
    const std::deque<TimedMessage>& all = m_recording->notifications;
    if (!m_notifying.isValid())
        m_notifying.start();
    // Only the layer states are repeated.
    while (m_notifyRound > 0 && m_notified < all.size() && !all[m_notified].isLayerStatus)
        ++m_notified;
    if (m_notified >= all.size()) {
        waitMs = -1;
        if (m_statusPeriodUs == 0)
            return {};
        m_notified = 0;
        ++m_notifyRound;
        while (!all[m_notified].isLayerStatus)
            ++m_notified;
    }
    const qint64 due = m_notifyRound * m_statusPeriodUs + all[m_notified].timeUs;
    const qint64 now = playedUs(m_notifying);
    waitMs = toMs(due - now, m_speed);
    return due > now ? QByteArray() : m_spool.read(all[m_notified++].message);
}

qint64 Replay::playedUs(const QElapsedTimer& since) const
{
    return static_cast<qint64>(static_cast<double>(since.nsecsElapsed()) / 1000 * m_speed);
}

QByteArray Replay::read(const Stored& stored, quint16 index) const
{
    const QByteArray message = m_spool.read(stored);
    return stored.isReply && !message.isEmpty() ? withNumber(message, 6, index) : message;
}

bool Replay::append(const QByteArray& key, quint16 index, const std::vector<quint8>& numbers, Turns& turns,
                    Answers& answers) const
{
    const auto known = m_recording->answers.constFind(key);
    if (known == m_recording->answers.constEnd())
        return false;
    const RecordedAnswers& recorded = known.value();
    if (recorded.empty())
        return true;
    std::size_t turn = 0;
    if (recorded.size() > 1) {
        std::size_t& next = turns[key];
        turn = next;
        next = qMin(next + 1, recorded.size() - 1);
    }
    for (const Stored& stored : recorded[turn]) {
        answers.messages.push_back([this, stored, numbers, index] {
            const QByteArray answer = read(stored, index);
            return numbers.empty() ? answer : onlyNumbers(answer, numbers);
        });
    }
    return true;
}

bool Replay::appendEach(const QByteArray& all, quint16 index, Turns& turns, Answers& answers) const
{
    // The number follows in the key, its lowest byte first.
    std::map<quint32, QByteArray> keys;
    for (auto known = m_recording->answers.begin(); known != m_recording->answers.end(); ++known) {
        const QByteArray& key = known.key();
        if (known.value().empty() || !key.startsWith(all) || key.size() > all.size() + 4)
            continue;
        quint32 number = 0;
        for (int i = static_cast<int>(key.size()) - 1; i >= all.size(); --i)
            number = number << 8 | static_cast<quint8>(key.at(i));
        keys.emplace(number, key);
    }
    for (const auto& entry : keys)
        append(entry.second, index, {}, turns, answers);
    return !keys.empty();
}

Answers Replay::answerUnknown(const Request& request)
{
    const QString text = textOf(request);
    if (m_unknownCounts.contains(text) || m_unknownCounts.size() < MaxUnknown)
        ++m_unknownCounts[text];
    else
        ++m_otherUnknown;
    if (m_unknown == Unknown::Silence)
        return {};
    // Of the libraries of nobody: empty lists, and no pictures.
    return MediaServer::answersTo(request, m_recording->msexMinor, {}, {});
}
} // namespace MediaServer
