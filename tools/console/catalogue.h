// What a server has: its libraries and their elements, asked for one request at a time.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_msex_libraries.h>

#include <QStringList>
#include <vector>

#include "session.h"

namespace Console {
struct Library
{
    CITP::Msg_MSEX_ELIN::ElementLibraryInformation info;
    int depth = 0; ///< 0 for a top-level library
};

/// One element of any kind; what its kind does not have is 0 or empty.
struct Element
{
    quint8 number = 0;
    quint8 dmxMin = 0;
    quint8 dmxMax = 0;
    QString name;
    quint32 serial = 0;
    quint64 timestamp = 0;
    quint16 width = 0;  ///< pixels
    quint16 height = 0; ///< pixels
    quint32 length = 0; ///< frames
    quint8 frameRate = 0;
    QStringList parameters;
};

struct ElementList
{
    enum class Kind { Media, Effects, Generic };
    Kind kind = Kind::Media;
    std::vector<Element> elements;
};

/// The identity that @p text names at a server of this MSEX version: a number is a top-level library; from MSEX 1.1 on
/// four levels with commas are taken as they are.
/// @throws Failure if the version has no such identity
QString libraryId(const QString& text, quint8 msexMinor);

/// Asks for all libraries of @p type, from MSEX 1.1 on the sub-libraries too. Parents come before their children.
/// @throws Failure if an answer does not come in time
std::vector<Library> fetchLibraries(Session& session, quint8 type);

/// Asks for all elements of the library @p id of @p type.
/// @throws Failure if the answer does not come in time
ElementList fetchElements(Session& session, quint8 type, const QString& id);
} // namespace Console
