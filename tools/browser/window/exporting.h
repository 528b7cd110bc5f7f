// The export of a library or a server as pages that the user starts, watches and cancels.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QWidget>

#include "models/export.h"
#include "models/session.h"

namespace Browser {
/// Asks for a folder and exports @p source to it. Returns at once.
void exportPages(QWidget* parent, Session& session, const Export::Source& source);
} // namespace Browser
