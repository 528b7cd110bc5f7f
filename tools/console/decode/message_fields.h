// The content of a message as fields, and as one line that says what matters in it.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace Console {
/// The fields of @p message, one that the library accepts or sends. Of other messages, the first bytes behind the
/// headers as "body".
QJsonObject fieldsOf(const QByteArray& message);

/// The first bytes behind the headers of @p message as the field "body".
QJsonObject bodyOf(const QByteArray& message);

/// What matters in a message, from its @p fields. One line with unescaped texts.
/// @param code four characters, e.g. "SInf"
QString gistOf(const QString& code, const QJsonObject& fields);
} // namespace Console
