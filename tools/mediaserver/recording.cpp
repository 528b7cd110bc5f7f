// Assigns the messages in a capture to the questions that they answer.
// SPDX-License-Identifier: Apache-2.0
#include "recording.h"

#include <QFileInfo>
#include <QStringList>
#include <algorithm>
#include <deque>
#include <iterator>
#include <map>
#include <utility>

#include "capture/capture_file.h"
#include "capture/decoder.h"
#include "library.h"
#include "questions.h"

namespace MediaServer {
namespace {
using Tools::Event;

// More than a server with a picture for each of 100000 elements needs, and layer status at 25 Hz for 11 hours.
// All servers together.
constexpr int MaxQuestions = 200000;
constexpr int MaxUnknownQuestions = 1000;
constexpr std::size_t MaxTimed = 1000000;
constexpr std::size_t MaxStored = 400000;
constexpr std::size_t MaxServers = 4096;
constexpr std::size_t MaxOpenNumbers = 100000;
// Different answers to the same question.
constexpr std::size_t MaxAnswers = 64;
// Of each server. Peers that ask and are never answered must not use up the memory.
constexpr std::size_t MaxPeers = 64;
constexpr std::size_t MaxOpenRequests = 1024;
constexpr int MaxGroups = 8;
constexpr int MaxNameLength = 256;
// Connections end, and another console takes over.
constexpr qint64 SilenceUs = 3000000;
constexpr qint64 MaxPauseUs = 1000000;
// Longer between two announcements only if the clock was set.
constexpr qint64 MaxAnnouncePauseUs = 60000000;

// What is kept of all servers together.
struct Kept
{
    int questions = 0;
    int unknownQuestions = 0;
    std::size_t timed = 0;
    std::size_t stored = 0;      ///< answers
    std::size_t openNumbers = 0; ///< requests that can still be answered, and the numbers in them
};

// A request that can still be answered.
struct OpenRequest
{
    Request request;
    QByteArray key;
    std::vector<quint32> items;  ///< the thumbnails and fixtures that it was answered with
    std::vector<Stored> answers; ///< to a request for all; otherwise those that do not tell what they answer
    std::size_t expected = 1;    ///< number of answers; 0: any
    bool isAnswered = false;
    bool isLost = false; ///< its answer may be in a gap

    // 1 if there are none.
    std::size_t numbers() const { return std::max<std::size_t>(1, expected); }
    // Each of several thumbnails or fixtures may still be answered.
    bool isOpen() const { return !isAnswered || expected != 1; }
};

// A connection of a console.
struct Peer
{
    std::deque<OpenRequest> requests;
    bool isWhole = false; ///< nothing of it is missing
    bool hasAsked = false;
    qint64 lastUs = 0;
};

quint32 itemOf(const ServerMessage& message, RequestKind kind)
{
    if (kind == RequestKind::ElementThumbnails)
        return static_cast<quint32>(message.number);
    return kind == RequestKind::LibraryThumbnails ? message.libraryId : message.fixture;
}

// Of a request for one.
quint32 itemOf(const Request& single)
{
    if (single.kind == RequestKind::ElementThumbnails)
        return single.numbers.front();
    return single.kind == RequestKind::LibraryThumbnails ? idFromWire(single.versionMinor, single.libraryIds.front())
                                                         : single.fixtures.front();
}

bool isThumbnailOrFixture(RequestKind kind)
{
    return kind == RequestKind::ElementThumbnails || kind == RequestKind::LibraryThumbnails ||
           kind == RequestKind::SendPatch;
}

QByteArray withIndex(QByteArray message, quint16 index)
{
    message[6] = static_cast<char>(index & 0xFF);
    message[7] = static_cast<char>(index >> 8);
    return message;
}

// One server while the capture is read.
class RecordedServer
{
public:
    RecordedServer(const QString& key, Spool& spool, Kept& kept)
        : m_recording(std::make_unique<Recording>()), m_spool(spool), m_kept(kept)
    {
        m_recording->key = key;
        m_recording->port = static_cast<quint16>(key.section(':', 1).toUInt());
    }

