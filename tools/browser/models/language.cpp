// Choosing among the translations, which are resources of the program.
// SPDX-License-Identifier: Apache-2.0
#include "language.h"

#include <QCoreApplication>
#include <QLibraryInfo>

#include <utility>

// Outside of every namespace, as the macro needs it: the linker leaves out what nothing names.
static void initTranslations()
{
    Q_INIT_RESOURCE(citp_browser_translations);
}

namespace Browser {
namespace {
QString qtFolder()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    return QLibraryInfo::path(QLibraryInfo::TranslationsPath);
#else
    return QLibraryInfo::location(QLibraryInfo::TranslationsPath);
#endif
}
} // namespace

std::vector<std::unique_ptr<QTranslator>> translateTexts(const QStringList& languages)
{
    initTranslations();
    std::vector<std::unique_ptr<QTranslator>> translators;
    for (QString language : languages) {
        language.replace(QLatin1Char('-'), QLatin1Char('_'));
        // The language of the sources.
        if (language.section(QLatin1Char('_'), 0, 0) == QLatin1String("en"))
            break;
        auto own = std::make_unique<QTranslator>();
        if (!own->load(QStringLiteral("citp-browser_") + language, QStringLiteral(":/translations")))
            continue;
        // Buttons and keys; without it, they are English.
        auto qt = std::make_unique<QTranslator>();
        if (qt->load(QStringLiteral("qtbase_") + language, qtFolder()))
            translators.push_back(std::move(qt));
        translators.push_back(std::move(own));
        break;
    }
    for (const auto& translator : translators)
        QCoreApplication::installTranslator(translator.get());
    return translators;
}
} // namespace Browser
