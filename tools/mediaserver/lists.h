// Lists: where the entries of a list and their fields are in a message, in every MSEX version.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>
#include <vector>

namespace MediaServer {
/// The content code of @p message.
QString contentCode(const QByteArray& message);

/// Whether @p message is of the layer MSEX and has its header.
bool isMsex(const QByteArray& message);
/// The MSEX minor version of an MSEX message.
int minorOf(const QByteArray& message);
/// The number of bytes of a library identifier in an MSEX message.
int libraryWidth(const QByteArray& message);

/// The offset of the count in a list or a layer status; -1 in other messages and if the message is truncated.
int countField(const QByteArray& message);
/// The number of bytes of that count.
int countWidth(const QByteArray& message);

/// The offset behind the UCS-2 text at @p at.
int behindText(const QByteArray& message, int at);

/// The offsets of the fields of an entry of a list.
struct Entry
{
    int number = 0;  ///< of the element or layer; of a library, its identifier
    int library = 0; ///< of a layer
    int element = 0; ///< of a layer
    int serial = -1;
    int dmx = -1;
    int name = 0;
    int tail = 0; ///< the fields behind the name
    int end = 0;
};

/// The entries of a list or a layer status, up to the first one that is incomplete.
std::vector<Entry> entriesOf(const QByteArray& message);

/// The list @p message with only those of its libraries or elements whose numbers are in @p numbers.
QByteArray onlyNumbers(const QByteArray& message, const std::vector<quint8>& numbers);
} // namespace MediaServer
