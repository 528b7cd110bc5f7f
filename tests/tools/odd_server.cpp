// OddServer: the bare sockets of the stack's tests, kept going by a thread.
// SPDX-License-Identifier: Apache-2.0
#include "odd_server.h"

#include <chrono>
#include <exception>
#include <optional>
#include <utility>

#include "fake_server.h"
#include "wire.h"

OddServer::OddServer(Answer answer, const QByteArray& unasked, std::optional<QByteArray> greeting)
    : m_answer(std::move(answer)),
      m_unasked(unasked),
      m_greeting(greeting.value_or(Wire::sinf("Odd"))),
      m_server(std::make_unique<FakeServer>()),
      m_thread([this] { serve(); })
{
}

OddServer::~OddServer()
{
    m_isEnding = true;
    m_thread.join();
    closeLeftovers();
}

QString OddServer::key() const
{
    return m_server->key();
}

void OddServer::serve()
{
    constexpr auto Interval = std::chrono::milliseconds(100);
    std::optional<Connection> console;
    auto due = std::chrono::steady_clock::now();
    while (!m_isEnding) {
        try {
            if (std::chrono::steady_clock::now() >= due) {
                m_server->announce();
                if (console)
                    console->send(m_unasked);
                due = std::chrono::steady_clock::now() + Interval;
            }
            if (std::optional<Connection> next = m_server->tryAccept(console ? 0 : 20)) {
                console = std::move(next);
                console->send(m_greeting);
            }
            const std::optional<QByteArray> message = console ? console->tryReceive(20) : std::nullopt;
            if (message)
                console->send(m_answer(*message));
        } catch (const std::exception&) {
            console.reset(); // the console has gone; the test sees how it ended
        }
    }
}
