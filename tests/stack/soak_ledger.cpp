// SoakLedger: one account a server.
// SPDX-License-Identifier: Apache-2.0
#include "soak_ledger.h"

#include <algorithm>

void SoakLedger::up(const QString& key)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    Account& account = m_accounts[key];
    m_outOfTurn += account.up ? 1 : 0;
    account.up = true;
    ++account.ups;
    account.lifeSent = 0;
    account.lifeAnswered = 0;
}

void SoakLedger::down(const QString& key)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    Account& account = m_accounts[key];
    m_outOfTurn += account.up ? 0 : 1;
    account.up = false;
    ++account.downs;
    const long loss = account.lifeSent - account.lifeAnswered;
    account.lost += loss;
    account.worstLoss = std::max(account.worstLoss, loss);
}

void SoakLedger::answer(const QString& key)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    Account& account = m_accounts[key];
    m_outOfTurn += account.up ? 0 : 1;
    ++account.answered;
    ++account.lifeAnswered;
    account.late += account.lifeAnswered > account.lifeSent ? 1 : 0;
    ++m_answers;
}

void SoakLedger::strike(const QString& key)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_accounts[key].struck;
}

long SoakLedger::book(const QString& key)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    Account& account = m_accounts[key];
    if (!account.up || account.lifeSent - account.lifeAnswered >= Window + account.struck) {
        return 0;
    }
    ++account.lifeSent;
    ++account.sent;
    return account.ups;
}

void SoakLedger::takeBack(const QString& key, long life)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    Account& account = m_accounts[key];
    --account.sent;
    if (account.up && account.ups == life) {
        --account.lifeSent;
    } else {
        --account.lost;
    }
}

SoakLedger::Account SoakLedger::account(const QString& key) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_accounts.find(key);
    return found == m_accounts.end() ? Account() : found->second;
}

long SoakLedger::outOfTurn() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_outOfTurn;
}

long SoakLedger::answersInAll() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_answers;
}
