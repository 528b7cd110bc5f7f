// PINF messages: parsing, writing and printing PLoc and PNam.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_peer.h>

#include "citp_wire_p.h"

#include <citp/citp_codecs.h>

namespace CITP {
namespace {
constexpr int pinfCodeOffset = 20;
constexpr int pinfBodyOffset = 24;
} // namespace

Msg_PEER::Msg_PEER(const QString& code) : Msg_Header(0, "PINF"), cookie(code) {}

Msg_PEER::Msg_PEER(const QByteArray& msg) : Msg_Header(msg), cookie(contentType(msg)) {}

Msg_PEER::~Msg_PEER() = default;

QString Msg_PEER::contentType(const QByteArray& msg)
{
    if (msg.size() < pinfBodyOffset) {
        return {};
    }
    return WireReader(msg, pinfCodeOffset).code();
}

Msg_PEER_PLOC::Msg_PEER_PLOC(const QString& peerType, const QString& peerName, const QString& peerState,
                             unsigned short tcpPort)
    : Msg_PEER(QStringLiteral("PLoc")), type(peerType), name(peerName), state(peerState), port(tcpPort)
{
}

Msg_PEER_PLOC::Msg_PEER_PLOC(const QByteArray& msg) : Msg_PEER(msg)
{
    WireReader reader(msg, pinfBodyOffset);
    port = reader.u16();
    type = reader.text8();
    name = reader.text8();
    state = reader.text8();
}

Msg_PEER_PLOC::~Msg_PEER_PLOC() = default;

Msg_PEER_PNAM::Msg_PEER_PNAM(const QString& peerName) : Msg_PEER(QStringLiteral("PNam")), name(peerName) {}

Msg_PEER_PNAM::Msg_PEER_PNAM(const QByteArray& msg) : Msg_PEER(msg), name(get8bitunicode(msg, pinfBodyOffset)) {}

Msg_PEER_PNAM::~Msg_PEER_PNAM() = default;

QByteArray& operator>>(QByteArray& out, const Msg_PEER& message)
{
    out >> static_cast<const Msg_Header&>(message);
    appendCode(out, message.cookie);
    Msg_Header::setSize(out);
    return out;
}

QByteArray& operator>>(QByteArray& out, const Msg_PEER_PLOC& message)
{
    out >> static_cast<const Msg_PEER&>(message);
    appendInteger(out, message.port);
    const int textsOffset = pinfBodyOffset + 2;

    // The type and the name are written first; the state then overwrites them in place. This layout is kept for
    // compatibility.
    appendText8(out, message.type);
    out.append('\0');
    appendText8(out, message.name);

    QByteArray overwrite(1, '\0');
    appendInteger(overwrite,
                  message.state.isNull() ? quint32(0xffffffff) : static_cast<quint32>(2 * message.state.size()));
    for (const QChar character : message.state) {
        appendInteger(overwrite, quint16(character.unicode()));
    }
    overwrite.append('\0');
    out.replace(textsOffset, overwrite.size(), overwrite);

    Msg_Header::setSize(out);
    return out;
}

QByteArray& operator>>(QByteArray& out, const Msg_PEER_PNAM& message)
{
    out >> static_cast<const Msg_PEER&>(message);
    appendText8(out, message.name);
    out.append('\0');
    Msg_Header::setSize(out);
    return out;
}

QString& operator>>(QString& text, const Msg_PEER& message)
{
    text >> static_cast<const Msg_Header&>(message);
    return addToStr(text, "( Cookie=", message.cookie).append(QLatin1Char(')'));
}

QString& operator>>(QString& text, const Msg_PEER_PLOC& message)
{
    text >> static_cast<const Msg_PEER&>(message);
    addToStr(text, " port=", message.port);
    addToStr(text, " type=", message.type);
    addToStr(text, " name=", message.name);
    return addToStr(text, " state=", message.state);
}
} // namespace CITP
