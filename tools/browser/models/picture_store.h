// PictureStore: the images of the chosen server's pictures, and how far each has come.
//
// CITP::Pictures gets the pictures; they are decoded here, in a thread of their own, so that a picture that takes long
// to decode does not block the window. GUI thread.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/pictures.h>

#include <QCache>
#include <QHash>
#include <QImage>
#include <QObject>
#include <QSet>

#include <array>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace Browser {
/// The size, in pixels, of the pictures of a tile and of the preview.
constexpr QSize TilePixels(320, 240);
constexpr QSize PreviewPixels(640, 480);

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

    /// @param pictures must outlive this object
    explicit PictureStore(CITP::Pictures& pictures);
    ~PictureStore() override;

    /// Sets the pictures that are wanted for @p priority, in the order in which to request them.
    void setWanted(Priority priority, std::vector<CITP::PictureId> ids);
    /// While the server is not up, no picture is Waiting for it.
    void setServerUp(bool isUp);

    State state(const CITP::PictureId& id) const;
    /// Why the state is Failed, in one line; empty otherwise.
    QString problem(const CITP::PictureId& id) const;
    /// The picture, or an earlier version until the new one arrives; null if there is neither.
    QImage find(const CITP::PictureId& id) const;

    /// Removes everything, when another server is chosen.
    void clear();
    /// Sets all wanted pictures that are missing to Cancelled.
    void cancel();
    /// Makes pictures that are Failed or Cancelled wanted again.
    void retry();
    /// Requests the wanted pictures again. The images that are there stay until the new ones arrive.
    void reload();
    /// The same for @p id.
    void reload(const CITP::PictureId& id);

    /// Progress of Priority::Library: the number of pictures that are ready, failed or cancelled, of those that have
    /// failed, and of all.
    int done() const { return count(false); }
    int failed() const { return count(true); }
    int total() const { return static_cast<int>(wanted(Priority::Library).size()); }

    /// @param kilobytes memory limit of the images; 96 MiB by default
    void setLimit(int kilobytes) { m_images.setMaxCost(kilobytes); }

Q_SIGNALS:
    /// state(), problem() or find() of @p id has changed.
    void changed(const CITP::PictureId& id);
    /// The same for many pictures, in place of one changed() for each.
    void manyChanged();
    void progress(int done, int total);

private:
    struct Image
    {
        QImage image;
        quint64 version;
    };
    struct Job
    {
        CITP::PictureId id;
        CITP::Picture picture;
        int number; ///< see #m_decoding
    };
    struct Result
    {
        CITP::PictureId id;
        QImage image;
        QString problem;
        int number;
    };

    std::vector<CITP::PictureId>& wanted(Priority priority) { return m_wanted[static_cast<std::size_t>(priority)]; }
    const std::vector<CITP::PictureId>& wanted(Priority priority) const
    {
        return m_wanted[static_cast<std::size_t>(priority)];
    }
    bool isReady(const CITP::PictureId& id) const;
    int count(bool onlyFailed) const;
    void request(Priority priority);
    void decode(const CITP::PictureId& id);
    void handleChange(const CITP::PictureId& id);
    void emitAll();
    Q_INVOKABLE void takeResults();
    void runDecoder();

    CITP::Pictures& m_pictures;
    std::array<std::vector<CITP::PictureId>, 4> m_wanted;
    QCache<CITP::PictureId, Image> m_images;    ///< without their versions; cost in KiB
    QHash<CITP::PictureId, QString> m_problems; ///< of decoding
    QHash<CITP::PictureId, int> m_decoding;     ///< the number of the last job; results of earlier ones are left out
    int m_lastJob = 0;
    QSet<CITP::PictureId> m_cancelled;
    bool m_isServerUp = false;

    std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_hasJobs;
    std::deque<Job> m_jobs;
    std::vector<Result> m_results;
    bool m_isEnding = false;
    std::thread m_decoder;
};
} // namespace Browser
