// PINF messages: the location of a peer (PLoc) and the name of a peer (PNam).
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_header.h>

namespace CITP {
/// The PINF layer: peer information messages. Strings of this layer are null-terminated Latin-1.
class CITP_EXPORT Msg_PEER : public Msg_Header
{
public:
    Msg_PEER() = default;
    /// For sending.
    /// @param code the four-character PINF code, e.g. "PNam"
    explicit Msg_PEER(const QString& code);
    /// Parses the PINF header of @p msg, a whole message. Fewer than 24 bytes leave #cookie empty.
    explicit Msg_PEER(const QByteArray& msg);
    /// Copies all members.
    Msg_PEER(const Msg_PEER& other) = default;
    ~Msg_PEER() override;
    /// Copies the fields of this layer, and the CITP header as Msg_Header::operator=() does.
    Msg_PEER& operator=(const Msg_PEER& other) = default;

    using Msg_Header::contentType;
    /// The PINF code of @p msg (offset 20); empty for fewer than 24 bytes.
    static QString contentType(const QByteArray& msg);

    QString cookie; ///< the PINF code (offset 20)
};

/// PLoc, "peer location": type, name, state and TCP port of a peer. Peers announce it to the discovery multicast group.
class CITP_EXPORT Msg_PEER_PLOC : public Msg_PEER
{
public:
    Msg_PEER_PLOC() = default;
    /// For sending.
    Msg_PEER_PLOC(const QString& peerType, const QString& peerName, const QString& peerState, unsigned short tcpPort);
    /// Parses @p msg, a whole message. Missing fields are 0 or empty; a truncated string ends with the message.
    explicit Msg_PEER_PLOC(const QByteArray& msg);
    /// Copies all members.
    Msg_PEER_PLOC(const Msg_PEER_PLOC& other) = default;
    ~Msg_PEER_PLOC() override;
    /// Copies the fields of this layer, and the CITP header as Msg_Header::operator=() does.
    Msg_PEER_PLOC& operator=(const Msg_PEER_PLOC& other) = default;

    QString type;     ///< type of the peer, e.g. "MediaServer" (offset 26)
    QString name;     ///< name of the peer, after the type
    QString state;    ///< state of the peer, e.g. "Running", after the name
    quint16 port = 0; ///< TCP port on which the peer listens, 0 for none (offset 24)
};

/// PNam, "peer name": the name of a peer, sent on a new connection.
class CITP_EXPORT Msg_PEER_PNAM : public Msg_PEER
{
public:
    Msg_PEER_PNAM() = default;
    /// For sending.
    explicit Msg_PEER_PNAM(const QString& peerName);
    /// Parses @p msg, a whole message. A name without a terminator ends with the message.
    explicit Msg_PEER_PNAM(const QByteArray& msg);
    /// Copies all members.
    Msg_PEER_PNAM(const Msg_PEER_PNAM& other) = default;
    ~Msg_PEER_PNAM() override;
    /// Copies the fields of this layer, and the CITP header as Msg_Header::operator=() does.
    Msg_PEER_PNAM& operator=(const Msg_PEER_PNAM& other) = default;

    QString name; ///< name of the peer (offset 24)
};

/// Replaces @p out with the CITP and PINF headers of @p message, sets the size and returns @p out.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_PEER& message);
/// Replaces @p out with the whole message and returns @p out. The layout differs from the one that Msg_PEER_PLOC
/// parses: after the port follow a zero byte, the state as a 32-bit byte count and UTF-16, and a zero byte. These
/// overwrite the type and the name as far as they reach. Kept for compatibility: peers have always received this
/// layout.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_PEER_PLOC& message);
/// Replaces @p out with the whole message and returns @p out.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_PEER_PNAM& message);

/// Appends the debug text of @p message to @p text and returns @p text.
CITP_EXPORT QString& operator>>(QString& text, const Msg_PEER& message);
/// Appends the debug text of @p message to @p text and returns @p text.
CITP_EXPORT QString& operator>>(QString& text, const Msg_PEER_PLOC& message);
} // namespace CITP
