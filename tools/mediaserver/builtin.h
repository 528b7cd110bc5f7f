// The libraries that a simulated server has without any files.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library.h"

namespace MediaServer {
/// Gradients, test cards and numbered frames; the frames have sub-libraries down to the third level.
Libraries drawnMedia();
/// @param count libraries of effects, each effect with its parameters' names
Libraries effectLibraries(int count);
/// @param count libraries of a type that is neither media nor effects
Libraries genericLibraries(int count);
} // namespace MediaServer
