// Selects the message class by layer and content code and reads its debug text.
// SPDX-License-Identifier: Apache-2.0
#include "message_text.h"

#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_sinf.h>
#include <citp/citp_msg_msex_thumbnails.h>
#include <citp/citp_msg_peer.h>
#include <citp/citp_options.h>

#include <QHash>

#include "capture/message_cutter.h"

namespace Console {
namespace {
using namespace CITP;

struct Reading
{
    QString text;
    bool isValid;
    QString problem; ///< in addition to #isValid
};

template <typename Message>
Reading read(const QByteArray& bytes)
{
    const Message message(bytes);
    Reading reading{{}, message.valid, {}};
    reading.text >> message;
    return reading;
}

// The first bytes of a body that the library does not parse.
QString bodyText(const QByteArray& body)
{
    constexpr int MaxBytes = 64;
    if (body.isEmpty())
        return {};
    const QByteArray shown = body.left(MaxBytes);
    return " body=" + QString::fromLatin1(shown.toHex(' ')) + (body.size() > MaxBytes ? " ..." : "");
}

template <typename Layer, int BodyOffset>
Reading readLayer(const QByteArray& bytes)
{
    Reading reading = read<Layer>(bytes);
    reading.text = reading.text.trimmed() + bodyText(bytes.mid(BodyOffset));
    return reading;
}

// The debug text of an SInf does not include the headers, so they are added.
Reading readServerInformation(const QByteArray& bytes)
{
    Reading reading = read<Msg_MSEX_SINF>(bytes);
    QString headers;
    headers >> Msg_MSEX(bytes);
    reading.text.prepend(headers.trimmed());
    return reading;
}

Reading readName(const QByteArray& bytes)
{
    Reading reading = read<Msg_PEER>(bytes);
    reading.text += " name=" + Msg_PEER_PNAM(bytes).name;
    return reading;
}

template <typename Message>
Reading readThumbnail(const QByteArray& bytes)
{
    Reading reading = read<Message>(bytes);
    if (reading.isValid && Message(bytes).ThumbnailBuffer.isEmpty())
        reading.problem = "contains no readable picture";
    return reading;
}

using ReadFunction = Reading (*)(const QByteArray&);

// Messages of both directions. Only PNam is sent in both, with the same layout.
ReadFunction readerFor(const QString& layer, const QString& code)
{
    static const QHash<QString, ReadFunction> all{
        {"PINFPLoc", read<Msg_PEER_PLOC>},          {"PINFPNam", readName},
        {"MSEXSInf", readServerInformation},        {"MSEXELIn", read<Msg_MSEX_ELIN>},
        {"MSEXELUp", read<Msg_MSEX_ELUP>},          {"MSEXMEIn", read<Msg_MSEX_MEIN>},
        {"MSEXEEIn", read<Msg_MSEX_EEIN>},          {"MSEXGLEI", read<Msg_MSEX_GLEI>},
        {"MSEXLSta", read<Msg_MSEX_LSTA>},          {"MSEXELTh", readThumbnail<Msg_MSEX_ELTH>},
        {"MSEXEThn", readThumbnail<Msg_MSEX_ETHN>}, {"FPTCPtch", read<Msg_FPTC_PTCH>},
    };
    const ReadFunction reader = all.value(layer + code);
    if (reader)
        return reader;
    if (layer == QLatin1String("MSEX"))
        return readLayer<Msg_MSEX, Msg_MSEX::MIN_MSEX_LENGTH>;
    if (layer == QLatin1String("FPTC"))
        return readLayer<Msg_FPTC, 28>;
    if (layer == QLatin1String("PINF"))
        return readLayer<Msg_PEER, 24>;
    return readLayer<Msg_Header, Tools::MessageHeader::Length>;
}

// The library lists as many records as announced, with empty fields where the bytes end. A few bytes would become
// megabytes of text.
QString excessOf(const QByteArray& bytes)
{
    int announced = 0;
    int possible = 0;
    if (!citp_options::hasWrongCount(bytes, &announced, &possible))
        return {};
    return QString("announces %1 records, but its bytes hold at most %2").arg(announced).arg(possible);
}

QString problemOf(const QByteArray& bytes, const Reading& reading)
{
    const Msg_Header header(bytes);
    if (header.cookie != QLatin1String("CITP"))
        return "does not begin with CITP";
    if (header.citpMajor != 1 || header.citpMinor != 0)
        return QString("CITP version %1.%2, not 1.0").arg(header.citpMajor).arg(header.citpMinor);
    if (!header.valid)
        return QString("declares %1 bytes but has %2").arg(header.size).arg(bytes.size());
    if (!reading.isValid && header.contentType() == QLatin1String("MSEX")) {
        const Msg_MSEX layer(bytes);
        return QString("not accepted in MSEX version %1.%2").arg(layer.versionMajor).arg(layer.versionMinor);
    }
    return reading.isValid ? reading.problem : QString("too short");
}
} // namespace

MessageText describeMessage(const QByteArray& message)
{
    const Tools::MessageHeader header = Tools::MessageHeader::read(message);
    const QString excess = excessOf(message);
    Reading reading = excess.isEmpty() ? readerFor(header.layer, header.code)(message)
                                       : readLayer<Msg_MSEX, Msg_MSEX::MIN_MSEX_LENGTH>(message);
    if (!excess.isEmpty())
        reading.problem = excess;
    const QString problem = problemOf(message, reading);
    return {header.layer, header.code, reading.text.trimmed(), problem, !reading.isValid || !excess.isEmpty()};
}
} // namespace Console
