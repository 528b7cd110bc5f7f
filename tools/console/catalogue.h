// The libraries and elements of a server, requested one at a time.
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

/// An element of any kind. Fields that its kind does not have are 0 or empty.
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

struct LibraryList
{
    std::vector<Library> libraries; ///< parents precede their children
    QString problem;                ///< why sub-libraries may be missing; empty if the list is complete
};

struct ElementList
{
    enum class Kind { Media, Effects, Generic };
    Kind kind = Kind::Media;
    std::vector<Element> elements;
};

/// Converts @p text to the library id of the given MSEX version. A single number means a top-level library. Four
/// numbers separated by commas are an MSEX 1.1 or 1.2 id.
/// @throws Failure if MSEX 1.0 cannot express the id
QString libraryId(const QString& text, quint8 msexMinor);

/// Requests all libraries of @p type, since MSEX 1.1 with their sub-libraries. A library that does not list its
/// sub-libraries in time is reported on standard error and skipped; after two in a row, no more are requested.
/// @throws NoAnswer if the top-level libraries do not arrive in time, Failure if the server lists too many
LibraryList fetchLibraries(Session& session, quint8 type);

/// Requests all elements of the library @p id of @p type.
/// @throws NoAnswer if they do not arrive in time
ElementList fetchElements(Session& session, quint8 type, const QString& id);
} // namespace Console