    void add(const Event& event)
    {
        switch (event.kind) {
            case Tools::StreamItem::Kind::Gap:
                ++m_recording->gaps;
                m_recording->missingBytes += qMax<qint64>(0, event.missing);
                if (event.direction != Event::Direction::Discovery)
                    peerOf(consoleOf(event), event.timeUs).isWhole = false;
                if (event.direction == Event::Direction::FromServer)
                    loseAnswers(peerOf(consoleOf(event), event.timeUs));
                return;
            case Tools::StreamItem::Kind::Error:
                ++m_recording->errors;
                return;
            case Tools::StreamItem::Kind::Note:
                addNote(event);
                return;
            case Tools::StreamItem::Kind::Message:
                break;
        }
        if (event.direction == Event::Direction::Discovery) {
            announce(event);
        } else if (event.direction == Event::Direction::ToServer) {
            ask(peerOf(event.from, event.timeUs), event.message);
        } else {
            m_hasSpoken = true;
            answer(peerOf(event.to, event.timeUs), event);
        }
    }

    bool isMediaServer() const { return m_hasSpoken || m_isAnnouncedAsServer; }
    bool hasSpoken() const { return m_hasSpoken; }
    const Recording& recording() const { return *m_recording; }

    std::unique_ptr<Recording> take()
    {
        for (auto& entry : m_peers)
            closeAll(entry.second);
        return std::move(m_recording);
    }

private:
    void addNote(const Event& event)
    {
        const Tools::Endpoint console = consoleOf(event);
        if (event.isConnecting) {
            const auto former = m_peers.find(console);
            if (former != m_peers.end()) {
                closeAll(former->second);
                m_peers.erase(former);
            }
            peerOf(console, event.timeUs, true);
        } else if (event.isEnding && console == m_leader) {
            m_hasLeader = false;
        }
    }

    static Tools::Endpoint consoleOf(const Event& event)
    {
        return event.direction == Event::Direction::ToServer ? event.from : event.to;
    }

    // @param isNew the connection has begun now
    Peer& peerOf(const Tools::Endpoint& console, qint64 timeUs, bool isNew = false)
    {
        auto found = m_peers.find(console);
        if (found == m_peers.end()) {
            if (m_peers.size() >= MaxPeers) {
                const auto oldest = std::min_element(m_peers.begin(), m_peers.end(), [](const auto& a, const auto& b) {
                    return a.second.lastUs < b.second.lastUs;
                });
                closeAll(oldest->second);
                m_peers.erase(oldest);
            }
            found = m_peers.emplace(console, Peer{}).first;
            found->second.isWhole = isNew;
            m_recording->joined += isNew ? 0 : 1;
        }
        found->second.lastUs = timeUs;
        return found->second;
    }

    // Whether the open requests were answered is unknown.
    void loseAnswers(Peer& peer)
    {
        for (OpenRequest& open : peer.requests) {
            if (std::exchange(open.isLost, true))
                continue;
            for (const Request& single : singleRequests(open.request)) {
                const auto question = m_recording->answers.find(open.expected > 1 ? keyOf(single, {}) : open.key);
                if (question == m_recording->answers.end() || !question.value().empty())
                    continue;
                m_recording->answers.erase(question);
                --m_kept.questions;
            }
        }
    }

    void announce(const Event& event)
    {
        if (event.code != QLatin1String("PLoc"))
            return;
        const Tools::Announcement announcement = Tools::Announcement::read(event.message);
        m_isAnnouncedAsServer = m_isAnnouncedAsServer || announcement.type == QLatin1String("MediaServer");
        m_recording->name = announcement.name.left(MaxNameLength);
        const QHostAddress group(event.to.address);
        if (group.isMulticast() && m_recording->groups.size() < MaxGroups && !m_recording->groups.contains(group))
            m_recording->groups << group;
        // A server that announces itself to several groups does so at the same time.
        if (m_recording->announcements.empty()) {
            m_announcedTo = event.to;
            m_announcedUs = event.timeUs;
        }
        if (!(event.to == m_announcedTo))
            return;
        const Stored known = m_recording->announcements.empty() ? Stored() : m_recording->announcements.back().message;
        m_announceClockUs += qBound<qint64>(0, event.timeUs - m_announcedUs, MaxAnnouncePauseUs);
        m_announcedUs = event.timeUs;
        addTimed(m_recording->announcements, {m_announceClockUs, {}, false}, event.message, known);
    }

