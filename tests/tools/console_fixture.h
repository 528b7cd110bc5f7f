// What the tests of citp-console share: the programs as child processes.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <QJsonObject>
#include <QStringList>

#include <vector>

#include "child.h"

/// citp-console with @p arguments.
class Console : public Child
{
public:
    explicit Console(const QStringList& arguments) : Child(CONSOLE_PROGRAM, arguments) {}
};

/// citp-mediaserver on the loopback, announced ten times a second, with @p arguments besides; it listens once this is
/// constructed.
class Server : public Child
{
public:
    explicit Server(const QStringList& arguments = {});
};

/// Runs citp-console to its end.
Outcome runConsole(const QStringList& arguments);
/// Runs citp-console once with each list of arguments, all concurrently.
/// @return the outcomes in the order of @p runs
std::vector<Outcome> runConsoles(const std::vector<QStringList>& runs);

/// The objects in @p output, one a line; notes a failure for every line that is none.
std::vector<QJsonObject> jsonLines(const QString& output);
