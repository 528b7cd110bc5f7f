// Summary: what was said in a capture, counted for each server.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QMap>
#include <QStringList>
#include <vector>

#include "decoder.h"

namespace Console {
/// Counts events. It is bounded too: of more servers or kinds of message than any show has, the rest is counted as one.
class Summary
{
public:
    void add(const Event& event);

    /// For people: for each server a heading, a table, and what was wrong.
    QStringList lines() const;
    /// One object for each server.
    std::vector<QJsonObject> objects() const;

private:
    struct Count
    {
        qint64 messages = 0;
        qint64 bytes = 0;
        qint64 smallest = 0;
        qint64 largest = 0;
        qint64 problems = 0; ///< of them such as the library would not use
        qint64 firstUs = 0;
        qint64 lastUs = 0;
    };
    struct Server
    {
        QString name;                ///< as announced
        QString type;                ///< as announced, e.g. "MediaServer"
        QString product;             ///< as it says itself, with version and MSEX version
        QMap<QString, Count> counts; ///< by "0 PINF PLoc": direction, layer, code
        qint64 connections = 0;
        qint64 errors = 0; ///< breaches of the protocol, the problems of the messages included
        qint64 gaps = 0;
        qint64 missing = 0; ///< bytes in the gaps, as far as known
        qint64 firstUs = 0;
        qint64 lastUs = 0;
    };

    void addMessage(Server& server, const Event& event);
    static QString perSecond(const Server& server, const Count& count);

    QMap<QString, Server> m_servers; ///< by key
};
} // namespace Console
