// PictureStore: the pictures of the chosen server, in bounded memory, and which one is to be asked for next.
//
// Window's thread.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QCache>
#include <QHash>
#include <QObject>

#include <array>
#include <optional>

#include "requests.h"
#include "values.h"

namespace Browser {
class PictureStore : public QObject
{
    Q_OBJECT

public:
    enum class State {
        None,     ///< nobody has wanted it yet
        Waiting,  ///< wanted or asked for
        Ready,    ///< see find()
        Failed,   ///< see problem()
        Cancelled ///< the user did not want to wait
    };

    /// Who wants pictures, the most urgent first.
    enum class Priority { Preview, Visible, Layers, Library };

    /// @param requests outlives this object
    explicit PictureStore(Requests& requests);

    /// The pictures that are wanted for @p wish, in this order, in place of the former ones.
    void setWanted(Priority priority, std::vector<PictureId> ids);

    State state(const PictureId& id) const;
    /// What went wrong; empty unless Failed.
    QString problem(const PictureId& id) const { return m_entries.value(id).problem; }
    /// The picture, or the one that it is about to replace; null if there is none.
    QImage find(const PictureId& id) const;

    /// Forgets everything, for another server.
    void clear();
    /// Not to be waited for any more: what is wanted and not there is Cancelled.
    void cancel();
    /// What is wanted and not there has Failed, for @p problem.
    void failAll(const QString& problem);
    /// What is Failed or Cancelled is wanted again.
    void retry();
    /// The picture has changed at the server. What there is of it is shown until the new one comes.
    void invalidate(const PictureId& id);
    /// All pictures of the library have changed.
    void invalidateLibrary(quint8 type, const QString& library);
    /// All pictures may have changed.
    void invalidateAll() { invalidateAllExcept(0, {}); }
    /// All pictures but those of the library may have changed.
    void invalidateAllExcept(quint8 type, const QString& library);

    /// Of the Library wish: how many are there or have failed, and of how many.
    int done() const;
    int total() const { return static_cast<int>(wanted(Priority::Library).size()); }

    /// @param kilobytes that the pictures may take; 96 MiB unless set
    void setLimit(int kilobytes) { m_images.setMaxCost(kilobytes); }

Q_SIGNALS:
    /// state(), problem() or find() of @p id says something else now.
    void changed(const Browser::PictureId& id);
    /// changed() for more of them than is worth naming.
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

    Requests& m_requests;
    std::array<std::vector<PictureId>, 4> m_wanted;
    QHash<PictureId, Entry> m_entries;
    QCache<PictureId, QImage> m_images; ///< costs in KiB
};
} // namespace Browser
