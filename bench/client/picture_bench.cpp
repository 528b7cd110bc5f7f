// Ten thousand pictures from one server, and the first picture of one that comes up.
// SPDX-License-Identifier: Apache-2.0
#include "client.h"
#include "contender.h"
#include "media.h"

#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_msg_msex_thumbnails.h>
#include <citp_client/requests.h>

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QtEndian>

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>

using CITP::citp_stack;

namespace {
constexpr int Pictures = 10000;
constexpr int Depth = CITP::Requests::maxWindow;
constexpr int FirstPictures = 40;

QString libraryOf(int picture)
{
    return QStringLiteral("1,%1,0,0").arg(picture / Media::Content().elements + 1);
}

quint8 numberOf(int picture)
{
    return static_cast<quint8>(picture % Media::Content().elements);
}

CITP::Msg_MSEX_GETH requestOf(int picture)
{
    return CITP::Msg_MSEX_GETH(2, 1, libraryOf(picture), 240, 320, QStringLiteral("JPEG"), {numberOf(picture)});
}

/// A blocking socket in one thread. Each picture is copied out of the receive buffer.
/// @param isBatched whether the requests that follow the messages of one recv() are sent together
Cost fetchByBareClient(bool isBatched)
{
    FakeServer server;
    const int descriptor = connectTo(server);
    Connection connection = server.accept();
    const Media media({&connection}, {});
    const ThreadClock clock = ThreadClock::ofCurrentThread();
    const double processor = clock.seconds();
    const double start = now();
    int asked = 0;
    int got = 0;
    QByteArray requests;
    const auto ask = [&] {
        if (asked < Pictures) {
            QByteArray request;
            request >> requestOf(asked++);
            requests += request;
        }
    };
    const auto flush = [&] {
        if (!requests.isEmpty()) {
            ::send(descriptor, requests.constData(), static_cast<std::size_t>(requests.size()), MSG_NOSIGNAL);
            requests.clear();
        }
    };
    while (asked < Depth) {
        ask();
    }
    flush();
    std::vector<char> buffer(1 << 18);
    std::size_t filled = 0;
    QByteArray picture;
    while (got < Pictures) {
        const ssize_t size = ::recv(descriptor, buffer.data() + filled, buffer.size() - filled, 0);
        if (size <= 0) {
            throw std::runtime_error("the server has ended the connection");
        }
        filled += static_cast<std::size_t>(size);
        std::size_t at = 0;
        while (filled - at >= 20) {
            const auto length = qFromLittleEndian<quint32>(buffer.data() + at + 8);
            if (filled - at < length) {
                break;
            }
            const CITP::Msg_MSEX_ETHN message(QByteArray(buffer.data() + at, static_cast<int>(length)));
            picture = message.ThumbnailBuffer;
            at += length;
            ++got;
            ask();
            if (!isBatched) {
                flush();
            }
        }
        flush();
        std::copy(buffer.begin() + static_cast<std::ptrdiff_t>(at),
                  buffer.begin() + static_cast<std::ptrdiff_t>(filled), buffer.begin());
        filled -= at;
    }
    const Cost cost{(now() - start) / Pictures, (clock.seconds() - processor) / Pictures, 0};
    ::close(descriptor);
    return cost;
}

/// A server that is up, with its answers.
struct UpServer
{
    explicit UpServer(const Media::Content& content)
        : connection(Client::get().addServer(server, "Product")), media({&connection}, content)
    {
    }
    ~UpServer() { Client::get().reset(); }

