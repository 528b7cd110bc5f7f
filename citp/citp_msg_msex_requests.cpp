// The four MSEX requests: writing their bodies in MSEX 1.0, 1.1 and 1.2.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex_requests.h>

#include "citp_wire_p.h"

#include <citp/citp_codecs.h>

#include <utility>

namespace CITP {
namespace {
/// The length of the shortest identifier with four levels, "1,0,0,0".
constexpr int minLibraryIdLength = 7;

void appendNumbers(QByteArray& out, const std::vector<unsigned char>& numbers)
{
    out.append(reinterpret_cast<const char*>(numbers.data()), static_cast<int>(numbers.size()));
}

void appendCount(QByteArray& out, unsigned char versionMinor, std::size_t count)
{
    if (versionMinor < 2) {
        appendInteger(out, static_cast<quint8>(count));
    } else {
        appendInteger(out, static_cast<quint16>(count));
    }
}

void appendLibrary(QByteArray& out, unsigned char versionMinor, const QString& id)
{
    if (versionMinor == 0) {
        appendInteger(out, static_cast<quint8>(id.toUInt()));
    } else {
        appendInteger(out, static_cast<quint32>(fromLibraryFormat(id)));
    }
}

void appendImageFields(QByteArray& out, const QString& format, unsigned short width, unsigned short height)
{
    constexpr quint8 flags = 1;
    appendInteger(out, static_cast<quint32>(fromGraphicFormat(format)));
    appendInteger(out, static_cast<quint16>(width));
    appendInteger(out, static_cast<quint16>(height));
    appendInteger(out, flags);
}
} // namespace

Msg_MSEX_GELI::Msg_MSEX_GELI(unsigned char minor, unsigned char type, QString parentId,
                             const std::vector<unsigned char>& numbers)
    : Msg_MSEX(minor, QStringLiteral("GELI")),
      libraryType(type),
      libraryParentId(std::move(parentId)),
      libraryNumbers(numbers)
{
}

Msg_MSEX_GELI::~Msg_MSEX_GELI() = default;

Msg_MSEX_GEIN::Msg_MSEX_GEIN(unsigned char minor, unsigned char type, const QString& id,
                             const std::vector<unsigned char>& numbers)
    : Msg_MSEX(minor, QStringLiteral("GEIn")), libraryType(type), libraryId(id), elementNumbers(numbers)
{
}

Msg_MSEX_GEIN::~Msg_MSEX_GEIN() = default;

Msg_MSEX_GELT::Msg_MSEX_GELT(unsigned char minor, unsigned char type, const std::vector<QString>& ids,
                             unsigned short height, unsigned short width, const QString& format)
    : Msg_MSEX(minor, QStringLiteral("GELT")),
      libraryType(type),
      libraryIds(ids),
      thumbnailHeight(height),
      thumbnailWidth(width),
      thumbnailFormat(format)
{
}

Msg_MSEX_GELT::~Msg_MSEX_GELT() = default;

Msg_MSEX_GETH::Msg_MSEX_GETH(unsigned char minor, unsigned char type, const QString& id, unsigned short height,
                             unsigned short width, const QString& format, const std::vector<unsigned char>& numbers)
    : Msg_MSEX(minor, QStringLiteral("GETh")),
      libraryType(type),
      libraryId(id),
      thumbnailHeight(height),
      thumbnailWidth(width),
      thumbnailFormat(format),
      elementNumbers(numbers)
{
    if (minor != 0 && id.size() < minLibraryIdLength) {
        valid = false;
    }
}

Msg_MSEX_GETH::~Msg_MSEX_GETH() = default;

QByteArray& operator>>(QByteArray& out, const Msg_MSEX_GELI& m)
{
    out >> static_cast<const Msg_MSEX&>(m);
    appendInteger(out, m.libraryType);
    if (m.versionMinor == 1 || m.versionMinor == 2) {
        appendLibrary(out, m.versionMinor, m.libraryParentId);
    }
    if (m.versionMinor <= 2) {
        appendCount(out, m.versionMinor, m.libraryNumbers.size());
    }
    appendNumbers(out, m.libraryNumbers);
    Msg_Header::setSize(out);
    return out;
}

QByteArray& operator>>(QByteArray& out, const Msg_MSEX_GEIN& m)
{
    out >> static_cast<const Msg_MSEX&>(m);
    appendInteger(out, m.libraryType);
    if (m.versionMinor <= 2) {
        appendLibrary(out, m.versionMinor, m.libraryId);
        appendCount(out, m.versionMinor, m.elementNumbers.size());
    }
    appendNumbers(out, m.elementNumbers);
    Msg_Header::setSize(out);
    return out;
}

QByteArray& operator>>(QByteArray& out, const Msg_MSEX_GELT& m)
{
    out >> static_cast<const Msg_MSEX&>(m);
    appendImageFields(out, m.thumbnailFormat, m.thumbnailWidth, m.thumbnailHeight);
    appendInteger(out, m.libraryType);
    appendCount(out, m.versionMinor, m.libraryIds.size());
    for (const QString& id : m.libraryIds) {
        appendLibrary(out, m.versionMinor, id);
    }
    Msg_Header::setSize(out);
    return out;
}

QByteArray& operator>>(QByteArray& out, const Msg_MSEX_GETH& m)
{
    if (!m.valid) {
        return out;
    }
    out >> static_cast<const Msg_MSEX&>(m);
    appendImageFields(out, m.thumbnailFormat, m.thumbnailWidth, m.thumbnailHeight);
    appendInteger(out, m.libraryType);
    if (m.versionMinor <= 2) {
        appendLibrary(out, m.versionMinor, m.libraryId);
        appendCount(out, m.versionMinor, m.elementNumbers.size());
    }
    appendNumbers(out, m.elementNumbers);
    Msg_Header::setSize(out);
    return out;
}
} // namespace CITP
