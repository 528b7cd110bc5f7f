// Which messages answer a request, from the libraries and the patch as they are.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>
#include <functional>
#include <vector>

#include "library.h"
#include "patch.h"
#include "requests.h"

namespace MediaServer {
/// Makes one message when it is its turn, since a picture takes time to scale; empty if its picture cannot be read.
using Answer = std::function<QByteArray()>;

struct Answers
{
    std::vector<Answer> messages;
    QString note; ///< what was asked and what comes back, for the report
};

/// @param msexMinor the server's own MSEX version: a request in a higher one is not answered
Answers answersTo(const Request& request, quint8 msexMinor, const Libraries& libraries,
                  const std::vector<Fixture>& patch);
} // namespace MediaServer
