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
    void setTimeLimit(int milliseconds) { m_limitMs = milliseconds; }

    /// From now on @p server is asked. Everything asked before is forgotten without a word.
    void open(const Server& server);
    /// The server is gone: everything that waits fails with @p problem, and what is asked from now on too.
    void close(const QString& problem);
    bool isOpen() const { return m_isOpen; }
    const Server& server() const { return m_server; }

    /// Asks for the libraries below @p parent, or for those of them with @p numbers. Asking for what waits already
    /// changes nothing.
    void askLibraries(quint8 type, const QString& parent, const Numbers& numbers = {});
    /// Asks for the elements of @p library, or for those with @p numbers.
    void askElements(quint8 type, const QString& library, const Numbers& numbers = {});
    /// Forgets lists of elements that were not asked for yet: the library is not looked at any more.
    void dropElements();

    /// Where the next picture to ask for comes from, whenever there is room for one.
    void setPictureSource(std::function<std::optional<PictureId>()> source) { m_nextPicture = std::move(source); }
    /// The source may have something again.
    void askForPictures();
    bool isAsked(const PictureId& id) const { return m_pictures.contains(id); }
    int picturesAsked() const { return static_cast<int>(m_pictures.size()); }
    /// Answers to these are not waited for any more.
    void dropPictures();

    void takeLibraries(const LibraryListPtr& list);
    void takeElements(const ElementListPtr& list);
    void takePicture(const Picture& picture);

Q_SIGNALS:
    /// @param numbers those that were asked for; empty if it was for all
    void librariesCame(quint8 type, const QString& parent, const Browser::Numbers& numbers,
                       const Browser::LibraryListPtr& list);
    void librariesFailed(quint8 type, const QString& parent, const QString& problem);
    void elementsCame(quint8 type, const Browser::Numbers& numbers, const Browser::ElementListPtr& list);
    void elementsFailed(quint8 type, const QString& library, const QString& problem);
    void pictureCame(const Browser::PictureId& id, const Browser::Picture& picture);
    /// @param isSilent the server has not answered any such request for the whole time
    void pictureFailed(const Browser::PictureId& id, const QString& problem, bool isSilent);

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

    void ask(const List& list);
    void askNextList();
    bool send(const List& list);
    bool send(const PictureId& id);
    void fail(const List& list, const QString& problem);
    void expire();
    QString unknownVersion(int minor) const;

    Server m_server;
    bool m_isOpen = false;
    QString m_problem;
    int m_limitMs = 5000;
    QElapsedTimer m_clock;
    std::deque<List> m_waiting;
    std::optional<List> m_list; ///< on its way
    qint64 m_listSince = 0;
    QHash<PictureId, qint64> m_pictures; ///< on their way, and since when
    qint64 m_lastPicture = 0;            ///< when the last one came
    std::function<std::optional<PictureId>()> m_nextPicture;
    bool m_isAsking = false;
    QTimer m_expiry;
};
} // namespace Browser
