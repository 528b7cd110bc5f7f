// Requests: asks the chosen server, few things at a time, and matches what comes to what was asked.
//
// One list and a few pictures are on their way at once. What is not answered in time fails, and so does everything that
// waits when the server goes. Window's thread.
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

    /// @param milliseconds after which a request counts as not answered; 5000 unless set
    void setTimeout(int milliseconds) { m_timeoutMs = milliseconds; }

    /// From now on @p server is asked. Everything asked before is forgotten without a word.
    void open(const Server& server);
    /// The server is gone: everything that waits fails with @p problem, and what is asked from now on too.
    void close(const QString& problem);
    bool isOpen() const { return m_isOpen; }
    const Server& server() const { return m_server; }

    /// Asks for the libraries below @p parent, or for those of them with @p numbers. Asking for what waits already
    /// changes nothing.
    void requestLibraries(quint8 type, const QString& parent, const Numbers& numbers = {});
    /// Asks for the elements of @p library, or for those with @p numbers.
    void requestElements(quint8 type, const QString& library, const Numbers& numbers = {});
    /// Forgets lists of elements that were not asked for yet: the library is not looked at any more.
    void cancelQueuedElements();

    /// Where the next picture to ask for comes from, whenever there is room for one.
    void setPictureSource(std::function<std::optional<PictureId>()> source) { m_pictureSource = std::move(source); }
    /// The source may have something again.
    void requestPictures();
    bool isRequested(const PictureId& id) const { return m_pendingPictures.contains(id); }
    int pendingPictures() const { return static_cast<int>(m_pendingPictures.size()); }
    /// Answers to these are not waited for any more.
    void cancelPictures();

    void handleLibraries(const LibraryListPtr& list);
    void handleElements(const ElementListPtr& list);
    void handlePicture(const Picture& picture);

Q_SIGNALS:
    /// @param numbers those that were asked for; empty if it was for all
    void librariesReceived(quint8 type, const QString& parent, const Browser::Numbers& numbers,
                           const Browser::LibraryListPtr& list);
    void librariesFailed(quint8 type, const QString& parent, const QString& problem);
    void elementsReceived(quint8 type, const Browser::Numbers& numbers, const Browser::ElementListPtr& list);
    void elementsFailed(quint8 type, const QString& library, const QString& problem);
    void pictureReceived(const Browser::PictureId& id, const Browser::Picture& picture);
    /// @param isSilent the server has not answered any such request for the whole time
    void pictureFailed(const Browser::PictureId& id, const QString& problem, bool isServerSilent);

private:
    struct List
    {
        bool isElements;
        quint8 type;
        QString library; ///< of which the elements or the sub-libraries are asked for
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
    std::optional<List> m_pendingList; ///< on its way
    qint64 m_pendingSince = 0;
    QHash<PictureId, qint64> m_pendingPictures; ///< on their way, and since when
    qint64 m_lastPictureAt = 0;                 ///< when the last one came
    std::function<std::optional<PictureId>()> m_pictureSource;
    bool m_isRequestingPictures = false;
    QTimer m_timeoutTimer;
};
} // namespace Browser
