// Announcements: hears the media servers' own announcements, to tell of those that are there but not up yet.
//
// The library reports a server only once it is connected and has introduced itself. Runs in the inbox's thread.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QTimer>
#include <QUdpSocket>

#include <memory>

#include "values.h"

namespace Browser {
class Announcements : public QObject
{
    Q_OBJECT

public:
    explicit Announcements(QObject* parent = nullptr);

    /// Listens, on the adapter that the library uses, and keeps to that when it changes.
    void start();

Q_SIGNALS:
    /// The server @p key has announced itself as @p name; at most twice a second for each.
    void announced(const QString& key, const QString& name);
    /// The adapter in use is another, or the same one for another reason.
    void adapterChanged(const Browser::AdapterState& adapter);

private:
    void checkAdapter();
    void open(const AdapterState& adapter);
    void read();
    bool passesRateLimit(const QString& key);

    QTimer m_pollTimer;
    std::unique_ptr<QUdpSocket> m_socket;
    AdapterState m_adapter;
    bool m_isStarted = false;
    QHash<QString, qint64> m_lastReported; ///< when each server was told last, in milliseconds of #m_clock
    qint64 m_lastPurge = 0;                ///< of #m_lastTold, likewise
    QElapsedTimer m_clock;
};
} // namespace Browser
