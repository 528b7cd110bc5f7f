// Requests against a model: random servers and users, thousands of runs. Each run follows from its seed.
//
// The model knows what was sent and what the servers answered, and has the matching rule a second time. It predicts for
// each answer which reply it ends.
//
// SPDX-License-Identifier: Apache-2.0
#include "fake_transport.h"
#include "random_request.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <random>
#include <sstream>

using namespace CITP;

namespace {
constexpr qint64 activeTime = 40000; // less than ended requests are remembered
constexpr int timeoutMs = 5000;
constexpr qint64 longestDelay = 60000; // of a request by others that look alike

class Simulation
{
public:
    explicit Simulation(unsigned seed);
    void execute();

private:
    struct Behaviour
    {
        int minor = 2;
        bool isSerial = false;
        int delay = 0;
        int loss = 0;    ///< percent
        int doubles = 0; ///< percent
        int lies = 0;    ///< percent
        int empties = 0; ///< percent of answers with nothing in them
        int unknown = 0; ///< percent of answers in an unknown version
    };
    /// An answer that is on its way.
    struct Answer
    {
        Request request; ///< that it pretends to answer
        QString mark;
        int minor;
        bool isEmpty;
    };
    struct Sent
    {
        Request request;
        Reply* reply;
        qint64 time;
    };
    struct End
    {
        int count = 0;
        Request request;
        std::size_t number = 0; ///< in the order in which they were made
    };

    int random(int bound) { return randomBelow(m_random, bound); }
    bool chance(int percent) { return random(100) < percent; }
    Request randomRequest();
    void ask();
    void cancel();
    bool serve(const Request& request);
    void deliver(const Answer& answer);
    static bool fits(const Request& request, const Answer& answer);
    static bool isConfusable(const Request& one, const Request& other);
    void noteSendings();
    void forget(Reply* reply);
    std::vector<Reply*> pending() const;
    void check(bool isTrue, const std::string& what) const { EXPECT_TRUE(isTrue) << "seed " << m_seed << ": " << what; }

    const unsigned m_seed;
    std::mt19937 m_random;
    FakeTransport m_net;
    std::unique_ptr<Requests> m_requests;
    std::map<QString, Behaviour> m_servers;
    std::map<QString, qint64> m_busyUntil;
    std::map<QString, int> m_connections; ///< answers of an earlier connection are not delivered
    bool m_isHonest = true;
    bool m_isLossless = true;
    int m_marks = 0;
    std::map<QString, Request> m_requestOfMark;
    std::vector<Request> m_emptied; ///< those that were answered with nothing

