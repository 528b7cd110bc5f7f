// The states of the pictures, the cache, and the choice of the next request.
// SPDX-License-Identifier: Apache-2.0
#include "picture_store.h"

#include <algorithm>

namespace Browser {
namespace {
constexpr int LimitKb = 96 * 1024;
}

PictureStore::PictureStore(Requests& requests) : m_requests(requests), m_images(LimitKb)
{
    m_requests.setPictureSource([this] { return next(); });
    connect(&m_requests, &Requests::pictureReceived, this, &PictureStore::handlePicture);
    connect(&m_requests, &Requests::pictureFailed, this, &PictureStore::handleFailure);
}

void PictureStore::setWanted(Priority priority, std::vector<PictureId> ids)
{
    wanted(priority) = std::move(ids);
    if (!m_requests.isOpen())
        return;
    m_requests.requestPictures();
    if (priority == Priority::Library)
        Q_EMIT progress(done(), total());
}

// A picture that was evicted from the cache is fetched again only when it is shown.
bool PictureStore::isMissing(const PictureId& id, Priority priority) const
{
    if (m_requests.isRequested(id) || m_requests.isRequested({id.type, id.library, id.number, !id.large}))
        return false;
    const auto entry = m_entries.constFind(id);
    if (entry == m_entries.constEnd() || entry->state == State::None)
        return true;
    return entry->state == State::Ready && priority != Priority::Library && !m_images.contains(id);
}

std::optional<PictureId> PictureStore::next()
{
    for (const Priority priority : {Priority::Preview, Priority::Visible, Priority::Layers, Priority::Library}) {
        for (const PictureId& id : wanted(priority)) {
            if (isMissing(id, priority))
                return id;
        }
    }
    return {};
}

PictureStore::State PictureStore::state(const PictureId& id) const
{
    const State state = m_entries.value(id).state;
    if (state == State::Ready)
        return m_images.contains(id) ? State::Ready : State::Waiting;
    if (state != State::None)
        return state;
    if (m_requests.isRequested(id))
        return State::Waiting;
    for (const std::vector<PictureId>& ids : m_wanted) {
        if (std::find(ids.begin(), ids.end(), id) != ids.end())
            return State::Waiting;
    }
    return State::None;
}

QImage PictureStore::find(const PictureId& id) const
{
    const QImage* const image = m_images.object(id);
    return image ? *image : QImage();
}

void PictureStore::clear()
{
    m_entries.clear();
    m_images.clear();
    for (std::vector<PictureId>& ids : m_wanted)
        ids.clear();
    Q_EMIT manyChanged();
    Q_EMIT progress(0, 0);
}

void PictureStore::failPending(State state, const QString& problem)
{
    m_requests.cancelPictures();
    for (const std::vector<PictureId>& ids : m_wanted) {
        for (const PictureId& id : ids) {
            Entry& entry = m_entries[id];
            // A Ready picture that was evicted is missing too.
            if (entry.state == State::None || (entry.state == State::Ready && !m_images.contains(id)))
                entry = {state, problem};
        }
    }
    Q_EMIT manyChanged();
    Q_EMIT progress(done(), total());
}

void PictureStore::cancel()
{
    failPending(State::Cancelled, {});
}

void PictureStore::failAll(const QString& problem)
{
    failPending(State::Failed, problem);
}

void PictureStore::removeEntries(const std::function<bool(const PictureId&, State)>& matches)
{
    for (auto entry = m_entries.begin(); entry != m_entries.end();)
        entry = matches(entry.key(), entry->state) ? m_entries.erase(entry) : std::next(entry);
    m_requests.requestPictures();
    Q_EMIT manyChanged();
    Q_EMIT progress(done(), total());
}

void PictureStore::retry()
{
    removeEntries([](const PictureId&, State state) { return state == State::Failed || state == State::Cancelled; });
}

void PictureStore::invalidate(const PictureId& id)
{
    if (m_entries.remove(id) == 0)
        return;
    m_requests.requestPictures();
    Q_EMIT changed(id);
    Q_EMIT progress(done(), total());
}

void PictureStore::invalidateLibrary(quint8 type, const QString& library)
{
    removeEntries([&](const PictureId& id, State) { return id.type == type && id.library == library; });
}

void PictureStore::invalidateAllExcept(quint8 type, const QString& library)
{
    removeEntries([&](const PictureId& id, State) { return id.type != type || id.library != library; });
}

int PictureStore::done() const
{
    const std::vector<PictureId>& ids = wanted(Priority::Library);
    return static_cast<int>(std::count_if(
        ids.begin(), ids.end(), [this](const PictureId& id) { return m_entries.value(id).state != State::None; }));
}

void PictureStore::handlePicture(const PictureId& id, const Picture& picture)
{
    const QSize box = id.large ? PreviewPixels : TilePixels;
    const bool fits = picture.image.width() <= box.width() && picture.image.height() <= box.height();
    // A server may send a larger picture than requested.
    auto* const image =
        new QImage(fits ? picture.image : picture.image.scaled(box, Qt::KeepAspectRatio, Qt::FastTransformation));
    m_images.insert(id, image, qMax(1, static_cast<int>(image->sizeInBytes() / 1024)));
    m_entries[id] = {State::Ready, {}};
    Q_EMIT changed(id);
    Q_EMIT progress(done(), total());
}

void PictureStore::handleFailure(const PictureId& id, const QString& problem, bool isServerSilent)
{
    m_entries[id] = {State::Failed, problem};
    Q_EMIT changed(id);
    // Waiting for the timeout of every other picture would take minutes, with the same result.
    if (isServerSilent)
        failPending(State::Failed, problem);
    else
        Q_EMIT progress(done(), total());
}
} // namespace Browser
