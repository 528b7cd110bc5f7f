// Debug texts: the library, QTextStream or asprintf(), and a copy of the finished text.
// SPDX-License-Identifier: Apache-2.0
#include "cases.h"
#include "samples.h"

#include <citp/citp_codecs.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_lsta.h>

#include <QTextStream>

using namespace CITP;

namespace bench {
namespace {
void writeLayer(QTextStream& stream, const Msg_MSEX& message)
{
    stream << "( rindex=" << message.requestIndex << " size=" << message.size << " content=" << message.contentType()
           << " ) ( MsexVersionMajor=" << message.versionMajor << " MsexVersionMinor=" << message.versionMinor
           << " Cookie=" << message.cookie << " ) ";
}

QString withQTextStream(const Msg_MSEX_LSTA& message)
{
    QString text;
    QTextStream stream(&text);
    writeLayer(stream, message);
    stream << " LayerCount=" << message.Layers.size();
    for (const auto& layer : message.Layers)
        stream << "\n\t#=" << int(layer.LayerNumber) << " PhysicalOutput=" << int(layer.PhysicalOutput)
               << " LibraryType=" << int(layer.LibraryType) << " LibraryID=" << layer.LibraryId
               << " MediaNumber=" << int(layer.MediaNumber) << " MediaName=" << layer.MediaName
               << " MediaPosition=" << layer.MediaPosition << " MediaLength=" << layer.MediaLength
               << " MediaFPS=" << int(layer.MediaFrameRate) << " LayerStatusFlags=" << layer.LayerStatusFlags;
    stream.flush();
    return text;
}

QString withQTextStream(const Msg_MSEX_MEIN& message)
{
    QString text;
    QTextStream stream(&text);
    writeLayer(stream, message);
    stream << " LibraryId=" << message.LibraryId << '\n';
    for (const auto& medium : message.Media)
        stream << "Number=" << int(medium.Number) << " SerialNumber=" << medium.SerialNumber
               << " DMXRangeMin=" << int(medium.DMXRangeMin) << " DMXRangMax=" << int(medium.DMXRangeMax)
               << " Name=" << medium.Name << " Timestamp=" << quint32(medium.Timestamp)
               << " MediaWidth=" << medium.Width << " MediaHeight=" << medium.Height << " Length=" << medium.Length
               << " FPS=" << int(medium.FrameRate) << '\n';
    stream.flush();
    return text;
}

QString dumpWithAsprintf(const QByteArray& data)
{
    QString text;
    for (int start = 0; start < data.size(); start += 16) {
        const int count = qMin(16, static_cast<int>(data.size()) - start);
        text += QString::asprintf("%010d  ", start);
        for (int i = 0; i < 16; ++i)
            text += i < count ? QString::asprintf("%02x ", static_cast<unsigned char>(data[start + i]))
                              : QStringLiteral("   ");
        for (int i = 0; i < count; ++i) {
            const char character = data[start + i];
            text += QLatin1Char(character >= 0x20 && character < 0x7f ? character : '.');
        }
        if (count == 16)
            text += QLatin1Char('\n');
    }
    return text;
}

void addCopy(const std::string& name, const QString& text)
{
    add("Text/" + name + "/copy", [text] {
        const QString copy(text.constData(), text.size());
        benchmark::DoNotOptimize(copy.constData());
    });
}

template <typename Message>
void addText(const std::string& name, const QByteArray& bytes)
{
    const Message message(bytes);
    QString whole;
    whole >> message;
    requireSame(whole == withQTextStream(message), name.c_str());
    add("Text/" + name + "/library", [message] {
        QString text;
        text >> message;
        benchmark::DoNotOptimize(text.constData());
    });
    add("Text/" + name + "/qtextstream", [message] {
        const QString text = withQTextStream(message);
        benchmark::DoNotOptimize(text.constData());
    });
    addCopy(name, whole);
}

void addDump(const std::string& name, const QByteArray& bytes)
{
    requireSame(hexDump(bytes) == dumpWithAsprintf(bytes), name.c_str());
    add("Text/" + name + "/library", [bytes] {
        const QString text = hexDump(bytes);
        benchmark::DoNotOptimize(text.constData());
    });
    add("Text/" + name + "/asprintf", [bytes] {
        const QString text = dumpWithAsprintf(bytes);
        benchmark::DoNotOptimize(text.constData());
    });
    addCopy(name, hexDump(bytes));
}
} // namespace

void addTextCases()
{
    addText<Msg_MSEX_LSTA>("LSta7", lstaBytes(7, 20));
    addText<Msg_MSEX_MEIN>("MEIn255", meinBytes(255));
    addDump("hexDump500", lstaBytes(7, 22));
    addDump("hexDump30K", ethnBytes(30000));
}
} // namespace bench
