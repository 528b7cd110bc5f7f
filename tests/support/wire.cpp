// The wire images, written from the layouts of the messages.
// SPDX-License-Identifier: Apache-2.0
#include "wire.h"

namespace Wire {
QByteArray u8(unsigned value)
{
    return QByteArray(1, static_cast<char>(value & 0xff));
}

QByteArray u16(unsigned value)
{
    return u8(value) + u8(value >> 8);
}

QByteArray u32(quint32 value)
{
    return u16(value) + u16(value >> 16);
}

QByteArray text8(const char* text)
{
    return QByteArray(text) + '\0';
}

QByteArray ucs2(const char* text)
{
    QByteArray out;
    for (const char* at = text; *at; ++at) {
        out += *at;
        out += '\0';
    }
    return out + u16(0);
}

QByteArray message(const char* layer, const QByteArray& body)
{
    return QByteArray("CITP") + u8(1) + u8(0) + u16(0) + u32(static_cast<quint32>(20 + body.size())) + u16(1) + u16(0) +
           QByteArray(layer, 4) + body;
}

QByteArray pinf(const char* code, const QByteArray& body)
{
    return message("PINF", QByteArray(code, 4) + body);
}

QByteArray msex(unsigned minor, const char* code, const QByteArray& body)
{
    return message("MSEX", u8(1) + u8(minor) + QByteArray(code, 4) + body);
}

QByteArray fptc(const char* code, const QByteArray& body)
{
    return message("FPTC", QByteArray(code, 4) + u32(0) + body);
}

QByteArray withSize(QByteArray message, quint32 size)
{
    return message.replace(8, 4, u32(size));
}

QByteArray withCitpMinor(QByteArray message, char minor)
{
    message[5] = minor;
    return message;
}

QByteArray ploc(unsigned port, const char* type, const char* name)
{
    return pinf("PLoc", u16(port) + text8(type) + text8(name) + text8("Running"));
}

QByteArray sinf(const char* product)
{
    return msex(2, "SInf",
                QByteArray("01234567-89ab-cdef-0123-456789abcdef") + ucs2(product) + u8(3) + u8(4) + u8(5) + u8(1) +
                    u16(0x0102) + u16(7) + u8(1) + QByteArray("JPEG") + u8(1) + QByteArray("JPEG") + u8(1) +
                    text8("ArtNet/0/1/1"));
}

QByteArray sinfOfUnknownVersion()
{
    return msex(3, "SInf", QByteArray(60, 'A'));
}

QByteArray elin(unsigned library)
{
    return msex(0, "ELIn", u8(1) + u8(1) + u8(library) + u8(0) + u8(255) + ucs2("Library") + u8(9));
}

QByteArray mein(unsigned library)
{
    return msex(0, "MEIn",
                u8(library) + u8(1) + u8(0) + u8(0) + u8(255) + ucs2("Clip") + u32(1) + u32(0) + u16(640) + u16(480) +
                    u32(100) + u8(25));
}

QByteArray eein(unsigned library)
{
    return msex(0, "EEIn", u8(library) + u8(1) + u8(0) + u8(0) + u8(255) + ucs2("Blur") + u8(1) + ucs2("Amount"));
}

QByteArray glei(unsigned library)
{
    return msex(1, "GLEI",
                u8(library) + u8(0) + u16(0) + u8(1) + u8(0) + u8(0) + u8(255) + ucs2("Thing") + u32(1) + u32(0));
}

QByteArray elup(unsigned library)
{
    return msex(0, "ELUp", u8(1) + u8(library) + u8(1));
}

QByteArray lsta(unsigned layer)
{
    return msex(0, "LSta",
                u8(1) + u8(layer) + u8(0) + u8(1) + u8(2) + ucs2("Clip") + u32(3) + u32(4) + u8(25) + u32(1));
}

QByteArray elth(unsigned library)
{
    return msex(0, "ELTh",
                u8(1) + u8(library) + QByteArray("JPEG") + u16(2) + u16(2) + u16(4) + QByteArray("\xff\xd8\xff\xd9"));
}

QByteArray ethn(unsigned library)
{
    return msex(
        0, "EThn",
        u8(1) + u8(library) + u8(6) + QByteArray("JPEG") + u16(2) + u16(2) + u16(4) + QByteArray("\xff\xd8\xff\xd9"));
}

QByteArray ptch(unsigned fixture)
{
    return fptc("Ptch", u16(fixture) + u8(1) + u8(0) + u16(2) + u16(3) + text8("Make") + text8("Name"));
}

std::vector<QByteArray> greeting()
{
    return {pinf("PNam", text8("TarnCitpLayer")),
            msex(2, "CInf", u8(3) + u8(0) + u8(1) + u8(1) + u8(1) + u8(2) + u8(1)), fptc("SPtc", u16(0))};
}

QByteArray code(const QByteArray& message)
{
    return message.mid(message.mid(16, 4) == "MSEX" ? 22 : 20, 4);
}
} // namespace Wire
