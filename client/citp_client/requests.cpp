// The queues, the matching of answers, the timeouts and the windows.
// SPDX-License-Identifier: Apache-2.0
#include <citp_client/requests.h>

#include "values_p.h"

#include <citp/citp_codecs.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_msg_msex_thumbnails.h>

#include <QPointer>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <limits>
#include <map>
#include <unordered_set>
#include <utility>

namespace CITP {
namespace {
constexpr int initialWindow = 4;
constexpr int quickAnswer = 200; // ms
constexpr int slowAnswer = 1000; // ms
constexpr int maxOvertaken = 64;
// Of thousands of waiting requests, all may have to wait for the one that is outstanding.
constexpr int maxLookAhead = 64;
// Ended requests are remembered for their late answers, within these bounds.
constexpr qint64 rememberTime = 60000; // ms
constexpr std::size_t maxRemembered = 1024;
constexpr int maxDeletedTogether = 64;
constexpr int maxDataLength = 65535;
constexpr quint8 latestKnownMinor = 2;
constexpr qint64 rejectedTime = 1000; // ms
constexpr qint64 never = std::numeric_limits<qint64>::max();

QString bestFormat(const Msg_MSEX_SINF& sinf)
{
    for (const char* const format : {"JPEG", "PNG", "RGB8"}) {
        const unsigned int code = fromGraphicFormat(QLatin1String(format));
        const auto& formats = sinf.ThumbnailFormats;
        if (std::find(formats.begin(), formats.end(), code) != formats.end()) {
            return QLatin1String(format);
        }
    }
    return QStringLiteral("JPEG");
}

/// Whether an answer to one may be an answer to the other. Both are of the same kind and for the same server.
bool lookAlike(const Request& a, const Request& b)
{
    switch (a.kind) {
        case Request::Libraries:
            return a.type == b.type;
        case Request::Elements:
            return a.library == b.library && elementKind(a.type) == elementKind(b.type);
        case Request::LibraryPicture:
            return a.type == b.type && a.library == b.library;
        case Request::ElementPicture:
            return a.type == b.type && a.library == b.library && a.numbers == b.numbers;
    }
    return true;
}

/// Whether a late answer to @p late may be taken for one to @p request. Below another parent, libraries are told apart
/// by their parent, and an answer without any goes to the older request and is not passed on.
bool isConfusable(const Request& late, const Request& request)
{
    return lookAlike(late, request) && !(late == request) &&
           (late.kind != Request::Libraries || late.library == request.library);
}

bool isList(Request::Kind kind)
{
    return kind == Request::Libraries || kind == Request::Elements;
}

QString textOf(const Request& request)
{
    switch (request.kind) {
        case Request::Libraries:
            return request.library == rootLibrary() ? Requests::tr("its libraries")
                                                    : Requests::tr("the libraries below %1").arg(request.library);
        case Request::Elements:
            return Requests::tr("the elements of library %1").arg(request.library);
        case Request::LibraryPicture:
            return Requests::tr("the picture of library %1").arg(request.library);
        case Request::ElementPicture:
            break;
    }
    // What is refused may lack its number.
    return Requests::tr("the picture of element %1 of library %2")
        .arg(request.numbers.empty() ? 0 : request.numbers.front())
        .arg(request.library);
}

template <typename Items, typename NumberOf>
void keepNumbers(Items& items, const std::vector<quint8>& numbers, NumberOf numberOf)
{
    if (numbers.empty()) {
        return;
    }
    items.erase(std::remove_if(items.begin(), items.end(),
                               [&](const auto& item) {
                                   return std::find(numbers.begin(), numbers.end(), numberOf(item)) == numbers.end();
                               }),
                items.end());
}
} // namespace

struct CITP_HIDDEN Requests::Private
{
    /// One sending of a request. Without a reply it is remembered only for its answer.
    struct Sent
    {
        Request request;
        qint64 time;
        Reply* reply;
        qint64 bytes; ///< that its answer was expected to have
        int overtaken = 0;
        bool isOutstanding = true; ///< neither answered nor timed out: the server may be working on it
    };