    FakeServer server;
    Connection connection;
    Media media;
};

/// By the stack alone, whose signal is received in its own thread or in this one.
Cost fetchByStack(bool isDirect)
{
    citp_stack* const stack = Client::get().stack();
    const UpServer up({});
    const QString key = up.server.key();
    QObject application;
    int asked = 0;
    int got = 0;
    std::atomic<bool> isDone{false};
    QByteArray picture;
    const double processor = processorTime();
    const double start = now();
    const QMetaObject::Connection receiver =
        QObject::connect(stack, &citp_stack::elementThumbnail, isDirect ? static_cast<QObject*>(stack) : &application,
                         [&](const QString&, const CITP::Msg_MSEX_ETHN& message) {
                             picture = message.ThumbnailBuffer;
                             if (asked < Pictures) {
                                 stack->sendMsg(key, requestOf(asked++));
                             }
                             if (++got == Pictures) {
                                 isDone = true;
                                 QMetaObject::invokeMethod(
                                     &application, [] {}, Qt::QueuedConnection);
                             }
                         });
    const auto begin = [&] {
        while (asked < Depth) {
            stack->sendMsg(key, requestOf(asked++));
        }
    };
    if (isDirect) {
        runInThreadOf(stack, begin);
    } else {
        begin();
    }
    while (!isDone) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    const Cost cost{(now() - start) / Pictures, (processorTime() - processor) / Pictures, 0};
    QObject::disconnect(receiver);
    return cost;
}

Cost fetchByClient()
{
    const UpServer up({});
    const QString key = up.server.key();
    CITP::StackTransport transport;
    CITP::Requests requests(transport);
    int got = 0;
    QByteArray picture;
    const double processor = processorTime();
    const double start = now();
    for (int number = 0; number < Pictures; ++number) {
        CITP::Reply* const reply = requests.picture(key, 1, libraryOf(number), numberOf(number));
        QObject::connect(reply, &CITP::Reply::finished, &transport, [&got, &picture, reply] {
            picture = reply->picture().data;
            got += reply->status() == CITP::Reply::Answered ? 1 : Pictures * 2;
        });
    }
    while (got < Pictures) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    const Cost cost{(now() - start) / Pictures, (processorTime() - processor) / Pictures, 0};
    if (got != Pictures) {
        throw std::runtime_error("a picture was not answered");
    }
    return cost;
}

// --- The first picture -----------------------------------------------------------------------------------------------

/// Seconds from a server's SInf to its first picture. The application asks for libraries, elements and that picture,
/// each when it has the former. @p follow begins with that and has to call its argument in the end.
Cost firstPicture(const std::function<void(const QString& key, const std::function<void()>& done)>& follow)
{
    std::vector<double> times;
    Client& client = Client::get(); // enables the stack, whichever contender is the first
    for (int count = 0; count < FirstPictures; ++count) {
        FakeServer server;
        bool isDone = false;
        follow(server.key(), [&isDone] { isDone = true; });
        server.announce();
        Connection connection = server.accept();
        for (int part = 0; part < 3; ++part) {
            connection.receive();
        }
        {
            const Media media({&connection}, {});
            const double start = now();
            connection.send(Messages::sinf());
            while (!isDone) {
                QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
            }
            times.push_back(now() - start);
            client.reset();
        }
    }
    std::sort(times.begin(), times.end());
    return {times[times.size() / 2], 0, 0};
}

Cost firstPictureByStack()
{
    citp_stack* const stack = Client::get().stack();
    QObject application;
    std::function<void()> finish;
    QObject::connect(stack, &citp_stack::serverUp, &application,
                     [&](const QString& key) { stack->sendMsg(key, CITP::Msg_MSEX_GELI(2, 1, "0,0,0,0", {})); });
    QObject::connect(stack, &citp_stack::libraryInfo, &application,
                     [&](const QString& key, const CITP::Msg_MSEX_ELIN& message) {
                         stack->sendMsg(key, CITP::Msg_MSEX_GEIN(2, 1, message.Libraries.front().LIBID, {}));
                     });
    QObject::connect(
        stack, &citp_stack::mediaInfo, &application, [&](const QString& key, const CITP::Msg_MSEX_MEIN& message) {
            stack->sendMsg(
                key, CITP::Msg_MSEX_GETH(2, 1, message.LibraryId, 240, 320, "JPEG", {message.Media.front().Number}));
        });
    QObject::connect(stack, &citp_stack::elementThumbnail, &application,
                     [&](const QString&, const CITP::Msg_MSEX_ETHN&) { finish(); });
    return firstPicture([&](const QString&, const std::function<void()>& done) { finish = done; });
}

Cost firstPictureByClient()
{
    CITP::StackTransport transport;
    CITP::Requests requests(transport);
    std::function<void()> finish;
    QObject::connect(&transport, &CITP::Transport::serverUp, &requests, [&](const QString& key) {
        CITP::Reply* const libraries = requests.libraries(key, 1);
        QObject::connect(libraries, &CITP::Reply::finished, &requests, [&requests, &finish, key, libraries] {
            const QString library = libraries->libraries().at(0).id;
            CITP::Reply* const elements = requests.elements(key, 1, library);
            QObject::connect(elements, &CITP::Reply::finished, &requests, [&requests, &finish, key, library, elements] {
                CITP::Reply* const picture = requests.picture(key, 1, library, elements->elements().at(0).number);
                QObject::connect(picture, &CITP::Reply::finished, &requests, [&finish] { finish(); });
            });
        });
    });
    return firstPicture([&](const QString&, const std::function<void()>& done) { finish = done; });
}

} // namespace

void registerPictures();

void registerPictures()
{
    registerContender("Pictures/4K/bare", [] { return fetchByBareClient(false); });
    registerContender("Pictures/4K/batched", [] { return fetchByBareClient(true); });
    registerContender("Pictures/4K/direct", [] { return fetchByStack(true); });
    registerContender("Pictures/4K/stack", [] { return fetchByStack(false); });
    registerContender("Pictures/4K/client", fetchByClient);
}

void registerFirstPicture();

void registerFirstPicture()
{
    registerContender("Pictures/first/stack", firstPictureByStack);
    registerContender("Pictures/first/client", firstPictureByClient);
}
