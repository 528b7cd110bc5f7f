// The faults with their help texts, and when they are injected.
// SPDX-License-Identifier: Apache-2.0
#include "faults.h"

#include "changes.h"
#include "lists.h"
#include "messages.h"
#include "wire.h"

namespace MediaServer {
const std::vector<FaultDescription>& faultDescriptions()
{
    static const std::vector<FaultDescription> all = {
        {Fault::Delay, "delay", "the answers to a request are delayed by --fault-delay"},
        {Fault::Silence, "silence", "a request is not answered"},
        {Fault::Split, "split", "an answer is sent byte by byte, each in its own TCP segment"},
        {Fault::Merge, "merge", "answers are collected and sent together, up to four in one segment"},
        {Fault::LyingCount, "lying-count",
         "a list or a layer status declares as many entries as its count field can hold, and contains none",
         withLyingCount, Lists},
        {Fault::WrongKind, "wrong-kind", "a list of media is sent as an empty list of effects, and the reverse",
         ofWrongKind, "MEIn EEIn"},
        {Fault::LongName, "long-name", "the name of a fixture of the patch has 1 MiB", withLongName, "Ptch"},
        {Fault::Truncate, "truncate",
         "the body of an answer is truncated at a random position; its size field is adjusted", truncated},
        {Fault::Spoil, "spoil", "the picture of a thumbnail consists of random bytes", withSpoiledPicture, Thumbnails},
        {Fault::Oversize, "oversize", "a thumbnail declares more bytes than the message contains", oversized,
         Thumbnails},
        {Fault::Version, "version", "an answer has an MSEX version that does not exist, 1.3 to 1.9",
         withUnknownVersion},
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
        {Fault::ZeroSize, "zero-size", "the size field of an answer is 0", withZeroSize},
        {Fault::EndlessSize, "endless-size", "the size field of an answer is 4294967295", withEndlessSize},
        {Fault::Drip, "drip", "an answer is sent byte by byte, with --fault-delay between two bytes"},
        {Fault::Stall, "stall", "an answer stops in the middle and nothing follows, but the connection stays open"},
        {Fault::LyingSinf, "lying-sinf", "the SInf declares 255 layers and contains none"},
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
        {Fault::CitpVersion, "citp-version", "the CITP version in the header of an answer is 2.0", withForeignCitp},
        {Fault::OldVersion, "old-version", "an answer says that it is of MSEX 1.0, in the layout of its own version",
         ofOldVersion},
        {Fault::OwnVersion, "own-version", "a request in an MSEX version other than the server's own is not answered"},
        {Fault::PartCount, "part-count", "an answer says that it is the first of two parts", withSecondPart},
        {Fault::Layer, "layer", "the content type in the header of an answer is MSEY, PINY or FPTY", ofForeignLayer},
        {Fault::Code, "code", "the content code of an answer is ABCD", ofForeignCode},
        {Fault::Index, "index", "an answer has a request index that nobody sent", withForeignIndex},
        {Fault::Trailing, "trailing", "three bytes follow the last field of an answer, within its size",
         withTrailingBytes},
        {Fault::Unterminated, "unterminated", "a text of an answer has no terminator", withoutTerminator},
        {Fault::Nameless, "nameless",
         "a name in an answer is empty: of the first entry of a list, the product, the peer", withoutName},
        {Fault::PlocType, "ploc-type", "the server announces itself as a peer of the type Visualizer", ofForeignType,
         "PLoc"},
        {Fault::PlocPort, "ploc-port", "the server announces itself with port 0", withoutPort, "PLoc"},
        {Fault::PlocState, "ploc-state", "the server announces itself without a state", withoutState, "PLoc"},
        {Fault::PlocChanging, "ploc-changing", "each announcement has another port", withOtherPort, "PLoc"},
        {Fault::SinfVersions, "sinf-versions", "the SInf of a 1.2 server does not list MSEX 1.2", withoutOwnVersion,
         "SInf"},
        {Fault::SinfTypes, "sinf-types", "the SInf of a 1.2 server lists a library type of which it has no libraries",
         withMoreTypes, "SInf"},
        {Fault::SinfFormats, "sinf-formats", "the SInf of a 1.2 server lists no picture format", withoutFormats,
         "SInf"},
        {Fault::SinfPng, "sinf-png", "the SInf of a 1.2 server does not list PNG", withoutPng, "SInf"},
        {Fault::SinfUuid, "sinf-uuid", "the UUID in the SInf of a 1.2 server consists of question marks", withWrongUuid,
         "SInf"},
        {Fault::SinfLayers, "sinf-layers", "the SInf lists a layer too many", withMoreLayers, "SInf"},
        {Fault::SinfChanging, "sinf-changing", "each SInf has another product name", withOtherProduct, "SInf"},
        {Fault::NeedsName, "needs-name", "a CInf that no PNam precedes is not answered"},
        {Fault::NeedsClient, "needs-client", "a connection is reset that sends an SPtc before its CInf"},
        {Fault::NeedsWhole, "needs-whole", "a message that does not arrive in one piece is lost"},
        {Fault::FirstOnly, "first-only", "of messages that arrive together only the first is read"},
        {Fault::SingleMinded, "single-minded", "requests that arrive while another one is being answered are lost"},
        {Fault::Once, "once", "a second CInf resets the connection"},
        {Fault::Exact, "exact", "a message with bytes behind its last field resets the connection"},
        {Fault::Strict, "strict", "a message that the server does not know resets the connection"},
        {Fault::OneConsole, "one-console", "while a console is connected, others are turned away"},
        {Fault::OneVisit, "one-visit", "once a console has left, connections are turned away"},
        {Fault::Jilts, "jilts", "a new connection ends the ones before it"},
        {Fault::Impatient, "impatient", "a connection is reset when the console has not read 64 KiB"},
        {Fault::IdleClose, "idle-close", "a connection is reset on which nothing was received for --fault-delay"},
        {Fault::Early, "early", "a layer status precedes the SInf"},
        {Fault::LateSinf, "late-sinf", "the SInf is sent --fault-delay after the CInf"},
        {Fault::IgnoresNumbers, "ignores-numbers", "a request for certain numbers is answered with all"},
        {Fault::FirstNumber, "first-number", "of several numbers in a request only the first is answered"},
        {Fault::NeedsNumbers, "needs-numbers", "a request for all pictures or all fixtures is not answered"},
        {Fault::UnknownSilent, "unknown-silent",
         "a request for what does not exist is not answered with an empty list"},
        {Fault::Invents, "invents", "a request for what does not exist is answered with something that exists"},
        {Fault::WrongType, "wrong-type", "an ELIn, ELTh or EThn names another library type", ofWrongType,
         "ELIn ELTh EThn"},
        {Fault::WrongLibrary, "wrong-library",
         "an answer about elements or pictures, or an ELUp, names another library", ofWrongLibrary,
         "MEIn EEIn GLEI ELTh EThn ELUp"},
        {Fault::WrongNumber, "wrong-number", "the first entry of a list has the number 250", withWrongNumber,
         "ELIn MEIn EEIn GLEI"},
        {Fault::Twin, "twin", "the second entry of a list has the number of the first", withTwin,
         "ELIn MEIn EEIn GLEI LSta"},
        {Fault::WrongLevel, "wrong-level", "the libraries of a list have the identifiers of another level",
         ofWrongLevel, "ELIn"},
        {Fault::DmxRange, "dmx-range", "the lowest DMX value of the first entry of a list is above the highest",
         withWrongRange, "ELIn MEIn EEIn GLEI"},
        {Fault::SubCount, "sub-count", "the first library of a list tells of one sub-library too many",
         withMoreLibraries, "ELIn"},
        {Fault::ElementCount, "element-count", "the first library of a list tells of one element too many",
         withMoreElements, "ELIn"},
        {Fault::SerialChanging, "serial-changing", "the serial numbers of a list change with each answer",
         withOtherSerial, "ELIn MEIn EEIn GLEI"},
        {Fault::BlankMedia, "blank-media", "the first element of a MEIn has no size, length and frame rate",
         ofBlankMedia, "MEIn"},
        {Fault::Milliseconds, "milliseconds", "the time of the first element is in milliseconds", inMilliseconds,
         "MEIn GLEI"},
        {Fault::WrongSize, "wrong-size", "a thumbnail says that it is one pixel wider than it is", withWrongSize,
         Thumbnails},
        {Fault::WrongElement, "wrong-element", "an EThn names another element", ofWrongElement, "EThn"},
        {Fault::IgnoresSize, "ignores-size", "thumbnails are up to twice as large as requested"},
        {Fault::Distort, "distort", "thumbnails have half the height that they should have", distorted, Thumbnails},
        {Fault::WrongFormat, "wrong-format", "thumbnails are in another format than requested"},
        {Fault::PaddedRows, "padded-rows", "the rows of RGB8 thumbnails have three more bytes", withPaddedRows,
         Thumbnails},
        {Fault::LayerNumber, "layer-number", "the first layer of a layer status has the number 200", withWrongLayer,
         "LSta"},
        {Fault::LayerPosition, "layer-position", "the first layer is at a position beyond the end of its clip",
         withWrongPosition, "LSta"},
        {Fault::LayerLibrary, "layer-library", "the first layer plays from a library that does not exist",
         withUnknownLibrary, "LSta"},
        {Fault::LayerElement, "layer-element", "the first layer plays an element that does not exist",
         withUnknownElement, "LSta"},
        {Fault::LayerName, "layer-name", "the first layer gives its element another name", withWrongLayerName, "LSta"},
        {Fault::LayerFlags, "layer-flags", "the flags of the first layer are all set", withAllFlags, "LSta"},
        {Fault::LayerRate, "layer-rate", "the first layer plays 0 frames a second", withoutFrameRate, "LSta"},
        {Fault::LayerCount, "layer-count", "a layer status leaves the last layer out", withoutLastLayer, "LSta"},
        {Fault::FixtureChannel, "fixture-channel", "a fixture of the patch has the channel 600", withWrongChannel,
         "Ptch"},
        {Fault::FixtureCount, "fixture-count", "a fixture of the patch has no channels", withoutChannels, "Ptch"},
        {Fault::FixtureNumber, "fixture-number", "all fixtures of the patch have the number 1", withSameFixture,
         "Ptch"},
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

// Whether @p message is one of those that @p fault changes.
bool Faults::isChanged(const FaultDescription& fault, const QByteArray& message) const
{
    const QString code = contentCode(message);
    const QStringList own = QString(fault.codes).split(' ');
    const bool isGeneral = *fault.codes == 0;
    if (!isGeneral && !own.contains(code))
        return false;
    static const QStringList others{"SInf", "PLoc", "LSta", "ELUp"};
    return m_plan.codes.isEmpty() ? !isGeneral || !others.contains(code) : m_plan.codes.contains(code);
}

QByteArray Faults::changed(QByteArray message, QStringList& injected)
{
    for (const FaultDescription& fault : faultDescriptions()) {
        if (!fault.change || !isEnabled(fault.fault) || !isChanged(fault, message) || !shouldInject(fault.fault))
            continue;
        message = fault.change(*this, message);
        injected << fault.name;
    }
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
