// ELIn and ELUp: parsing and debug text.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex_libraries.h>

#include "citp_counts_p.h"
#include "citp_msex_fields_p.h"
#include "citp_wire_p.h"

#include <citp/citp_codecs.h>

namespace CITP {
namespace {
bool bitIsSet(const std::array<unsigned char, 32>& bits, unsigned char number)
{
    return ((bits[number >> 3] >> (number & 7)) & 1) != 0;
}

/// Appends " n" for each bit n that is set.
void appendNumbersOfBits(QString& text, const std::array<unsigned char, 32>& bits)
{
    const QString blank = QStringLiteral(" ");
    for (unsigned int number = 0; number <= 255; ++number) {
        if (bitIsSet(bits, static_cast<unsigned char>(number))) {
            addToStr(text, blank, number);
        }
    }
}
} // namespace

Msg_MSEX_ELIN::Msg_MSEX_ELIN(const QByteArray& msg) : Msg_MSEX(msg)
{
    if (!valid) {
        return;
    }
    WireReader reader(msg, MIN_MSEX_LENGTH);
    LibraryType = reader.u8();
    if (versionMinor > 2) {
        return;
    }
    const quint16 count = readCount(reader, versionMinor);
    // The identifier, the serial number from 1.2 on, the DMX range, an empty name and the counts.
    constexpr int minimumSizes[] = {1 + 2 + 2 + 1, 4 + 2 + 2 + 2, 4 + 4 + 2 + 2 + 4};
    if (!canHold(reader, count, minimumSizes[versionMinor])) {
        valid = false;
        return;
    }
    Libraries.resize(count);
    for (ElementLibraryInformation& library : Libraries) {
        reader.run<10>([&](auto& fields) {
            library.LIBID = readLibraryId(fields, versionMinor);
            if (versionMinor == 2) {
                library.SerialNumber = fields.u32();
            }
            library.DMXRangeMin = fields.u8();
            library.DMXRangeMax = fields.u8();
        });
        library.Name = reader.ucs2();
        reader.run<4>([&](auto& fields) {
            if (versionMinor != 0) {
                library.SubLibraryCount = readCount(fields, versionMinor);
            }
            library.ElementCount = readCount(fields, versionMinor);
        });
    }
}

Msg_MSEX_ELIN::~Msg_MSEX_ELIN() = default;

QString& operator>>(QString& text, const Msg_MSEX_ELIN& m)
{
    text >> static_cast<const Msg_MSEX&>(m);
    addToStr(text, QStringLiteral("LibraryType="), m.LibraryType);
    addToStr(text, QStringLiteral(" LibraryCount="), static_cast<unsigned int>(m.Libraries.size()));
    for (const Msg_MSEX_ELIN::ElementLibraryInformation& library : m.Libraries) {
        addToStr(text, QStringLiteral(" LIBID="), library.LIBID);
        if (m.versionMinor == 2) {
            addToStr(text, QStringLiteral(" SerialNumber="), library.SerialNumber);
        }
        addToStr(text, QStringLiteral(" DMXRangeMin="), library.DMXRangeMin);
        addToStr(text, QStringLiteral(" DMXRangeMax="), library.DMXRangeMax);
        addToStr(text, QStringLiteral(" Name="), library.Name);
        if (m.versionMinor == 1 || m.versionMinor == 2) {
            addToStr(text, QStringLiteral(" SubLibraryCount="), library.SubLibraryCount);
        }
        addToStr(text, QStringLiteral(" ElementCount="), library.ElementCount);
    }
    return text;
}

Msg_MSEX_ELUP::Msg_MSEX_ELUP(const QByteArray& msg) : Msg_MSEX(msg)
{
    WireReader reader(msg, MIN_MSEX_LENGTH);
    LibraryType = reader.u8();
    if (versionMinor > 2) {
        valid = false;
        return;
    }
    LibraryId = readLibraryId(reader, versionMinor);
    UpdateFlags = reader.u8();
    if (versionMinor == 2) {
        for (unsigned char& bits : AffectedElements) {
            bits = reader.u8();
        }
        for (unsigned char& bits : AffectedLibraries) {
            bits = reader.u8();
        }
    }
}

Msg_MSEX_ELUP::~Msg_MSEX_ELUP() = default;

bool Msg_MSEX_ELUP::GetElementChanged(unsigned char element) const
{
    return bitIsSet(AffectedElements, element);
}

bool Msg_MSEX_ELUP::GetSublibraryChanged(unsigned char library) const
{
    return bitIsSet(AffectedLibraries, library);
}

QString& operator>>(QString& text, const Msg_MSEX_ELUP& m)
{
    text >> static_cast<const Msg_MSEX&>(m);
    addToStr(text, QStringLiteral(" GetLibraryId="), m.LibraryId);
    addToStr(text, QStringLiteral(" GetLibraryType="), m.LibraryType);
    if (m.UpdateFlags & 0x01) {
        text += QStringLiteral("\nexisting elements updated");
    }
    if (m.UpdateFlags & 0x02) {
        text += QStringLiteral("\nelements added or removed");
    }
    if (m.UpdateFlags & 0x04) {
        text += QStringLiteral("\nsub libraries updated");
    }
    if (m.UpdateFlags & 0x08) {
        text += QStringLiteral("\nsub libraries added or removed");
    }
    if (m.versionMinor == 2) {
        if (m.UpdateFlags & 0x10) {
            text += QStringLiteral("\nall elements affected");
        }
        if (m.UpdateFlags & 0x20) {
            text += QStringLiteral("\nall sub libs affected");
        }
        text += QStringLiteral("\nElements changed:");
        appendNumbersOfBits(text, m.AffectedElements);
        text += QStringLiteral("\nSublibraries changed:");
        appendNumbersOfBits(text, m.AffectedLibraries);
    }
    return text;
}
} // namespace CITP
