// PictureStore: a bounded cache of the chosen server's pictures, which also decides which one is requested next.
//
// GUI thread.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QCache>
#include <QHash>
#include <QObject>

#include <array>
#include <functional>
#include <optional>

#include "requests.h"
#include "values.h"

namespace Browser {
class PictureStore : public QObject
{
    Q_OBJECT

public:
    enum class State {
        None,     ///< never wanted
        Waiting,  ///< wanted or requested
        Ready,    ///< see find()
        Failed,   ///< see problem()
        Cancelled ///< the user has cancelled the loading
    };

    /// What a picture is wanted for, by descending priority.
    enum class Priority { Preview, Visible, Layers, Library };

    /// @param requests must outlive this object
    explicit PictureStore(Requests& requests);

    /// Sets the pictures that are wanted for @p priority, in the order in which to request them.
    void setWanted(Priority priority, std::vector<PictureId> ids);

    State state(const PictureId& id) const;
    /// Why the state is Failed; empty otherwise.
    QString problem(const PictureId& id) const { return m_entries.value(id).problem; }
    /// The picture, or its outdated version until the new one arrives; null if there is neither.
    QImage find(const PictureId& id) const;

    /// Removes everything, when another server is chosen.
    void clear();
    /// Sets all wanted pictures that are missing to Cancelled.
    void cancel();
    /// Sets all wanted pictures that are missing to Failed because of @p problem.
    void failAll(const QString& problem);
    /// Makes pictures that are Failed or Cancelled wanted again.
    void retry();
    /// The picture has changed at the server. The outdated one is shown until the new one arrives.
    void invalidate(const PictureId& id);
    /// All pictures of the library have changed.
    void invalidateLibrary(quint8 type, const QString& library);
    /// All pictures may have changed.
    void invalidateAll() { invalidateAllExcept(0, {}); }
    /// All pictures except those of the library may have changed.
    void invalidateAllExcept(quint8 type, const QString& library);

    /// Progress of Priority::Library: the number of pictures that are ready, failed or cancelled, and of all.
    int done() const;
    int total() const { return static_cast<int>(wanted(Priority::Library).size()); }

    /// @param kilobytes memory limit of the pictures; 96 MiB by default
    void setLimit(int kilobytes) { m_images.setMaxCost(kilobytes); }

Q_SIGNALS:
    /// state(), problem() or find() of @p id has changed.
    void changed(const Browser::PictureId& id);
    /// The same for many pictures, in place of one changed() for each.
    void manyChanged();
    void progress(int done, int total);

private:
    struct Entry
    {
        State state = State::None;
        QString problem;
    };

    std::vector<PictureId>& wanted(Priority priority) { return m_wanted[static_cast<std::size_t>(priority)]; }
    const std::vector<PictureId>& wanted(Priority priority) const
    {
        return m_wanted[static_cast<std::size_t>(priority)];
    }
    std::optional<PictureId> next();
    bool isMissing(const PictureId& id, Priority priority) const;
    void handlePicture(const PictureId& id, const Picture& picture);
    void handleFailure(const PictureId& id, const QString& problem, bool isServerSilent);
    void failPending(State state, const QString& problem);
    /// Removes the entries that match: if their pictures are wanted, they are requested again.
    void removeEntries(const std::function<bool(const PictureId&, State)>& matches);

    Requests& m_requests;
    std::array<std::vector<PictureId>, 4> m_wanted;
    QHash<PictureId, Entry> m_entries;
    QCache<PictureId, QImage> m_images; ///< cost in KiB
};
} // namespace Browser
