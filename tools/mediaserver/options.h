// The command line: every option once, with its default and its range, and what is made of it.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QHostAddress>
#include <QString>
#include <QStringList>

#include "faults.h"

namespace MediaServer {
struct Options
{
    int count = 1;
    QString name;
    QString adapter;
    QHostAddress address; ///< null: chosen from the adapter
    quint16 port = 4811;  ///< of the first server
    int intervalMs = 1000;

    quint8 msexMinor = 2;
    QString product;
    quint8 versionMajor = 1;
    quint8 versionMinor = 0;
    quint8 versionBugfix = 0;
    int layers = 2;
    QByteArray uuid; ///< 36 characters; empty: derived from the name

    QString media; ///< folder of pictures; empty: drawn ones
    int effects = 0;
    int generic = 0;
    int layerRate = 0; ///< a second
    QString patch;     ///< JSON file; empty: no fixtures
    FaultPlan faults;

    int dieAfterMs = -1;    ///< -1: never
    int reviveAfterMs = -1; ///< -1: never
    int dieServer = 1;      ///< which server dies, counted from 1
    int seconds = 0;        ///< 0: until it is stopped
    bool quiet = false;
};

/// What a command line asks for.
struct CommandLine
{
    enum class Action { Run, Help, Version, WrongUse };
    Action action = Action::Run;
    QString text; ///< the help, the version, or one line that names the problem and what to do
    Options options;
};

/// Reads the command line, the program's name first. Needs a QCoreApplication.
CommandLine readCommandLine(const QStringList& arguments);
} // namespace MediaServer
