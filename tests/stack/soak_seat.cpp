// SoakSeat: runs the program and reads its report.
// SPDX-License-Identifier: Apache-2.0
#include "soak_seat.h"

namespace {
constexpr int FirstPort = 4811;
constexpr int RestartDelay = 500; // ms; a process that cannot start is not tried in a hurry

bool isRequest(const QByteArray& line)
{
    for (const char* const code : {" GELI: ", " GEIn: ", " GELT: ", " GETh: "}) {
        if (line.contains(code)) {
            return true;
        }
    }
    return false;
}

/// Whether the line tells of an answer that the console cannot be expected to take for one.
bool isStrike(const QByteArray& line)
{
    const int begin = static_cast<int>(line.indexOf("fault: "));
    if (begin < 0) {
        return false;
    }
    const QByteArray faults = line.mid(begin);
    for (const char* const fault : {"silence", "truncate", "version", "noise", "reset"}) {
        if (faults.contains(fault)) {
            return true;
        }
    }
    return false;
}
} // namespace

SoakSeat::SoakSeat(const SoakPlan& plan, int number, QString program, SoakLedger& ledger)
    : m_plan(plan),
      m_key(QStringLiteral("127.0.1.%1:%2").arg(number + 1).arg(FirstPort + number)),
      m_program(std::move(program)),
      m_arguments(QString::fromLatin1(plan.options).split(QLatin1Char(' '))),
      m_ledger(ledger)
{
    const QStringList place = m_key.split(QLatin1Char(':'));
    m_arguments << QStringLiteral("--adapter") << QStringLiteral("lo") << QStringLiteral("--address") << place.at(0)
                << QStringLiteral("--port") << place.at(1) << QStringLiteral("--name") << QString::fromLatin1(plan.name)
                << QStringLiteral("--msex") << QStringLiteral("1.%1").arg(plan.msexMinor) << QStringLiteral("--seed")
                << QString::number(number);
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_killer.setSingleShot(true);
    QObject::connect(&m_process, &QProcess::readyReadStandardOutput, &m_process, [this] { read(); });
    QObject::connect(&m_killer, &QTimer::timeout, &m_process, &QProcess::kill);
    QObject::connect(&m_process, &QProcess::stateChanged, &m_process, [this](QProcess::ProcessState state) {
        if (state == QProcess::NotRunning && !m_stopped) {
            QTimer::singleShot(RestartDelay, &m_process, [this] { start(); });
        }
    });
}

SoakSeat::~SoakSeat()
{
    stop();
}

void SoakSeat::start()
{
    if (m_stopped) {
        return;
    }
    m_process.start(m_program, m_arguments);
    if (m_plan.killAfterMs > 0) {
        m_killer.start(m_plan.killAfterMs);
    }
}

void SoakSeat::stop()
{
    m_stopped = true;
    m_killer.stop();
    m_process.terminate();
    m_process.waitForFinished(10000);
}

void SoakSeat::read()
{
    while (m_process.canReadLine()) {
        const QByteArray line = m_process.readLine();
        m_seen += isRequest(line) ? 1 : 0;
        if (isStrike(line)) {
            m_ledger.strike(m_key);
        }
    }
}
