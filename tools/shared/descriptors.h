// File descriptors: their limit, and a warning when none is left.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

namespace Tools {
/// Raises the limit of open descriptors to the highest that the system allows, because each server needs one. Opens
/// /dev/null for standard descriptors that are closed, so that no connection gets their numbers. Call it before any
/// descriptor is opened.
void prepareDescriptors();

/// A text such as "too many servers for 1024 descriptors; ..." if no connection can be opened, otherwise empty.
QString descriptorProblem();
} // namespace Tools
