// Field codecs and debug text: the functions that every message class reads and prints its fields with.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_export.h>

#include <citp_system/os_log.h>

#include <QByteArray>
#include <QString>

namespace CITP {
/// Reads a null-terminated text of single bytes (Latin-1) from @p data at byte @p start. Stops before the first zero
/// byte or at the end of @p data; empty if @p start is at or beyond the end. On the wire the text takes its length plus
/// one byte.
CITP_EXPORT QString get8bitunicode(const QByteArray& data, unsigned int start);

/// The 16-bit little-endian integer at byte @p offset; 0 when fewer than two bytes remain there.
CITP_EXPORT unsigned short getShort(const QByteArray& data, unsigned int offset);

/// Reads a null-terminated UCS-2 text (16-bit little-endian units) from @p data at byte @p offset. A leading byte-order
/// mark is consumed but not kept; nothing else is dropped or swapped. Without a terminator the text ends with the last
/// whole unit.
/// @param out receives the text; cleared first
/// @param data a whole message
/// @param offset where the text begins
/// @return bytes consumed, the terminator included; 0 if not even one unit is there
CITP_EXPORT int getUCS2(QString& out, const QByteArray& data, unsigned int offset);

/// Appends @p label and @p value to @p text and returns it.
CITP_EXPORT QString& addToStr(QString& text, const QString& label, const QString& value);
/// Appends @p label and @p value in decimal to @p text and returns it.
CITP_EXPORT QString& addToStr(QString& text, const QString& label, unsigned int value);

/// Library identifier from text: four levels with commas ("1,2,0,0"), empty fields skipped, missing levels 0, each cut
/// to 8 bits; or, without a comma, one decimal number that is taken as it stands (0 if it is none).
/// @return the identifier, the first level in the lowest byte, so that written little-endian it gives the wire order
CITP_EXPORT unsigned int fromLibraryFormat(const QString& text);
/// Library identifier to text: four decimal numbers with commas, the lowest byte of @p id first. Sets and returns
/// @p out.
CITP_EXPORT QString& fromLibraryFormat(QString& out, unsigned int id);

/// Graphic format from text, by its first letter alone: "P" or "p" is "PNG " (with the blank), "R" or "r" is "RGB8",
/// anything else, the empty text included, "JPEG".
/// @return the four characters, the first in the lowest byte
CITP_EXPORT unsigned int fromGraphicFormat(const QString& text);
/// Graphic format to text: the four characters of @p format. Sets and returns @p out.
CITP_EXPORT QString& fromGraphicFormat(QString& out, unsigned int format);

/// A printable dump: lines of 16 bytes, each with the decimal offset (ten digits), the bytes in hex and as characters.
/// Empty for an empty buffer; ends with a line feed only behind a full line.
CITP_EXPORT QString hexDump(const QByteArray& data);

/// The library's root log context, "CITP"; the message classes log their parse errors on its child "CITP.Message" at
/// level 8. Made at first use, destroyed at process exit. Any thread.
CITP_EXPORT Os::Log::Context& CITPLogContext();

} // namespace CITP
