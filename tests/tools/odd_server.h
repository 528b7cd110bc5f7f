// OddServer: a media server that answers as a test says, for what the simulated one does not do.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

class FakeServer;

/// Announces itself on the loopback and speaks MSEX 1.2 to one console at a time, on a thread of its own.
class OddServer
{
public:
    /// What it sends for @p message, one of the console's: one message, several, or nothing. Called on its thread.
    using Answer = std::function<QByteArray(const QByteArray& message)>;

    /// @param unasked what it sends ten times a second besides, without having been asked
    /// @param greeting what it sends first on each connection; null for an SInf
    explicit OddServer(Answer answer, const QByteArray& unasked = {},
                       std::optional<QByteArray> greeting = std::nullopt);
    ~OddServer();

    QString key() const;

private:
    void serve();

    const Answer m_answer;
    const QByteArray m_unasked;
    const QByteArray m_greeting;
    const std::unique_ptr<FakeServer> m_server;
    std::atomic<bool> m_isEnding{false};
    std::thread m_thread; ///< last, so that it finds the others
};
