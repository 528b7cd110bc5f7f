// _FatalError: reports a fatal error and aborts the process.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/system_export.h>

/// Writes @p text, @p line and @p file to stderr and to the log, then aborts the process. For set-up steps without
/// which the process cannot continue. Thread-safe.
///
/// @param text what failed, e.g. "Verify: 'connect(...)' is FALSE"
/// @param line the source line that detected the failure
/// @param file the name of its source file
[[noreturn]] CITP_SYSTEM_EXPORT void _FatalError(const char* text, int line, const char* file);
