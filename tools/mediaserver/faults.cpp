// The damage, done to finished messages.
// SPDX-License-Identifier: Apache-2.0
#include "faults.h"

#include "messages.h"
#include "wire.h"

namespace MediaServer {
namespace {
void setSize(QByteArray& bytes)
{
    const auto size = static_cast<quint32>(bytes.size());
    for (int i = 0; i < 4; ++i)
        bytes[8 + i] = static_cast<char>((size >> (8 * i)) & 0xFF);
}

bool isMsex(const QByteArray& message)
{
    return message.mid(16, 4) == "MSEX" && message.size() >= MsexHeaderSize;
}

// Where a thumbnail tells the size of the picture that follows; -1 if it is none, or cut before that.
int pictureSizeField(const QByteArray& message)
{
    const QByteArray code = message.mid(22, 4);
    if (!isMsex(message) || (code != "ELTh" && code != "EThn"))
        return -1;
    // Behind the type come the library, for an element its number, then format, width and height.
    const int library = message.at(21) == 0 ? 1 : 4;
    const int sizeField = MsexHeaderSize + 1 + library + (code == "EThn" ? 1 : 0) + 8;
    return message.size() < sizeField + 2 ? -1 : sizeField;
}
} // namespace

const std::vector<FaultDescription>& faultDescriptions()
{
    static const std::vector<FaultDescription> all = {
        {Fault::Delay, "delay", "the answers to a request come --fault-delay late"},
        {Fault::Silence, "silence", "a request is not answered"},
        {Fault::Split, "split", "an answer comes in single bytes, each in a segment of its own"},
        {Fault::Merge, "merge", "answers wait for one another and come together, up to four in one segment"},
        {Fault::Truncate, "truncate", "an answer's body is cut at a random place; its size field is that of the rest"},
        {Fault::Oversize, "oversize", "a thumbnail announces more bytes than the message holds"},
        {Fault::Version, "version", "an answer carries an MSEX version that does not exist, 1.3 to 1.9"},
        {Fault::Garbage, "garbage",
         "20 to 200 random bytes come before an answer; where a header has its size field "
         "they tell their number, so that a reader can pass over them"},
        {Fault::Noise, "noise", "20 to 200 random bytes come before an answer, and nothing tells where they end"},
        {Fault::Reset, "reset", "the connection is reset in the middle of an answer"},
        {Fault::Storm, "storm", "each announcement is 300 datagrams: its own, foreign ones, cut and damaged ones"},
        {Fault::Refuse, "refuse", "it announces itself, but the port that it announces is closed"},
        {Fault::Mute, "mute", "a console's client information is not answered with an SInf"},
        {Fault::OddSinf, "odd-sinf", "the SInf carries an MSEX version that does not exist, 1.3 to 1.9"},
        {Fault::Spoil, "spoil", "a thumbnail's picture is random bytes"},
    };
    return all;
}

bool Faults::strikes(Fault fault)
{
    return (m_plan.faults & static_cast<quint32>(fault)) != 0 && pick(1, 100) <= m_plan.rate;
}

// Not a library distribution, whose results may differ from one library to the next.
int Faults::pick(int lowest, int highest)
{
    return lowest + static_cast<int>(m_random() % static_cast<quint32>(highest - lowest + 1));
}

QByteArray Faults::randomBytes(int count)
{
    QByteArray bytes;
    for (int i = 0; i < count; ++i)
        bytes.append(static_cast<char>(pick(0, 255)));
    return bytes;
}

QByteArray Faults::truncated(QByteArray message)
{
    const int headers = isMsex(message) ? MsexHeaderSize : FptcHeaderSize;
    if (message.size() <= headers)
        return message;
    message.truncate(pick(headers, static_cast<int>(message.size()) - 1));
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

QByteArray Faults::spoiled(QByteArray message)
{
    const int sizeField = pictureSizeField(message);
    if (sizeField < 0)
        return message;
    const int picture = sizeField + 2;
    return message.left(picture) + randomBytes(static_cast<int>(message.size()) - picture);
}

QByteArray Faults::misversioned(QByteArray message)
{
    if (isMsex(message))
        message[21] = static_cast<char>(pick(3, 9));
    return message;
}

QByteArray Faults::garbage()
{
    QByteArray bytes = randomBytes(pick(HeaderSize, 200));
    bytes[0] = 'X';
    setSize(bytes);
    return bytes;
}

QByteArray Faults::noise()
{
    QByteArray bytes = randomBytes(pick(HeaderSize, 200));
    bytes[0] = 'X';
    return bytes;
}

QByteArray Faults::stormPiece(const QByteArray& announcement)
{
    switch (pick(0, 3)) {
        case 0:
            return announcement;
        case 1:
            return peerLocation(QString("Storm %1").arg(pick(0, 9999)), 0);
        case 2:
            return announcement.left(pick(0, static_cast<int>(announcement.size()) - 1));
        default: {
            QByteArray damaged = announcement;
            // Not the port: a console shall not be sent to a service that is none of ours.
            damaged[pick(0, 23)] = static_cast<char>(pick(0, 255));
            return damaged;
        }
    }
}
} // namespace MediaServer
