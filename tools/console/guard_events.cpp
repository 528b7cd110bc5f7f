// The collected events and their lock.
// SPDX-License-Identifier: Apache-2.0
#include "guard_events.h"

#include <QMap>

#include <mutex>
#include <vector>

namespace Console {
namespace {
using CITP::citp_options;

// The library limits the rate of events, not their number.
constexpr std::size_t MaxEvents = 1000;
} // namespace

struct GuardEvents::Collected
{
    std::mutex mutex;
    std::vector<citp_options::Event> events;
};

GuardEvents::GuardEvents() : m_collected(std::make_shared<Collected>()) {}

citp_options::Observer GuardEvents::observer() const
{
    return [collected = m_collected](const citp_options::Event& event) {
        const std::lock_guard<std::mutex> lock(collected->mutex);
        if (collected->events.size() < MaxEvents)
            collected->events.push_back(event);
    };
}

QStringList GuardEvents::linesAbout(const QString& key) const
{
    const std::lock_guard<std::mutex> lock(m_collected->mutex);
    QMap<citp_options::Guard, QString> lines;
    for (const citp_options::Event& event : m_collected->events) {
        const bool isAboutAll = event.guard == citp_options::TooManyServers;
        const bool isAboutAddress =
            event.guard == citp_options::TooManyPerAddress && key.startsWith(event.server + QLatin1Char(':'));
        if (event.server == key || isAboutAddress || isAboutAll)
            lines.insert(event.guard, event.text);
    }
    return lines.values();
}
} // namespace Console
