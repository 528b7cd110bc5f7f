// Announcements: receives the media servers' PLoc announcements, to report servers that are not up yet.
//
// The library reports a server only once it is connected and has sent its SInf. Runs in the inbox's thread.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QTimer>
#include <QUdpSocket>

#include <memory>

#include "stack_options.h"
#include "values.h"

namespace Browser {
class Announcements : public QObject
{
    Q_OBJECT

public:
    explicit Announcements(QObject* parent = nullptr);

    /// Starts to listen on the adapter that the library uses, and follows the library to another adapter. Servers named
    /// by hand are reported as if they announced themselves.
    void start(const Tools::StackOptions& options);

Q_SIGNALS:
    /// The server @p key has announced itself as @p name. Emitted at most twice a second for each server.
    void announced(const QString& key, const QString& name);
    /// The adapter in use, or the reason for its selection, has changed.
    void adapterChanged(const Browser::AdapterState& adapter);

private:
    void checkAdapter();
    void reportNamedServers();
    void open(const AdapterState& adapter);
    void read();
    bool passesRateLimit(const QString& key);

    Tools::StackOptions m_options;
    QTimer m_pollTimer;
    std::unique_ptr<QUdpSocket> m_socket;
    AdapterState m_adapter;
    bool m_isStarted = false;
    QHash<QString, qint64> m_lastReported; ///< time of the last announced() for each server, in ms of #m_clock
    qint64 m_lastPurge = 0;                ///< time of the last purge of #m_lastReported, in ms of #m_clock
    QElapsedTimer m_clock;
};
} // namespace Browser
