// Creates the answers to a request from the libraries and the patch.
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
/// Creates one message when it is due, because scaling takes time. Returns {} if the picture cannot be read.
using Answer = std::function<QByteArray()>;

struct Answers
{
    std::vector<Answer> messages;
    QString note;  ///< description of request and answer, for the log
    int found = 0; ///< number of libraries, elements, pictures or fixtures in them
};

/// @param msexMinor the server's MSEX minor version; requests in a higher version are not answered
Answers answersTo(const Request& request, quint8 msexMinor, const Libraries& libraries,
                  const std::vector<Fixture>& patch);
} // namespace MediaServer
