// The command line: commands, their options, and the checks of their values.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QSize>
#include <QString>
#include <QStringList>

namespace Console {
struct Options
{
    QString adapter; ///< empty: left to the system library
    bool json = false;
    int seconds = 0; ///< 0: until it is stopped
    QString log;     ///< masks for Os::Log::SetMasks(); empty: failures only

    QString server;        ///< key or part of a name
    QString library;       ///< one number, or four with commas; empty: all libraries
    int type = 1;          ///< MSEX library type, 1 to 255
    int timeoutMs = 10000; ///< the longest wait for any one thing
    int intervalMs = 2000; ///< between two tables
    QString to;            ///< folder
    QString format;        ///< as the requests take it: "JPEG", "PNG" or "RGB8"
    QSize size;            ///< pixels

    QString file;         ///< capture file to read
    bool summary = false; ///< counts instead of messages
    QString write;        ///< capture file to write
    int count = 0;        ///< packets; 0: left to the command
};

/// What a command line asks for.
struct CommandLine
{
    enum class Action { Help, Version, WrongUse, Run };
    Action action = Action::WrongUse;
    int (*run)(const Options&) = nullptr; ///< the command, see commands.h
    bool drawsText = false;               ///< it needs a QGuiApplication
    QString text;                         ///< the help, the version, or one line that names the problem and what to do
    Options options;
};

/// Reads the command line, the program's name first. Needs a QCoreApplication. Values that depend on the machine
/// (adapter) or on the library (log) are not judged here.
CommandLine readCommandLine(const QStringList& arguments);
} // namespace Console
