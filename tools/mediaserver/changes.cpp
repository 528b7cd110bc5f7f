// Finds fields in messages of all MSEX versions and changes them.
// SPDX-License-Identifier: Apache-2.0
#include "changes.h"

#include <QBuffer>
#include <QImage>
#include <vector>

#include "lists.h"
#include "wire.h"

namespace MediaServer {
namespace {
constexpr int LongNameSize = 1024 * 1024;
const QByteArray EmptyText(2, '\0'); // UCS-2

// The offset of the picture size in a thumbnail message; -1 if the message is truncated.
int pictureSizeField(const QByteArray& message)
{
    // The fields after the type: library, element number (EThn only), format, width, height.
    const int sizeField = MsexHeaderSize + 1 + libraryWidth(message) + (contentCode(message) == "EThn" ? 1 : 0) + 8;
    return message.size() < sizeField + 2 ? -1 : sizeField;
}

// Removes everything behind the count, each byte of which becomes @p value.
QByteArray withCount(const QByteArray& message, char value)
{
    const int field = countField(message);
    if (field < 0)
        return message;
    QByteArray changed = message.left(field) + QByteArray(countWidth(message), value);
    setSize(changed);
    return changed;
}

QByteArray replaced(QByteArray message, int at, int count, const QByteArray& bytes)
{
    if (at < 0 || at + count > message.size())
        return message;
    message.replace(at, count, bytes);
    setSize(message);
    return message;
}

// Replaces a field of the first entry.
QByteArray withField(const QByteArray& message, int Entry::*field, int offset, const QByteArray& bytes)
{
    const std::vector<Entry> entries = entriesOf(message);
    const int at = entries.empty() ? -1 : entries.front().*field;
    return at < 0 ? message : replaced(message, at + offset, static_cast<int>(bytes.size()), bytes);
}

// The offset of the main name of a message: of the first entry, the product, the peer, the fixture. -1 if there is
// none.
int nameField(const QByteArray& message)
{
    const QString code = contentCode(message);
    if (code == "SInf")
        return MsexHeaderSize + (minorOf(message) >= 2 ? 36 : 0);
    if (code == "PLoc")
        return static_cast<int>(message.indexOf('\0', 26)) + 1;
    if (code == "Ptch")
        return static_cast<int>(message.indexOf('\0', FptcHeaderSize + 8)) + 1;
    const std::vector<Entry> entries = entriesOf(message);
    return entries.empty() ? -1 : entries.front().name;
}
} // namespace

// --- All messages ----------------------------------------------------------------------------------------------------

QByteArray truncated(Faults& faults, const QByteArray& message)
{
    const int headers = isMsex(message) ? MsexHeaderSize : FptcHeaderSize;
    if (message.size() <= headers)
        return message;
    QByteArray changed = message.left(faults.random(headers, static_cast<int>(message.size()) - 1));
    setSize(changed);
    return changed;
}

QByteArray withUnknownVersion(Faults& faults, const QByteArray& message)
{
    return isMsex(message) ? replaced(message, 21, 1, QByteArray(1, static_cast<char>(faults.random(3, 9)))) : message;
}

QByteArray withZeroSize(Faults&, const QByteArray& message)
{
    QByteArray changed = message;
    setSize(changed, 0);
    return changed;
}

QByteArray withEndlessSize(Faults&, const QByteArray& message)
{
    QByteArray changed = message;
    setSize(changed, 0xFFFFFFFF);
    return changed;
}

QByteArray withForeignCitp(Faults&, const QByteArray& message)
{
    return replaced(message, 4, 1, "\x02");
}

QByteArray ofOldVersion(Faults&, const QByteArray& message)
{
    return isMsex(message) ? replaced(message, 21, 1, QByteArray(1, '\0')) : message;
}

QByteArray withSecondPart(Faults&, const QByteArray& message)
{
    return replaced(message, 12, 1, "\x02");
}

QByteArray ofForeignLayer(Faults&, const QByteArray& message)
{
    return replaced(message, 19, 1, "Y");
}

QByteArray ofForeignCode(Faults&, const QByteArray& message)
{
    return replaced(message, isMsex(message) ? 22 : 20, 4, "ABCD");
}

QByteArray withForeignIndex(Faults&, const QByteArray& message)
{
    return replaced(message, 6, 2, "\x67\x12");
}

QByteArray withTrailingBytes(Faults&, const QByteArray& message)
{
    return replaced(message, static_cast<int>(message.size()), 0, "+++");
}

QByteArray withoutTerminator(Faults&, const QByteArray& message)
{
    const QString code = contentCode(message);
    if (code == "PLoc" || code == "Ptch" || code == "SInf")
        return replaced(message, static_cast<int>(message.size()) - 1, 1, "");
    const std::vector<Entry> entries = entriesOf(message);
    return entries.empty() ? message : replaced(message, entries.back().tail - 2, 2, "");
}

QByteArray withoutName(Faults&, const QByteArray& message)
{
    const int name = nameField(message);
    if (name < 0)
        return message;
    const QString code = contentCode(message);
    const bool isWide = code != "PLoc" && code != "Ptch";
    const int end = isWide ? behindText(message, name) : static_cast<int>(message.indexOf('\0', name)) + 1;
    return replaced(message, name, end - name, isWide ? EmptyText : EmptyText.left(1));
}

// --- Announcements ---------------------------------------------------------------------------------------------------

QByteArray ofForeignType(Faults&, const QByteArray& message)
{
    return replaced(message, 26, 11, "Visualizer");
}

QByteArray withoutPort(Faults&, const QByteArray& message)
{
    return replaced(message, 24, 2, EmptyText);
}

QByteArray withoutState(Faults&, const QByteArray& message)
{
    const int state = static_cast<int>(message.indexOf('\0', nameField(message))) + 1;
    return replaced(message, state, static_cast<int>(message.size()) - state - 1, "");
}

QByteArray withOtherPort(Faults& faults, const QByteArray& message)
{
    return replaced(message, 25, 1, QByteArray(1, static_cast<char>(0x40 + faults.next() % 16)));
}

// --- SInf ------------------------------------------------------------------------------------------------------------

namespace {
// The offset of the field behind the version of the product.
int behindProduct(const QByteArray& message)
{
    return behindText(message, nameField(message)) + (minorOf(message) >= 2 ? 3 : 2);
}

int byteAt(const QByteArray& message, int at)
{
    return at < message.size() ? static_cast<quint8>(message.at(at)) : 0;
}
} // namespace

QByteArray withoutOwnVersion(Faults&, const QByteArray& message)
{
    const int count = behindProduct(message);
    return minorOf(message) < 2
               ? message
               : replaced(message, count, 1 + 2 * byteAt(message, count), QByteArray("\x01\x00\x01", 3));
}

QByteArray withMoreTypes(Faults&, const QByteArray& message)
{
    const int count = behindProduct(message);
    const int types = count + 1 + 2 * byteAt(message, count);
    return minorOf(message) < 2 ? message : replaced(message, types + 1, 1, "\x80");
}

QByteArray withoutFormats(Faults&, const QByteArray& message)
{
    const int count = behindProduct(message);
    const int formats = count + 3 + 2 * byteAt(message, count);
    return minorOf(message) < 2 ? message
                                : replaced(message, formats, 1 + 4 * byteAt(message, formats), QByteArray(1, '\0'));
}

QByteArray withoutPng(Faults&, const QByteArray& message)
{
    const int count = behindProduct(message);
    return minorOf(message) < 2 ? message : replaced(message, count + 3 + 2 * byteAt(message, count), 13, "\2RGB8JPEG");
}

QByteArray withWrongUuid(Faults&, const QByteArray& message)
{
    return minorOf(message) < 2 ? message : replaced(message, MsexHeaderSize, 36, QByteArray(36, '?'));
}

QByteArray withMoreLayers(Faults&, const QByteArray& message)
{
    int layers = behindProduct(message);
    if (minorOf(message) >= 2) {
        layers += 3 + 2 * byteAt(message, layers);
        layers += 1 + 4 * byteAt(message, layers);
        layers += 1 + 4 * byteAt(message, layers);
    }
    const QByteArray changed =
        replaced(message, layers, 1, QByteArray(1, static_cast<char>(byteAt(message, layers) + 1)));
    return replaced(changed, static_cast<int>(changed.size()), 0, QByteArray("DMX\0", 4));
}

QByteArray withOtherProduct(Faults& faults, const QByteArray& message)
{
    return replaced(message, nameField(message), 1, QByteArray(1, static_cast<char>('A' + faults.next() % 26)));
}

// --- Lists -----------------------------------------------------------------------------------------------------------

QByteArray withLyingCount(Faults&, const QByteArray& message)
{
    return withCount(message, '\xFF');
}

QByteArray ofWrongKind(Faults&, const QByteArray& message)
{
    return withCount(message, 0).replace(22, 1, contentCode(message) == "MEIn" ? "E" : "M");
}

QByteArray ofWrongType(Faults&, const QByteArray& message)
{
    return replaced(message, MsexHeaderSize, 1, "\x09");
}

QByteArray ofWrongLibrary(Faults&, const QByteArray& message)
{
    const QString code = contentCode(message);
    const bool hasType =
        code == "ELTh" || code == "EThn" || code == "ELUp" || (code == "GLEI" && minorOf(message) >= 2);
    const int last = MsexHeaderSize + (hasType ? 1 : 0) + (minorOf(message) == 0 ? 0 : 1);
    return replaced(message, last, 1, "\x63");
}

QByteArray withWrongNumber(Faults&, const QByteArray& message)
{
    const bool hasLevel = contentCode(message) == "ELIn" && minorOf(message) > 0;
    const std::vector<Entry> entries = entriesOf(message);
    // The number of a library is at its level.
    const int at = entries.empty() || !hasLevel ? 0 : message.at(entries.front().number);
    return withField(message, &Entry::number, at, "\xFA");
}

QByteArray withTwin(Faults&, const QByteArray& message)
{
    const std::vector<Entry> entries = entriesOf(message);
    const int width = contentCode(message) == "ELIn" ? libraryWidth(message) : 1;
    return entries.size() < 2 ? message
                              : replaced(message, entries[1].number, width, message.mid(entries[0].number, width));
}

QByteArray ofWrongLevel(Faults&, const QByteArray& message)
{
    return minorOf(message) == 0 ? message : withField(message, &Entry::number, 0, QByteArray(1, '\0'));
}

QByteArray withWrongRange(Faults&, const QByteArray& message)
{
    return withField(message, &Entry::dmx, 0, "\x09\x08");
}

QByteArray withMoreLibraries(Faults&, const QByteArray& message)
{
    const std::vector<Entry> entries = entriesOf(message);
    if (entries.empty() || minorOf(message) == 0)
        return message;
    return withField(message, &Entry::tail, 0, QByteArray(1, static_cast<char>(message.at(entries.front().tail) + 1)));
}

QByteArray withMoreElements(Faults&, const QByteArray& message)
{
    const std::vector<Entry> entries = entriesOf(message);
    if (entries.empty())
        return message;
    const int offset = minorOf(message) == 0 ? 0 : countWidth(message);
    return withField(message, &Entry::tail, offset,
                     QByteArray(1, static_cast<char>(message.at(entries.front().tail + offset) + 1)));
}

QByteArray withOtherSerial(Faults& faults, const QByteArray& message)
{
    return withField(message, &Entry::serial, 0, QByteArray(1, static_cast<char>(faults.next())));
}

QByteArray ofBlankMedia(Faults&, const QByteArray& message)
{
    return withField(message, &Entry::tail, 8, QByteArray(9, '\0'));
}

QByteArray inMilliseconds(Faults&, const QByteArray& message)
{
    // 2020-01-01
    return withField(message, &Entry::tail, 0, QByteArray::fromHex("00dc355f6f010000"));
}

// --- Thumbnails ------------------------------------------------------------------------------------------------------

QByteArray oversized(Faults&, const QByteArray& message)
{
    const int sizeField = pictureSizeField(message);
    if (sizeField < 0)
        return message;
    QByteArray changed = replaced(message, sizeField, 2, "\xFF\xFF");
    if (changed.size() >= sizeField + 2 + 0xFFFF) {
        changed.chop(1);
        setSize(changed);
    }
    return changed;
}

QByteArray withSpoiledPicture(Faults& faults, const QByteArray& message)
{
    const int sizeField = pictureSizeField(message);
    if (sizeField < 0)
        return message;
    const int picture = sizeField + 2;
    return message.left(picture) + faults.randomBytes(static_cast<int>(message.size()) - picture);
}

QByteArray withWrongSize(Faults&, const QByteArray& message)
{
    const int width = pictureSizeField(message) - 4;
    return width < 0 ? message : replaced(message, width, 1, QByteArray(1, static_cast<char>(message.at(width) + 1)));
}

QByteArray ofWrongElement(Faults&, const QByteArray& message)
{
    return replaced(message, MsexHeaderSize + 1 + libraryWidth(message), 1, "\xC8");
}

QByteArray distorted(Faults&, const QByteArray& message)
{
    const int sizeField = pictureSizeField(message);
    if (sizeField < 0)
        return message;
    const QByteArray format = message.mid(sizeField - 8, 4);
    const int width = byteAt(message, sizeField - 4) + 256 * byteAt(message, sizeField - 3);
    const int height = byteAt(message, sizeField - 2) + 256 * byteAt(message, sizeField - 1);
    const QByteArray picture = message.mid(sizeField + 2);
    const int half = qMax(1, height / 2);
    QByteArray changed;
    if (format == "RGB8") {
        const int bytes = 3 * width * half;
        changed = picture.left(bytes);
    } else {
        QBuffer buffer(&changed);
        QImage::fromData(picture).scaled(width, half).save(&buffer, format == "PNG " ? "png" : "jpeg");
    }
    const auto low = [](qsizetype value) { return static_cast<char>(value & 0xFF); };
    const auto high = [](qsizetype value) { return static_cast<char>(value >> 8); };
    const char sizes[] = {low(half), high(half), low(changed.size()), high(changed.size())};
    return replaced(message, sizeField - 2, static_cast<int>(message.size()) - sizeField + 2,
                    QByteArray(sizes, sizeof sizes) + changed);
}

QByteArray withPaddedRows(Faults&, const QByteArray& message)
{
    const int sizeField = pictureSizeField(message);
    if (sizeField < 0 || message.mid(sizeField - 8, 4) != "RGB8")
        return message;
    const int row = 3 * (byteAt(message, sizeField - 4) + 256 * byteAt(message, sizeField - 3));
    if (row == 0)
        return message;
    QByteArray picture;
    for (int at = sizeField + 2; at < message.size(); at += row)
        picture += message.mid(at, row) + QByteArray(3, '\0');
    const char size[] = {static_cast<char>(picture.size() & 0xFF), static_cast<char>(picture.size() >> 8)};
    return replaced(message, sizeField, static_cast<int>(message.size()) - sizeField,
                    QByteArray(size, sizeof size) + picture);
}

// --- Layers ----------------------------------------------------------------------------------------------------------

QByteArray withWrongLayer(Faults&, const QByteArray& message)
{
    return withField(message, &Entry::number, 0, "\xC8");
}

QByteArray withWrongPosition(Faults&, const QByteArray& message)
{
    return withField(message, &Entry::tail, 0, QByteArray::fromHex("00000100"));
}

QByteArray withUnknownLibrary(Faults&, const QByteArray& message)
{
    return withField(message, &Entry::library, minorOf(message) == 0 ? 0 : 1, "\x63");
}

QByteArray withUnknownElement(Faults&, const QByteArray& message)
{
    return withField(message, &Entry::element, 0, "\xC8");
}

QByteArray withWrongLayerName(Faults&, const QByteArray& message)
{
    return withField(message, &Entry::name, 0, "#");
}

QByteArray withAllFlags(Faults&, const QByteArray& message)
{
    return withField(message, &Entry::tail, 9, QByteArray(4, '\xFF'));
}

QByteArray withoutFrameRate(Faults&, const QByteArray& message)
{
    return withField(message, &Entry::tail, 8, QByteArray(1, '\0'));
}

QByteArray withoutLastLayer(Faults&, const QByteArray& message)
{
    const std::vector<Entry> entries = entriesOf(message);
    if (entries.empty())
        return message;
    const QByteArray changed =
        replaced(message, MsexHeaderSize, 1, QByteArray(1, static_cast<char>(entries.size() - 1)));
    return replaced(changed, entries.back().number, entries.back().end - entries.back().number, "");
}

// --- Patch -----------------------------------------------------------------------------------------------------------

QByteArray withLongName(Faults&, const QByteArray& message)
{
    return replaced(message, static_cast<int>(message.size()) - 1, 0, QByteArray(LongNameSize, 'N'));
}

QByteArray withWrongChannel(Faults&, const QByteArray& message)
{
    return replaced(message, FptcHeaderSize + 4, 2, "\x58\x02");
}

QByteArray withoutChannels(Faults&, const QByteArray& message)
{
    return replaced(message, FptcHeaderSize + 6, 2, EmptyText);
}

QByteArray withSameFixture(Faults&, const QByteArray& message)
{
    return replaced(message, FptcHeaderSize, 2, QByteArray("\x01\x00", 2));
}
} // namespace MediaServer
