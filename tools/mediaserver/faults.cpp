// Modification of complete messages.
// SPDX-License-Identifier: Apache-2.0
#include "faults.h"

#include "messages.h"
#include "wire.h"

namespace MediaServer {
namespace {
constexpr int LongNameSize = 1024 * 1024;

bool isMsex(const QByteArray& message)
{
    return message.mid(16, 4) == "MSEX" && message.size() >= MsexHeaderSize;
}

// The offset of the picture size in a thumbnail message; -1 in other messages and if the message is truncated.
int pictureSizeField(const QByteArray& message)
{
    const QByteArray code = message.mid(22, 4);
    if (!isMsex(message) || (code != "ELTh" && code != "EThn"))
        return -1;
    // The fields after the type: library, element number (EThn only), format, width, height.
    const int library = message.at(21) == 0 ? 1 : 4;
    const int sizeField = MsexHeaderSize + 1 + library + (code == "EThn" ? 1 : 0) + 8;
    return message.size() < sizeField + 2 ? -1 : sizeField;
}
// The offset of the count in a list or a layer status; -1 in other messages and if the message is truncated.
int countField(const QByteArray& message)
{
    if (!isMsex(message))
        return -1;
    const QByteArray code = message.mid(22, 4);
    const int library = message.at(21) == 0 ? 1 : 4;
    int fields = -1;
    if (code == "LSta")
        fields = 0;
    else if (code == "ELIn")
        fields = 1;
    else if (code == "MEIn" || code == "EEIn")
        fields = library;
    else if (code == "GLEI")
        fields = message.at(21) >= 2 ? 1 + library : library;
    return fields < 0 || message.size() <= MsexHeaderSize + fields ? -1 : MsexHeaderSize + fields;
}

// Removes everything behind the count, each byte of which becomes @p value.
QByteArray withCount(const QByteArray& message, char value)
{
    const int field = countField(message);
    if (field < 0)
        return message;
    const bool isWide = message.at(21) >= 2 && message.mid(22, 4) != "LSta";
    QByteArray changed = message.left(field) + QByteArray(isWide ? 2 : 1, value);
    setSize(changed);
    return changed;
}
} // namespace

const std::vector<FaultDescription>& faultDescriptions()
{
    static const std::vector<FaultDescription> all = {
        {Fault::Delay, "delay", "the answers to a request are delayed by --fault-delay"},
        {Fault::Silence, "silence", "a request is not answered"},
        {Fault::Split, "split", "an answer is sent byte by byte, each in its own TCP segment"},
        {Fault::Merge, "merge", "answers are collected and sent together, up to four in one segment"},
        {Fault::Truncate, "truncate",
         "the body of an answer is truncated at a random position; its size field is adjusted"},
        {Fault::Oversize, "oversize", "a thumbnail declares more bytes than the message contains"},
        {Fault::Version, "version", "an answer has an MSEX version that does not exist, 1.3 to 1.9"},
        {Fault::Garbage, "garbage",
         "20 to 200 random bytes precede an answer, with a valid size field at the position of "
         "the header's, so that a receiver can skip them"},
        {Fault::Noise, "noise", "20 to 200 random bytes without a valid size field precede an answer"},
        {Fault::Reset, "reset", "the connection is reset in the middle of an answer"},
        {Fault::Storm, "storm",
         "each announcement is sent as 300 datagrams: its own, foreign, truncated and damaged ones"},
        {Fault::Refuse, "refuse", "the announced port is closed"},
        {Fault::Mute, "mute", "a CInf is not answered with an SInf"},
        {Fault::OddSinf, "odd-sinf", "the SInf has an MSEX version that does not exist, 1.3 to 1.9"},
        {Fault::Spoil, "spoil", "the picture of a thumbnail consists of random bytes"},
        {Fault::ZeroSize, "zero-size", "the size field of an answer is 0"},
        {Fault::EndlessSize, "endless-size", "the size field of an answer is 4294967295"},
        {Fault::Drip, "drip", "an answer is sent byte by byte, with --fault-delay between two bytes"},
        {Fault::Stall, "stall", "an answer stops in the middle and nothing follows, but the connection stays open"},
        {Fault::LyingCount, "lying-count",
         "a list or a layer status declares as many entries as its count field can hold, and contains none"},
        {Fault::LyingSinf, "lying-sinf", "the SInf declares 255 layers and contains none"},
        {Fault::WrongKind, "wrong-kind", "a list of media is sent as an empty list of effects, and the reverse"},
        {Fault::LongName, "long-name", "the name of a fixture of the patch has 1 MiB"},
        {Fault::Unread, "unread", "nothing is read from a connection after the CInf"},
        {Fault::LayerFlood, "layer-flood",
         "layer status messages are sent as fast as the console reads; the other faults affect them like answers"},
        {Fault::ListFlood, "list-flood", "the same with lists of libraries and of media that nobody has requested"},
        {Fault::UpdateFlood, "update-flood", "the same with ELUp messages, each about another library"},
        {Fault::Unplug, "unplug",
         "a server that vanishes by --die-after falls silent as if its cable were pulled, and comes back by "
         "--revive-after as if it were plugged in again"},
        {Fault::Forge, "forge",
         "in each interval, --forged servers that do not exist are announced; see also --forged-from"},
    };
    return all;
}

bool Faults::shouldInject(Fault fault)
{
    return isEnabled(fault) && random(1, 100) <= m_plan.rate;
}

// std::uniform_int_distribution is not used, because its results depend on the standard library.
int Faults::random(int min, int max)
{
    return min + static_cast<int>(m_generator() % static_cast<quint32>(max - min + 1));
}

QByteArray Faults::randomBytes(int count)
{
    QByteArray bytes;
    for (int i = 0; i < count; ++i)
        bytes.append(static_cast<char>(random(0, 255)));
    return bytes;
}

QByteArray Faults::withLyingCount(const QByteArray& message)
{
    return withCount(message, '\xFF');
}

QByteArray Faults::ofWrongKind(const QByteArray& message)
{
    const QByteArray code = message.mid(22, 4);
    if (!isMsex(message) || (code != "MEIn" && code != "EEIn"))
        return message;
    return withCount(message, 0).replace(22, 1, code == "MEIn" ? "E" : "M");
}

QByteArray Faults::withLongName(QByteArray message)
{
    if (message.mid(16, 8) != "FPTCPtch")
        return message;
    message.chop(1);
    message += QByteArray(LongNameSize, 'N') + '\0';
    setSize(message);
    return message;
}

QByteArray Faults::truncated(QByteArray message)
{
    const int headers = isMsex(message) ? MsexHeaderSize : FptcHeaderSize;
    if (message.size() <= headers)
        return message;
    message.truncate(random(headers, static_cast<int>(message.size()) - 1));
    setSize(message);
    return message;
}

QByteArray Faults::oversized(QByteArray message)
{
    const int sizeField = pictureSizeField(message);
    if (sizeField < 0)
        return message;
    message[sizeField] = '\xFF';
    message[sizeField + 1] = '\xFF';
    if (message.size() >= sizeField + 2 + 0xFFFF) {
        message.chop(1);
        setSize(message);
    }
    return message;
}

QByteArray Faults::withSpoiledPicture(QByteArray message)
{
    const int sizeField = pictureSizeField(message);
    if (sizeField < 0)
        return message;
    const int picture = sizeField + 2;
    return message.left(picture) + randomBytes(static_cast<int>(message.size()) - picture);
}

QByteArray Faults::withUnknownVersion(QByteArray message)
{
    if (isMsex(message))
        message[21] = static_cast<char>(random(3, 9));
    return message;
}

QByteArray Faults::garbage()
{
    QByteArray bytes = randomBytes(random(HeaderSize, 200));
    bytes[0] = 'X';
    setSize(bytes);
    return bytes;
}

QByteArray Faults::noise()
{
    QByteArray bytes = randomBytes(random(HeaderSize, 200));
    bytes[0] = 'X';
    return bytes;
}

QByteArray Faults::stormDatagram(const QByteArray& announcement)
{
    switch (random(0, 3)) {
        case 0:
            return announcement;
        case 1:
            return peerLocation(QString("Storm %1").arg(random(0, 9999)), 0);
        case 2:
            return announcement.left(random(0, static_cast<int>(announcement.size()) - 1));
        default: {
            QByteArray damaged = announcement;
            // The port is not damaged, because a console would connect to an unrelated service.
            damaged[random(0, 23)] = static_cast<char>(random(0, 255));
            return damaged;
        }
    }
}
} // namespace MediaServer
