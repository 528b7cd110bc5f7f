// The stack on the loopback interface, clocks, and messages.
// SPDX-License-Identifier: Apache-2.0
#include "client.h"

#include "wire.h"

#include <citp_system/artnet_adapter.h>
#include <citp_system/os_log.h>

#include <QCoreApplication>
#include <QObject>

#include <arpa/inet.h>
#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <thread>

ThreadClock ThreadClock::ofCurrentThread()
{
    ThreadClock clock;
    pthread_getcpuclockid(pthread_self(), &clock.m_clock);
    return clock;
}

double ThreadClock::seconds() const
{
    timespec time = {};
    clock_gettime(m_clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void runInThreadOf(QObject* object, const std::function<void()>& work)
{
    QMetaObject::invokeMethod(
        object, [&work] { work(); }, Qt::BlockingQueuedConnection);
}

int connectTo(const FakeServer& server)
{
    const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(server.port());
    inet_pton(AF_INET, server.host().toLatin1().constData(), &address.sin_addr);
    if (::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("cannot connect to the server");
    }
    return descriptor;
}

LoopThread::LoopThread() : m_context(new QObject)
{
    m_context->moveToThread(&m_thread);
    m_thread.start();
    runInThreadOf(m_context, [this] { m_clock = ThreadClock::ofCurrentThread(); });
}

LoopThread::~LoopThread()
{
    m_context->deleteLater();
    m_thread.quit();
    m_thread.wait();
}

Client& Client::get()
{
    static Client client;
    return client;
}

Client::Client()
{
    ArtNet::Adapter::Choose("lo");
    Os::Log::SetMask("CITP.*", Os::Log::Failure | Os::Log::Critical);
    m_stack = CITP::citp_stack::Get();
    runInThreadOf(m_stack, [this] { m_workerClock = ThreadClock::ofCurrentThread(); });
    reset();
}

void Client::reset()
{
    m_stack->setEnabled(false);
    m_stack->setEnabled(true);
    QMetaObject::invokeMethod(m_stack, "timepop", Qt::BlockingQueuedConnection);
    closeLeftovers();
}

Connection Client::addServer(FakeServer& server, const char* product)
{
    server.announce();
    Connection connection = server.accept();
    for (int part = 0; part < 3; ++part) {
        connection.receive();
    }
    connection.send(Wire::sinf(product));
    for (int waitedMs = 0; !m_stack->getServerInfo(server.key(), nullptr, nullptr); ++waitedMs) {
        if (waitedMs == TestTimeout) {
            throw std::runtime_error("timeout: the stack does not report the server");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return connection;
}

Responder::Responder(Connection& connection)
    : m_connection(connection), m_thread([this] {
          const QByteArray answer = Messages::elin();
          for (char request[4096]; ::recv(m_connection.descriptor(), request, sizeof request, 0) > 0;) {
              m_connection.trySend(answer);
          }
      })
{
}

Responder::~Responder()
{
    ::shutdown(m_connection.descriptor(), SHUT_RDWR);
    m_thread.join();
    m_connection.close();
}

EndOfFlood::EndOfFlood(QObject* receiver)
    : m_connection(QObject::connect(Client::get().stack(), &CITP::citp_stack::libraryUpdated, receiver,
                                    [this] { m_seen.release(); }))
{
}

EndOfFlood::~EndOfFlood()
{
    QObject::disconnect(m_connection);
}

namespace Messages {
QByteArray lsta()
{
    QByteArray layers;
    for (unsigned layer = 0; layer < 7; ++layer) {
        layers += Wire::u8(layer) + Wire::u8(0) + Wire::u8(1) + Wire::u32(layer) + Wire::u8(9) +
                  Wire::ucs2("Moving clouds over sea") + Wire::u32(1234) + Wire::u32(5678) + Wire::u8(25) +
                  Wire::u32(1);
    }
    return Wire::msex(2, "LSta", Wire::u8(7) + layers);
}

QByteArray ethn()
{
    constexpr unsigned size = 30 * 1024;
    return Wire::msex(0, "EThn",
                      Wire::u8(1) + Wire::u8(2) + Wire::u8(6) + QByteArray("JPEG") + Wire::u16(320) + Wire::u16(240) +
                          Wire::u16(size) + QByteArray(static_cast<int>(size), 'p'));
}

QByteArray pnam()
{
    return Wire::pinf("PNam", QByteArray(lsta().size() - 24, 'n'));
}

QByteArray elin()
{
    return Wire::elin(1);
}

QByteArray sinf()
{
    return Wire::sinf("Product");
}

QByteArray end()
{
    return Wire::elup(1);
}
} // namespace Messages
