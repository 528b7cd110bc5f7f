// The second reading of the MSEX answers. Plain on purpose, one block a version, so that it can be checked against the
// wire tables by eye; it uses nothing of the library but the classes that it fills.
// SPDX-License-Identifier: Apache-2.0
#include "reference_parser.h"

#include <QDataStream>
#include <QIODevice>

#include <algorithm>
#include <tuple>

using namespace CITP;

namespace reference {
namespace {
/// QDataStream on a message, with the two text forms that the tables need.
class Stream
{
public:
    explicit Stream(const QByteArray& msg) : m_msg(msg), m_stream(msg)
    {
        m_stream.setByteOrder(QDataStream::LittleEndian);
    }

    void skip(int count) { m_stream.skipRawData(count); }
    quint8 u8() { return get<quint8>(); }
    quint16 u16() { return get<quint16>(); }
    quint32 u32() { return get<quint32>(); }
    quint64 u64() { return get<quint64>(); }
    qint64 position() const { return m_stream.device()->pos(); }

    QString code()
    {
        QString text;
        for (int i = 0; i < 4; ++i)
            text += QChar(ushort(u8()));
        return text;
    }

    QString ucs2()
    {
        const qint64 start = position();
        QString text;
        int used = 0;
        while (start + used + 2 <= m_msg.size()) {
            const auto low = static_cast<uchar>(m_msg[static_cast<int>(start) + used]);
            const auto high = static_cast<uchar>(m_msg[static_cast<int>(start) + used + 1]);
            const auto unit = static_cast<ushort>(low | (high << 8));
            used += 2;
            if (unit == 0)
                break;
            if (used != 2 || unit != 0xfeff)
                text += QChar(unit);
        }
        skip(used);
        return text;
    }

    QString text8()
    {
        QString text;
        while (!m_stream.atEnd()) {
            const quint8 unit = u8();
            if (unit == 0)
                break;
            text += QChar(ushort(unit));
        }
        return text;
    }

    QString libraryNumber() { return QString::number(u8()); }

    QString libraryId()
    {
        const quint32 id = u32();
        return QString::asprintf("%u,%u,%u,%u", id & 0xff, (id >> 8) & 0xff, (id >> 16) & 0xff, (id >> 24) & 0xff);
    }

    QString format()
    {
        const quint32 value = u32();
        QString text;
        for (unsigned int shift = 0; shift < 32; shift += 8)
            text += QChar(static_cast<ushort>((value >> shift) & 0xff));
        return text;
    }

private:
    template <typename Integer>
    Integer get()
    {
        Integer value = 0;
        m_stream >> value;
        return value;
    }

    const QByteArray& m_msg;
    QDataStream m_stream;
};

/// The two headers, from offset 0 on.
void headers(const QByteArray& msg, Msg_MSEX& out)
{
    Stream s(msg);
    out.valid = false;
    if (msg.size() >= 20) {
        const QString cookie = s.code();
        const int major = s.u8();
        const int minor = s.u8();
        s.u16();
        const quint32 size = s.u32();
        out.valid = cookie == QLatin1String("CITP") && major == 1 && minor == 0 && msg.size() == qint64(size);
        s.skip(8);
    }
    if (msg.size() >= 26) {
        out.versionMajor = s.u8();
        out.versionMinor = s.u8();
        out.cookie = s.code();
    }
}

void picture(const QByteArray& msg, Stream& s, Msg_MSEX_Thumbnail_Response_Base& out)
{
    out.ThumbnailFormat = s.format();
    out.ThumbnailWidth = s.u16();
    out.ThumbnailHeight = s.u16();
    const int size = s.u16();
    if (msg.size() - s.position() >= size)
        out.ThumbnailBuffer = msg.mid(static_cast<int>(s.position()), size);
}

auto tied(const Msg_MSEX& m)
{
    return std::tie(m.valid, m.versionMajor, m.versionMinor, m.cookie);
}

auto tied(const Msg_MSEX_ELIN::ElementLibraryInformation& r)
{
    return std::tie(r.LIBID, r.DMXRangeMin, r.DMXRangeMax, r.Name, r.ElementCount, r.SubLibraryCount, r.SerialNumber);
}

auto tied(const Msg_MSEX_MEIN::MediaInformation& r)
{
    return std::tie(r.Number, r.DMXRangeMin, r.DMXRangeMax, r.Name, r.Timestamp, r.Width, r.Height, r.Length,
                    r.FrameRate, r.SerialNumber);
}

auto tied(const Msg_MSEX_EEIN::EffectInformation& r)
{
    return std::tie(r.Number, r.DMXRangeMin, r.DMXRangeMax, r.EffectName, r.ParameterNames, r.SerialNumber);
}

auto tied(const Msg_MSEX_GLEI::GenericInformation& r)
{
    return std::tie(r.Number, r.DMXRangeMin, r.DMXRangeMax, r.Name, r.Timestamp, r.SerialNumber);
}

auto tied(const Msg_MSEX_LSTA::LayerStatus& r)
{
    return std::tie(r.LayerNumber, r.PhysicalOutput, r.LibraryId, r.MediaNumber, r.MediaName, r.MediaPosition,
                    r.MediaLength, r.MediaFrameRate, r.LayerStatusFlags, r.LibraryType);
}

template <typename Record>
bool sameRecords(const std::vector<Record>& a, const std::vector<Record>& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const Record& left, const Record& right) { return tied(left) == tied(right); });
}

