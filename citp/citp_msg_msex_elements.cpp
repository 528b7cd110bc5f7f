// MEIn, EEIn and GLEI: parsing and debug text.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex_elements.h>

#include "citp_counts_p.h"
#include "citp_msex_fields_p.h"
#include "citp_wire_p.h"

#include <citp/citp_codecs.h>

namespace CITP {
namespace {
/// Reads the fields with which the records of all three messages begin.
template <typename Record>
void readCommonFields(WireReader& reader, unsigned char versionMinor, Record& record, QString& name)
{
    reader.run<7>([&](auto& fields) {
        record.Number = fields.u8();
        if (versionMinor == 2) {
            record.SerialNumber = fields.u32();
        }
        record.DMXRangeMin = fields.u8();
        record.DMXRangeMax = fields.u8();
    });
    name = reader.ucs2();
}

/// The bytes of the fields with which the records begin, with an empty name.
constexpr int commonFieldsSize(unsigned char versionMinor)
{
    return 1 + (versionMinor == 2 ? 4 : 0) + 2 + 2;
}

/// The low 32 bits of a time stamp, which the debug text shows.
unsigned int low32Bits(unsigned long long timestamp)
{
    return static_cast<unsigned int>(timestamp & 0xFFFFFFFFU);
}
} // namespace

Msg_MSEX_MEIN::Msg_MSEX_MEIN(const QByteArray& msg) : Msg_MSEX(msg)
{
    if (versionMinor > 2) {
        return;
    }
    WireReader reader(msg, MIN_MSEX_LENGTH);
    LibraryId = readLibraryId(reader, versionMinor);
    const quint16 count = readCount(reader, versionMinor);
    // The time stamp, width, height, length and frame rate follow.
    if (!canHold(reader, count, commonFieldsSize(versionMinor) + 8 + 2 + 2 + 4 + 1)) {
        valid = false;
        return;
    }
    Media.resize(count);
    for (MediaInformation& medium : Media) {
        readCommonFields(reader, versionMinor, medium, medium.Name);
        reader.run<17>([&medium](auto& fields) {
            medium.Timestamp = fields.u64();
            medium.Width = fields.u16();
            medium.Height = fields.u16();
            medium.Length = fields.u32();
            medium.FrameRate = fields.u8();
        });
    }
}

Msg_MSEX_MEIN::~Msg_MSEX_MEIN() = default;

QString& operator>>(QString& text, const Msg_MSEX_MEIN& m)
{
    text >> static_cast<const Msg_MSEX&>(m);
    addToStr(text, QStringLiteral(" LibraryId="), m.LibraryId);
    text += QLatin1Char('\n');
    for (const Msg_MSEX_MEIN::MediaInformation& medium : m.Media) {
        addToStr(text, QStringLiteral("Number="), medium.Number);
        if (m.versionMinor == 2) {
            addToStr(text, QStringLiteral(" SerialNumber="), medium.SerialNumber);
        }
        addToStr(text, QStringLiteral(" DMXRangeMin="), medium.DMXRangeMin);
        addToStr(text, QStringLiteral(" DMXRangMax="), medium.DMXRangeMax);
        addToStr(text, QStringLiteral(" Name="), medium.Name);
        addToStr(text, QStringLiteral(" Timestamp="), low32Bits(medium.Timestamp));
        addToStr(text, QStringLiteral(" MediaWidth="), medium.Width);
        addToStr(text, QStringLiteral(" MediaHeight="), medium.Height);
        addToStr(text, QStringLiteral(" Length="), medium.Length);
        addToStr(text, QStringLiteral(" FPS="), medium.FrameRate);
        text += QLatin1Char('\n');
    }
    return text;
}

Msg_MSEX_EEIN::Msg_MSEX_EEIN(const QByteArray& msg) : Msg_MSEX(msg)
{
    if (versionMinor > 2) {
        valid = false;
        return;
    }
    WireReader reader(msg, MIN_MSEX_LENGTH);
    LibraryId = readLibraryId(reader, versionMinor);
    const quint16 count = readCount(reader, versionMinor);
    // The number of parameters follows.
    if (!canHold(reader, count, commonFieldsSize(versionMinor) + 1)) {
        valid = false;
        return;
    }
    Effects.resize(count);
    for (EffectInformation& effect : Effects) {
        readCommonFields(reader, versionMinor, effect, effect.EffectName);
        const quint8 parameterCount = reader.u8();
        if (!canHold(reader, parameterCount, 2)) {
            valid = false;
            return;
        }
        effect.ParameterNames.resize(parameterCount);
        for (QString& name : effect.ParameterNames) {
            name = reader.ucs2();
        }
    }
}

Msg_MSEX_EEIN::~Msg_MSEX_EEIN() = default;

QString& operator>>(QString& text, const Msg_MSEX_EEIN& m)
{
    text >> static_cast<const Msg_MSEX&>(m);
    addToStr(text, QStringLiteral(" LibraryID="), m.LibraryId);
    addToStr(text, QStringLiteral(" ELementCount="), static_cast<unsigned int>(m.Effects.size()));
    for (const Msg_MSEX_EEIN::EffectInformation& effect : m.Effects) {
        text += QLatin1Char('\n');
        addToStr(text, QStringLiteral("\t#="), effect.Number);
        if (m.versionMinor == 2) {
            addToStr(text, QStringLiteral(" Serial#="), effect.SerialNumber);
        }
        addToStr(text, QStringLiteral(" DMXRangeMin="), effect.DMXRangeMin);
        addToStr(text, QStringLiteral(" DMXRangeMax="), effect.DMXRangeMax);
        addToStr(text, QStringLiteral(" EffectName="), effect.EffectName);
        addToStr(text, QStringLiteral(" #params="), static_cast<unsigned int>(effect.ParameterNames.size()));
        for (const QString& name : effect.ParameterNames) {
            text += QLatin1Char('\n');
            addToStr(text, QStringLiteral("\t\tname="), name);
        }
    }
    return text;
}

Msg_MSEX_GLEI::Msg_MSEX_GLEI(const QByteArray& msg) : Msg_MSEX(msg)
{
    if (versionMinor != 1 && versionMinor != 2) {
        valid = false;
        return;
    }
    WireReader reader(msg, MIN_MSEX_LENGTH);
    if (versionMinor == 2) {
        LibraryType = reader.u8();
    }
    LibraryId = readLibraryId(reader, versionMinor);
    const quint16 count = readCount(reader, versionMinor);
    // The time stamp follows.
    if (!canHold(reader, count, commonFieldsSize(versionMinor) + 8)) {
        valid = false;
        return;
    }
    Elements.resize(count);
    for (GenericInformation& element : Elements) {
        readCommonFields(reader, versionMinor, element, element.Name);
        element.Timestamp = reader.u64();
    }
}

Msg_MSEX_GLEI::~Msg_MSEX_GLEI() = default;

QString& operator>>(QString& text, const Msg_MSEX_GLEI& m)
{
    text >> static_cast<const Msg_MSEX&>(m);
    addToStr(text, QStringLiteral(" LibraryID="), m.LibraryId);
    addToStr(text, QStringLiteral(" ELementCount="), static_cast<unsigned int>(m.Elements.size()));
    if (!m.Elements.empty()) {
        text += QLatin1Char('\n');
    }
    for (const Msg_MSEX_GLEI::GenericInformation& element : m.Elements) {
        text += QLatin1Char('\t');
        addToStr(text, QStringLiteral(" elem  #="), element.Number);
        if (m.versionMinor == 2) {
            addToStr(text, QStringLiteral(" serial#="), element.SerialNumber);
        }
        addToStr(text, QStringLiteral(" DMXRangeMin="), element.DMXRangeMin);
        addToStr(text, QStringLiteral(" DMXRangeMax="), element.DMXRangeMax);
        addToStr(text, QStringLiteral(" Name="), element.Name);
        addToStr(text, QStringLiteral(" Time="), low32Bits(element.Timestamp));
        text += QLatin1Char('\n');
    }
    return text;
}
} // namespace CITP
