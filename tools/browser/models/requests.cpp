// Queueing, sending, matching and time limits.
// SPDX-License-Identifier: Apache-2.0
#include "requests.h"

#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_stack.h>

#include <algorithm>

#include "decoding.h"

namespace Browser {
namespace {
// Enough to keep a server busy across the network's delay, too few to flood it.
constexpr int PicturesAtOnce = 4;
constexpr int ExpiryMs = 100;
// As many pixels of three bytes as the 65535 bytes of an answer hold.
constexpr QSize RawPixels(160, 120);

QSize pixelsFor(const PictureId& id, const QString& format)
{
    if (format == QLatin1String("RGB8"))
        return RawPixels;
    return id.large ? PreviewPixels : TilePixels;
}

// Of what kind the elements in libraries of this type are.
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
    connect(&m_expiry, &QTimer::timeout, this, &Requests::expire);
}

void Requests::open(const Server& server)
{
    m_server = server;
    m_isOpen = true;
    m_waiting.clear();
    m_list.reset();
    m_pictures.clear();
    m_lastPicture = m_clock.elapsed();
    m_expiry.start(ExpiryMs);
}

void Requests::close(const QString& problem)
{
    m_isOpen = false;
    m_problem = problem;
    m_expiry.stop();
    std::deque<List> waiting;
    waiting.swap(m_waiting);
    if (m_list)
        waiting.push_front(*m_list);
    m_list.reset();
    const QList<PictureId> pictures = m_pictures.keys();
    m_pictures.clear();
    for (const List& list : waiting)
        fail(list, problem);
    for (const PictureId& id : pictures)
        Q_EMIT pictureFailed(id, problem, true);
}

void Requests::askLibraries(quint8 type, const QString& parent, const Numbers& numbers)
{
    ask({false, type, parent, numbers});
}

void Requests::askElements(quint8 type, const QString& library, const Numbers& numbers)
{
    ask({true, type, library, numbers});
}

void Requests::ask(const List& list)
{
    if (!m_isOpen) {
        fail(list, m_problem);
        return;
    }
    if (std::find(m_waiting.begin(), m_waiting.end(), list) == m_waiting.end())
        m_waiting.push_back(list);
    askNextList();
}

void Requests::dropElements()
{
    m_waiting.erase(
        std::remove_if(m_waiting.begin(), m_waiting.end(), [](const List& list) { return list.isElements; }),
        m_waiting.end());
}

// One at a time: an answer does not repeat all of what was asked.
void Requests::askNextList()
{
    while (m_isOpen && !m_list && !m_waiting.empty()) {
        const List next = m_waiting.front();
        m_waiting.pop_front();
        m_list = next;
        m_listSince = m_clock.elapsed();
        if (!send(next)) {
            m_list.reset();
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

void Requests::askForPictures()
{
    // What the source is told of a failure may bring it back here.
    if (m_isAsking || !m_nextPicture)
        return;
    m_isAsking = true;
    while (m_isOpen && m_pictures.size() < PicturesAtOnce) {
        const std::optional<PictureId> next = m_nextPicture();
        if (!next)
            break;
        if (m_pictures.isEmpty())
            m_lastPicture = m_clock.elapsed();
        m_pictures.insert(*next, m_clock.elapsed());
        if (!send(*next)) {
            m_pictures.remove(*next);
            Q_EMIT pictureFailed(*next, tr("the request was refused"), false);
        }
    }
    m_isAsking = false;
}

void Requests::dropPictures()
{
    m_pictures.clear();
}

QString Requests::unknownVersion(int minor) const
{
    return tr("the answer is in MSEX 1.%1, which is not known here").arg(minor);
}

void Requests::takeLibraries(const LibraryListPtr& list)
{
    if (!m_list || m_list->isElements || list->server != m_server.key || list->type != m_list->type)
        return;
    // The answer to an earlier request that came after its time.
    if (m_server.msexMinor > 0 && !list->libraries.empty() && parentOf(list->libraries.front().id) != m_list->library)
        return;
    const List asked = *m_list;
    m_list.reset();
    if (list->unknownMinor >= 0)
        fail(asked, unknownVersion(list->unknownMinor));
    else
        Q_EMIT librariesCame(asked.type, asked.library, asked.numbers, list);
    askNextList();
}

void Requests::takeElements(const ElementListPtr& list)
{
    if (!m_list || !m_list->isElements || list->server != m_server.key || list->kind != kindOf(m_list->type))
        return;
    if (list->unknownMinor < 0 && list->library != m_list->library)
        return;
    const List asked = *m_list;
    m_list.reset();
    if (list->unknownMinor >= 0)
        fail(asked, unknownVersion(list->unknownMinor));
    else
        Q_EMIT elementsCame(asked.type, asked.numbers, list);
    askNextList();
}

void Requests::takePicture(const Picture& picture)
{
    if (picture.server != m_server.key)
        return;
    // One that is not waited for any more is a sign of life too.
    m_lastPicture = m_clock.elapsed();
    for (const bool large : {false, true}) {
        const PictureId id{picture.type, picture.library, picture.number, large};
        if (m_pictures.remove(id) == 0)
            continue;
        if (picture.problem.isEmpty())
            Q_EMIT pictureCame(id, picture);
        else
            Q_EMIT pictureFailed(id, picture.problem, false);
        break;
    }
    askForPictures();
}

void Requests::expire()
{
    const qint64 now = m_clock.elapsed();
    if (m_list && now - m_listSince >= m_limitMs) {
        const List asked = *m_list;
        m_list.reset();
        fail(asked, tr("no answer within %1 s").arg(m_limitMs / 1000.0));
        askNextList();
    }
    const bool isSilent = now - m_lastPicture >= m_limitMs;
    QList<PictureId> late;
    for (auto asked = m_pictures.constBegin(); asked != m_pictures.constEnd(); ++asked) {
        if (now - asked.value() >= m_limitMs)
            late << asked.key();
    }
    for (const PictureId& id : late) {
        if (m_pictures.remove(id) != 0)
            Q_EMIT pictureFailed(id, tr("no answer within %1 s").arg(m_limitMs / 1000.0), isSilent);
    }
    if (!late.isEmpty())
        askForPictures();
}
} // namespace Browser
