// The libraries of all simulated servers of the process, updated when the watched folder changes.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QFileSystemWatcher>
#include <QObject>
#include <QTimer>
#include <functional>
#include <memory>

#include "event_log.h"
#include "folder_scan.h"
#include "library.h"

namespace MediaServer {
class Catalogue : public QObject
{
    Q_OBJECT

public:
    /// @param folder pictures to serve; if empty, drawn pictures are served
    /// @param effects, generic number of libraries of these types
    /// @param log must outlive this object
    /// @param isStopped whether the program is to end; a scan, also a later one, ends early then
    Catalogue(const QString& folder, int effects, int generic, const EventLog& log, std::function<bool()> isStopped);

    const Libraries& libraries() const { return m_libraries; }
    /// Bit n is set if libraries of type n exist or can be added.
    quint16 types() const { return m_types; }

Q_SIGNALS:
    /// The folder and libraries() have changed.
    void changed(const std::vector<MediaServer::LibraryUpdate>& updates);

private:
    void scan();
    void rescan();

    const EventLog& m_log;
    const std::function<bool()> m_isStopped;
    std::unique_ptr<FolderScan> m_scan;
    QFileSystemWatcher m_watcher;
    QTimer m_rescanTimer; ///< delays the scan, because a file changes many times while it is written
    QStringList m_notices;
    Libraries m_fixed;
    Libraries m_libraries;
    quint16 m_types = 1 << LibraryType::Media;
};
} // namespace MediaServer