    std::map<QString, std::vector<Sent>> m_sent; ///< by server, oldest first
    std::vector<Request> m_justSent;
    std::map<Reply*, int> m_attempts;
    std::map<Reply*, std::shared_ptr<End>> m_ends; ///< of those that have not ended
    std::vector<std::shared_ptr<End>> m_all;
    Reply* m_expected = nullptr; ///< the one that the answer being delivered must end
    bool m_isDelivering = false;
    std::map<std::pair<QString, int>, qint64> m_lastAnswer; ///< to any request
    std::map<QString, qint64> m_lastSign;                   ///< the last answer to a request of any kind
};

Simulation::Simulation(unsigned seed) : m_seed(seed), m_random(seed), m_requests(std::make_unique<Requests>(m_net))
{
    m_isHonest = chance(50);
    m_isLossless = chance(30);
    const int servers = 1 + random(3);
    for (int i = 0; i < servers; ++i) {
        const QString key = QStringLiteral("2.0.0.%1:4811").arg(i);
        Behaviour behaviour;
        behaviour.minor = random(3);
        behaviour.isSerial = chance(50);
        const std::array<int, 6> delays{0, 5, 50, 400, 1500, 3000};
        behaviour.delay = delays.at(static_cast<std::size_t>(random(6)));
        behaviour.empties = random(30);
        if (!m_isLossless)
            behaviour.loss = chance(20) ? 100 : random(40);
        if (!m_isHonest) {
            behaviour.doubles = random(30);
            behaviour.lies = random(30);
            behaviour.unknown = random(10);
        }
        m_servers[key] = behaviour;
        m_net.setUp(key, behaviour.minor, chance(20) ? "Coolux" : "Product");
    }
    m_net.onSend = [this](const Request& request) { return serve(request); };
}

Request Simulation::randomRequest()
{
    auto server = m_servers.begin();
    std::advance(server, random(static_cast<int>(m_servers.size())));
    return ::randomRequest(m_random, server->first, server->second.minor);
}

void Simulation::ask()
{
    Reply* const reply = m_requests->get(randomRequest());
    const auto end = std::make_shared<End>();
    end->request = reply->request();
    end->number = m_all.size();
    m_all.push_back(end);
    m_ends[reply] = end;
    m_attempts[reply] = 0;
    QObject::connect(reply, &Reply::finished, [this, reply, end] {
        ++end->count;
        check(end->count == 1, "ends twice");
        check(reply->attempts() <= Requests::maxAttempts, "is sent too often");
        const bool isAnswer = reply->status() == Reply::Answered;
        if (m_isDelivering && isAnswer) {
            std::ostringstream text;
            text << "at " << m_net.now() << " an answer ends " << reply->request() << " and should end ";
            if (m_expected)
                text << m_expected->request();
            check(m_expected && reply->request() == m_expected->request(), text.str());
            m_expected = nullptr;
        } else {
            check(!isAnswer, "is answered without an answer");
        }
        const QString mark = markOf(*reply);
        if (isAnswer && m_isHonest && !mark.isEmpty()) {
            std::ostringstream text;
            text << end->request << " at " << m_net.now() << " has the answer to " << m_requestOfMark.at(mark);
            check(m_requestOfMark.at(mark) == end->request, text.str());
        }
        if (isAnswer && m_isHonest && mark.isEmpty()) {
            check(std::find(m_emptied.begin(), m_emptied.end(), end->request) != m_emptied.end(),
                  "has the empty answer to another");
        }
        if (reply->status() == Reply::TimedOut) {
            const qint64 last = m_lastAnswer[{end->request.server, end->request.kind}];
            check(m_net.now() - last >= timeoutMs, "times out although the server is alive");
        }
        check(isAnswer == reply->errorString().isEmpty(), "has no error text");
        forget(reply);
    });
    noteSendings();
}

void Simulation::cancel()
{
    const std::vector<Reply*> replies = pending();
    if (replies.empty())
        return;
    Reply* const reply = replies.at(static_cast<std::size_t>(random(static_cast<int>(replies.size()))));
    if (chance(50)) {
        reply->cancel();
    } else {
        m_ends.at(reply)->count = 1;
        forget(reply);
        delete reply;
    }
}

// Another one may get its address.
void Simulation::forget(Reply* reply)
{
    for (Sent& sent : m_sent[reply->request().server])
        sent.reply = sent.reply == reply ? nullptr : sent.reply;
    m_ends.erase(reply);
}

std::vector<Reply*> Simulation::pending() const
{
    std::vector<Reply*> replies;
    for (const auto& entry : m_ends) {
        if (!entry.first->isFinished())
            replies.push_back(entry.first);
    }
    // The order of their addresses is another in each process.
    std::sort(replies.begin(), replies.end(),
              [this](Reply* a, Reply* b) { return m_ends.at(a)->number < m_ends.at(b)->number; });
    return replies;
}

bool Simulation::serve(const Request& request)
{
    if (chance(1))
        return false;
    m_justSent.push_back(request);
    const Behaviour& behaviour = m_servers.at(request.server);
    if (chance(behaviour.loss))
        return true;
    Answer answer{request, QStringLiteral("m%1").arg(++m_marks), behaviour.minor, chance(behaviour.empties)};
    if (chance(behaviour.lies))
        answer.request = randomRequest();
    answer.request.server = request.server;
    if (chance(behaviour.unknown))
        answer.minor = 3;
    m_requestOfMark[answer.mark] = request;
    if (answer.isEmpty)
        m_emptied.push_back(request);
    qint64& busyUntil = m_busyUntil[request.server];
    qint64 time = m_net.now() + behaviour.delay;
    if (behaviour.isSerial)
        time = busyUntil = qMax(busyUntil, m_net.now()) + behaviour.delay;
    else
        time += random(behaviour.delay + 1);
    const int connection = m_connections[request.server];
    for (int copy = chance(behaviour.doubles) ? 2 : 1; copy > 0; --copy) {
        m_net.at(time, [this, answer, connection] {
            if (m_connections[answer.request.server] == connection && m_net.now() < activeTime + 15000)
                deliver(answer);
        });
        time += random(2000);
    }
    return true;
}

// Which request was sent for which reply: its number of attempts has changed.
void Simulation::noteSendings()
{
    for (const Request& request : m_justSent) {
        Reply* owner = nullptr;
        for (Reply* const reply : pending()) {
            if (reply->request() == request && reply->attempts() != m_attempts[reply])
                owner = reply;
        }
        if (owner) {
            ++m_attempts[owner];
            for (Sent& earlier : m_sent[request.server])
                earlier.reply = earlier.reply == owner ? nullptr : earlier.reply;
        }
        std::vector<Sent>& sent = m_sent[request.server];
        sent.erase(
            std::remove_if(sent.begin(), sent.end(),
                           [&](const Sent& earlier) {
                               if (!isConfusable(earlier.request, request))
                                   return false;
                               const qint64 since = qMax(earlier.time, m_lastSign[request.server]);
                               std::ostringstream text;
                               text << "at " << m_net.now() << " " << request << " is sent before the answer to "
                                    << earlier.request << " of " << earlier.time;
                               check(m_net.now() - since >= 2 * timeoutMs || m_net.now() - earlier.time >= longestDelay,
                                     text.str());
                               return true;
                           }),
            sent.end());
        sent.push_back({request, owner, m_net.now()});
    }
    m_justSent.clear();
}

// The requests of which the answer to one could be taken for that to the other, whatever it contains.
bool Simulation::isConfusable(const Request& one, const Request& other)
{
    if (one.kind != other.kind || one.library != other.library || one == other)
        return false;
    if (one.kind == Request::Elements)
        return qMin<int>(one.type, 3) == qMin<int>(other.type, 3);
    return one.type == other.type && (one.kind != Request::ElementPicture || one.numbers == other.numbers);
}

// The rule once more, in other words.
bool Simulation::fits(const Request& request, const Answer& answer)
{
    const Request& told = answer.request;
    if (request.kind != told.kind)
        return false;
    const bool isUnknown = answer.minor == 3;
    switch (request.kind) {
        case Request::Libraries:
            return request.type == told.type && (isUnknown || answer.isEmpty || request.library == told.library);
        case Request::Elements: {
            const int kind = qMin<int>(request.type, 3);
            const int toldKind = qMin<int>(told.type, 3);
            if (kind != toldKind || (kind == 3 && answer.minor >= 2 && request.type != told.type))
                return false;
            return isUnknown || request.library == told.library;
        }
        case Request::LibraryPicture:
            return isUnknown || (request.type == told.type && request.library == told.library);
        case Request::ElementPicture:
            return isUnknown ||
                   (request.type == told.type && request.library == told.library && request.numbers == told.numbers);
    }
    return false;
}

void Simulation::deliver(const Answer& answer)
{
    const Request& told = answer.request;
    const int minor = answer.minor;
    const bool isGeneric = told.kind == Request::Elements && told.type > 2;
    // The stack drops these.
    if (minor == 3 && told.kind == Request::Elements && told.type != 1)
        return;
    if (isGeneric && minor == 0)
        return;
    std::vector<Sent>& sent = m_sent[told.server];
    // Lies are made up in the form of MSEX 1.1.
    Answer canonical = answer;
    const quint8 serverMinor = static_cast<quint8>(m_servers.at(told.server).minor);
    const bool isFlat = serverMinor == 0 && told.kind == Request::Libraries;
    canonical.request.library = isFlat ? rootLibrary() : libraryId(told.library, serverMinor);
    const auto entry =
        std::find_if(sent.begin(), sent.end(), [&](const Sent& item) { return fits(item.request, canonical); });
    Reply* expected = nullptr;
    bool isOptional = false;
    if (entry != sent.end()) {
        m_lastAnswer[{told.server, told.kind}] = m_lastSign[told.server] = m_net.now();
        const auto isPending = [this](Reply* reply) { return reply && m_ends.count(reply) > 0; };
        const bool isAmbiguous = std::any_of(sent.begin(), sent.end(), [&](const Sent& item) {
            return fits(item.request, canonical) && !(item.request == entry->request);
        });
        if (isPending(entry->reply)) {
            expected = entry->reply;
            // That reply may be waiting to be sent again, which the model does not see.
            isOptional = isAmbiguous;
        } else {
            for (Reply* const reply : pending())
                expected = !isAmbiguous && reply->request() == entry->request ? reply : expected;
        }
        sent.erase(entry);
    }
    const bool isRefusal = minor == 3 || (answer.isEmpty && told.kind >= Request::LibraryPicture);
    m_expected = isRefusal ? nullptr : expected;
    m_isDelivering = true;
    const std::size_t before = m_ends.size();

    const QString mark = answer.isEmpty ? QString() : answer.mark;
    std::vector<quint8> numbers{0, 1, 2, 3, 4, 5};
    if (answer.isEmpty)
        numbers.clear();
    const QString library = canonical.request.library;
    switch (told.kind) {
        case Request::Libraries: {
            QStringList ids;
            for (const quint8 number : numbers) {
                const QString parent = library == rootLibrary() ? QString() : library.section(QLatin1Char(','), 1, 1);
                ids << (serverMinor == 0   ? QString::number(number)
                        : parent.isEmpty() ? QStringLiteral("1,%1,0,0").arg(number)
                                           : QStringLiteral("2,%1,%2,0").arg(parent).arg(number));
            }
            Q_EMIT m_net.libraryInfo(told.server, elin(minor, told.type, minor == 3 ? QStringList() : ids, mark));
            break;
        }
        case Request::Elements:
            if (told.type == 1)
                Q_EMIT m_net.mediaInfo(told.server, mein(minor, minor == 3 ? QString() : library, numbers, mark));
            else if (told.type == 2)
                Q_EMIT m_net.effectInfo(told.server, eein(minor, library, numbers, mark));
            else
                Q_EMIT m_net.genericInfo(told.server, glei(minor, told.type, library, numbers, mark));
            break;
        case Request::LibraryPicture:
            Q_EMIT m_net.libraryThumbnail(told.server, elth(minor, told.type, library, mark));
            break;
        case Request::ElementPicture:
            Q_EMIT m_net.elementThumbnail(told.server, ethn(minor, told.type, library, told.numbers.front(), mark));
            break;
    }
    m_isDelivering = false;
    check(!m_expected || isOptional, "an answer does not end the request that it belongs to");
    // Refused ones and those that could not be sent afterwards have ended too.
    check(expected && !isOptional ? m_ends.size() < before : m_ends.size() <= before, "an answer ends nothing");
    m_expected = nullptr;
    noteSendings();
}

void Simulation::execute()
{
    const int actions = 5 + random(20);
    for (int i = 0; i < actions; ++i) {
        const qint64 time = random(static_cast<int>(activeTime));
        const int what = random(100);
        m_net.at(time, [this, what] {
            if (what < 80) {
                for (int burst = random(8); burst >= 0; --burst)
                    ask();
            } else if (what < 88) {
                cancel();
            } else if (what < 92) {
                const std::vector<Reply*> replies = pending();
                if (!replies.empty())
                    replies.at(static_cast<std::size_t>(random(static_cast<int>(replies.size()))))->setByHand();
            } else if (what < 95) {
                m_requests->setQuiet(chance(50));
            } else if (what < 97) {
                m_requests->setRateLimit(chance(50) ? 0 : 1 + random(50), chance(70) ? 0 : 1000);
            } else {
                auto server = m_servers.begin();
                std::advance(server, random(static_cast<int>(m_servers.size())));
                ++m_connections[server->first];
                m_sent[server->first].clear();
                m_busyUntil[server->first] = 0;
                m_net.setDown(server->first);
                m_net.setUp(server->first, server->second.minor);
            }
            noteSendings();
        });
    }
    // Sendings inside timeouts have to be noted before the next answer.
    QObject::connect(&m_net, &Transport::wokenUp, m_requests.get(), [this] { noteSendings(); });
    m_net.runUntil(activeTime);
    m_requests->setQuiet(false);
    m_requests->setRateLimit(0, 0);
    m_net.runUntil(activeTime + 1000000);
    for (const auto& end : m_all) {
        std::ostringstream text;
        text << "never ends: " << end->request;
        check(end->count == 1, text.str());
    }
    check(m_ends.empty(), "replies are left over");
    m_requests.reset();
}
} // namespace

TEST(RequestsModel, EveryRequestEndsOnceAndWithItsOwnAnswer)
{
    const char* const only = std::getenv("CITP_SEED");
    const unsigned first = only ? static_cast<unsigned>(std::atoi(only)) : 1;
    const unsigned last = only ? first : 2500;
    for (unsigned seed = first; seed <= last && !testing::Test::HasFailure(); ++seed)
        Simulation(seed).execute();
}
