// Field codecs and debug text: the functions with which all message classes read and print their fields.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_export.h>

#include <citp_system/os_log.h>

#include <QByteArray>
#include <QString>

namespace CITP {
/// Reads a null-terminated Latin-1 string from @p data at byte @p start. The string ends before the first zero byte or
/// at the end of @p data; it is empty if @p start is at or beyond the end. With its terminator, it occupies its length
/// plus one byte. Thread-safe, as are all functions of this header.
CITP_EXPORT QString get8bitunicode(const QByteArray& data, unsigned int start);

/// The 16-bit little-endian integer at byte @p offset; 0 if fewer than two bytes remain there.
CITP_EXPORT unsigned short getShort(const QByteArray& data, unsigned int offset);

/// Reads a null-terminated UCS-2 string (16-bit little-endian units) from @p data at byte @p offset. A leading byte
/// order mark is skipped; all other units are copied unchanged. Without a terminator, the string ends with the last
/// complete unit.
/// @param[out] out the string; replaced
/// @param data a whole message
/// @param offset offset of the string in bytes
/// @return the number of bytes consumed, with the terminator; 0 if there is no complete unit
CITP_EXPORT int getUCS2(QString& out, const QByteArray& data, unsigned int offset);

/// Appends @p label and @p value to @p text and returns @p text.
CITP_EXPORT QString& addToStr(QString& text, const QString& label, const QString& value);
/// Appends @p label and @p value in decimal to @p text and returns @p text.
CITP_EXPORT QString& addToStr(QString& text, const QString& label, unsigned int value);

/// Converts a library identifier from text. A text with commas holds up to four levels ("1,2,0,0"): empty fields are
/// skipped, missing levels are 0, and each level is truncated to 8 bits. A text without a comma is a decimal number; 0
/// if it is not a number.
/// @return the identifier with the first level in the lowest byte, which is written little-endian
CITP_EXPORT unsigned int fromLibraryFormat(const QString& text);
/// Converts a library identifier to text: its four bytes in decimal, separated by commas, the lowest byte of @p id
/// first. Sets and returns @p out.
CITP_EXPORT QString& fromLibraryFormat(QString& out, unsigned int id);

/// Converts an image format from text. Only the first letter matters: "P" or "p" gives "PNG " (with a trailing space),
/// "R" or "r" gives "RGB8", any other text and the empty text give "JPEG".
/// @return the four-character code, the first character in the lowest byte
CITP_EXPORT unsigned int fromGraphicFormat(const QString& text);
/// Converts an image format to text: the four characters of @p format. Sets and returns @p out.
CITP_EXPORT QString& fromGraphicFormat(QString& out, unsigned int format);

/// A printable dump of @p data. Each line holds the offset in decimal (ten digits) and up to 16 bytes in hexadecimal
/// and as characters. Empty if @p data is empty. Ends with a line feed only if the last line holds 16 bytes.
CITP_EXPORT QString hexDump(const QByteArray& data);

/// The root log context of the library, "CITP". The message classes log parse errors in its child "CITP.Message" at
/// level Failure (8). Created at first use, destroyed at process exit.
CITP_EXPORT Os::Log::Context& CITPLogContext();

} // namespace CITP
