// Scans and watches the folder.
// SPDX-License-Identifier: Apache-2.0
#include "catalogue.h"

#include <QSet>
#include <utility>

#include "builtin.h"

namespace MediaServer {
namespace {
constexpr int PathsAtOnce = 256;

void append(Libraries& libraries, const Libraries& more)
{
    libraries.insert(libraries.end(), more.begin(), more.end());
}
} // namespace

Catalogue::Catalogue(const QString& folder, int effects, int generic, const EventLog& log,
                     std::function<bool()> isStopped)
    : m_log(log), m_isStopped(std::move(isStopped))
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
    m_scan = std::make_unique<FolderScan>(folder, m_isStopped);
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
    if (m_isStopped())
        return;
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
        // In parts: the watcher compares each path with all before.
        for (int i = 0; i < missing.size() && !m_isStopped(); i += PathsAtOnce)
            m_watcher.addPaths(missing.mid(i, PathsAtOnce));
        // Another scan detects changes made before the paths were watched.
        m_rescanTimer.start();
    }
    const QSet<QString> known(m_notices.begin(), m_notices.end());
    for (const QString& notice : result.notices) {
        if (!known.contains(notice))
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
