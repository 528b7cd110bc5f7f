// The visibility mark of the system library's exported names.
// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Marks a class or function as part of the shared library's interface, its type information included.
#define CITP_SYSTEM_EXPORT __attribute__((visibility("default")))
