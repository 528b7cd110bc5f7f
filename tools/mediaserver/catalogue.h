// The libraries that all simulated servers of the process show, kept in step with a watched folder.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QFileSystemWatcher>
#include <QObject>
#include <QTimer>
#include <memory>

#include "event_log.h"
#include "folder_scan.h"
#include "library.h"

namespace MediaServer {
class Catalogue : public QObject
{
    Q_OBJECT

public:
    /// @param folder pictures to serve; empty for drawn ones
    /// @param effects, generic numbers of libraries of these types
    /// @param log outlives this object
    Catalogue(const QString& folder, int effects, int generic, const EventLog& log);

    const Libraries& libraries() const { return m_libraries; }
    /// Bit n set: libraries of type n are there or can come.
    quint16 types() const { return m_types; }

Q_SIGNALS:
    /// The folder has changed and libraries() with it.
    void changed(const std::vector<MediaServer::LibraryUpdate>& updates);

private:
    void scan();
    void rescan();

    const EventLog& m_log;
    std::unique_ptr<FolderScan> m_scan;
    QFileSystemWatcher m_watcher;
    QTimer m_settle; ///< a file that is being written changes many times; the scan waits for a pause
    QStringList m_notices;
    Libraries m_fixed;
    Libraries m_libraries;
    quint16 m_types = 1 << LibraryType::Media;
};
} // namespace MediaServer
