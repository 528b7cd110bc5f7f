// _FatalError: the end of the process when a thing that cannot fail has failed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/system_export.h>

/// Writes @p text, @p line and @p file to stderr and to the log, then aborts the process. For set-up steps whose
/// failure leaves nothing to go on with. May be called from any thread.
///
/// @param text what failed, e.g. "Verify: 'connect(...)' is FALSE"
/// @param line the source line that found it
/// @param file the source file's label
[[noreturn]] CITP_SYSTEM_EXPORT void _FatalError(const char* text, int line, const char* file);
