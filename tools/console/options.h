// Parsing of the command line: commands, options and the validation of their values.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDateTime>
#include <QSize>
#include <QString>
#include <QStringList>

#include "stack_options.h"

namespace Console {
/// Local date and time; without a date, on the day of the capture. Null: none was given.
struct Moment
{
    QDate date;
    QTime time;
};

struct Options
{
    QString adapter; ///< empty: chosen by the system library
    bool json = false;
    int seconds = 0; ///< 0: default of the command
    QString log;     ///< masks for Os::Log::SetMasks(); empty: default
    Tools::StackOptions stack;

    QString server;        ///< key or part of a name
    QString library;       ///< one number, or four separated by commas; empty: all libraries
    int type = 1;          ///< MSEX library type, 1 to 255
    int timeoutMs = 10000; ///< timeout of each single wait
    int intervalMs = 2000; ///< between two tables
    QString to;            ///< folder; empty: no files
    QString html;          ///< folder for pages, or the file of a report; empty: none
    QString format;        ///< as in the requests: "JPEG", "PNG" or "RGB8"
    QSize size;            ///< pixels

    QString file;           ///< capture file to read; "-" for standard input
    bool summary = false;   ///< print counts instead of messages
    bool full = false;      ///< print the whole messages
    QString filteredServer; ///< key, address or part of a name; empty: all servers
    QStringList messages;   ///< codes, layers and marks; empty: all
    Moment since;
    Moment until;
    QString write;           ///< capture file to write; "-" for standard output
    int count = 0;           ///< packets; 0: default of the command
    bool walk = false;       ///< ask a server for everything while its traffic is recorded
    bool noPictures = false; ///< but not for pictures

    bool list = false; ///< list the tests instead of running them
    QStringList only;  ///< numbers of tests and areas; empty: all
    QStringList skip;
    QString jsonFile; ///< empty: no report
    QString compare;  ///< JSON lines of an earlier report; empty: none
    bool load = false;
    bool askOperator = false;
    int silenceMs = 60000; ///< how long the connection is idle in the tests of silence
};

/// A parsed command line.
struct CommandLine
{
    enum class Action { Help, Version, UsageError, Run };
    Action action = Action::UsageError;
    int (*run)(const Options&) = nullptr; ///< the command, see commands.h
    bool needsGui = false;                ///< the command requires a QGuiApplication
    QString text;                         ///< help text, version, or error message of one line
    Options options;
};

/// Parses the command line, which starts with the program's name. Requires a QCoreApplication. Options::adapter and
/// Options::log are not validated here, because that requires the network adapters and the library.
CommandLine readCommandLine(const QStringList& arguments);
} // namespace Console
