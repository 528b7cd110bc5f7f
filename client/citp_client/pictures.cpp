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
#include <map>
#include <utility>

namespace CITP {
namespace {
// So that a long list does not keep the event loop from running.
constexpr int filesAtOnce = 32;
} // namespace

struct CITP_HIDDEN Pictures::Private
{
    /// The pictures of one priority, and how many of them need no look any more.
    struct List
    {
        std::vector<PictureId> ids;
        std::size_t next = 0;
        bool isByHand = false;
        QSet<PictureId> all = {}; ///< #ids, to look them up
    };

    Private(Pictures* pictures, Requests& r, const QString& folder) : q(pictures), requests(r), files(folder)
    {
        hasFiles = !folder.isEmpty();
        files.setLimit(defaultDiskLimit);
        memory.setMaxCost(static_cast<int>(defaultMemoryLimit));
    }

    void work();
    /// Looks after the next picture of @p list. @return whether the one after it may be looked at
    bool handleNext(List& list, int* reads);
    void request(const PictureId& id, bool isByHand);
    void finish(const PictureId& id, const Reply& reply);
    void keep(const PictureId& id, const Picture& picture);
    void setDiskProblem(const QString& problem);
    QByteArray keyOf(const PictureId& id) const;
    void fail(const PictureId& id, const QString& problem);
    void setOutdated(const PictureId& library);
    void removeOutdated();
    void serverUp(const QString& server);
    void rewind();
    static Request::Kind kindOf(const PictureId& id)
    {
        return id.number < 0 ? Request::LibraryPicture : Request::ElementPicture;
    }

    Pictures* const q;
    Requests& requests;
    PictureFiles files;
    bool hasFiles;
    QCache<PictureId, Picture> memory; ///< cost in bytes
    QHash<PictureId, QString> failed;  ///< and why
    QHash<PictureId, Reply*> requested;
    std::map<int, List> lists;                  ///< by priority
    QHash<QPair<QString, int>, QString> silent; ///< servers and Request::Kind that are not asked, and why
    QSet<PictureId> outdated; ///< libraries whose pictures without a version may have changed; a server if empty
    QHash<QString, QString> identities; ///< of the servers with pictures in #memory, by key
    QString diskProblem;
};

// --- Work ------------------------------------------------------------------------------------------------------------

void Pictures::Private::work()
{
    removeOutdated();
    int reads = 0;
    for (auto& list : lists) {
        while (list.second.next < list.second.ids.size() && handleNext(list.second, &reads)) {
        }
        if (reads >= filesAtOnce) {
            requests.transport().wakeUpAt(requests.transport().now());
            return;
        }
    }
}

bool Pictures::Private::handleNext(List& list, int* reads)
{
    const PictureId id = list.ids[list.next];
    if (!memory.contains(id) && !failed.contains(id) && !requested.contains(id)) {
        if (hasFiles && id.version != 0) {
            if (*reads >= filesAtOnce) {
                return false;
            }
            ++*reads;
            const Picture picture = files.read(keyOf(id));
            if (!picture.data.isEmpty()) {
                ++list.next;
                keep(id, picture);
                Q_EMIT q->changed(id);
                return true;
            }
        }
        const auto silence = silent.constFind({id.server, kindOf(id)});
        if (silence != silent.constEnd()) {
            ++list.next;
            fail(id, *silence);
            return true;
        }
        int outstanding = 0;
        for (auto other = requested.cbegin(); other != requested.cend(); ++other) {
            outstanding += other.key().server == id.server ? 1 : 0;
        }
        if (outstanding >= requests.windowFor(id.server, kindOf(id))) {
            return false;
        }
        request(id, list.isByHand);
    }
    ++list.next;
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
    requested.insert(id, reply);
    connect(reply, &Reply::finished, q, [this, id, reply] { finish(id, *reply); });
}

void Pictures::Private::finish(const PictureId& id, const Reply& reply)
{
    requested.remove(id);
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
    work();
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

void Pictures::Private::rewind()
{
    for (auto& list : lists) {
        list.second.next = 0;
    }
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
    for (const PictureId& id : requested.keys()) {
        if (isOutdated(id)) {
            delete requested.take(id);
        }
    }
    outdated.clear();
    for (auto& list : lists) {
        list.second.next = 0;
    }
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
    qDeleteAll(d->requested);
}

void Pictures::setWanted(int priority, std::vector<PictureId> ids, bool isByHand)
{
    QSet<PictureId> all(ids.begin(), ids.end());
    d->lists[priority] = {std::move(ids), 0, isByHand, std::move(all)};
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
    if (d->requested.contains(id)) {
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
