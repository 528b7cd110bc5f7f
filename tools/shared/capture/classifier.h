// Classifier: detects which packets of a capture belong to CITP and which endpoint of a connection is the server.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QHash>
#include <map>
#include <set>
#include <utility>

#include "packet.h"

namespace Tools {
constexpr quint16 DiscoveryPort = 4809;

/// The fields of a PLoc.
struct Announcement
{
    quint16 port = 0;
    QString type; ///< "MediaServer", "LightingConsole", ...
    QString name;

    /// Reads the fields; those that @p message does not contain are 0 or empty.
    static Announcement read(const QByteArray& message);
};

/// Processes the packets of a capture in order. A connection is classified as CITP if one of its endpoints was
/// announced (PLoc) or if it contains a CITP header.
class Classifier
{
public:
    /// Both endpoints of a connection, the lower one first.
    using Connection = std::pair<Endpoint, Endpoint>;

    static Connection connectionOf(const Packet& packet);

    /// Processes @p packet.
    /// @return isCitp() of the packet
    bool learn(const Packet& packet);

    /// Whether @p packet belongs to CITP, according to the packets processed so far.
    bool isCitp(const Packet& packet) const;
    /// The server endpoint of a CITP connection: the announced endpoint, otherwise the likely one.
    Endpoint serverOf(const Connection& connection) const;
    /// The name that the server announced, at most 256 characters; empty if none is known.
    /// @param server its key
    QString nameOf(const QString& server) const { return m_names.value(server); }
    /// Whether @p server, a key, is one that @p wanted means: its key, its address or part of its name.
    bool isMatch(const QString& server, const QString& wanted) const;
    /// Whether serverOf() is certain.
    bool isServerKnown(const Connection& connection) const;

private:
    struct Guess
    {
        Endpoint server;
        bool isKnown = false; ///< certain, because a message that only servers send or receive was seen
    };

    void learnFromDatagram(const Packet& packet);
    void learnFromSegment(const Packet& packet);

    std::set<Endpoint> m_announced;
    QHash<QString, QString> m_names;           ///< of the announced servers, by key
    std::map<Connection, Guess> m_connections; ///< connections in which a header was seen
};
} // namespace Tools
