// The wait of all tests: a deadline that only a failing test reaches.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

/// The time in ms after which an event that has not happened counts as missing. Long, so that no result depends on how
/// fast or how busy the machine is.
constexpr int TestTimeout = 60000;

/// Waits until @p condition holds and processes the events of the calling thread meanwhile, if there is an application
/// object. @return false if the condition does not hold within @p milliseconds
bool waitFor(const std::function<bool()>& condition, int milliseconds = TestTimeout);
