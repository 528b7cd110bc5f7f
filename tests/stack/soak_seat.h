// SoakSeat: one simulated media server of the soak, started anew whenever it ends, and what its report says.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "soak_ledger.h"

#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTimer>

/// What is to become of the requests to a server.
enum class Fate {
    Answered, ///< it never goes down, and answers each
    Struck,   ///< it never goes down; what it does not answer, it withheld or spoilt, and said so
    Stuck,    ///< the same, and what comes after the first missing answer waits for it in the stack
    Mortal    ///< it goes down and comes back all the time; a life takes at most the open requests with it
};

struct SoakPlan
{
    const char* name;
    Fate fate;
    unsigned char msexMinor;
    const char* options; ///< of the program, with blanks between
    int killAfterMs;     ///< 0: only ends by itself
};

class SoakSeat
{
public:
    SoakSeat(const SoakPlan& plan, int number, QString program, SoakLedger& ledger);
    SoakSeat(const SoakSeat&) = delete;
    SoakSeat& operator=(const SoakSeat&) = delete;
    ~SoakSeat();

    void start();
    /// Ends it for good.
    void stop();

    const SoakPlan& plan() const { return m_plan; }
    const QString& key() const { return m_key; }
    /// Requests that the server reported.
    long seen() const { return m_seen; }

private:
    void read();

    const SoakPlan m_plan;
    const QString m_key;
    const QString m_program;
    QStringList m_arguments;
    SoakLedger& m_ledger;
    QProcess m_process;
    QTimer m_killer;
    bool m_stopped = false;
    long m_seen = 0;
};
