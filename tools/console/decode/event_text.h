// Formatting of events as text and JSON.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QString>

#include "event.h"

namespace Console {
/// Local time of day with milliseconds.
QString localTime(qint64 timeUs);
/// Local date and time of day with milliseconds.
QString localDateAndTime(qint64 timeUs);
/// Local date with the offset from UTC, e.g. "2026-11-21, UTC+01:00".
QString localDate(qint64 timeUs);

/// "message", "gap", "error" or "note".
QString kindText(Tools::StreamItem::Kind kind);
/// "discovery", "from server" or "to server".
QString directionText(Event::Direction direction);

/// The event as one line with control characters escaped: time, direction, server, message, and what matters in it.
QString toLine(const Event& event);
/// The whole event as text with control characters escaped. All lines after the first are indented.
QString toText(const Event& event);
QJsonObject toJson(const Event& event);
} // namespace Console
