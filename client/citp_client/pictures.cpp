// The order of the requests, the cache in memory, and what goes to and comes from the disk.
// SPDX-License-Identifier: Apache-2.0
#include <citp_client/pictures.h>

#include "picture_files_p.h"

#include <citp/citp_msg_msex_libraries.h>

#include <QCache>
#include <QDataStream>
#include <QHash>
#include <QPair>
#include <QSet>

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

namespace CITP {
namespace {
// So that a long list does not keep the event loop from running.
constexpr int filesAtOnce = 32;
// So that what a server does not have is not requested again each time it comes into view.
constexpr int maxFailed = 1024;
} // namespace

struct CITP_HIDDEN Pictures::Private
{
    /// Pictures of one server, and how many of them need no look any more.
    struct Queue
    {
        std::vector<PictureId> ids;
        std::size_t next = 0;
        bool isMissing = false; ///< the next one is not on disk

        void advance()
        {
            ++next;
            isMissing = false;
        }
    };

    /// The pictures of one priority.
    struct List
    {
        std::map<QString, Queue> queues; ///< by server, so that none waits for another
        bool isByHand = false;
        QSet<PictureId> all; ///< those of #queues, to look them up
    };

    Private(Pictures* pictures, Requests& r, const QString& folder) : q(pictures), requests(r), files(folder)
    {
        hasFiles = !folder.isEmpty();
        files.setLimit(defaultDiskLimit);
        memory.setMaxCost(static_cast<int>(defaultMemoryLimit));
    }

    /// @param only the server whose requests have changed; empty if others' may have, too
    void work(const QString& only = {});
    /// Looks after the next picture of @p server in @p list. @return whether the one after it may be looked at
    bool handleNext(List& list, const QString& server, int* reads);
    void request(const PictureId& id, bool isByHand);
    /// Takes @p id out of what is requested.
    Reply* take(const PictureId& id);
    void finish(const PictureId& id, const Reply& reply);
    void keep(const PictureId& id, const Picture& picture);
    void setDiskProblem(const QString& problem);
    QByteArray keyOf(const PictureId& id) const;
    void fail(const PictureId& id, const QString& problem);
    void setOutdated(const PictureId& library);
    void removeOutdated();
    void serverUp(const QString& server);
    void lookAgain();
    void rewind();
    static Request::Kind kindOf(const PictureId& id)
    {
        return id.number < 0 ? Request::LibraryPicture : Request::ElementPicture;
    }

