// runOnThreadOf(): work for the thread of another object, in a way that the thread sanitizer understands.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>

#include <functional>

/// Runs @p work on the thread that @p object lives in, from its event loop, and waits for it. What one thread did
/// before, the other sees after. For one caller at a time; not for that thread itself.
void runOnThreadOf(QObject* object, const std::function<void()>& work);
