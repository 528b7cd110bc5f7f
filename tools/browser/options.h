// The command line.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>

namespace Browser {
struct Options
{
    enum class Action { Run, Print, UsageError };
    Action action = Action::Run;
    QString text; ///< to be printed, or what is wrong
    QString adapter;
    QString server; ///< key of the server to show
};

/// @param arguments the program's name first
Options readOptions(const QStringList& arguments);
} // namespace Browser