    void ask(Peer& peer, const QByteArray& message)
    {
        OpenRequest asked;
        asked.request = parseRequest(message);
        if (asked.request.kind == RequestKind::PeerName)
            return;
        peer.hasAsked = true;
        asked.key = keyOf(asked.request, message);
        const std::vector<Request> singles = singleRequests(asked.request);
        for (const Request& single : singles)
            questionOf(keyOf(single, message), isUnknown(single));
        asked.expected = isForAll(asked.request) ? 0 : singles.size();
        // The answers to the former request for all are complete.
        for (auto open = peer.requests.begin(); open != peer.requests.end(); ++open) {
            if (open->expected == 0 && open->key == asked.key && open->isAnswered) {
                remove(peer, open);
                break;
            }
        }
        const auto isFull = [&] { return m_kept.openNumbers + asked.numbers() > MaxOpenNumbers; };
        while (!peer.requests.empty() && (peer.requests.size() >= MaxOpenRequests || isFull()))
            remove(peer, peer.requests.begin());
        if (isFull()) {
            ++m_recording->leftOut;
            return;
        }
        m_kept.openNumbers += asked.numbers();
        peer.requests.push_back(std::move(asked));
    }

    void answer(Peer& peer, const Event& event)
    {
        const ServerMessage message = ServerMessage::read(event.message);
        if (message.code == "SInf") {
            m_recording->hasInformation = true;
            m_recording->msexMinor = qMin<quint8>(message.minor, 2);
        }
        const auto open = findRequest(peer, message);
        if (open == peer.requests.end())
            addUnasked(peer, message, event);
        else if (addAnswer(*open, message, event.message))
            remove(peer, open);
    }

    // The request that the message fits best: of those, one with its index, one without an answer, the oldest.
    static std::deque<OpenRequest>::iterator findRequest(Peer& peer, const ServerMessage& message)
    {
        auto best = peer.requests.end();
        Fit bestFit = Fit::None;
        int bestRank = 0;
        auto unanswered = peer.requests.end();
        for (auto open = peer.requests.begin(); open != peer.requests.end(); ++open) {
            const Fit fit = fitOf(message, open->request);
            const bool hasItem = fit >= Fit::Subject && isThumbnailOrFixture(open->request.kind) &&
                                 std::find(open->items.begin(), open->items.end(),
                                           itemOf(message, open->request.kind)) != open->items.end();
            const bool isSameIndex = message.index != 0 && message.index == open->request.index;
            const bool isFirst = fit == Fit::Code && !open->isAnswered;
            const int rank = 4 * static_cast<int>(fit) + (isSameIndex ? 2 : 0) + (isFirst ? 1 : 0);
            if (fit > Fit::None && rank > bestRank && !hasItem && (fit >= Fit::Subject || open->isOpen())) {
                best = open;
                bestFit = fit;
                bestRank = rank;
            }
            // A request that this program does not know may have answers that it does not know.
            const bool canBe = message.isAnswer || open->request.kind == RequestKind::Unknown;
            if (unanswered == peer.requests.end() && !open->isAnswered && canBe && !message.isNotification())
                unanswered = open;
        }
        if (bestFit >= Fit::Subject)
            return best;
        // If requests are missing, it may answer one of them.
        if (!peer.isWhole)
            return peer.requests.end();
        return bestFit == Fit::Code ? best : unanswered;
    }

