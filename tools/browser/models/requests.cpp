// The queue of requests, matching of answers, and timeouts.
// SPDX-License-Identifier: Apache-2.0
#include "requests.h"

#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_stack.h>

#include <algorithm>

namespace Browser {
namespace {
// Enough to hide the network's latency, too few to flood a server.
constexpr int MaxPendingPictures = 4;
constexpr int TimeoutCheckMs = 100;
// An answer holds at most 65535 bytes, at three bytes a pixel.
constexpr QSize Rgb8Pixels(160, 120);

QSize pixelsFor(const PictureId& id, const QString& format)
{
    if (format == QLatin1String("RGB8"))
        return Rgb8Pixels;
    return id.large ? PreviewPixels : TilePixels;
}

// The kind of the elements in libraries of @p type.
Kind kindOf(quint8 type)
{
    switch (type) {
        case 1:
            return Kind::Media;
        case 2:
            return Kind::Effects;
        default:
            return Kind::Generic;
    }
}
} // namespace

Requests::Requests()
{
    m_clock.start();
    connect(&m_timeoutTimer, &QTimer::timeout, this, &Requests::checkTimeouts);
}

void Requests::open(const Server& server)
{
    m_server = server;
    m_isOpen = true;
    m_queue.clear();
    m_pendingList.reset();
    m_pendingPictures.clear();
    m_lastPictureAt = m_clock.elapsed();
    m_timeoutTimer.start(TimeoutCheckMs);
}

void Requests::close(const QString& problem)
{
    m_isOpen = false;
    m_problem = problem;
    m_timeoutTimer.stop();
    std::deque<List> waiting;
    waiting.swap(m_queue);
    if (m_pendingList)
        waiting.push_front(*m_pendingList);
    m_pendingList.reset();
    const QList<PictureId> pictures = m_pendingPictures.keys();
    m_pendingPictures.clear();
    for (const List& list : waiting)
        fail(list, problem);
    for (const PictureId& id : pictures)
        Q_EMIT pictureFailed(id, problem, true);
}

void Requests::requestLibraries(quint8 type, const QString& parent, const Numbers& numbers)
{
    enqueue({false, type, parent, numbers});
}

void Requests::requestElements(quint8 type, const QString& library, const Numbers& numbers)
{
    enqueue({true, type, library, numbers});
}

void Requests::enqueue(const List& list)
{
    if (!m_isOpen) {
        fail(list, m_problem);
        return;
    }
    if (std::find(m_queue.begin(), m_queue.end(), list) == m_queue.end())
        m_queue.push_back(list);
    sendNextList();
}

void Requests::cancelQueuedElements()
{
    m_queue.erase(std::remove_if(m_queue.begin(), m_queue.end(), [](const List& list) { return list.isElements; }),
                  m_queue.end());
}

// One list at a time: an answer does not identify its request completely.
void Requests::sendNextList()
{
    while (m_isOpen && !m_pendingList && !m_queue.empty()) {
        const List next = m_queue.front();
        m_queue.pop_front();
        m_pendingList = next;
        m_pendingSince = m_clock.elapsed();
        if (!send(next)) {
            m_pendingList.reset();
            fail(next, tr("the request was refused"));
        }
    }
}

bool Requests::send(const List& list)
{
    CITP::citp_stack* const stack = CITP::citp_stack::Get();
    if (list.isElements)
        return stack->sendMsg(m_server.key,
                              CITP::Msg_MSEX_GEIN(m_server.msexMinor, list.type, list.library, list.numbers));
    return stack->sendMsg(m_server.key, CITP::Msg_MSEX_GELI(m_server.msexMinor, list.type, list.library, list.numbers));
}

bool Requests::send(const PictureId& id)
{
    const QSize pixels = pixelsFor(id, m_server.pictureFormat);
    return CITP::citp_stack::Get()->sendMsg(
        m_server.key,
        CITP::Msg_MSEX_GETH(m_server.msexMinor, id.type, id.library, static_cast<unsigned short>(pixels.height()),
                            static_cast<unsigned short>(pixels.width()), m_server.pictureFormat, {id.number}));
}

void Requests::fail(const List& list, const QString& problem)
{
    if (list.isElements)
        Q_EMIT elementsFailed(list.type, list.library, problem);
    else
        Q_EMIT librariesFailed(list.type, list.library, problem);
}

void Requests::requestPictures()
{
    // pictureFailed() below may call this function again through the source.
    if (m_isRequestingPictures || !m_pictureSource)
        return;
    m_isRequestingPictures = true;
    while (m_isOpen && m_pendingPictures.size() < MaxPendingPictures) {
        const std::optional<PictureId> next = m_pictureSource();
        if (!next)
            break;
        if (m_pendingPictures.isEmpty())
            m_lastPictureAt = m_clock.elapsed();
        m_pendingPictures.insert(*next, m_clock.elapsed());
        if (!send(*next)) {
            m_pendingPictures.remove(*next);
            Q_EMIT pictureFailed(*next, tr("the request was refused"), false);
        }
    }
    m_isRequestingPictures = false;
}

void Requests::cancelPictures()
{
    m_pendingPictures.clear();
}

QString Requests::unknownVersion(int minor) const
{
    return tr("the answer is in MSEX 1.%1, which is not supported").arg(minor);
}

void Requests::handleLibraries(const LibraryListPtr& list)
{
    if (!m_pendingList || m_pendingList->isElements || list->server != m_server.key ||
        list->type != m_pendingList->type)
        return;
    // A late answer to an earlier request.
    if (m_server.msexMinor > 0 && !list->libraries.empty() &&
        parentOf(list->libraries.front().id) != m_pendingList->library)
        return;
    const List asked = *m_pendingList;
    m_pendingList.reset();
    if (list->unknownMinor >= 0)
        fail(asked, unknownVersion(list->unknownMinor));
    else
        Q_EMIT librariesReceived(asked.type, asked.library, asked.numbers, list);
    sendNextList();
}

void Requests::handleElements(const ElementListPtr& list)
{
    if (!m_pendingList || !m_pendingList->isElements || list->server != m_server.key ||
        list->kind != kindOf(m_pendingList->type))
        return;
    if (list->unknownMinor < 0 && list->library != m_pendingList->library)
        return;
    const List asked = *m_pendingList;
    m_pendingList.reset();
    if (list->unknownMinor >= 0)
        fail(asked, unknownVersion(list->unknownMinor));
    else
        Q_EMIT elementsReceived(asked.type, asked.numbers, list);
    sendNextList();
}

void Requests::handlePicture(const Picture& picture)
{
    if (picture.server != m_server.key)
        return;
    // A late answer also shows that the server responds.
    m_lastPictureAt = m_clock.elapsed();
    for (const bool large : {false, true}) {
        const PictureId id{picture.type, picture.library, picture.number, large};
        if (m_pendingPictures.remove(id) == 0)
            continue;
        if (picture.problem.isEmpty())
            Q_EMIT pictureReceived(id, picture);
        else
            Q_EMIT pictureFailed(id, picture.problem, false);
        break;
    }
    requestPictures();
}

void Requests::checkTimeouts()
{
    const qint64 now = m_clock.elapsed();
    if (m_pendingList && now - m_pendingSince >= m_timeoutMs) {
        const List asked = *m_pendingList;
        m_pendingList.reset();
        fail(asked, tr("no answer within %1 s").arg(m_timeoutMs / 1000.0));
        sendNextList();
    }
    const bool isServerSilent = now - m_lastPictureAt >= m_timeoutMs;
    QList<PictureId> late;
    for (auto asked = m_pendingPictures.constBegin(); asked != m_pendingPictures.constEnd(); ++asked) {
        if (now - asked.value() >= m_timeoutMs)
            late << asked.key();
    }
    for (const PictureId& id : late) {
        if (m_pendingPictures.remove(id) != 0)
            Q_EMIT pictureFailed(id, tr("no answer within %1 s").arg(m_timeoutMs / 1000.0), isServerSilent);
    }
    if (!late.isEmpty())
        requestPictures();
}
} // namespace Browser
