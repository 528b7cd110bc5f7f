// Parsing of the command line.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QHostAddress>
#include <QList>
#include <QString>
#include <QStringList>

#include "faults.h"
#include "replay.h"

namespace MediaServer {
/// A recorded server to play instead of a simulated one.
struct ReplayOptions
{
    QString file;   ///< capture file; empty: none
    QString server; ///< key, address or part of the name; empty: the only one in the file
    Replay::Unknown unknown = Replay::Unknown::Silence;
    double speed = 1;
};

struct Options
{
    int count = 1;
    QString name;
    QString adapter;
    QHostAddress address;       ///< null: default address of the adapter
    quint16 port = 4811;        ///< of the first server; 0: as recorded
    int intervalMs = 1000;      ///< 0: as recorded
    QList<QHostAddress> groups; ///< announced to each; empty: not announced
    bool hasGroups = true;      ///< false: the groups are those recorded

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
    int layerRate = 0; ///< messages per second
    QString patch;     ///< JSON file; empty: no fixtures
    FaultPlan faults;
    ReplayOptions replay;

    int dieAfterMs = -1;    ///< -1: never
    int reviveAfterMs = -1; ///< -1: never
    int dieServer = 1;      ///< number of the server that vanishes, from 1
    int seconds = 0;        ///< 0: until a signal
    bool quiet = false;
};

/// A parsed command line.
struct CommandLine
{
    enum class Action { Run, Help, Version, UsageError };
    Action action = Action::Run;
    QString text; ///< help text, version, or error message of one line
    Options options;
};

/// Parses the command line, which starts with the program's name. Requires a QCoreApplication.
CommandLine readCommandLine(const QStringList& arguments);
} // namespace MediaServer
