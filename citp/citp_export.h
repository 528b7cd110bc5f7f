// The visibility attributes of the library's symbols.
// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Exports a class or function from the shared library. A class is exported with its type information, so that
/// `dynamic_cast` and exceptions work across the library boundary.
#define CITP_EXPORT __attribute__((visibility("default")))

/// Hides a private member of an exported class: the library does not export its symbol.
#define CITP_HIDDEN __attribute__((visibility("hidden")))
