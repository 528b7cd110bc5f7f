// The visibility attributes of the system library's symbols.
// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Exports a class or function from the shared library. A class is exported with its type information.
#define CITP_SYSTEM_EXPORT __attribute__((visibility("default")))

/// Hides a private member of an exported class: the library does not export its symbol.
#define CITP_SYSTEM_HIDDEN __attribute__((visibility("hidden")))
