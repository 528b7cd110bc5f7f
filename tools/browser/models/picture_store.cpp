// The states of the pictures, the cache of images, and the thread that decodes.
// SPDX-License-Identifier: Apache-2.0
#include "picture_store.h"

#include <citp_images/images.h>

#include <algorithm>
#include <utility>

#include "texts.h"

namespace Browser {
namespace {
using CITP::PictureId;
using CITP::Pictures;

constexpr int LimitKb = 96 * 1024;
constexpr int MaxProblemLength = 300;

// All versions of a picture take the same place, so that an earlier one is shown until the new one arrives.
PictureId placeOf(PictureId id)
{
    id.version = 0;
    return id;
}
} // namespace

PictureStore::PictureStore(CITP::Pictures& pictures)
    : m_pictures(pictures), m_images(LimitKb), m_decoder([this] { runDecoder(); })
{
    connect(&m_pictures, &Pictures::changed, this, &PictureStore::handleChange);
}

PictureStore::~PictureStore()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isEnding = true;
    }
    m_hasJobs.notify_one();
    m_decoder.join();
}

void PictureStore::setWanted(Priority priority, std::vector<PictureId> ids)
{
    wanted(priority) = std::move(ids);
    request(priority);
    if (priority == Priority::Library)
        Q_EMIT progress(done(), total());
}

// Images that were evicted are decoded again only when they are looked at.
void PictureStore::request(Priority priority)
{
    std::vector<PictureId> ids;
    for (const PictureId& id : wanted(priority)) {
        if (m_cancelled.contains(id))
            continue;
        ids.push_back(id);
        if (priority != Priority::Library && !isReady(id) && m_pictures.state(id) == Pictures::Ready &&
            !m_decoding.contains(id) && !m_problems.contains(id))
            decode(id);
    }
    const bool isLookedAt = priority == Priority::Preview || priority == Priority::Visible;
    m_pictures.setWanted(static_cast<int>(priority), std::move(ids), isLookedAt);
}

void PictureStore::setServerUp(bool isUp)
{
    m_isServerUp = isUp;
    emitAll();
}

bool PictureStore::isReady(const PictureId& id) const
{
    const Image* const image = m_images.object(placeOf(id));
    return image && image->version == id.version;
}

PictureStore::State PictureStore::state(const PictureId& id) const
{
    if (isReady(id))
        return State::Ready;
    if (m_problems.contains(id))
        return State::Failed;
    if (m_cancelled.contains(id))
        return State::Cancelled;
    switch (m_pictures.state(id)) {
        case Pictures::Unknown:
            return State::None;
        case Pictures::Failed:
            return State::Failed;
        case Pictures::Waiting:
        case Pictures::Ready:
            break;
    }
    return m_isServerUp || m_decoding.contains(id) ? State::Waiting : State::Failed;
}

QString PictureStore::problem(const PictureId& id) const
{
    if (state(id) != State::Failed)
        return {};
    const QString text = m_problems.value(id, m_pictures.problem(id));
    return text.isEmpty() ? tr("server lost") : toSingleLine(text, MaxProblemLength);
}

QImage PictureStore::find(const PictureId& id) const
{
    const Image* const image = m_images.object(placeOf(id));
    return image ? image->image : QImage();
}

void PictureStore::emitAll()
{
    Q_EMIT manyChanged();
    Q_EMIT progress(done(), total());
}

void PictureStore::clear()
{
    {
        // What is left of one server must not delay the pictures of another.
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_jobs.clear();
    }
    m_decoding.clear();
    m_images.clear();
    m_problems.clear();
    m_cancelled.clear();
    for (const Priority priority : {Priority::Preview, Priority::Visible, Priority::Layers, Priority::Library}) {
        wanted(priority).clear();
        request(priority);
    }
    emitAll();
}

void PictureStore::cancel()
{
    for (const std::vector<PictureId>& ids : m_wanted) {
        for (const PictureId& id : ids) {
            if (state(id) == State::Waiting)
                m_cancelled.insert(id);
        }
    }
    for (const Priority priority : {Priority::Preview, Priority::Visible, Priority::Layers, Priority::Library})
        request(priority);
    emitAll();
}

void PictureStore::retry()
{
    m_cancelled.clear();
    const std::vector<PictureId> damaged(m_problems.keyBegin(), m_problems.keyEnd());
    m_problems.clear();
    m_pictures.reload(damaged);
    for (const Priority priority : {Priority::Preview, Priority::Visible, Priority::Layers, Priority::Library})
        request(priority);
    m_pictures.retry();
    emitAll();
}

void PictureStore::reload()
{
    std::vector<PictureId> all;
    for (const std::vector<PictureId>& ids : m_wanted)
        all.insert(all.end(), ids.begin(), ids.end());
    m_pictures.reload(all);
    retry();
}

void PictureStore::reload(const PictureId& id)
{
    m_problems.remove(id);
    if (m_cancelled.remove(id)) {
        for (const Priority priority : {Priority::Preview, Priority::Visible, Priority::Layers, Priority::Library})
            request(priority);
    }
    m_pictures.reload({id});
    emitAll();
}

int PictureStore::count(bool onlyFailed) const
{
    const std::vector<PictureId>& ids = wanted(Priority::Library);
    return static_cast<int>(std::count_if(ids.begin(), ids.end(), [&](const PictureId& id) {
        const State now = state(id);
        // An image that was evicted has been there.
        const bool wasReady = m_pictures.state(id) == Pictures::Ready && !m_decoding.contains(id);
        return now == State::Failed || (!onlyFailed && (now != State::Waiting || wasReady));
    }));
}

void PictureStore::handleChange(const PictureId& id)
{
    if (m_pictures.state(id) == Pictures::Ready) {
        m_problems.remove(id);
        decode(id);
        return;
    }
    Q_EMIT changed(id);
    Q_EMIT progress(done(), total());
}

// --- Decoding --------------------------------------------------------------------------------------------------------

void PictureStore::decode(const PictureId& id)
{
    m_decoding.insert(id, ++m_lastJob);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_jobs.push_back({id, m_pictures.find(id), m_lastJob});
    }
    m_hasJobs.notify_one();
}

void PictureStore::runDecoder()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_hasJobs.wait(lock, [this] { return m_isEnding || !m_jobs.empty(); });
        if (m_isEnding)
            return;
        const Job job = std::move(m_jobs.front());
        m_jobs.pop_front();
        lock.unlock();
        CITP::DecodedPicture decoded = CITP::decodePicture(job.picture, job.id.size);
        lock.lock();
        m_results.push_back({job.id, std::move(decoded.image), std::move(decoded.problem), job.number});
        if (m_results.size() == 1)
            QMetaObject::invokeMethod(this, "takeResults", Qt::QueuedConnection);
    }
}

void PictureStore::takeResults()
{
    std::vector<Result> results;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        results.swap(m_results);
    }
    for (const Result& result : results) {
        const auto last = m_decoding.find(result.id);
        if (last == m_decoding.end() || *last != result.number)
            continue;
        m_decoding.erase(last);
        if (result.problem.isEmpty())
            m_images.insert(placeOf(result.id), new Image{result.image, result.id.version},
                            qMax(1, static_cast<int>(result.image.sizeInBytes() / 1024)));
        else
            m_problems.insert(result.id, result.problem);
        Q_EMIT changed(result.id);
    }
    if (!results.empty())
        Q_EMIT progress(done(), total());
}
} // namespace Browser
