// The language of the window's texts.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QStringList>
#include <QTranslator>

#include <memory>
#include <vector>

namespace Browser {
/// Has the application's texts, and those of Qt, appear in the first of @p languages that there is. Where there is
/// none, they stay English.
/// @param languages as in QLocale::uiLanguages(), e.g. "de-CH"
/// @return the translations, which apply as long as they exist
std::vector<std::unique_ptr<QTranslator>> translateTexts(const QStringList& languages);
} // namespace Browser
