// Walk: asks a server for everything that a console can ask for, while its traffic is recorded.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

#include "options.h"

namespace Console {
/// What a walk calls.
struct WalkCalls
{
    std::function<void(const QString& key)> found; ///< the server was found
    std::function<void(const QString& line)> say;  ///< prints what was found there
    std::function<bool()> isOver;                  ///< whether to stop, because nothing is recorded any more
};

/// Finds the server Options::filteredServer and asks it for its libraries and elements of all types and, unless
/// Options::noPictures is set, for its pictures in the format and the size of the options, one after the other. Then
/// waits for layer status. The patch is sent to every console. Prints on standard error what is missing.
/// @throws Failure if the server is not found or goes down or the recording is over, Interrupted, OutputFailure
void walk(const Options& options, const WalkCalls& calls);
} // namespace Console