bool sameHeaders(const Msg_MSEX& a, const Msg_MSEX& b)
{
    return tied(a) == tied(b);
}

bool sameThumbnails(const Msg_MSEX_Thumbnail_Response_Base& a, const Msg_MSEX_Thumbnail_Response_Base& b)
{
    return sameHeaders(a, b) && a.LibraryType == b.LibraryType && a.LibraryId == b.LibraryId &&
           a.ThumbnailHeight == b.ThumbnailHeight && a.ThumbnailWidth == b.ThumbnailWidth &&
           a.ThumbnailFormat == b.ThumbnailFormat && a.ThumbnailBuffer == b.ThumbnailBuffer;
}
} // namespace

void parse(const QByteArray& msg, Msg_MSEX_ELIN& out)
{
    headers(msg, out);
    if (!out.valid)
        return;
    Stream s(msg);
    s.skip(26);
    out.LibraryType = s.u8();
    if (out.versionMinor == 0) {
        for (int left = s.u8(); left > 0; --left) {
            Msg_MSEX_ELIN::ElementLibraryInformation r;
            r.LIBID = s.libraryNumber();
            r.DMXRangeMin = s.u8();
            r.DMXRangeMax = s.u8();
            r.Name = s.ucs2();
            r.ElementCount = s.u8();
            out.Libraries.push_back(r);
        }
    } else if (out.versionMinor == 1) {
        for (int left = s.u8(); left > 0; --left) {
            Msg_MSEX_ELIN::ElementLibraryInformation r;
            r.LIBID = s.libraryId();
            r.DMXRangeMin = s.u8();
            r.DMXRangeMax = s.u8();
            r.Name = s.ucs2();
            r.SubLibraryCount = s.u8();
            r.ElementCount = s.u8();
            out.Libraries.push_back(r);
        }
    } else if (out.versionMinor == 2) {
        for (int left = s.u16(); left > 0; --left) {
            Msg_MSEX_ELIN::ElementLibraryInformation r;
            r.LIBID = s.libraryId();
            r.SerialNumber = s.u32();
            r.DMXRangeMin = s.u8();
            r.DMXRangeMax = s.u8();
            r.Name = s.ucs2();
            r.SubLibraryCount = s.u16();
            r.ElementCount = s.u16();
            out.Libraries.push_back(r);
        }
    }
}

void parse(const QByteArray& msg, Msg_MSEX_ELUP& out)
{
    headers(msg, out);
    Stream s(msg);
    s.skip(26);
    out.LibraryType = s.u8();
    if (out.versionMinor == 0) {
        out.LibraryId = s.libraryNumber();
        out.UpdateFlags = s.u8();
    } else if (out.versionMinor == 1) {
        out.LibraryId = s.libraryId();
        out.UpdateFlags = s.u8();
    } else if (out.versionMinor == 2) {
        out.LibraryId = s.libraryId();
        out.UpdateFlags = s.u8();
        for (unsigned char& byte : out.AffectedElements)
            byte = s.u8();
        for (unsigned char& byte : out.AffectedLibraries)
            byte = s.u8();
    } else {
        out.valid = false;
    }
}

void parse(const QByteArray& msg, Msg_MSEX_MEIN& out)
{
    headers(msg, out);
    Stream s(msg);
    s.skip(26);
    if (out.versionMinor == 0 || out.versionMinor == 1) {
        out.LibraryId = out.versionMinor == 0 ? s.libraryNumber() : s.libraryId();
        for (int left = s.u8(); left > 0; --left) {
            Msg_MSEX_MEIN::MediaInformation r;
            r.Number = s.u8();
            r.DMXRangeMin = s.u8();
            r.DMXRangeMax = s.u8();
            r.Name = s.ucs2();
            r.Timestamp = s.u64();
            r.Width = s.u16();
            r.Height = s.u16();
            r.Length = s.u32();
            r.FrameRate = s.u8();
            out.Media.push_back(r);
        }
    } else if (out.versionMinor == 2) {
        out.LibraryId = s.libraryId();
        for (int left = s.u16(); left > 0; --left) {
            Msg_MSEX_MEIN::MediaInformation r;
            r.Number = s.u8();
            r.SerialNumber = s.u32();
            r.DMXRangeMin = s.u8();
            r.DMXRangeMax = s.u8();
            r.Name = s.ucs2();
            r.Timestamp = s.u64();
            r.Width = s.u16();
            r.Height = s.u16();
            r.Length = s.u32();
            r.FrameRate = s.u8();
            out.Media.push_back(r);
        }
    }
}