    // Returns whether the request is answered completely.
    bool addAnswer(OpenRequest& open, const ServerMessage& message, const QByteArray& bytes)
    {
        const bool isReply = message.index == open.request.index;
        const bool isSingle = fitOf(message, open.request) >= Fit::Subject && isThumbnailOrFixture(open.request.kind);
        open.isAnswered = true;
        // Which one of several this answers, the others will tell.
        const bool isForOne = isSingle || open.expected == 1;
        RecordedAnswers* const recorded =
            isForOne ? questionOf(isSingle ? keyOf(singleRequestFor(message, open.request), bytes) : open.key,
                                  isUnknown(open.request))
                     : nullptr;
        if (!recorded && open.expected == 1)
            return true;
        const bool hasKnown = recorded && !recorded->empty() && recorded->back().size() == 1;
        const Stored stored = m_spool.store(isReply ? withIndex(bytes, 0) : bytes, isReply,
                                            hasKnown ? recorded->back().front() : Stored());
        if (recorded)
            addAnswers(*recorded, {stored});
        if (open.expected == 0 || !isForOne)
            hold(open, stored);
        if (isSingle)
            open.items.push_back(itemOf(message, open.request.kind));
        return open.expected == 1 || (open.expected > 1 && open.items.size() + open.answers.size() >= open.expected);
    }

    void hold(OpenRequest& open, const Stored& stored)
    {
        if (m_kept.stored++ < MaxStored)
            open.answers.push_back(stored);
        else
            ++m_recording->leftOut;
    }

    void addAnswers(RecordedAnswers& recorded, const std::vector<Stored>& answers)
    {
        if (!recorded.empty() && recorded.back() == answers)
            return;
        if (recorded.size() < MaxAnswers && m_kept.stored < MaxStored) {
            recorded.push_back(answers);
            m_kept.stored += answers.size();
        } else {
            ++m_recording->leftOut;
        }
    }

    void remove(Peer& peer, const std::deque<OpenRequest>::iterator& open)
    {
        close(*open);
        m_kept.openNumbers -= open->numbers();
        peer.requests.erase(open);
    }

    void close(const OpenRequest& open)
    {
        if (open.expected == 0 && open.isAnswered) {
            RecordedAnswers* const recorded = questionOf(open.key, false);
            if (recorded)
                addAnswers(*recorded, open.answers);
        } else if (open.expected > 1) {
            closeSeveral(open);
        }
    }

    // The answers that do not tell what they answer are those to the first ones without an answer.
    void closeSeveral(const OpenRequest& open)
    {
        auto answer = open.answers.begin();
        for (const Request& single : singleRequests(open.request)) {
            if (answer == open.answers.end())
                return;
            if (std::find(open.items.begin(), open.items.end(), itemOf(single)) != open.items.end())
                continue;
            RecordedAnswers* const recorded = questionOf(keyOf(single, {}), false);
            if (recorded)
                addAnswers(*recorded, {*answer});
            ++answer;
        }
    }

    void closeAll(Peer& peer)
    {
        while (!peer.requests.empty())
            remove(peer, peer.requests.begin());
    }

    void addUnasked(const Peer& peer, const ServerMessage& message, const Event& event)
    {
        const bool isFirst = peer.isWhole && !peer.hasAsked;
        if (isFirst && (message.code == "SInf" || message.code == "PNam")) {
            const auto isKnown = [&](const Stored& stored) { return m_spool.read(stored) == event.message; };
            std::vector<Stored>& greeting = m_recording->greeting;
            if (greeting.size() < MaxAnswers && std::none_of(greeting.begin(), greeting.end(), isKnown))
                greeting.push_back(m_spool.store(event.message));
        } else if (message.isAnswer) {
            ++m_recording->unasked;
        } else {
            notify(message, event);
        }
    }