    /// The requests of one kind to one server.
    struct Channel
    {
        std::array<std::map<qint64, Reply*>, 2> waiting; ///< others, by hand; each by place
        std::vector<Sent> sent;                          ///< oldest first
        int outstanding = 0;                             ///< of #sent
        int window = initialWindow;
        qint64 lastAnswer = 0; ///< to any of #sent; what nobody has asked for does not count
        bool isSilent = false;
        int unanswered = 0; ///< requests that had to be sent again since then

        /// A reply that waits for an answer to @p request, sent or not; null if there is none.
        Reply* wanted(const Request& request) const;
        /// Takes those that @p matches out of #sent.
        template <typename Predicate>
        void forget(Predicate matches);
        /// The time until which @p request must wait, because its answer could not be told from that to an earlier
        /// request: `never` until that is answered, 0 if there is none. Late answers are expected until @p silentAt.
        qint64 blockedUntil(const Request& request, qint64 now, qint64 silentAt, qint64 lateTime) const;
    };

    struct Peer
    {
        QString name;     ///< see Requests::nameOf()
        QString identity; ///< see Requests::identity()
        quint8 msexMinor = 0;
        bool isPaced = false;
        QString format;
        qint64 lastAnswer = 0;    ///< to a request of any kind
        qint64 rejectedUntil = 0; ///< nothing is sent before that time
        std::array<Channel, 4> channels;
    };

    Private(Requests* requests, Transport& t) : q(requests), transport(t) {}

    void serverUp(const QString& key);
    void serverDown(const QString& key);
    Peer* find(const QString& key);
    Channel* channelOf(const Reply* reply);

    /// Makes of what was asked what is sent. @return why that is impossible; empty if it is not
    QString complete(Request& request, const Peer& server) const;
    bool write(const Peer& server, const Request& request);
    /// Sends what may be sent now.
    /// @param changed the server whose requests have changed; null if others' may have, too
    void dispatch(Peer* changed = nullptr);
    bool sendNext(Peer& server, Request::Kind kind, bool isByHand);
    bool isLimited() const { return freeAt > 0 && transport.now() < static_cast<qint64>(std::ceil(freeAt)); }

    void chargeBytes(qint64 bytes);

    /// Takes @p reply out of its channel.
    void withdraw(Reply* reply);
    /// Has to be followed by emitFinished() or by a wakeUpAt().
    void finish(Reply* reply, Reply::Status status, const QString& text = {});
    /// Tells of what has finished. Only from the event loop: users must not be called back inside their own calls.
    void emitFinished();
    void deleteLater(Reply* reply);
    void wakeUpAt(qint64 time);
    void wakeUp();
    void checkTime(const Peer& server, Channel& channel);
    void fail(const Peer& server, Channel& channel);

    /// Finds the request that @p message answers, and ends it.
    /// @param fits tells of a request whether this may be its answer
    /// @param take moves the answer into a reply; returns why the server refused, or an empty text
    template <typename Fits, typename Take>
    void handle(Peer& server, const Msg_MSEX& message, Request::Kind kind, Fits fits, Take take);
    void handleLibraries(const QString& key, const Msg_MSEX_ELIN& message);
    template <typename Message>
    void handleElements(const QString& key, const Message& message, ElementKind kind, quint8 type);
    /// @param number of the element; -1 for the picture of a library
    void handlePicture(const QString& key, const Msg_MSEX_Thumbnail_Response_Base& message, Request::Kind kind,
                       int number);

