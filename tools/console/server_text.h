// Description of a media server as text and JSON.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/directory.h>

#include <QJsonObject>

namespace Console {
/// The description as text with control characters escaped. If @p brief, only key and name, as far as they are known.
QString toText(const CITP::Server& server, bool brief = false);
QJsonObject toJson(const CITP::Server& server);

/// "1.2" of 0x0102, as in SInf.
QString versionText(unsigned version);

/// Why a server that is heard is not up, with control characters escaped.
/// @param now by Transport::now()
QString overdueText(const CITP::Server& server, qint64 now);
} // namespace Console
