// The large headers that nearly every test includes, compiled once for all of them.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <QByteArray>
#include <QCoreApplication>
#include <QString>
#include <QTcpSocket>
#include <QThread>
#include <QVector>
