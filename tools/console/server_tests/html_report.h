// The report of the server tests as one HTML file, to be sent to the maker of the server.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "report.h"

namespace Console::ServerTests {
/// A picture of a library of the server.
struct LibraryPicture
{
    QString caption;
    QByteArray content; ///< a file of the type "image/" #extension
    QString type;       ///< "jpeg" or "png"
};

/// The whole file: one static page without scripts. All texts are escaped, whatever the server has sent.
QByteArray htmlReport(const Report& report, const QString& server, const QString& end,
                      const std::vector<LibraryPicture>& pictures);
} // namespace Console::ServerTests
