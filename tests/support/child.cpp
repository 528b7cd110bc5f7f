// Child: conversion to and from QString.
// SPDX-License-Identifier: Apache-2.0
#include "child.h"

#include <QFile>

#include <csignal>

namespace {
std::vector<std::string> commandOf(const QString& program, const QStringList& arguments)
{
    std::vector<std::string> command{QFile::encodeName(program).toStdString()};
    for (const QString& argument : arguments)
        command.push_back(QFile::encodeName(argument).toStdString());
    return command;
}
} // namespace

Child::Child(const QString& program, const QStringList& arguments, const std::vector<std::string>& environment)
    : ChildProcess(commandOf(program, arguments), environment)
{
}

QString Child::waitForLine(const QString& part)
{
    return QString::fromStdString(ChildProcess::waitForLine(part.toStdString()));
}

void Child::interrupt()
{
    signal(SIGINT);
}

Outcome outcomeOf(Child& child)
{
    const int status = child.waitForEnd();
    return {status, child.output(), child.errors()};
}