    // Each console got the same. What one of them got is used, until it gets nothing any more.
    void notify(const ServerMessage& message, const Event& event)
    {
        const bool isLeader = m_hasLeader && m_leader == event.to;
        const qint64 passedUs = qMax<qint64>(0, event.timeUs - m_notifiedUs);
        if (m_hasLeader && !isLeader && passedUs < SilenceUs)
            return;
        m_hasLeader = true;
        m_leader = event.to;
        if (!m_recording->notifications.empty())
            m_clockUs += isLeader ? passedUs : qMin(passedUs, MaxPauseUs);
        m_notifiedUs = event.timeUs;
        addTimed(m_recording->notifications, {m_clockUs, {}, message.code == "LSta"}, event.message, Stored());
    }

    void addTimed(std::deque<TimedMessage>& list, TimedMessage timed, const QByteArray& message, const Stored& known)
    {
        if (m_kept.timed >= MaxTimed) {
            ++m_recording->leftOut;
            return;
        }
        ++m_kept.timed;
        timed.message = m_spool.store(message, false, known);
        list.push_back(timed);
    }

    // Null if there are too many.
    RecordedAnswers* questionOf(const QByteArray& key, bool isUnknown)
    {
        const auto found = m_recording->answers.find(key);
        if (found != m_recording->answers.end())
            return &found.value();
        if (m_kept.questions >= MaxQuestions || (isUnknown && m_kept.unknownQuestions >= MaxUnknownQuestions)) {
            ++m_recording->leftOut;
            return nullptr;
        }
        ++m_kept.questions;
        m_kept.unknownQuestions += isUnknown ? 1 : 0;
        return &m_recording->answers[key];
    }

    std::unique_ptr<Recording> m_recording;
    Spool& m_spool;
    Kept& m_kept;
    std::map<Tools::Endpoint, Peer> m_peers;
    bool m_hasSpoken = false;
    bool m_isAnnouncedAsServer = false;
    Tools::Endpoint m_announcedTo;
    qint64 m_announcedUs = 0;
    qint64 m_announceClockUs = 0;
    bool m_hasLeader = false;
    Tools::Endpoint m_leader; ///< the console whose notifications are used
    qint64 m_notifiedUs = 0;
    qint64 m_clockUs = 0;
};

// The servers in a file. Those that are not wanted are not kept.
class Servers
{
public:
    Servers(const QString& wanted, const Tools::Classifier& classifier, Spool& spool)
        : m_wanted(wanted), m_classifier(classifier), m_spool(spool)
    {
    }

    void add(const Event& event)
    {
        // A peer that announces no port is no server.
        if (!event.server.contains(':'))
            return;
        auto found = m_servers.find(event.server);
        if (found == m_servers.end() && m_servers.size() >= MaxServers)
            return;
        if (found == m_servers.end()) {
            const bool isWanted = m_wanted.isEmpty() || m_classifier.isMatch(event.server, m_wanted);
            found = m_servers
                        .emplace(event.server,
                                 isWanted ? std::make_unique<RecordedServer>(event.server, m_spool, m_kept) : nullptr)
                        .first;
        }
        if (found->second)
            found->second->add(event);
        else if (event.direction == Event::Direction::FromServer ||
                 (event.code == QLatin1String("PLoc") &&
                  Tools::Announcement::read(event.message).type == QLatin1String("MediaServer")))
            m_others.insert(event.server, m_classifier.nameOf(event.server));
    }