    Requests* const q;
    Transport& transport;
    std::map<QString, Peer> servers;
    std::unordered_set<Reply*> replies;    ///< all that exist
    std::vector<QPointer<Reply>> finished; ///< not emitted yet
    qint64 lastPlace = 0;                  ///< see Reply::m_place
    QPointer<QObject> ended;               ///< the parent of replies that are to be deleted
    QString lastServer;                    ///< the one that was sent something last
    int timeout = 5000;
    qint64 nextWakeUp = never;
    bool isQuiet = false;
    int requestLimit = 0;
    int byteLimit = 0;
    qint64 usualBytes = 0; ///< average of the last answers
    double freeAt = 0;     ///< no request is sent before that time
    Statistics statistics;
};

// --- Servers ---------------------------------------------------------------------------------------------------------

Reply* Requests::Private::Channel::wanted(const Request& request) const
{
    for (const Sent& other : sent) {
        if (other.reply && other.request == request) {
            return other.reply;
        }
    }
    for (const std::map<qint64, Reply*>& queue : waiting) {
        for (const auto& entry : queue) {
            if (entry.second->request() == request) {
                return entry.second;
            }
        }
    }
    return nullptr;
}

template <typename Predicate>
void Requests::Private::Channel::forget(Predicate matches)
{
    sent.erase(std::remove_if(sent.begin(), sent.end(),
                              [&](const Sent& entry) {
                                  const bool isMatch = matches(entry);
                                  outstanding -= isMatch && entry.isOutstanding ? 1 : 0;
                                  return isMatch;
                              }),
               sent.end());
}

qint64 Requests::Private::Channel::blockedUntil(const Request& request, qint64 now, qint64 silentAt,
                                                qint64 lateTime) const
{
    qint64 time = 0;
    for (const Sent& other : sent) {
        if (other.reply && lookAlike(other.request, request)) {
            return never;
        }
        if (!other.reply && isConfusable(other.request, request)) {
            time = qMax(time, qMin(qMax(other.time + lateTime, silentAt), other.time + rememberTime));
        }
    }
    return time > now ? time : 0;
}

void Requests::Private::serverUp(const QString& key)
{
    Msg_MSEX_SINF sinf;
    Msg_PEER_PLOC ploc;
    // It may be gone again, or get() was called before this receiver of the signal.
    if (find(key) || !transport.serverInfo(key, &sinf, &ploc)) {
        return;
    }
    Peer& server = servers[key];
    server.name = ploc.name.isEmpty() ? key : QStringLiteral("\"%1\" (%2)").arg(ploc.name.left(100), key);
    server.msexMinor = sinf.GetHighestMsexVersion();
    server.isPaced = sinf.ProductName.contains(QLatin1String("coolux"), Qt::CaseInsensitive) ||
                     sinf.ProductName.contains(QLatin1String("arkaos"), Qt::CaseInsensitive);
    server.format = bestFormat(sinf);
    // Servers without one send blanks, zeros or nothing.
    const bool hasUuid = std::any_of(sinf.UUID.begin(), sinf.UUID.end(), [](QChar character) {
        return character.isLetterOrNumber() && character != QLatin1Char('0');
    });
    server.identity = hasUuid ? sinf.UUID : key;
}

void Requests::Private::serverDown(const QString& key)
{
    Peer* const server = find(key);
    if (!server) {
        return;
    }
    for (Reply* const reply : replies) {
        if (!reply->isFinished() && reply->m_request.server == key) {
            finish(reply, Reply::ServerLost, tr("Server %1 is down").arg(server->name));
        }
    }
    servers.erase(key);
}

Requests::Private::Peer* Requests::Private::find(const QString& key)
{
    const auto found = servers.find(key);
    return found == servers.end() ? nullptr : &found->second;
}

Requests::Private::Channel* Requests::Private::channelOf(const Reply* reply)
{
    Peer* const server = find(reply->m_request.server);
    return server ? &server->channels[reply->m_request.kind] : nullptr;
}

// --- Sending ---------------------------------------------------------------------------------------------------------

QString Requests::Private::complete(Request& request, const Peer& server) const
{
    const QString id = libraryId(request.library, server.msexMinor);
    const bool isPossible =
        request.kind != Request::Libraries ? id != rootLibrary() : server.msexMinor > 0 || id == rootLibrary();
    if (id.isEmpty() || !isPossible) {
        const QString problem = tr("Server %1 cannot be asked for library '%2'").arg(server.name, request.library);
        return server.msexMinor > 0 ? problem : problem + tr(": it uses MSEX 1.0, which has top-level libraries only");
    }
    request.library = id;
    if (request.numbers.size() > 255 && server.msexMinor < 2) {
        return tr("Server %1 cannot be asked for %2 numbers at once").arg(server.name).arg(request.numbers.size());
    }
    if (request.kind == Request::Elements && server.msexMinor == 0 &&
        elementKind(request.type) == ElementKind::Generic) {
        return tr("Server %1 has no generic elements: it speaks MSEX 1.0").arg(server.name);
    }
    if (request.kind == Request::ElementPicture && request.numbers.size() != 1) {
        return tr("Server %1 can be asked for the picture of one element only").arg(server.name);
    }
    if (!isList(request.kind)) {
        if (request.format.isEmpty()) {
            request.format = server.format;
        }
        request.size = request.size.expandedTo(QSize(1, 1)).boundedTo(QSize(65535, 65535));
        const double pixels = double(request.size.width()) * request.size.height();
        if (request.format == QLatin1String("RGB8") && pixels * 3 > maxDataLength) {
            const double scale = std::sqrt(maxDataLength / (3 * pixels));
            request.size = QSize(qMax(1, static_cast<int>(request.size.width() * scale)),
                                 qMax(1, static_cast<int>(request.size.height() * scale)));
        }
    }
    return {};
}

bool Requests::Private::write(const Peer& server, const Request& request)
{
    const quint8 minor = server.msexMinor;
    const auto width = static_cast<unsigned short>(request.size.width());
    const auto height = static_cast<unsigned short>(request.size.height());
    switch (request.kind) {
        case Request::Libraries:
            return transport.send(request.server, Msg_MSEX_GELI(minor, request.type, request.library, request.numbers));
        case Request::Elements:
            return transport.send(request.server, Msg_MSEX_GEIN(minor, request.type, request.library, request.numbers));
        case Request::LibraryPicture:
            return transport.send(request.server,
                                  Msg_MSEX_GELT(minor, request.type, {request.library}, height, width, request.format));
        case Request::ElementPicture:
            break;
    }
    return transport.send(request.server, Msg_MSEX_GETH(minor, request.type, request.library, height, width,
                                                        request.format, request.numbers));
}

void Requests::Private::dispatch(Peer* changed)
{
    // Only a limit makes servers wait for one another.
    const bool isAlone = changed && requestLimit == 0 && byteLimit == 0;
    for (const bool isByHand : {true, false}) {
        bool hasSent = !isQuiet || isByHand;
        while (hasSent) {
            hasSent = false;
            for (int kind = 0; isAlone && kind < 4; ++kind) {
                hasSent = sendNext(*changed, static_cast<Request::Kind>(kind), isByHand) || hasSent;
            }
            if (isAlone) {
                continue;
            }
            // In turn, because a limit would otherwise be used up by the first servers.
            auto next = servers.upper_bound(lastServer);
            for (std::size_t i = 0; i < servers.size(); ++i) {
                next = next == servers.end() ? servers.begin() : next;
                for (int kind = 0; kind < 4; ++kind) {
                    if (isLimited()) {
                        wakeUpAt(static_cast<qint64>(std::ceil(freeAt)));
                        return;
                    }
                    hasSent = sendNext(next->second, static_cast<Request::Kind>(kind), isByHand) || hasSent;
                }
                ++next;
            }
        }
    }
}

bool Requests::Private::sendNext(Peer& server, Request::Kind kind, bool isByHand)
{
    Channel& channel = server.channels[kind];
    std::map<qint64, Reply*>& waiting = channel.waiting[isByHand];
    if (waiting.empty() || channel.outstanding >= channel.window) {
        return false;
    }
    if (server.isPaced && isList(kind) &&
        server.channels[Request::Libraries].outstanding + server.channels[Request::Elements].outstanding > 0) {
        return false;
    }
    const qint64 now = transport.now();
    if (now < server.rejectedUntil) {
        wakeUpAt(server.rejectedUntil);
        return false;
    }
    const qint64 lateTime = qint64(maxAttempts) * timeout;
    const auto isBlocked = [&](const Reply* reply) {
        const qint64 time = channel.blockedUntil(reply->m_request, now, server.lastAnswer + lateTime, lateTime);
        if (time > 0) {
            wakeUpAt(time);
        }
        return time != 0;
    };
    auto next = waiting.begin();
    for (int looked = 1; isBlocked(next->second); ++looked) {
        if (++next == waiting.end() || looked == maxLookAhead) {
            return false;
        }
    }
    Reply* const reply = next->second;
    waiting.erase(next);
    // The answer to the same request that was cancelled is on its way.
    const auto same = std::find_if(channel.sent.begin(), channel.sent.end(), [reply](const Sent& sent) {
        return !sent.reply && sent.isOutstanding && sent.request == reply->m_request;
    });
    if (same != channel.sent.end()) {
        same->reply = reply;
        ++reply->m_attempts;
        return true;
    }
    lastServer = reply->m_request.server;
    if (!write(server, reply->m_request)) {
        if (!transport.serverInfo(reply->m_request.server, nullptr, nullptr)) {
            // Its serverDown() is still to come.
            waiting.emplace(reply->m_place, reply);
            return false;
        }
        // What is wrong with this one tells nothing of the others; what is wrong with the connection may pass.
        server.rejectedUntil = now + rejectedTime;
        finish(reply, Reply::Refused, tr("Server %1 cannot be sent a request").arg(server.name));
        wakeUpAt(now);
        return false;
    }
    // Late answers to these are not expected any more; they would get the answer to this one.
    channel.forget([reply](const Sent& sent) { return isConfusable(sent.request, reply->m_request); });
    ++statistics.requests;
    statistics.repeated += reply->m_attempts > 0 ? 1 : 0;
    ++reply->m_attempts;
    if (channel.sent.size() >= maxRemembered) {
        channel.sent.erase(std::find_if(channel.sent.begin(), channel.sent.end(),
                                        [](const Sent& sent) { return !sent.isOutstanding; }));
    }
    channel.sent.push_back({reply->m_request, now, reply, usualBytes});
    ++channel.outstanding;
    if (requestLimit > 0) {
        freeAt = qMax(freeAt, double(now)) + 1000.0 / requestLimit;
    }
    chargeBytes(usualBytes);
    wakeUpAt(now + timeout);
    return true;
}

// Expected bytes are charged when a request is sent: otherwise a whole window would be sent before the first answer.
void Requests::Private::chargeBytes(qint64 bytes)
{
    if (byteLimit > 0) {
        freeAt = qMax(freeAt, double(transport.now())) + 1000.0 * double(bytes) / byteLimit;
    }
}

// --- Replies ---------------------------------------------------------------------------------------------------------

void Requests::Private::withdraw(Reply* reply)
{
    Channel* const channel = reply ? channelOf(reply) : nullptr;
    if (!channel) {
        return;
    }
    for (Sent& sent : channel->sent) {
        if (sent.reply == reply) {
            sent.reply = nullptr;
            return;
        }
    }
    channel->waiting[reply->m_request.isByHand].erase(reply->m_place);
}

void Requests::Private::finish(Reply* reply, Reply::Status status, const QString& text)
{
    reply->m_status = status;
    reply->m_errorString = text;
    finished.emplace_back(reply);
}

void Requests::Private::emitFinished()
{
    std::vector<QPointer<Reply>> batch;
    batch.swap(finished);
    for (const QPointer<Reply>& reply : batch) {
        if (reply) {
            Q_EMIT reply->finished();
        }
        // The receiver may have deleted it, or Requests and all its replies.
        if (reply) {
            deleteLater(reply);
        }
    }
}

// With one event for many. Not for all: an event loop within a receiver deletes only what has ended there.
void Requests::Private::deleteLater(Reply* reply)
{
    if (reply->parent()) {
        reply->deleteLater();
        return;
    }
    if (!ended || ended->children().size() >= maxDeletedTogether) {
        ended = new QObject(q);
        ended->deleteLater();
    }
    reply->setParent(ended);
}

// --- Answers ---------------------------------------------------------------------------------------------------------

template <typename Fits, typename Take>
void Requests::Private::handle(Peer& server, const Msg_MSEX& message, Request::Kind kind, Fits fits, Take take)
{
    const qint64 now = transport.now();
    Channel& channel = server.channels[kind];
    const qint64 bytes = message.size;
    statistics.bytes += bytes;
    const bool isUnknown = message.versionMinor > latestKnownMinor;
    const auto isFitting = [&](const Sent& sent) { return fits(sent.request, isUnknown); };
    const auto entry = std::find_if(channel.sent.begin(), channel.sent.end(), isFitting);
    if (entry == channel.sent.end()) {
        ++statistics.unexpected;
        return;
    }
    // What nobody has asked for is not charged: one server could stop the requests to all.
    chargeBytes(bytes - entry->bytes);
    usualBytes += (bytes - usualBytes) / 8;
    channel.lastAnswer = server.lastAnswer = now;
    channel.isSilent = false;
    channel.unanswered = 0;
    for (auto older = channel.sent.begin(); older != entry; ++older) {
        if (++older->overtaken >= maxOvertaken) {
            wakeUpAt(now);
        }
    }
    const Sent sent = *entry;
    channel.outstanding -= sent.isOutstanding ? 1 : 0;
    channel.sent.erase(entry);

    Reply* reply = sent.reply;
    if (!reply) {
        // If its request was lost, this is the answer to a later one.
        const bool isCertain = std::all_of(channel.sent.begin(), channel.sent.end(), [&](const Sent& other) {
            return other.request == sent.request || !isFitting(other);
        });
        reply = isCertain ? channel.wanted(sent.request) : nullptr;
        for (Sent& later : channel.sent) {
            if (reply && later.reply == reply && !sent.isOutstanding) {
                later.isOutstanding = false;
                --channel.outstanding;
            }
        }
        withdraw(reply);
    } else if (now - sent.time <= quickAnswer) {
        channel.window = qMin(channel.window + 1, maxWindow);
    } else if (now - sent.time > slowAnswer) {
        channel.window = qMax(channel.window / 2, minWindow);
    }
    if (reply) {
        ++statistics.answers;
        const QString refusal = isUnknown
                                    ? tr("the answer is in MSEX 1.%1, which is not supported").arg(message.versionMinor)
                                    : take(*reply);
        finish(reply, refusal.isEmpty() ? Reply::Answered : Reply::Refused,
               refusal.isEmpty()
                   ? QString()
                   : tr("Server %1 did not send %2: %3").arg(server.name, textOf(reply->m_request), refusal));
    } else {
        ++statistics.unexpected;
    }
    dispatch(&server);
    emitFinished();
}

void Requests::Private::handleLibraries(const QString& key, const Msg_MSEX_ELIN& message)
{
    Peer* const server = find(key);
    if (!server) {
        return;
    }
    const quint8 minor = server->msexMinor;
    std::unordered_set<quint32> parents;
    for (const auto& item : message.Libraries) {
        parents.insert(numberOfParent(item.LIBID));
    }
    const auto fits = [&](const Request& request, bool isUnknown) {
        return request.type == message.LibraryType &&
               (isUnknown || parents.empty() || parents.count(numberOfLibrary(request.library)) > 0);
    };
    handle(*server, message, Request::Libraries, fits, [&](Reply& reply) {
        reply.m_libraries = librariesOf(message, reply.m_request.library, minor, &reply.m_dropped);
        keepNumbers(reply.m_libraries, reply.m_request.numbers,
                    [](const Library& library) { return libraryNumber(library.id); });
        return QString();
    });
}

template <typename Message>
void Requests::Private::handleElements(const QString& key, const Message& message, ElementKind kind, quint8 type)
{
    Peer* const server = find(key);
    if (!server) {
        return;
    }
    const QString library = libraryId(message.LibraryId, server->msexMinor);
    const auto fits = [&](const Request& request, bool isUnknown) {
        return elementKind(request.type) == kind && (type == 0 || request.type == type) &&
               (isUnknown || request.library == library);
    };
    handle(*server, message, Request::Elements, fits, [&](Reply& reply) {
        reply.m_elements = elementsOf(message, &reply.m_dropped);
        keepNumbers(reply.m_elements, reply.m_request.numbers, [](const Element& element) { return element.number; });
        return QString();
    });
}

void Requests::Private::handlePicture(const QString& key, const Msg_MSEX_Thumbnail_Response_Base& message,
                                      Request::Kind kind, int number)
{
    Peer* const server = find(key);
    if (!server) {
        return;
    }
    const QString library = libraryId(message.LibraryId, server->msexMinor);
    const auto fits = [&](const Request& request, bool isUnknown) {
        return isUnknown || (request.type == message.LibraryType && request.library == library &&
                             (number < 0 || request.numbers.front() == number));
    };
    handle(*server, message, kind, fits, [&](Reply& reply) {
        reply.m_picture = pictureOf(message);
        return reply.m_picture.data.isEmpty() ? tr("its answer has no picture") : QString();
    });
}

// --- Time ------------------------------------------------------------------------------------------------------------

void Requests::Private::wakeUpAt(qint64 time)
{
    if (time < nextWakeUp) {
        nextWakeUp = time;
        transport.wakeUpAt(time);
    }
}

void Requests::Private::wakeUp()
{
    nextWakeUp = never;
    for (auto& server : servers) {
        for (Channel& channel : server.second.channels) {
            checkTime(server.second, channel);
        }
    }
    dispatch();
    emitFinished();
}

void Requests::Private::checkTime(const Peer& server, Channel& channel)
{
    const qint64 now = transport.now();
    channel.forget([now](const Sent& sent) { return !sent.isOutstanding && now - sent.time >= rememberTime; });
    bool isSilent = false;
    for (Sent& sent : channel.sent) {
        if (!sent.isOutstanding) {
            continue;
        }
        const qint64 deadline = qMax(sent.time, channel.lastAnswer) + timeout;
        if (now < deadline && sent.overtaken < maxOvertaken) {
            wakeUpAt(deadline);
            continue;
        }
        Reply* const reply = std::exchange(sent.reply, nullptr);
        sent.isOutstanding = false;
        --channel.outstanding;
        channel.window = qMax(channel.window / 2, minWindow);
        if (!reply) {
            continue;
        }
        if (reply->m_attempts < maxAttempts) {
            ++channel.unanswered;
            channel.waiting[reply->m_request.isByHand].emplace(reply->m_place, reply);
            continue;
        }
        finish(reply, Reply::TimedOut,
               tr("Server %1 did not send %2 within %3 s, asked %4 times")
                   .arg(server.name, textOf(reply->m_request))
                   .arg(reply->m_attempts * timeout / 1000.0)
                   .arg(reply->m_attempts));
        isSilent = channel.unanswered > 1 && now - channel.lastAnswer >= qint64(maxAttempts) * timeout;
    }
    if (isSilent) {
        fail(server, channel);
    }
}

// To ask for each of the others would take as long again, with the same result.
void Requests::Private::fail(const Peer& server, Channel& channel)
{
    channel.isSilent = true;
    channel.outstanding = 0;
    for (Sent& sent : channel.sent) {
        sent.isOutstanding = false;
    }
    for (Reply* const reply : replies) {
        if (!reply->isFinished() && channelOf(reply) == &channel) {
            withdraw(reply);
            finish(reply, Reply::TimedOut,
                   tr("Server %1 did not send %2: it has not answered for %3 s")
                       .arg(server.name, textOf(reply->m_request))
                       .arg(maxAttempts * timeout / 1000.0));
        }
    }
}

// --- Interface -------------------------------------------------------------------------------------------------------

bool Request::operator==(const Request& other) const
{
    return server == other.server && kind == other.kind && type == other.type && library == other.library &&
           numbers == other.numbers && (isList(kind) || (size == other.size && format == other.format));
}

Reply::Reply(Requests* requests, Request request) : m_requests(requests), m_request(std::move(request)) {}

Reply::~Reply()
{
    m_requests->d->replies.erase(this);
    if (!isFinished()) {
        m_requests->d->withdraw(this);
        m_requests->d->wakeUpAt(m_requests->d->transport.now());
    }
}

void Reply::setByHand()
{
    if (isFinished() || m_request.isByHand) {
        return;
    }
    m_request.isByHand = true;
    Requests::Private::Channel* const channel = m_requests->d->channelOf(this);
    if (channel && channel->waiting[false].erase(m_place) > 0) {
        channel->waiting[true].emplace(m_place, this);
        m_requests->d->wakeUpAt(m_requests->d->transport.now());
    }
}

void Reply::cancel()
{
    if (isFinished()) {
        return;
    }
    m_requests->d->withdraw(this);
    m_requests->d->wakeUpAt(m_requests->d->transport.now());
    m_status = Cancelled;
    m_errorString = tr("Cancelled: server %1, %2").arg(m_request.server, textOf(m_request));
    const QPointer<Reply> self(this);
    Q_EMIT finished();
    if (self) {
        deleteLater();
    }
}

Requests::Requests(Transport& transport, QObject* parent)
    : QObject(parent), d(std::make_unique<Private>(this, transport))
{
    connect(&transport, &Transport::serverUp, this, [this](const QString& key) { d->serverUp(key); });
    connect(&transport, &Transport::serverDown, this, [this](const QString& key) {
        d->serverDown(key);
        d->emitFinished();
    });
    connect(&transport, &Transport::libraryInfo, this,
            [this](const QString& key, const Msg_MSEX_ELIN& message) { d->handleLibraries(key, message); });
    connect(&transport, &Transport::mediaInfo, this, [this](const QString& key, const Msg_MSEX_MEIN& message) {
        d->handleElements(key, message, ElementKind::Media, 0);
    });
    connect(&transport, &Transport::effectInfo, this, [this](const QString& key, const Msg_MSEX_EEIN& message) {
        d->handleElements(key, message, ElementKind::Effects, 0);
    });
    connect(&transport, &Transport::genericInfo, this, [this](const QString& key, const Msg_MSEX_GLEI& message) {
        d->handleElements(key, message, ElementKind::Generic, message.LibraryType);
    });
    connect(&transport, &Transport::libraryThumbnail, this, [this](const QString& key, const Msg_MSEX_ELTH& message) {
        d->handlePicture(key, message, Request::LibraryPicture, -1);
    });
    connect(&transport, &Transport::elementThumbnail, this, [this](const QString& key, const Msg_MSEX_ETHN& message) {
        d->handlePicture(key, message, Request::ElementPicture, message.ElementNumber);
    });
    connect(&transport, &Transport::wokenUp, this, [this] { d->wakeUp(); });
    // The transport does not report again the servers that are up already.
    for (const QString& key : transport.servers()) {
        d->serverUp(key);
    }
}

Requests::~Requests()
{
    while (!d->replies.empty()) {
        delete *d->replies.begin();
    }
}

Reply* Requests::get(const Request& request)
{
    Reply* const reply = new Reply(this, request);
    d->replies.insert(reply);
    d->serverUp(request.server);
    auto* const server = d->find(request.server);
    if (!server) {
        d->finish(reply, Reply::ServerLost, tr("Server %1 is not up").arg(request.server));
        d->wakeUpAt(d->transport.now());
        return reply;
    }
    const QString problem = d->complete(reply->m_request, *server);
    if (!problem.isEmpty()) {
        d->finish(reply, Reply::Refused, problem);
        d->wakeUpAt(d->transport.now());
        return reply;
    }
    reply->m_place = ++d->lastPlace;
    d->channelOf(reply)->waiting[request.isByHand].emplace(reply->m_place, reply);
    d->dispatch(server);
    return reply;
}

Reply* Requests::libraries(const QString& server, quint8 type, const QString& parent)
{
    return get({server, Request::Libraries, type, parent});
}

Reply* Requests::elements(const QString& server, quint8 type, const QString& library)
{
    return get({server, Request::Elements, type, library});
}

Reply* Requests::picture(const QString& server, quint8 type, const QString& library, quint8 number)
{
    return get({server, Request::ElementPicture, type, library, {number}});
}

Transport& Requests::transport() const
{
    return d->transport;
}

quint8 Requests::msexMinor(const QString& server) const
{
    const auto* const known = d->find(server);
    return known ? known->msexMinor : 0;
}

QString Requests::nameOf(const QString& server) const
{
    const auto* const known = d->find(server);
    return known ? known->name : server;
}

QString Requests::identity(const QString& server) const
{
    const auto* const known = d->find(server);
    return known ? known->identity : server;
}

void Requests::setTimeout(int milliseconds)
{
    d->timeout = milliseconds;
    d->wakeUpAt(d->transport.now());
}

int Requests::timeout() const
{
    return d->timeout;
}

int Requests::windowFor(const QString& server, Request::Kind kind) const
{
    const auto* const known = d->find(server);
    return known ? known->channels[kind].window : 0;
}

bool Requests::isSilent(const QString& server, Request::Kind kind) const
{
    const auto* const known = d->find(server);
    return known && known->channels[kind].isSilent;
}

void Requests::setRateLimit(int requestsPerSecond, int bytesPerSecond)
{
    d->requestLimit = requestsPerSecond;
    d->byteLimit = bytesPerSecond;
    d->freeAt = 0;
    d->wakeUpAt(d->transport.now());
}

void Requests::setQuiet(bool isQuiet)
{
    d->isQuiet = isQuiet;
    d->wakeUpAt(d->transport.now());
}

bool Requests::isQuiet() const
{
    return d->isQuiet;
}

Requests::Statistics Requests::statistics() const
{
    return d->statistics;
}
} // namespace CITP
