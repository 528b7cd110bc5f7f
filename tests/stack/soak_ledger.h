// The soak's books: what was asked of each server, what came back, and what went down with a server.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

#include <map>
#include <mutex>

/// Thread-safe. A life is the time from a server's serverUp() to its serverDown().
class SoakLedger
{
public:
    /// Requests that may be unanswered at a time, beside those whose answers the server said it withheld.
    static constexpr long Window = 64;

    struct Account
    {
        bool up = false;
        long ups = 0;
        long downs = 0;
        long sent = 0;      ///< in all lives; only requests that the stack took
        long answered = 0;  ///< in all lives
        long lost = 0;      ///< unanswered when their server went down
        long worstLoss = 0; ///< the most that one life took with it
        long late = 0;      ///< answers in a life that nothing was asked in, or that were not asked for
        long struck = 0;    ///< answers that the server said it withheld or spoilt
        long lifeSent = 0;
        long lifeAnswered = 0;
    };

    void up(const QString& key);
    void down(const QString& key);
    void answer(const QString& key);
    void strike(const QString& key);

    /// Books a request before it is sent. @return the life that it is booked in; 0 if none is to be sent
    long book(const QString& key);
    /// Takes a booking back: the stack refused the request.
    void takeBack(const QString& key, long life);

    Account account(const QString& key) const;
    /// Notifications that came out of turn: a second serverUp(), a serverDown() or an answer without a serverUp().
    long outOfTurn() const;
    long answersInAll() const;

private:
    mutable std::mutex m_mutex; // guards what follows
    std::map<QString, Account> m_accounts;
    long m_outOfTurn = 0;
    long m_answers = 0;
};