    // The server that is wanted. Servers that were only announced do not count if there is one with a connection.
    std::unique_ptr<Recording> take(const QString& file, QString& problem)
    {
        std::vector<RecordedServer*> found;
        for (const bool mustHaveSpoken : {true, false}) {
            for (auto& [key, server] : m_servers) {
                if (server && server->isMediaServer() && (server->hasSpoken() || !mustHaveSpoken))
                    found.push_back(server.get());
            }
            if (!found.empty())
                break;
        }
        const auto isExact = [&](const RecordedServer* server) {
            return !m_wanted.isEmpty() && (server->recording().key == m_wanted || server->recording().name == m_wanted);
        };
        std::vector<RecordedServer*> exact;
        std::copy_if(found.begin(), found.end(), std::back_inserter(exact), isExact);
        if (exact.size() == 1)
            return exact.front()->take();
        if (found.size() == 1)
            return found.front()->take();
        if (found.empty() && m_wanted.isEmpty()) {
            problem = QString("'%1' contains no media server; 'citp-console capture --server NAME --walk' records one")
                          .arg(file);
        } else if (found.empty()) {
            problem = QString("'%1' contains no server '%2'").arg(file, m_wanted);
            if (!m_others.isEmpty())
                problem += "; it contains: " + namesOf(m_others);
        } else {
            QMap<QString, QString> names;
            for (const RecordedServer* server : found)
                names.insert(server->recording().key, server->recording().name);
            problem =
                QString("'%1' contains %2 servers%3; --server chooses one: %4")
                    .arg(file, QString::number(found.size()),
                         m_wanted.isEmpty() ? QString() : QString(" that match '%1'").arg(m_wanted), namesOf(names));
        }
        return {};
    }

private:
    static QString namesOf(const QMap<QString, QString>& servers)
    {
        constexpr int MaxNames = 10;
        QStringList texts;
        for (auto server = servers.begin(); server != servers.end() && texts.size() < MaxNames; ++server)
            texts << (server.value().isEmpty() ? server.key() : QString("%1 \"%2\"").arg(server.key(), server.value()));
        if (servers.size() > MaxNames)
            texts << QString("%1 more").arg(servers.size() - MaxNames);
        return texts.join(", ");
    }

    const QString m_wanted;
    const Tools::Classifier& m_classifier;
    Spool& m_spool;
    Kept m_kept;
    std::map<QString, std::unique_ptr<RecordedServer>> m_servers; ///< by key; null if not wanted
    QMap<QString, QString> m_others;                              ///< names of those that are not wanted
};

std::unique_ptr<Recording> read(const RecordingSource& source, Spool& spool, const std::function<bool()>& isInterrupted,
                                const std::function<void(int)>& progress, QString& notice, QString& problem)
{
    // The second time, the packets before an announcement are known to be a server's.
    const qint64 total = qMax<qint64>(1, QFileInfo(source.file).size());
    const auto showHalf = [&](int half) {
        return [&progress, total, half](qint64 bytes) {
            progress(static_cast<int>(qBound(qint64(0), 50 * bytes / total, qint64(50))) + 50 * half);
        };
    };
    Tools::Classifier classifier;
    const auto learn = [&](const Tools::Packet& packet) { classifier.learn(packet); };
    if (Tools::readCapture(source.file, learn, isInterrupted, showHalf(0)).isInterrupted)
        return {};
    Servers servers(source.server, classifier, spool);
    Tools::Decoder decoder(classifier, [&](const Event& event) { servers.add(event); });
    const auto isOver = [&] { return isInterrupted() || !spool.problem().isEmpty(); };
    const Tools::CaptureFile file = Tools::readCapture(
        source.file, [&](const Tools::Packet& packet) { decoder.add(packet); }, isOver, showHalf(1));
    decoder.finish();
    problem = spool.problem();
    if (file.isInterrupted || !problem.isEmpty())
        return {};
    if (!file.problem.isEmpty())
        notice = QString("'%1' is damaged after %2 packets: %3")
                     .arg(source.file, QString::number(file.packets), file.problem);
    std::unique_ptr<Recording> recording = servers.take(source.file, problem);
    if (!recording && !notice.isEmpty())
        problem += "; it is damaged after " + QString("%1 packets: %2").arg(file.packets).arg(file.problem);
    return recording;
}
} // namespace

std::unique_ptr<Recording> readRecording(const RecordingSource& source, Spool& spool,
                                         const std::function<bool()>& isInterrupted,
                                         const std::function<void(int)>& progress, QString& notice, QString& problem)
{
    try {
        return read(source, spool, isInterrupted, progress, notice, problem);
    } catch (const Tools::CaptureFailure& failure) {
        problem = failure.text;
        return {};
    }
}
} // namespace MediaServer
