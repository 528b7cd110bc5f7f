// The virtual clock, the decoding of requests, and answers.
// SPDX-License-Identifier: Apache-2.0
#include "fake_transport.h"

#include "wire.h"

#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_requests.h>

#include <QCoreApplication>
#include <QEvent>

using namespace CITP;

namespace {
template <typename Message>
Message message(int minor, const char* code)
{
    Message message;
    message.versionMajor = 1;
    message.versionMinor = static_cast<quint8>(minor);
    message.cookie = QLatin1String(code);
    message.size = 100;
    return message;
}

template <typename Item>
Item item(quint8 number)
{
    Item item;
    item.Number = number;
    return item;
}

Msg_MSEX_SINF sinfOf(int minor, const char* product)
{
    if (minor >= 2)
        return Msg_MSEX_SINF(Wire::sinf(product));
    const QByteArray body = Wire::ucs2(product) + Wire::u8(1) + Wire::u8(0) + Wire::u8(0);
    return Msg_MSEX_SINF(Wire::msex(static_cast<unsigned>(minor), "SInf", body));
}
} // namespace

bool FakeTransport::send(const QString& server, const Msg_Header& request)
{
    if (dynamic_cast<const Msg_FPTC_SPTC*>(&request)) {
        ++patchRequests;
        return true;
    }
    Request decoded;
    decoded.server = server;
    decoded.size = {};
    if (const auto* const geli = dynamic_cast<const Msg_MSEX_GELI*>(&request)) {
        decoded.type = geli->libraryType;
        decoded.library = geli->libraryParentId;
        decoded.numbers = geli->libraryNumbers;
    } else if (const auto* const gein = dynamic_cast<const Msg_MSEX_GEIN*>(&request)) {
        decoded.kind = Request::Elements;
        decoded.type = gein->libraryType;
        decoded.library = gein->libraryId;
        decoded.numbers = gein->elementNumbers;
    } else if (const auto* const gelt = dynamic_cast<const Msg_MSEX_GELT*>(&request)) {
        decoded.kind = Request::LibraryPicture;
        decoded.type = gelt->libraryType;
        decoded.library = gelt->libraryIds.at(0);
        decoded.size = QSize(gelt->thumbnailWidth, gelt->thumbnailHeight);
        decoded.format = gelt->thumbnailFormat;
    } else {
        const auto& geth = dynamic_cast<const Msg_MSEX_GETH&>(request);
        decoded.kind = Request::ElementPicture;
        decoded.type = geth.libraryType;
        decoded.library = geth.libraryId;
        decoded.numbers = geth.elementNumbers;
        decoded.size = QSize(geth.thumbnailWidth, geth.thumbnailHeight);
        decoded.format = geth.thumbnailFormat;
    }
    if (m_up.count(server) == 0 || (onSend && !onSend(decoded)))
        return false;
    sent.push_back(decoded);
    return true;
}

std::vector<QString> FakeTransport::servers() const
{
    std::vector<QString> keys;
    for (const auto& server : m_up)
        keys.push_back(server.first);
    return keys;
}

bool FakeTransport::serverInfo(const QString& server, Msg_MSEX_SINF* sinf, Msg_PEER_PLOC* ploc) const
{
    const auto found = m_up.find(server);
    if (found == m_up.end())
        return false;
    if (sinf)
        *sinf = found->second.sinf;
    if (ploc)
        *ploc = found->second.ploc;
    return true;
}

void FakeTransport::setUp(const QString& server, int minor, const char* product)
{
    setUp(server, sinfOf(minor, product));
}

void FakeTransport::setUp(const QString& server, const Msg_MSEX_SINF& information)
{
    if (m_up.count(server) > 0)
        setDown(server);
    m_up[server] = {information, Msg_PEER_PLOC(QStringLiteral("MediaServer"), QStringLiteral("Stage"),
                                               QStringLiteral("Running"), 4811)};
    Q_EMIT serverUp(server);
}

void FakeTransport::setDown(const QString& server)
{
    lose(server);
    Q_EMIT serverDown(server);
}

void FakeTransport::at(qint64 time, std::function<void()> work)
{
    m_plan.emplace(time, std::move(work));
}

