// The command line options.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>

#include "stack_options.h"

namespace Browser {
struct Options
{
    enum class Action { Run, Print, UsageError };
    Action action = Action::Run;
    QString text; ///< the text to print, or the usage error
    QString adapter;
    QString server; ///< key of the server to show
    Tools::StackOptions stack;
    bool isGroupGiven = false; ///< else the saved one counts
};

/// @param arguments all arguments; the first is the program's name
Options readOptions(const QStringList& arguments);
} // namespace Browser
