// GuardEvents: passes the guards that acted from the stack's thread to the main thread.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_options.h>

#include <QStringList>

#include <memory>

namespace Console {
class GuardEvents
{
public:
    GuardEvents();

    /// Collects events, up to a limit. May be called on any thread, also after this object was destroyed.
    CITP::citp_options::Observer observer() const;

    /// The last log line of each guard that concerns the server @p key: about it, its address or all servers.
    QStringList linesAbout(const QString& key) const;

private:
    struct Collected;

    const std::shared_ptr<Collected> m_collected;
};
} // namespace Console