void FakeTransport::runUntil(qint64 time)
{
    while (true) {
        const bool isWakeUp = m_wakeUp >= 0 && (m_plan.empty() || m_wakeUp < m_plan.begin()->first);
        if (!isWakeUp && m_plan.empty())
            break;
        const qint64 next = isWakeUp ? m_wakeUp : m_plan.begin()->first;
        if (next > time)
            break;
        m_now = qMax(m_now, next);
        if (isWakeUp) {
            m_wakeUp = -1;
            Q_EMIT wokenUp();
        } else {
            const std::function<void()> work = std::move(m_plan.begin()->second);
            m_plan.erase(m_plan.begin());
            work();
        }
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        // The former leaves the event's place in the queue occupied.
        QCoreApplication::sendPostedEvents();
    }
    m_now = qMax(m_now, time);
}

Msg_MSEX_ELIN elin(int minor, quint8 type, const QStringList& ids, const QString& mark)
{
    auto answer = message<Msg_MSEX_ELIN>(minor, "ELIn");
    answer.LibraryType = type;
    for (const QString& id : ids) {
        Msg_MSEX_ELIN::ElementLibraryInformation library;
        library.LIBID = id;
        library.Name = mark;
        answer.Libraries.push_back(library);
    }
    return answer;
}

Msg_MSEX_MEIN mein(int minor, const QString& library, const std::vector<quint8>& numbers, const QString& mark)
{
    auto answer = message<Msg_MSEX_MEIN>(minor, "MEIn");
    answer.LibraryId = library;
    for (const quint8 number : numbers) {
        answer.Media.push_back(item<Msg_MSEX_MEIN::MediaInformation>(number));
        answer.Media.back().Name = mark;
    }
    return answer;
}

Msg_MSEX_EEIN eein(int minor, const QString& library, const std::vector<quint8>& numbers, const QString& mark)
{
    auto answer = message<Msg_MSEX_EEIN>(minor, "EEIn");
    answer.LibraryId = library;
    for (const quint8 number : numbers) {
        answer.Effects.push_back(item<Msg_MSEX_EEIN::EffectInformation>(number));
        answer.Effects.back().EffectName = mark;
    }
    return answer;
}

Msg_MSEX_GLEI glei(int minor, quint8 type, const QString& library, const std::vector<quint8>& numbers,
                   const QString& mark)
{
    auto answer = message<Msg_MSEX_GLEI>(minor, "GLEI");
    answer.LibraryId = library;
    answer.LibraryType = minor >= 2 ? type : quint8(0);
    for (const quint8 number : numbers) {
        answer.Elements.push_back(item<Msg_MSEX_GLEI::GenericInformation>(number));
        answer.Elements.back().Name = mark;
    }
    return answer;
}

Msg_MSEX_ELTH elth(int minor, quint8 type, const QString& library, const QString& mark)
{
    auto answer = message<Msg_MSEX_ELTH>(minor, "ELTh");
    answer.LibraryType = type;
    answer.LibraryId = library;
    answer.ThumbnailFormat = QStringLiteral("JPEG");
    answer.ThumbnailBuffer = mark.toUtf8();
    return answer;
}

Msg_MSEX_ETHN ethn(int minor, quint8 type, const QString& library, quint8 number, const QString& mark)
{
    auto answer = message<Msg_MSEX_ETHN>(minor, "EThn");
    answer.LibraryType = type;
    answer.LibraryId = library;
    answer.ElementNumber = number;
    answer.ThumbnailFormat = QStringLiteral("JPEG");
    answer.ThumbnailBuffer = mark.toUtf8();
    return answer;
}

QString markOf(const Reply& reply)
{
    if (!reply.libraries().empty())
        return reply.libraries().front().name;
    if (!reply.elements().empty())
        return reply.elements().front().name;
    return QString::fromUtf8(reply.picture().data);
}

std::ostream& CITP::operator<<(std::ostream& out, const Request& request)
{
    out << request.server.toStdString() << " kind " << request.kind << " type " << int(request.type) << " library "
        << request.library.toStdString() << " numbers";
    for (const quint8 number : request.numbers)
        out << ' ' << int(number);
    return out << " size " << request.size.width() << 'x' << request.size.height();
}
