// Scans and watches the folder.
// SPDX-License-Identifier: Apache-2.0
#include "catalogue.h"

#include <QSet>

#include "builtin.h"

namespace MediaServer {
namespace {
void append(Libraries& libraries, const Libraries& more)
{
    libraries.insert(libraries.end(), more.begin(), more.end());
}
} // namespace

Catalogue::Catalogue(const QString& folder, int effects, int generic, const EventLog& log) : m_log(log)
{
    append(m_fixed, effectLibraries(effects));
    append(m_fixed, genericLibraries(generic));
    if (effects > 0)
        m_types |= 1 << LibraryType::Effects;
    if (generic > 0)
        m_types |= 1 << LibraryType::Generic;
    if (folder.isEmpty()) {
        m_libraries = drawnMedia();
        append(m_libraries, m_fixed);
        return;
    }
    m_scan = std::make_unique<FolderScan>(folder);
    m_rescanTimer.setSingleShot(true);
    m_rescanTimer.setInterval(200);
    connect(&m_rescanTimer, &QTimer::timeout, this, &Catalogue::rescan);
    const auto scheduleRescan = [this] {
        if (!m_rescanTimer.isActive())
            m_rescanTimer.start();
    };
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, scheduleRescan);
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, this, scheduleRescan);
    scan();
}

void Catalogue::scan()
{
    const FolderScan::Result result = m_scan->scan();
    m_libraries = result.libraries;
    append(m_libraries, m_fixed);
    // The watcher drops files that are replaced, so all missing paths are added after every scan.
    const QStringList all = m_watcher.files() + m_watcher.directories();
    const QSet<QString> watched(all.begin(), all.end());
    QStringList missing;
    for (const QString& path : result.paths) {
        if (!watched.contains(path))
            missing << path;
    }
    if (!missing.isEmpty()) {
        m_watcher.addPaths(missing);
        // Another scan detects changes made before the paths were watched.
        m_rescanTimer.start();
    }
    for (const QString& notice : result.notices) {
        if (!m_notices.contains(notice))
            m_log.line({}, notice);
    }
    m_notices = result.notices;
}

void Catalogue::rescan()
{
    const Libraries before = m_libraries;
    scan();
    const std::vector<LibraryUpdate> updates = differences(before, m_libraries);
    if (!updates.empty())
        Q_EMIT changed(updates);
}
} // namespace MediaServer