    Pictures* const q;
    Requests& requests;
    PictureFiles files;
    bool hasFiles;
    QCache<PictureId, Picture> memory;                  ///< cost in bytes
    QHash<PictureId, QString> failed;                   ///< and why
    QHash<QString, QHash<PictureId, Reply*>> requested; ///< by server
    std::map<int, List> lists;                          ///< by priority
    QHash<QPair<QString, int>, QString> silent;         ///< servers and Request::Kind that are not asked, and why
    QSet<PictureId> outdated; ///< libraries whose pictures without a version may have changed; a server if empty
    QHash<QString, QString> identities; ///< of the servers with pictures in #memory, by key
    QString diskProblem;
};

// --- Work ------------------------------------------------------------------------------------------------------------

void Pictures::Private::work(const QString& only)
{
    removeOutdated();
    int reads = 0;
    for (auto& list : lists) {
        const std::map<QString, Queue>& queues = list.second.queues;
        auto queue = only.isEmpty() ? queues.begin() : queues.find(only);
        while (queue != queues.end()) {
            const QString server = queue->first;
            while (handleNext(list.second, server, &reads)) {
            }
            // Receivers of changed() may have set the list anew.
            queue = only.isEmpty() ? queues.upper_bound(server) : queues.end();
        }
        if (reads >= filesAtOnce) {
            requests.transport().wakeUpAt(requests.transport().now());
            return;
        }
    }
}

bool Pictures::Private::handleNext(List& list, const QString& server, int* reads)
{
    const auto queue = list.queues.find(server);
    if (queue == list.queues.end() || queue->second.next >= queue->second.ids.size()) {
        return false;
    }
    const PictureId id = queue->second.ids[queue->second.next];
    static const QHash<PictureId, Reply*> none;
    const auto ofServer = requested.constFind(server);
    const QHash<PictureId, Reply*>& pending = ofServer == requested.constEnd() ? none : *ofServer;
    Reply* const reply = pending.value(id);
    if (reply && list.isByHand) {
        reply->setByHand();
    }
    if (!memory.contains(id) && !failed.contains(id) && !reply) {
        if (hasFiles && id.version != 0 && !queue->second.isMissing) {
            if (*reads >= filesAtOnce) {
                return false;
            }
            ++*reads;
            const Picture picture = files.read(keyOf(id));
            if (!picture.data.isEmpty()) {
                queue->second.advance();
                keep(id, picture);
                Q_EMIT q->changed(id);
                return true;
            }
            queue->second.isMissing = true;
        }
        const auto silence = silent.constFind({id.server, kindOf(id)});
        if (silence != silent.constEnd()) {
            queue->second.advance();
            fail(id, *silence);
            return true;
        }
        // What is wanted by hand does not wait for what is not sent before it.
        const bool isQuiet = requests.isQuiet();
        const auto isAhead = [&](const Reply* other) {
            return !list.isByHand || other->request().isByHand || (other->attempts() > 0 && !isQuiet);
        };
        const bool isFull =
            std::count_if(pending.begin(), pending.end(), isAhead) >= requests.windowFor(server, kindOf(id));
        if (isFull || (isQuiet && !list.isByHand)) {
            return false;
        }
        request(id, list.isByHand);
    }
    queue->second.advance();
    return true;
}

void Pictures::Private::request(const PictureId& id, bool isByHand)
{
    Request request{id.server, Request::ElementPicture, id.type, id.library, {}, id.size, id.format, isByHand};
    if (id.number < 0) {
        request.kind = Request::LibraryPicture;
    } else {
        request.numbers = {static_cast<quint8>(id.number)};
    }
    Reply* const reply = requests.get(request);
    requested[id.server].insert(id, reply);
    connect(reply, &Reply::finished, q, [this, id, reply] { finish(id, *reply); });
}

Reply* Pictures::Private::take(const PictureId& id)
{
    const auto server = requested.find(id.server);
    if (server == requested.end()) {
        return nullptr;
    }
    Reply* const reply = server->take(id);
    if (server->isEmpty()) {
        requested.erase(server);
    }
    return reply;
}

void Pictures::Private::finish(const PictureId& id, const Reply& reply)
{
    const QString server = id.server;
    take(id);
    if (reply.status() == Reply::Answered) {
        silent.remove({id.server, kindOf(id)});
        keep(id, reply.picture());
        if (hasFiles && id.version != 0) {
            setDiskProblem(files.write(keyOf(id), reply.picture()));
        }
        Q_EMIT q->changed(id);
    } else if (reply.status() != Reply::ServerLost) {
        // To wait for the timeout of each of the others would take hours, with the same result.
        if (reply.status() == Reply::TimedOut && requests.isSilent(id.server, kindOf(id))) {
            silent.insert({id.server, kindOf(id)}, reply.errorString());
        }
        fail(id, reply.errorString());
    }
    work(server);
}

void Pictures::Private::fail(const PictureId& id, const QString& problem)
{
    failed.insert(id, problem);
    Q_EMIT q->changed(id);
}

void Pictures::Private::keep(const PictureId& id, const Picture& picture)
{
    identities.insert(id.server, requests.identity(id.server));
    memory.insert(id, new Picture(picture), static_cast<int>(picture.data.size()) + 200);
}

void Pictures::Private::setDiskProblem(const QString& problem)
{
    const QString text = problem.isEmpty() ? QString() : tr("Pictures cannot be kept on disk: %1").arg(problem);
    if (text != diskProblem) {
        diskProblem = text;
        Q_EMIT q->diskProblemChanged();
    }
}

QByteArray Pictures::Private::keyOf(const PictureId& id) const
{
    QByteArray key;
    QDataStream stream(&key, QIODevice::WriteOnly);
    stream << requests.identity(id.server) << id.type << id.library << qint32(id.number) << id.version << id.size
           << id.format;
    return key;
}

void Pictures::Private::lookAgain()
{
    for (auto& list : lists) {
        for (auto& queue : list.second.queues) {
            queue.second.next = 0;
            queue.second.isMissing = false;
        }
    }
}

void Pictures::Private::rewind()
{
    lookAgain();
    work();
}

// What has a version gets another one, and with it another id. The others cannot be told from their former versions.
// All that is named in one turn of the event loop is removed at once: there may be thousands.
void Pictures::Private::setOutdated(const PictureId& library)
{
    outdated.insert(library);
    requests.transport().wakeUpAt(requests.transport().now());
}

void Pictures::Private::removeOutdated()
{
    if (outdated.isEmpty()) {
        return;
    }
    const auto isOutdated = [&](const PictureId& id) {
        return id.version == 0 &&
               (outdated.contains({id.server, id.type, id.library}) || outdated.contains({id.server, 0, {}}));
    };
    for (const PictureId& id : memory.keys()) {
        if (isOutdated(id)) {
            memory.remove(id);
        }
    }
    std::vector<PictureId> ended;
    for (const auto& ofServer : std::as_const(requested)) {
        std::copy_if(ofServer.keyBegin(), ofServer.keyEnd(), std::back_inserter(ended), isOutdated);
    }
    for (const PictureId& id : ended) {
        delete take(id);
    }
    outdated.clear();
    lookAgain();
}

void Pictures::Private::serverUp(const QString& server)
{
    silent.remove({server, Request::LibraryPicture});
    silent.remove({server, Request::ElementPicture});
    const QString former = identities.value(server, requests.identity(server));
    if (former != requests.identity(server)) {
        for (const PictureId& id : memory.keys()) {
            if (id.server == server) {
                memory.remove(id);
            }
        }
    }
    rewind();
}

// --- Interface -------------------------------------------------------------------------------------------------------

bool PictureId::operator==(const PictureId& other) const
{
    return server == other.server && type == other.type && library == other.library && number == other.number &&
           version == other.version && size == other.size && format == other.format;
}

std::size_t qHash(const PictureId& id, std::size_t seed)
{
    std::size_t hash = seed;
    for (const std::size_t part : {std::size_t(::qHash(id.server)), std::size_t(::qHash(id.library)),
                                   std::size_t(id.type), std::size_t(id.number), std::size_t(id.version),
                                   std::size_t(id.size.width()), std::size_t(id.size.height())}) {
        hash = hash * 31 + part;
    }
    return hash;
}

quint64 versionOf(const Element& element)
{
    return element.serialNumber != 0 ? element.serialNumber : element.timestamp;
}

Pictures::Pictures(Requests& requests, const QString& folder, QObject* parent)
    : QObject(parent), d(std::make_unique<Private>(this, requests, folder))
{
    connect(&requests.transport(), &Transport::wokenUp, this, [this] { d->work(); });
    connect(&requests.transport(), &Transport::serverUp, this, [this](const QString& server) { d->serverUp(server); });
    connect(&requests.transport(), &Transport::serverDown, this, [this](const QString& server) {
        d->setOutdated({server, 0, {}});
    });
    connect(
        &requests.transport(), &Transport::libraryUpdated, this,
        [this](const QString& server, const Msg_MSEX_ELUP& message) {
            d->setOutdated({server, message.LibraryType, libraryId(message.LibraryId, d->requests.msexMinor(server))});
        });
}

Pictures::~Pictures()
{
    for (const auto& ofServer : std::as_const(d->requested)) {
        qDeleteAll(ofServer);
    }
}

void Pictures::setWanted(int priority, std::vector<PictureId> ids, bool isByHand)
{
    Private::List list;
    list.isByHand = isByHand;
    list.all = QSet<PictureId>(ids.begin(), ids.end());
    for (PictureId& id : ids) {
        std::vector<PictureId>& queue = list.queues[id.server].ids;
        queue.push_back(std::move(id));
    }
    d->lists[priority] = std::move(list);
    const auto isWanted = [this](const PictureId& id) {
        return std::any_of(d->lists.begin(), d->lists.end(),
                           [&id](const auto& entry) { return entry.second.all.contains(id); });
    };
    for (auto entry = d->failed.begin(); d->failed.size() > maxFailed && entry != d->failed.end();) {
        entry = isWanted(entry.key()) ? std::next(entry) : d->failed.erase(entry);
    }
    // A picture may have been evicted, or found to be cheaper to get from another list.
    d->requests.transport().wakeUpAt(d->requests.transport().now());
}

Pictures::State Pictures::state(const PictureId& id) const
{
    if (d->memory.contains(id)) {
        return Ready;
    }
    if (d->failed.contains(id)) {
        return Failed;
    }
    if (d->requested.value(id.server).contains(id)) {
        return Waiting;
    }
    for (const auto& list : d->lists) {
        if (list.second.all.contains(id)) {
            return Waiting;
        }
    }
    return Unknown;
}

Picture Pictures::find(const PictureId& id) const
{
    const Picture* const picture = d->memory.object(id);
    return picture ? *picture : Picture();
}

QString Pictures::problem(const PictureId& id) const
{
    return d->failed.value(id);
}

void Pictures::retry()
{
    d->failed.clear();
    d->silent.clear();
    d->rewind();
}

void Pictures::reload(const std::vector<PictureId>& ids)
{
    for (const PictureId& id : ids) {
        d->memory.remove(id);
        d->failed.remove(id);
        d->silent.remove({id.server, Private::kindOf(id)});
        if (d->hasFiles && id.version != 0) {
            d->files.remove(d->keyOf(id));
        }
    }
    d->rewind();
}

void Pictures::setMemoryLimit(qint64 bytes)
{
    d->memory.setMaxCost(static_cast<int>(bytes));
}

void Pictures::setDiskLimit(qint64 bytes)
{
    d->files.setLimit(bytes);
}

QString Pictures::diskProblem() const
{
    return d->diskProblem;
}
} // namespace CITP
