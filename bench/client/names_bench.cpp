// The names of all elements of many servers: the time until they are known, and the memory that they take.
// SPDX-License-Identifier: Apache-2.0
#include "client.h"
#include "contender.h"
#include "media.h"
#include "process_figures.h"

#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_requests.h>
#include <citp_client/catalogue.h>

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QHash>

#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

using CITP::citp_stack;

namespace {
constexpr int Servers = 50;
constexpr int Libraries = 20;
constexpr int Elements = 100;

Media::Content content()
{
    return {Libraries, Elements, QByteArray()};
}

std::vector<std::unique_ptr<FakeServer>> makeServers()
{
    std::vector<std::unique_ptr<FakeServer>> servers;
    for (int index = 0; index < Servers; ++index) {
        servers.push_back(std::make_unique<FakeServer>("127.1.0." + std::to_string(index + 1)));
    }
    return servers;
}

std::vector<Connection*> pointersTo(std::vector<Connection>& connections)
{
    std::vector<Connection*> pointers;
    for (Connection& connection : connections) {
        pointers.push_back(&connection);
    }
    return pointers;
}

using Names = QHash<QString, QStringList>; ///< by library

template <typename Message>
void send(int descriptor, const Message& message)
{
    QByteArray bytes;
    bytes >> message;
    ::send(descriptor, bytes.constData(), static_cast<std::size_t>(bytes.size()), MSG_NOSIGNAL);
}

/// The next whole message. @p received holds what has come of those behind it.
QByteArray receive(int descriptor, QByteArray& received)
{
    for (;;) {
        const quint32 size = CITP::Msg_Header::messageSize(received);
        if (received.size() >= 20 && quint32(received.size()) >= size) {
            const QByteArray message = received.left(static_cast<int>(size));
            received.remove(0, static_cast<int>(size));
            return message;
        }
        char buffer[65536];
        const ssize_t bytes = ::recv(descriptor, buffer, sizeof buffer, 0);
        if (bytes <= 0) {
            throw std::runtime_error("the server has ended the connection");
        }
        received.append(buffer, static_cast<int>(bytes));
    }
}

/// Blocking sockets in one thread. To each server all requests for elements are sent at once, and to all servers before
/// the answers are read.
Cost listByBareClient()
{
    const std::vector<std::unique_ptr<FakeServer>> servers = makeServers();
    std::vector<Connection> connections;
    std::vector<int> descriptors;
    for (const auto& server : servers) {
        descriptors.push_back(connectTo(*server));
        connections.push_back(server->accept());
    }
    const Media media(pointersTo(connections), content());
    const ThreadClock clock = ThreadClock::ofCurrentThread();
    const double processor = clock.seconds();
    const double start = now();
    std::vector<QByteArray> received(Servers);
    std::vector<Names> names(Servers);
    for (const int descriptor : descriptors) {
        send(descriptor, CITP::Msg_MSEX_GELI(2, 1, "0,0,0,0", {}));
    }
    for (std::size_t index = 0; index < Servers; ++index) {
        const CITP::Msg_MSEX_ELIN list(receive(descriptors[index], received[index]));
        for (const auto& library : list.Libraries) {
            send(descriptors[index], CITP::Msg_MSEX_GEIN(2, 1, library.LIBID, {}));
        }
    }
    for (std::size_t index = 0; index < Servers; ++index) {
        for (int library = 0; library < Libraries; ++library) {
            const CITP::Msg_MSEX_MEIN list(receive(descriptors[index], received[index]));
            QStringList& known = names[index][list.LibraryId];
            for (const auto& element : list.Media) {
                known << element.Name;
            }
        }
    }
    const Cost cost{now() - start, clock.seconds() - processor, 0};
    for (const int descriptor : descriptors) {
        ::close(descriptor);
    }
    return cost;
}

/// With all servers up, the time until @p isDone, which is asked between the events, and the memory taken.
/// @param begin is called first
Cost measure(const std::function<void(const QStringList& keys)>& begin, const std::function<bool()>& isDone)
{
    const std::vector<std::unique_ptr<FakeServer>> servers = makeServers();
    std::vector<Connection> connections;
    QStringList keys;
    for (const auto& server : servers) {
        connections.push_back(Client::get().addServer(*server, "Product"));
        keys << server->key();
    }
    Cost cost;
    {
        const Media media(pointersTo(connections), content());
        QCoreApplication::processEvents();
        const long heap = ProcessFigures::now().heapKiB;
        const double processor = processorTime();
        const double start = now();
        begin(keys);
        while (!isDone()) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        cost.wall = now() - start;
        cost.processor = processorTime() - processor;
        // What has been answered is deleted by then.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        cost.heap = double(ProcessFigures::now().heapKiB - heap) * 1024 / (Servers * Libraries * Elements);
        Client::get().reset();
    }
    return cost;
}

Cost listByStack()
{
    citp_stack* const stack = Client::get().stack();
    QObject application;
    QHash<QString, Names> names;
    int lists = 0;
    QObject::connect(stack, &citp_stack::libraryInfo, &application,
                     [&](const QString& key, const CITP::Msg_MSEX_ELIN& message) {
                         for (const auto& library : message.Libraries) {
                             stack->sendMsg(key, CITP::Msg_MSEX_GEIN(2, 1, library.LIBID, {}));
                         }
                     });
    QObject::connect(stack, &citp_stack::mediaInfo, &application,
                     [&](const QString& key, const CITP::Msg_MSEX_MEIN& message) {
                         QStringList& known = names[key][message.LibraryId];
                         for (const auto& element : message.Media) {
                             known << element.Name;
                         }
                         ++lists;
                     });
    return measure(
        [&](const QStringList& keys) {
            for (const QString& key : keys) {
                stack->sendMsg(key, CITP::Msg_MSEX_GELI(2, 1, "0,0,0,0", {}));
            }
        },
        [&lists] { return lists == Servers * Libraries; });
}

Cost listByClient()
{
    CITP::StackTransport transport;
    CITP::Requests requests(transport);
    std::vector<std::unique_ptr<CITP::Catalogue>> catalogues;
    int idle = 0;
    const Cost cost = measure(
        [&](const QStringList& keys) {
            for (const QString& key : keys) {
                catalogues.push_back(std::make_unique<CITP::Catalogue>(requests, key));
                QObject::connect(catalogues.back().get(), &CITP::Catalogue::idle, &requests, [&idle] { ++idle; });
                catalogues.back()->loadAll(1);
            }
        },
        [&idle] { return idle == Servers; });
    std::size_t elements = 0;
    for (const auto& catalogue : catalogues) {
        for (const CITP::Library& library : catalogue->allLibraries(1)) {
            elements += catalogue->elements(1, library.id).size();
        }
    }
    if (elements != Servers * Libraries * Elements) {
        throw std::runtime_error("not all names are known");
    }
    return cost;
}

} // namespace

void registerNames();

void registerNames()
{
    registerContender("Names/50x20x100/bare", listByBareClient);
    registerContender("Names/50x20x100/stack", listByStack);
    registerContender("Names/50x20x100/client", listByClient);
}
