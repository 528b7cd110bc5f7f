// The network namespace of a test and the ip command.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// Whether the test runs in a network namespace of its own (see tests/in-namespace) and may change adapters.
bool hasNamespace();

/// Runs `ip` with @p arguments in the namespace of the calling thread; an error fails the test.
void ip(const std::string& arguments);
