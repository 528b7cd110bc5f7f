// Summary: counts of the messages in a capture for each server.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QMap>
#include <QStringList>
#include <vector>

#include "event.h"

namespace Console {
/// Counts events. Memory is bounded: servers and message types beyond a limit are counted together.
class Summary
{
public:
    void add(const Event& event);

    /// The counts as text: for each server a heading, a table and the number of errors.
    QStringList lines() const;
    /// The counts as JSON, one object for each server.
    std::vector<QJsonObject> objects() const;

private:
    struct Count
    {
        qint64 messages = 0;
        qint64 bytes = 0;
        qint64 smallest = 0;
        qint64 largest = 0;
        qint64 problems = 0; ///< messages that the library would discard
        qint64 firstUs = 0;
        qint64 lastUs = 0;
    };
    struct Server
    {
        QString name;                ///< from PLoc
        QString type;                ///< from PLoc, e.g. "MediaServer"
        QString product;             ///< from SInf, with version and MSEX version
        QMap<QString, Count> counts; ///< by direction, layer and code, e.g. "0 PINF PLoc"
        qint64 connections = 0;
        qint64 errors = 0; ///< protocol errors, including messages with problems
        qint64 gaps = 0;
        qint64 missing = 0; ///< bytes in gaps of known size
        qint64 firstUs = 0;
        qint64 lastUs = 0;
    };

    void addMessage(Server& server, const Event& event);
    static QString perSecond(const Server& server, const Count& count);

    QMap<QString, Server> m_servers; ///< by key
};
} // namespace Console
