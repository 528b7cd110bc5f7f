// The commands, with one function and one source file each. A command returns the exit status, or throws Failure or
// Interrupted (see shutdown.h) or OutputFailure (see printing.h).
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "options.h"

namespace Console {
constexpr int ExitFailure = 1;
constexpr int ExitUsageError = 2;

int listAdapters(const Options& options);    ///< "adapters"
int watch(const Options& options);           ///< "watch"
int listServers(const Options& options);     ///< "servers"
int listLibraries(const Options& options);   ///< "libraries"
int listElements(const Options& options);    ///< "elements"
int showLayers(const Options& options);      ///< "layers"
int listPatch(const Options& options);       ///< "patch"
int diagnose(const Options& options);        ///< "doctor"
int showStatistics(const Options& options);  ///< "stats"
int fetchThumbnails(const Options& options); ///< "thumbnails"; requires a QGuiApplication to draw text
int decode(const Options& options);          ///< "decode"
int capture(const Options& options);         ///< "capture"
/// "test"; in "server_tests". Exit status 3 if the tests could not be carried out.
int testServer(const Options& options);
} // namespace Console
