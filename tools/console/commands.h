// The commands, one function and one source file each. Each returns the exit status; those that wait for a server throw
// Failure or Interrupted (see session.h) instead of failing quietly.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "options.h"

namespace Console {
int listAdapters(const Options& options);    ///< "adapters"
int watch(const Options& options);           ///< "watch"; runs the event loop until it is told to end
int listLibraries(const Options& options);   ///< "libraries"
int listElements(const Options& options);    ///< "elements"
int showLayers(const Options& options);      ///< "layers"
int listPatch(const Options& options);       ///< "patch"
int diagnose(const Options& options);        ///< "doctor"
int showStatistics(const Options& options);  ///< "stats"
int fetchThumbnails(const Options& options); ///< "thumbnails"; needs a QGuiApplication, for the fonts
int decode(const Options& options);          ///< "decode"
int capture(const Options& options);         ///< "capture"; runs the event loop until it is told to end
} // namespace Console
