// Preferences: how the browser asks, as the user has set it. They are kept between runs.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_options.h>

namespace Browser {
struct Preferences
{
    int timeout = 5000;         ///< ms, see CITP::Requests::setTimeout()
    int requestsPerSecond = 0;  ///< to all servers together; 0 for no limit
    int kilobytesPerSecond = 0; ///< of answers; 0 for no limit
    bool isQuiet = false;       ///< see CITP::Requests::setQuiet()
    CITP::citp_options::DiscoveryGroups groups = CITP::citp_options::BothGroups;

    /// The saved ones. A saved value that is out of range counts as the nearest that is not.
    static Preferences load();
    /// Saves what differs from @p before: what the command line has set for one run is not saved with the rest.
    void save(const Preferences& before) const;

    static constexpr int MinTimeout = 500;
    static constexpr int MaxTimeout = 60000;
    static constexpr int MaxRequests = 1000;
    static constexpr int MaxKilobytes = 100000;
};
} // namespace Browser
