// PINF messages: who is on the network (PLoc) and what a peer is called (PNam). Values; any thread, one at a time.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_header.h>

namespace CITP {
/// The layer of the peer information messages. Texts of this layer are single bytes (Latin-1), null-terminated.
class CITP_EXPORT Msg_PEER : public Msg_Header
{
public:
    Msg_PEER() = default;
    /// For sending.
    /// @param code the PINF code of four characters, e.g. "PNam"
    explicit Msg_PEER(const QString& code);
    /// Reads the layer of @p msg, a whole message. One that is too short leaves #cookie empty.
    explicit Msg_PEER(const QByteArray& msg);
    /// Copies every member.
    Msg_PEER(const Msg_PEER& other) = default;
    ~Msg_PEER() override;
    /// Copies the fields, and of the CITP header what Msg_Header copies.
    Msg_PEER& operator=(const Msg_PEER& other) = default;

    using Msg_Header::contentType;
    /// The PINF code in @p msg (offset 20); empty for fewer than 24 bytes.
    static QString contentType(const QByteArray& msg);

    QString cookie; ///< the PINF code (offset 20)
};

/// A peer's location, which every peer announces on the discovery group.
class CITP_EXPORT Msg_PEER_PLOC : public Msg_PEER
{
public:
    Msg_PEER_PLOC() = default;
    /// For sending.
    Msg_PEER_PLOC(const QString& peerType, const QString& peerName, const QString& peerState, unsigned short tcpPort);
    /// Reads @p msg, a whole message. What is missing reads as empty or 0; a text that is cut off ends with
    /// the message.
    explicit Msg_PEER_PLOC(const QByteArray& msg);
    /// Copies every member.
    Msg_PEER_PLOC(const Msg_PEER_PLOC& other) = default;
    ~Msg_PEER_PLOC() override;
    /// Copies the fields, and of the CITP header what Msg_Header copies.
    Msg_PEER_PLOC& operator=(const Msg_PEER_PLOC& other) = default;

    QString type;     ///< kind of peer, e.g. "MediaServer" (offset 26)
    QString name;     ///< the peer's name, behind the type
    QString state;    ///< e.g. "Running", behind the name
    quint16 port = 0; ///< TCP port on which the peer listens; 0 if it does not (offset 24)
};

/// A peer's name, sent on a new connection.
class CITP_EXPORT Msg_PEER_PNAM : public Msg_PEER
{
public:
    Msg_PEER_PNAM() = default;
    /// For sending.
    explicit Msg_PEER_PNAM(const QString& peerName);
    /// Reads @p msg, a whole message. A name without its terminator ends with the message.
    explicit Msg_PEER_PNAM(const QByteArray& msg);
    /// Copies every member.
    Msg_PEER_PNAM(const Msg_PEER_PNAM& other) = default;
    ~Msg_PEER_PNAM() override;
    /// Copies the fields, and of the CITP header what Msg_Header copies.
    Msg_PEER_PNAM& operator=(const Msg_PEER_PNAM& other) = default;

    QString name; ///< the peer's name (offset 24)
};

/// Writes the header and the layer of @p message to @p out, which is cleared first, and sets the size.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_PEER& message);
/// Writes @p message to @p out, which is cleared first. The image is not the one that Msg_PEER_PLOC reads: behind the
/// port stand a zero byte, the state as a byte count of 32 bits and UTF-16, and a zero byte, which cover the type and
/// the name as far as they reach. Kept on purpose: this image is what peers are sent.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_PEER_PLOC& message);
/// Writes @p message to @p out, which is cleared first.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_PEER_PNAM& message);

/// Appends @p message's debug text to @p text.
CITP_EXPORT QString& operator>>(QString& text, const Msg_PEER& message);
/// Appends @p message's debug text to @p text.
CITP_EXPORT QString& operator>>(QString& text, const Msg_PEER_PLOC& message);
} // namespace CITP
