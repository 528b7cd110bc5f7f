// The fixture patch of a simulated server, read from a JSON file.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <vector>

namespace MediaServer {
struct Fixture
{
    quint16 id = 0;
    quint8 universe = 0;
    quint16 channel = 0; ///< first channel
    quint16 channelCount = 0;
    QString make;
    QString name;
};

/// Reads an array of objects such as
/// {"id": 1, "universe": 0, "channel": 1, "channels": 20, "make": "Acme", "name": "Spot"}.
/// @param problem set to an error message of one line if the file cannot be read or has a different format
std::vector<Fixture> readPatch(const QString& file, QString& problem);
} // namespace MediaServer
