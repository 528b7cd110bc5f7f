// The wire images that media servers send and consoles send, written out byte by byte for the tests of the stack. They
// share no code with the library, so that each side checks the other.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

#include <vector>

namespace Wire {
QByteArray u8(unsigned value);
QByteArray u16(unsigned value);
QByteArray u32(quint32 value);
QByteArray text8(const char* text); ///< with its terminating zero byte
QByteArray ucs2(const char* text);  ///< with its two terminating zero bytes

/// A CITP message with the right size field; @p body begins behind the 20 bytes of the CITP header.
QByteArray message(const char* layer, const QByteArray& body);
QByteArray pinf(const char* code, const QByteArray& body = {});
QByteArray msex(unsigned minor, const char* code, const QByteArray& body = {});
QByteArray fptc(const char* code, const QByteArray& body = {});
/// @p message with another size field; nothing else changes.
QByteArray withSize(QByteArray message, quint32 size);
/// @p message with another CITP minor version, which makes its header invalid.
QByteArray withCitpMinor(QByteArray message, char minor);

QByteArray ploc(unsigned port, const char* type = "MediaServer", const char* name = "Server");
QByteArray sinf(const char* product); ///< MSEX 1.2, one layer
QByteArray sinfOfUnknownVersion();    ///< MSEX 1.3
QByteArray elin(unsigned library);    ///< MSEX 1.0, one library
QByteArray mein(unsigned library);    ///< MSEX 1.0, one element
QByteArray eein(unsigned library);    ///< MSEX 1.0, one element
QByteArray glei(unsigned library);    ///< MSEX 1.1, one element; the library's first level
QByteArray elup(unsigned library);    ///< MSEX 1.0
QByteArray lsta(unsigned layer);      ///< MSEX 1.0, one layer
QByteArray elth(unsigned library);    ///< MSEX 1.0, four bytes of picture
QByteArray ethn(unsigned library);    ///< MSEX 1.0, four bytes of picture
QByteArray ptch(unsigned fixture);
/// What the console sends first on a new connection: PNam, CInf and SPtc.
std::vector<QByteArray> greeting();

/// The code of a whole message: "PNam", "GELI", ...
QByteArray code(const QByteArray& message);
} // namespace Wire
