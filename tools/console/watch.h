// The command "watch": a line for each server that comes up or goes down.
#pragma once

#include "options.h"

namespace Console {
/// Runs the event loop until it is told to end. @return the exit status
int watch(const Options& options);
} // namespace Console