void parse(const QByteArray& msg, Msg_MSEX_EEIN& out)
{
    headers(msg, out);
    Stream s(msg);
    s.skip(26);
    if (out.versionMinor == 0 || out.versionMinor == 1) {
        out.LibraryId = out.versionMinor == 0 ? s.libraryNumber() : s.libraryId();
        for (int left = s.u8(); left > 0; --left) {
            Msg_MSEX_EEIN::EffectInformation r;
            r.Number = s.u8();
            r.DMXRangeMin = s.u8();
            r.DMXRangeMax = s.u8();
            r.EffectName = s.ucs2();
            for (int names = s.u8(); names > 0; --names)
                r.ParameterNames.push_back(s.ucs2());
            out.Effects.push_back(r);
        }
    } else if (out.versionMinor == 2) {
        out.LibraryId = s.libraryId();
        for (int left = s.u16(); left > 0; --left) {
            Msg_MSEX_EEIN::EffectInformation r;
            r.Number = s.u8();
            r.SerialNumber = s.u32();
            r.DMXRangeMin = s.u8();
            r.DMXRangeMax = s.u8();
            r.EffectName = s.ucs2();
            for (int names = s.u8(); names > 0; --names)
                r.ParameterNames.push_back(s.ucs2());
            out.Effects.push_back(r);
        }
    } else {
        out.valid = false;
    }
}

void parse(const QByteArray& msg, Msg_MSEX_GLEI& out)
{
    headers(msg, out);
    Stream s(msg);
    s.skip(26);
    if (out.versionMinor == 1) {
        out.LibraryId = s.libraryId();
        for (int left = s.u8(); left > 0; --left) {
            Msg_MSEX_GLEI::GenericInformation r;
            r.Number = s.u8();
            r.DMXRangeMin = s.u8();
            r.DMXRangeMax = s.u8();
            r.Name = s.ucs2();
            r.Timestamp = s.u64();
            out.Elements.push_back(r);
        }
    } else if (out.versionMinor == 2) {
        out.LibraryType = s.u8();
        out.LibraryId = s.libraryId();
        for (int left = s.u16(); left > 0; --left) {
            Msg_MSEX_GLEI::GenericInformation r;
            r.Number = s.u8();
            r.SerialNumber = s.u32();
            r.DMXRangeMin = s.u8();
            r.DMXRangeMax = s.u8();
            r.Name = s.ucs2();
            r.Timestamp = s.u64();
            out.Elements.push_back(r);
        }
    } else {
        out.valid = false;
    }
}

void parse(const QByteArray& msg, Msg_MSEX_LSTA& out)
{
    headers(msg, out);
    Stream s(msg);
    s.skip(26);
    const int layers = s.u8();
    if (out.versionMinor == 0) {
        for (int left = layers; left > 0; --left) {
            Msg_MSEX_LSTA::LayerStatus r;
            r.LayerNumber = s.u8();
            r.PhysicalOutput = s.u8();
            r.LibraryId = s.libraryNumber();
            r.MediaNumber = s.u8();
            r.MediaName = s.ucs2();
            r.MediaPosition = s.u32();
            r.MediaLength = s.u32();
            r.MediaFrameRate = s.u8();
            r.LayerStatusFlags = s.u32();
            out.Layers.push_back(r);
        }
    } else if (out.versionMinor == 2) {
        for (int left = layers; left > 0; --left) {
            Msg_MSEX_LSTA::LayerStatus r;
            r.LayerNumber = s.u8();
            r.PhysicalOutput = s.u8();
            r.LibraryType = s.u8();
            r.LibraryId = s.libraryId();
            r.MediaNumber = s.u8();
            r.MediaName = s.ucs2();
            r.MediaPosition = s.u32();
            r.MediaLength = s.u32();
            r.MediaFrameRate = s.u8();
            r.LayerStatusFlags = s.u32();
            out.Layers.push_back(r);
        }
    } else {
        out.valid = false;
    }
}

void parse(const QByteArray& msg, Msg_MSEX_ELTH& out)
{
    headers(msg, out);
    if (!out.valid || out.versionMinor > 2)
        return;
    Stream s(msg);
    s.skip(26);
    out.LibraryType = s.u8();
    out.LibraryId = out.versionMinor == 0 ? s.libraryNumber() : s.libraryId();
    picture(msg, s, out);
}

