// The visibility mark of the library's exported names.
// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Marks a class or function as part of the shared library's interface, its type information included, so that
/// `dynamic_cast` and exceptions work across the library's boundary.
#define CITP_EXPORT __attribute__((visibility("default")))
