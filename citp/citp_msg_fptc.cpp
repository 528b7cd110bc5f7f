// FPTC messages: parsing and printing Ptch, writing SPtc.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_fptc.h>

#include "citp_wire_p.h"

#include <citp/citp_codecs.h>

namespace CITP {
namespace {
constexpr int fptcCodeOffset = 20;
constexpr int fptcHintOffset = 24;
constexpr int fptcBodyOffset = 28;
} // namespace

Msg_FPTC::Msg_FPTC(const QString& code, unsigned int contentHint)
    : Msg_Header(0, QStringLiteral("FPTC")), cookie(code), hint(contentHint)
{
}

Msg_FPTC::Msg_FPTC(const QByteArray& msg) : Msg_Header(msg)
{
    if (msg.size() < fptcHintOffset) {
        valid = false;
        return;
    }
    cookie = WireReader(msg, fptcCodeOffset).code();
    // Of all fields, only the hint is read big-endian, although it is written little-endian. Kept for compatibility.
    if (msg.size() >= fptcBodyOffset) {
        hint = qFromBigEndian<quint32>(msg.constData() + fptcHintOffset);
    }
}

Msg_FPTC::~Msg_FPTC() = default;

QString Msg_FPTC::GetCookie(const QByteArray& msg)
{
    if (msg.size() < fptcBodyOffset) {
        return {};
    }
    return WireReader(msg, fptcCodeOffset).code();
}

Msg_FPTC_PTCH::Msg_FPTC_PTCH(const QByteArray& msg) : Msg_FPTC(msg)
{
    WireReader reader(msg, fptcBodyOffset);
    reader.run<8>([this](auto& fields) {
        FixtureIdentifier = fields.u16();
        Universe = fields.u8();
        fields.u8(); // reserved
        Channel = fields.u16();
        ChannelCount = fields.u16();
    });
    FixtureMake = reader.text8();
    FixtureName = reader.text8();
}

Msg_FPTC_PTCH::~Msg_FPTC_PTCH() = default;

Msg_FPTC_SPTC::Msg_FPTC_SPTC(const std::vector<unsigned short>* identifiers) : Msg_FPTC(QStringLiteral("SPtc"), 0)
{
    if (identifiers) {
        fixtureIdentifiers = *identifiers;
    }
}

Msg_FPTC_SPTC::~Msg_FPTC_SPTC() = default;

QByteArray& operator>>(QByteArray& out, const Msg_FPTC& message)
{
    out >> static_cast<const Msg_Header&>(message);
    appendCode(out, message.cookie);
    appendInteger(out, message.hint);
    return out;
}

QByteArray& operator>>(QByteArray& out, const Msg_FPTC_SPTC& message)
{
    out >> static_cast<const Msg_FPTC&>(message);
    appendInteger(out, static_cast<quint16>(message.fixtureIdentifiers.size()));
    if (!message.fixtureIdentifiers.empty()) {
        const auto count = static_cast<QByteArray::size_type>(message.fixtureIdentifiers.size());
        const auto identifiersOffset = out.size();
        out.resize(identifiersOffset + 2 * count);
        qToLittleEndian<quint16>(message.fixtureIdentifiers.data(), count, out.data() + identifiersOffset);
    }
    Msg_Header::setSize(out);
    return out;
}

QString& operator>>(QString& text, const Msg_FPTC& message)
{
    text >> static_cast<const Msg_Header&>(message);
    addToStr(text, "(ContentType=", message.cookie);
    return addToStr(text, " hint=", message.hint).append(QLatin1Char(')'));
}

QString& operator>>(QString& text, const Msg_FPTC_PTCH& message)
{
    text >> static_cast<const Msg_FPTC&>(message);
    addToStr(text, " FixtureIdentifier=", message.FixtureIdentifier);
    addToStr(text, " Universe=", message.Universe);
    addToStr(text, " Channel=", message.Channel);
    addToStr(text, " ChannelCount=", message.ChannelCount);
    addToStr(text, " FixtureMake=", message.FixtureMake);
    return addToStr(text, " FixtureName=", message.FixtureName);
}
} // namespace CITP
