// The built-in libraries of a simulated server, which need no files.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library.h"

namespace MediaServer {
/// Gradients, test cards and numbered frames; the frames have sub-libraries down to the third level.
Libraries drawnMedia();
/// Creates @p count effect libraries. Each effect has parameter names.
Libraries effectLibraries(int count);
/// Creates @p count libraries of a type other than media and effects.
Libraries genericLibraries(int count);
} // namespace MediaServer
