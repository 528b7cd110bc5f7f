// The names under which the preferences are saved.
// SPDX-License-Identifier: Apache-2.0
#include "preferences.h"

#include <QSettings>

namespace Browser {
namespace {
const QString TimeoutName = QStringLiteral("timeout");
const QString RequestsName = QStringLiteral("requestsPerSecond");
const QString KilobytesName = QStringLiteral("kilobytesPerSecond");
const QString QuietName = QStringLiteral("quiet");
const QString GroupsName = QStringLiteral("groups");
} // namespace

Preferences Preferences::load()
{
    const QSettings settings;
    Preferences saved;
    const auto number = [&settings](const QString& name, int least, int preset, int most) {
        return qBound(least, settings.value(name, preset).toInt(), most);
    };
    saved.timeout = number(TimeoutName, MinTimeout, saved.timeout, MaxTimeout);
    saved.requestsPerSecond = number(RequestsName, 0, 0, MaxRequests);
    saved.kilobytesPerSecond = number(KilobytesName, 0, 0, MaxKilobytes);
    saved.isQuiet = settings.value(QuietName, false).toBool();
    saved.groups = static_cast<CITP::citp_options::DiscoveryGroups>(
        number(GroupsName, CITP::citp_options::OldGroup, saved.groups, CITP::citp_options::BothGroups));
    return saved;
}

void Preferences::save(const Preferences& before) const
{
    QSettings settings;
    if (timeout != before.timeout)
        settings.setValue(TimeoutName, timeout);
    if (requestsPerSecond != before.requestsPerSecond)
        settings.setValue(RequestsName, requestsPerSecond);
    if (kilobytesPerSecond != before.kilobytesPerSecond)
        settings.setValue(KilobytesName, kilobytesPerSecond);
    if (isQuiet != before.isQuiet)
        settings.setValue(QuietName, isQuiet);
    if (groups != before.groups)
        settings.setValue(GroupsName, static_cast<int>(groups));
}
} // namespace Browser
