// Finds the fields of lists, and selects entries.
// SPDX-License-Identifier: Apache-2.0
#include "lists.h"

#include <algorithm>

#include "library.h"
#include "wire.h"

namespace MediaServer {
QString contentCode(const QByteArray& message)
{
    return QString::fromLatin1(message.mid(message.mid(16, 4) == "MSEX" ? 22 : 20, 4));
}

bool isMsex(const QByteArray& message)
{
    return message.mid(16, 4) == "MSEX" && message.size() >= MsexHeaderSize;
}

int minorOf(const QByteArray& message)
{
    return static_cast<quint8>(message.at(21));
}

int libraryWidth(const QByteArray& message)
{
    return minorOf(message) == 0 ? 1 : 4;
}

int countField(const QByteArray& message)
{
    if (!isMsex(message))
        return -1;
    const QString code = contentCode(message);
    const int library = libraryWidth(message);
    int fields = -1;
    if (code == "LSta")
        fields = 0;
    else if (code == "ELIn")
        fields = 1;
    else if (code == "MEIn" || code == "EEIn")
        fields = library;
    else if (code == "GLEI")
        fields = minorOf(message) >= 2 ? 1 + library : library;
    return fields < 0 || message.size() <= MsexHeaderSize + fields ? -1 : MsexHeaderSize + fields;
}

int countWidth(const QByteArray& message)
{
    return minorOf(message) >= 2 && contentCode(message) != "LSta" ? 2 : 1;
}

int behindText(const QByteArray& message, int at)
{
    while (at + 2 <= message.size() && (message.at(at) != 0 || message.at(at + 1) != 0))
        at += 2;
    return at + 2;
}

std::vector<Entry> entriesOf(const QByteArray& message)
{
    std::vector<Entry> entries;
    const int field = countField(message);
    if (field < 0)
        return entries;
    const QString code = contentCode(message);
    const int minor = minorOf(message);
    const int library = libraryWidth(message);
    int at = field + countWidth(message);
    while (at < message.size()) {
        Entry entry;
        entry.number = at;
        if (code == "LSta") {
            entry.library = at + (minor >= 2 ? 3 : 2);
            entry.element = entry.library + library;
            entry.name = entry.element + 1;
        } else {
            at += code == "ELIn" ? library : 1;
            entry.serial = minor >= 2 ? at : -1;
            entry.dmx = minor >= 2 ? at + 4 : at;
            entry.name = entry.dmx + 2;
        }
        entry.tail = behindText(message, entry.name);
        entry.end = entry.tail;
        if (code == "LSta") {
            entry.end += 13;
        } else if (code == "ELIn") {
            entry.end += countWidth(message) * (minor >= 1 ? 2 : 1);
        } else if (code == "MEIn") {
            entry.end += 17;
        } else if (code == "GLEI") {
            entry.end += 8;
        } else if (entry.end < message.size()) {
            const int parameters = static_cast<quint8>(message.at(entry.end++));
            for (int i = 0; i < parameters; ++i)
                entry.end = behindText(message, entry.end);
        }
        if (entry.end > message.size())
            break;
        entries.push_back(entry);
        at = entry.end;
    }
    return entries;
}

QByteArray onlyNumbers(const QByteArray& message, const std::vector<quint8>& numbers)
{
    const int field = countField(message);
    if (field < 0)
        return message;
    const bool hasLevels = contentCode(message) == "ELIn" && libraryWidth(message) > 1;
    QByteArray selected;
    quint32 count = 0;
    for (const Entry& entry : entriesOf(message)) {
        // Of a library identifier, the byte of its level.
        const int level = hasLevels ? static_cast<quint8>(message.at(entry.number)) : 0;
        const int at = entry.number + std::min(level, MaxLevel);
        if (std::find(numbers.begin(), numbers.end(), static_cast<quint8>(message.at(at))) == numbers.end())
            continue;
        selected += message.mid(entry.number, entry.end - entry.number);
        ++count;
    }
    QByteArray list = message.left(field);
    for (int i = 0; i < countWidth(message); ++i)
        list += static_cast<char>(count >> (8 * i) & 0xFF);
    list += selected;
    setSize(list);
    return list;
}
} // namespace MediaServer
