// Requests: sends requests to the chosen server and matches the answers to them.
//
// At most one list and a few pictures are pending at a time. A request fails if it times out or if the server is lost.
// GUI thread.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QTimer>

#include <deque>
#include <functional>
#include <optional>

#include "values.h"

namespace Browser {
class Requests : public QObject
{
    Q_OBJECT

public:
    Requests();

    /// @param milliseconds after which a pending request fails; 5000 by default
    void setTimeout(int milliseconds) { m_timeoutMs = milliseconds; }

    /// Sends requests to @p server from now on. Discards all earlier requests without emitting a signal.
    void open(const Server& server);
    /// The server is gone: queued, pending and future requests fail with @p problem.
    void close(const QString& problem);
    bool isOpen() const { return m_isOpen; }
    const Server& server() const { return m_server; }

    /// Requests the libraries below @p parent, or those of them with @p numbers. A request that is already queued is
    /// not queued again.
    void requestLibraries(quint8 type, const QString& parent, const Numbers& numbers = {});
    /// Requests the elements of @p library, or those with @p numbers.
    void requestElements(quint8 type, const QString& library, const Numbers& numbers = {});
    /// Removes requests for elements from the queue, when another library is shown.
    void cancelQueuedElements();

    /// Sets the function that returns the next picture to request; called while fewer than the maximum are pending.
    void setPictureSource(std::function<std::optional<PictureId>()> source) { m_pictureSource = std::move(source); }
    /// Requests pictures from the source; to be called when it may have one again.
    void requestPictures();
    bool isRequested(const PictureId& id) const { return m_pendingPictures.contains(id); }
    int pendingPictures() const { return static_cast<int>(m_pendingPictures.size()); }
    /// Forgets the pending pictures; their answers are ignored.
    void cancelPictures();

    void handleLibraries(const LibraryListPtr& list);
    void handleElements(const ElementListPtr& list);
    void handlePicture(const Picture& picture);

Q_SIGNALS:
    /// @param numbers the requested numbers; empty if all were requested
    void librariesReceived(quint8 type, const QString& parent, const Browser::Numbers& numbers,
                           const Browser::LibraryListPtr& list);
    void librariesFailed(quint8 type, const QString& parent, const QString& problem);
    void elementsReceived(quint8 type, const Browser::Numbers& numbers, const Browser::ElementListPtr& list);
    void elementsFailed(quint8 type, const QString& library, const QString& problem);
    void pictureReceived(const Browser::PictureId& id, const Browser::Picture& picture);
    /// @param isServerSilent the server has sent no picture at all within the timeout
    void pictureFailed(const Browser::PictureId& id, const QString& problem, bool isServerSilent);

private:
    struct List
    {
        bool isElements;
        quint8 type;
        QString library; ///< whose elements or sub-libraries are requested
        Numbers numbers;

        bool operator==(const List& other) const
        {
            return isElements == other.isElements && type == other.type && library == other.library &&
                   numbers == other.numbers;
        }
    };

    void enqueue(const List& list);
    void sendNextList();
    bool send(const List& list);
    bool send(const PictureId& id);
    void fail(const List& list, const QString& problem);
    void checkTimeouts();
    QString unknownVersion(int minor) const;

    Server m_server;
    bool m_isOpen = false;
    QString m_problem;
    int m_timeoutMs = 5000;
    QElapsedTimer m_clock;
    std::deque<List> m_queue;
    std::optional<List> m_pendingList;
    qint64 m_pendingSince = 0;
    QHash<PictureId, qint64> m_pendingPictures; ///< and the time of each request
    qint64 m_lastPictureAt = 0;                 ///< time of the last answer
    std::function<std::optional<PictureId>()> m_pictureSource;
    bool m_isRequestingPictures = false;
    QTimer m_timeoutTimer;
};
} // namespace Browser
