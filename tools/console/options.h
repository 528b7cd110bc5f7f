// The command line: commands, their options, and the checks of their values.
#pragma once

#include <QString>
#include <QStringList>

namespace Console {
struct Options
{
    QString adapter; ///< empty: left to the system library
    bool json = false;
    int seconds = 0; ///< 0: until it is stopped
    QString log;     ///< masks for Os::Log::SetMasks(); empty: failures only
};

/// What a command line asks for.
struct CommandLine
{
    enum class Action { Help, Version, WrongUse, Adapters, Watch };
    Action action = Action::WrongUse;
    QString text; ///< the help, the version, or one line that names the problem and what to do
    Options options;
};

/// Reads the command line, the program's name first. Needs a QCoreApplication. Values that depend on the machine
/// (adapter) or on the library (log) are not judged here.
CommandLine readCommandLine(const QStringList& arguments);
} // namespace Console
