// The modes of the child process of the tests; each is described in its source file.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// Each takes the second argument of the program, empty if there is none, and returns the exit status.
int logChild(const std::string& how);
int monitorChild(const std::string& how);
int exitChild(const std::string& how);
int endlessChild(const std::string& how);

/// Keeps the address sanitizer from searching this process for leaks when it ends.
void skipLeakSearch();
