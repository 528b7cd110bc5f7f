// The MSEX layer: parsing, writing and printing its header, and writing the client information message.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex.h>

#include "citp_wire_p.h"

#include <citp/citp_codecs.h>

namespace CITP {
namespace {
constexpr int versionOffset = 20;
constexpr int msexCodeOffset = 22;
} // namespace

Msg_MSEX::Msg_MSEX(unsigned char minor, const QString& code)
    : Msg_Header(0, QStringLiteral("MSEX")), versionMajor(1), versionMinor(minor), cookie(code)
{
}

Msg_MSEX::Msg_MSEX(const QByteArray& msg) : Msg_Header(msg)
{
    if (msg.size() < MIN_MSEX_LENGTH) {
        return;
    }
    WireReader reader(msg, versionOffset);
    versionMajor = reader.u8();
    versionMinor = reader.u8();
    cookie = reader.code();
}

Msg_MSEX::~Msg_MSEX() = default;

Msg_MSEX& Msg_MSEX::operator=(const Msg_MSEX& other)
{
    versionMajor = other.versionMajor;
    versionMinor = other.versionMinor;
    cookie = other.cookie;
    return *this;
}

QString Msg_MSEX::GetCookie(const QByteArray& msg)
{
    if (msg.size() < MIN_MSEX_LENGTH) {
        return {};
    }
    return WireReader(msg, msexCodeOffset).code();
}

Msg_MSEX_CInf::Msg_MSEX_CInf() : Msg_MSEX(2, QStringLiteral("CInf")) {}

Msg_MSEX_CInf::~Msg_MSEX_CInf() = default;

QByteArray& operator>>(QByteArray& out, const Msg_MSEX& message)
{
    out >> static_cast<const Msg_Header&>(message);
    appendInteger(out, message.versionMajor);
    appendInteger(out, message.versionMinor);
    appendCode(out, message.cookie);
    return out;
}

QByteArray& operator>>(QByteArray& out, const Msg_MSEX_CInf& message)
{
    out >> static_cast<const Msg_MSEX&>(message);
    const quint16 supportedVersions[] = {0x0100, 0x0101, 0x0102};
    appendInteger(out, quint8(3));
    for (const quint16 version : supportedVersions) {
        appendInteger(out, version);
    }
    Msg_Header::setSize(out);
    return out;
}

QString& operator>>(QString& text, const Msg_MSEX& message)
{
    text >> static_cast<const Msg_Header&>(message);
    addToStr(text, "( MsexVersionMajor=", message.versionMajor);
    addToStr(text, " MsexVersionMinor=", message.versionMinor);
    addToStr(text, " Cookie=", message.cookie);
    return text.append(QLatin1String(" ) "));
}
} // namespace CITP
