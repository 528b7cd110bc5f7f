// The order of the requests, the cache in memory, and what goes to and comes from the disk.
// SPDX-License-Identifier: Apache-2.0
#include <citp_client/pictures.h>

#include "picture_files_p.h"

#include <citp/citp_msg_msex_libraries.h>

#include <QCache>
#include <QDataStream>
#include <QHash>

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
    void update(const QString& server, const Msg_MSEX_ELUP& message);
    void rewind();

    Pictures* const q;
    Requests& requests;
    PictureFiles files;
    bool hasFiles;
    QCache<PictureId, Picture> memory; ///< cost in bytes
    QHash<PictureId, QString> failed;  ///< and why
    QHash<PictureId, Reply*> requested;
    std::map<int, List> lists; ///< by priority
    QString diskProblem;
};

// --- Work ------------------------------------------------------------------------------------------------------------

void Pictures::Private::work()
{
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
        int outstanding = 0;
        for (auto other = requested.cbegin(); other != requested.cend(); ++other) {
            outstanding += other.key().server == id.server ? 1 : 0;
        }
        const Request::Kind kind = id.number < 0 ? Request::LibraryPicture : Request::ElementPicture;
        if (outstanding >= requests.windowFor(id.server, kind)) {
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
        keep(id, reply.picture());
        if (hasFiles && id.version != 0) {
            setDiskProblem(files.write(keyOf(id), reply.picture()));
        }
        Q_EMIT q->changed(id);
    } else if (reply.status() != Reply::ServerLost) {
        failed.insert(id, reply.errorString());
        Q_EMIT q->changed(id);
    }
    work();
}

void Pictures::Private::keep(const PictureId& id, const Picture& picture)
{
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
void Pictures::Private::update(const QString& server, const Msg_MSEX_ELUP& message)
{
    const QString library = libraryId(message.LibraryId, requests.msexMinor(server));
    const auto isOutdated = [&](const PictureId& id) {
        return id.version == 0 && id.server == server && id.type == message.LibraryType && id.library == library;
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
    connect(&requests.transport(), &Transport::serverUp, this, [this] { d->rewind(); });
    connect(&requests.transport(), &Transport::libraryUpdated, this,
            [this](const QString& server, const Msg_MSEX_ELUP& message) { d->update(server, message); });
}

Pictures::~Pictures()
{
    qDeleteAll(d->requested);
}

void Pictures::setWanted(int priority, std::vector<PictureId> ids, bool isByHand)
{
    d->lists[priority] = {std::move(ids), 0, isByHand};
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
        if (std::find(list.second.ids.begin(), list.second.ids.end(), id) != list.second.ids.end()) {
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
