// The values of the client layer as JSON, in one form for all commands.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/layers.h>
#include <citp_client/values.h>

#include <QJsonObject>

namespace Console {
QJsonObject toJson(const CITP::Library& library);
/// Only the fields that elements of @p kind have.
QJsonObject toJson(const CITP::Element& element, CITP::ElementKind kind);
QJsonObject toJson(const CITP::Layer& layer);
QJsonObject toJson(const CITP::Fixture& fixture);

/// @p object with the fields of @p more, which replace its own.
QJsonObject merged(QJsonObject object, const QJsonObject& more);
} // namespace Console