void parse(const QByteArray& msg, Msg_MSEX_ETHN& out)
{
    headers(msg, out);
    if (!out.valid)
        return;
    Stream s(msg);
    s.skip(26);
    out.LibraryType = s.u8();
    if (out.versionMinor > 2)
        return;
    out.LibraryId = out.versionMinor == 0 ? s.libraryNumber() : s.libraryId();
    out.ElementNumber = s.u8();
    picture(msg, s, out);
}

void parse(const QByteArray& msg, Msg_MSEX_SINF& out)
{
    headers(msg, out);
    if (out.versionMajor != 1 || out.versionMinor > 2) {
        out.valid = false;
        return;
    }
    Stream s(msg);
    s.skip(26);
    if (out.versionMinor < 2) {
        out.ProductName = s.ucs2();
        out.ProductVersionMajor = s.u8();
        out.ProductVersionMinor = s.u8();
        const int layers = s.u8();
        Stream sources(msg);
        sources.skip(26 + 2 * static_cast<int>(out.ProductName.size()) + 3);
        for (int left = layers; left > 0; --left)
            out.LayerDMXSources.push_back(sources.text8());
        return;
    }
    for (int left = 36; left > 0; --left)
        out.UUID += QChar(ushort(s.u8()));
    out.ProductName = s.ucs2();
    out.ProductVersionMajor = s.u8();
    out.ProductVersionMinor = s.u8();
    out.ProductVersionBugfix = s.u8();
    for (int left = s.u8(); left > 0; --left)
        out.SupportedMsexVersions.push_back(s.u16());
    out.SupportedLibraryTypes = s.u16();
    for (int left = s.u8(); left > 0; --left)
        out.ThumbnailFormats.push_back(s.u32());
    for (int left = s.u8(); left > 0; --left)
        out.StreamFormats.push_back(s.u32());
    for (int left = s.u8(); left > 0; --left)
        out.LayerDMXSources.push_back(s.text8());
}

bool same(const Msg_MSEX_ELIN& a, const Msg_MSEX_ELIN& b)
{
    return sameHeaders(a, b) && a.LibraryType == b.LibraryType && sameRecords(a.Libraries, b.Libraries);
}

bool same(const Msg_MSEX_ELUP& a, const Msg_MSEX_ELUP& b)
{
    return sameHeaders(a, b) && a.LibraryId == b.LibraryId && a.LibraryType == b.LibraryType &&
           a.UpdateFlags == b.UpdateFlags && a.AffectedElements == b.AffectedElements &&
           a.AffectedLibraries == b.AffectedLibraries;
}

bool same(const Msg_MSEX_MEIN& a, const Msg_MSEX_MEIN& b)
{
    return sameHeaders(a, b) && a.LibraryId == b.LibraryId && sameRecords(a.Media, b.Media);
}

bool same(const Msg_MSEX_EEIN& a, const Msg_MSEX_EEIN& b)
{
    return sameHeaders(a, b) && a.LibraryId == b.LibraryId && sameRecords(a.Effects, b.Effects);
}

bool same(const Msg_MSEX_GLEI& a, const Msg_MSEX_GLEI& b)
{
    return sameHeaders(a, b) && a.LibraryType == b.LibraryType && a.LibraryId == b.LibraryId &&
           sameRecords(a.Elements, b.Elements);
}

bool same(const Msg_MSEX_LSTA& a, const Msg_MSEX_LSTA& b)
{
    return sameHeaders(a, b) && sameRecords(a.Layers, b.Layers);
}

bool same(const Msg_MSEX_ELTH& a, const Msg_MSEX_ELTH& b)
{
    return sameThumbnails(a, b);
}

bool same(const Msg_MSEX_ETHN& a, const Msg_MSEX_ETHN& b)
{
    return sameThumbnails(a, b) && a.ElementNumber == b.ElementNumber;
}

bool same(const Msg_MSEX_SINF& a, const Msg_MSEX_SINF& b)
{
    return sameHeaders(a, b) && a.UUID == b.UUID && a.ProductName == b.ProductName &&
           a.ProductVersionMajor == b.ProductVersionMajor && a.ProductVersionMinor == b.ProductVersionMinor &&
           a.ProductVersionBugfix == b.ProductVersionBugfix && a.SupportedMsexVersions == b.SupportedMsexVersions &&
           a.SupportedLibraryTypes == b.SupportedLibraryTypes && a.ThumbnailFormats == b.ThumbnailFormats &&
           a.StreamFormats == b.StreamFormats && a.LayerDMXSources == b.LayerDMXSources;
}
} // namespace reference
