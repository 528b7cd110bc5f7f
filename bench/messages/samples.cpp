// Serialisers of the messages for the benchmarks.
// SPDX-License-Identifier: Apache-2.0
#include "samples.h"

#include <citp/citp_msg_msex.h>
#include <citp/citp_wire_p.h>

namespace bench {
namespace {
using CITP::appendInteger;

QByteArray begin(const char* code)
{
    QByteArray out;
    out >> CITP::Msg_MSEX(2, QString::fromLatin1(code));
    return out;
}

QByteArray finish(QByteArray out)
{
    CITP::Msg_Header::setSize(out);
    return out;
}

/// Appends a name of @p length characters that contains @p number, like file names on servers.
void appendName(QByteArray& out, int number, int length)
{
    const QString name =
        QStringLiteral("Clip %1 ").arg(number, 3, 10, QLatin1Char('0')).leftJustified(length, QLatin1Char('x'), true);
    for (const QChar character : name)
        appendInteger(out, quint16(character.unicode()));
    appendInteger(out, quint16(0));
}

/// The serial number, DMX range and name of a library or an element.
void appendCommonFields(QByteArray& out, int number)
{
    appendInteger(out, quint32(1000 + number));
    appendInteger(out, quint8(number));
    appendInteger(out, quint8(number));
    appendName(out, number, 20);
}

void appendLibraryId(QByteArray& out, int number)
{
    appendInteger(out, quint32(1 | number << 8));
}
} // namespace

QByteArray meinBytes(int media)
{
    QByteArray out = begin("MEIn");
    appendLibraryId(out, 2);
    appendInteger(out, quint16(media));
    for (int i = 0; i < media; ++i) {
        appendInteger(out, quint8(i));
        appendCommonFields(out, i);
        appendInteger(out, quint64(1700000000) + quint64(i));
        appendInteger(out, quint16(1920));
        appendInteger(out, quint16(1080));
        appendInteger(out, quint32(250 * i));
        appendInteger(out, quint8(25));
    }
    return finish(out);
}

QByteArray elinBytes(int libraries)
{
    QByteArray out = begin("ELIn");
    appendInteger(out, quint8(1));
    appendInteger(out, quint16(libraries));
    for (int i = 0; i < libraries; ++i) {
        appendLibraryId(out, i);
        appendCommonFields(out, i);
        appendInteger(out, quint16(0));
        appendInteger(out, quint16(100));
    }
    return finish(out);
}

QByteArray lstaBytes(int layers, int nameLength)
{
    QByteArray out = begin("LSta");
    appendInteger(out, quint8(layers));
    for (int i = 0; i < layers; ++i) {
        appendInteger(out, quint8(i));
        appendInteger(out, quint8(1));
        appendInteger(out, quint8(1));
        appendLibraryId(out, i);
        appendInteger(out, quint8(i));
        appendName(out, i, nameLength);
        appendInteger(out, quint32(1234 + i));
        appendInteger(out, quint32(5000));
        appendInteger(out, quint8(25));
        appendInteger(out, quint32(1));
    }
    return finish(out);
}

QByteArray eeinBytes(int effects, int parameters)
{
    QByteArray out = begin("EEIn");
    appendLibraryId(out, 2);
    appendInteger(out, quint16(effects));
    for (int i = 0; i < effects; ++i) {
        appendInteger(out, quint8(i));
        appendCommonFields(out, i);
        appendInteger(out, quint8(parameters));
        for (int parameter = 0; parameter < parameters; ++parameter)
            appendName(out, parameter, 12);
    }
    return finish(out);
}

QByteArray gleiBytes(int elements)
{
    QByteArray out = begin("GLEI");
    appendInteger(out, quint8(3));
    appendLibraryId(out, 2);
    appendInteger(out, quint16(elements));
    for (int i = 0; i < elements; ++i) {
        appendInteger(out, quint8(i));
        appendCommonFields(out, i);
        appendInteger(out, quint64(1700000000) + quint64(i));
    }
    return finish(out);
}

QByteArray sinfBytes(int layers)
{
    QByteArray out = begin("SInf");
    out.append("01234567-89ab-cdef-0123-456789abcdef", 36);
    appendName(out, 1, 20);
    out.append("\x02\x05\x01", 3);
    out.append("\x03\x00\x01\x01\x01\x02\x01", 7);
    appendInteger(out, quint16(0x1f));
    out.append("\x03JPEGPNG RGB8", 13);
    out.append("\x02JPEGRGB8", 9);
    appendInteger(out, quint8(layers));
    for (int i = 0; i < layers; ++i)
        out.append(QByteArrayLiteral("ArtNet/0/0/") + QByteArray::number(i)).append('\0');
    return finish(out);
}

QByteArray ethnBytes(int size)
{
    QByteArray out = begin("EThn");
    appendInteger(out, quint8(1));
    appendLibraryId(out, 2);
    appendInteger(out, quint8(7));
    out.append("JPEG", 4);
    appendInteger(out, quint16(128));
    appendInteger(out, quint16(96));
    appendInteger(out, quint16(size));
    for (int i = 0; i < size; ++i)
        out.append(static_cast<char>(i * 7));
    return finish(out);
}
} // namespace bench
