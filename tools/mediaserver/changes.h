// The changes that faults make in complete messages. Messages that a change does not concern stay as they are.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

#include "faults.h"

namespace MediaServer {
/// Content codes of thumbnails, and of messages that contain a list.
constexpr const char* Thumbnails = "ELTh EThn";
constexpr const char* Lists = "ELIn MEIn EEIn GLEI LSta";

using Change = QByteArray(Faults& faults, const QByteArray& message);

// As the help text of each fault says; see faultDescriptions().
Change withLyingCount, ofWrongKind, withLongName, truncated, withSpoiledPicture, oversized, withUnknownVersion;
Change withZeroSize, withEndlessSize, withForeignCitp, ofOldVersion, withSecondPart, ofForeignLayer, ofForeignCode;
Change withForeignIndex, withTrailingBytes, withoutTerminator, withoutName;
Change ofForeignType, withoutPort, withoutState, withOtherPort;
Change withoutOwnVersion, withMoreTypes, withoutFormats, withoutPng, withWrongUuid, withMoreLayers, withOtherProduct;
Change ofWrongType, ofWrongLibrary, withWrongNumber, withTwin, ofWrongLevel, withWrongRange, withMoreLibraries;
Change withMoreElements, withOtherSerial, ofBlankMedia, inMilliseconds;
Change withWrongSize, ofWrongElement, distorted, withPaddedRows;
Change withWrongLayer, withWrongPosition, withUnknownLibrary, withUnknownElement, withWrongLayerName, withAllFlags;
Change withoutFrameRate, withoutLastLayer;
Change withWrongChannel, withoutChannels, withSameFixture;
} // namespace MediaServer
