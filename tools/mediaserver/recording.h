// Recording: what a capture file contains of one media server, found by what was asked.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QString>
#include <deque>
#include <functional>
#include <memory>
#include <vector>

#include "spool.h"

namespace MediaServer {
/// A message that was not asked for.
struct TimedMessage
{
    qint64 timeUs = 0; ///< since the first one, without the time in which no console was connected
    Stored message;
    bool isLayerStatus = false;
};

/// What the server answered to one question, each time that it answered something else than before.
using RecordedAnswers = std::vector<std::vector<Stored>>;

/// A server as it was recorded. Memory is bounded: what is beyond a limit is counted in #leftOut.
struct Recording
{
    QString key;  ///< address and port
    QString name; ///< as announced; empty if no announcement was recorded
    quint16 port = 0;
    QList<QHostAddress> groups;  ///< to which it was announced
    quint8 msexMinor = 2;        ///< of its SInf
    bool hasInformation = false; ///< its SInf was recorded

    std::deque<TimedMessage> announcements;     ///< those to the first group
    std::deque<TimedMessage> notifications;     ///< layer status, updates and whatever else came without a question
    std::vector<Stored> greeting;               ///< sent to each console when it had connected
    QHash<QByteArray, RecordedAnswers> answers; ///< by keyOf(); empty: asked, but never answered

    // What is missing.
    qint64 gaps = 0;         ///< in the streams
    qint64 missingBytes = 0; ///< in gaps of known size
    qint64 joined = 0;       ///< connections whose beginning is missing
    qint64 errors = 0;       ///< protocol errors
    qint64 unasked = 0;      ///< answers whose question is missing
    qint64 leftOut = 0;      ///< messages beyond the limits
};

/// A file and the part of it that is wanted.
struct RecordingSource
{
    QString file;
    QString server; ///< key, address or part of the name; empty if the file contains one server
};

/// Reads the file.
/// @param spool receives the messages; already open
/// @param isInterrupted whether to stop; asked for each packet
/// @param progress is called now and then with the percentage of what is done
/// @param notice set to a sentence if the file is damaged
/// @param problem set to an error message of one line
/// @return null on an error and after an interruption
std::unique_ptr<Recording> readRecording(const RecordingSource& source, Spool& spool,
                                         const std::function<bool()>& isInterrupted,
                                         const std::function<void(int)>& progress, QString& notice, QString& problem);
} // namespace MediaServer
