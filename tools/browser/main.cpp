// citp-browser: applies the options and the settings, and opens the window.
// SPDX-License-Identifier: Apache-2.0
#include <QApplication>
#include <QLocale>
#include <QSettings>
#include <QStandardPaths>

#include <cstdio>
#include <cstring>

#include "descriptors.h"
#include "models/adapters.h"
#include "models/language.h"
#include "models/preferences.h"
#include "models/session.h"
#include "options.h"
#include "window/main_window.h"

namespace {
// Options are parsed without a display, so that --help works in a terminal.
Browser::Options optionsOf(int argc, char** argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    // QCommandLineParser needs an application object: Qt 5 reads the program's name for the help from it unchecked.
    int count = 1;
    char name[] = "citp-browser";
    char* names[] = {name, nullptr};
    const QCoreApplication application(count, names);
    return Browser::readOptions(arguments);
}

// Without a display QApplication would abort.
bool hasDisplay()
{
    for (const char* const name : {"QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY", "WAYLAND_SOCKET"}) {
        if (!qEnvironmentVariableIsEmpty(name))
            return true;
    }
    return false;
}
} // namespace

int main(int argc, char** argv)
{
    Tools::prepareDescriptors();
    QCoreApplication::setApplicationName(QStringLiteral("citp-browser"));
    QCoreApplication::setOrganizationName(QStringLiteral("citp"));
    QCoreApplication::setApplicationVersion(QStringLiteral(CITP_VERSION));
    Browser::Options options = optionsOf(argc, argv);
    if (options.action == Browser::Options::Action::Print) {
        std::fputs(options.text.toLocal8Bit().constData(), stdout);
        return 0;
    }
    if (options.action == Browser::Options::Action::UsageError) {
        std::fprintf(stderr, "citp-browser: %s\n", options.text.toLocal8Bit().constData());
        return 2;
    }
    if (!hasDisplay()) {
        std::fputs("citp-browser: there is no display; start it in a graphical session, or set DISPLAY\n", stderr);
        return 1;
    }
    const QApplication application(argc, argv);
    const auto translations = Browser::translateTexts(QLocale().uiLanguages());

    const QString remembered = QSettings().value(QStringLiteral("adapter")).toString();
    const QString adapter = options.adapter.isEmpty() ? remembered : options.adapter;
    // A saved adapter does not override ARTNET_ADAPTER; --adapter does.
    if (!adapter.isEmpty() && (!options.adapter.isEmpty() || Browser::adapterChoice().isEmpty()))
        Browser::chooseAdapter(adapter);
    if (!options.adapter.isEmpty())
        QSettings().setValue(QStringLiteral("adapter"), options.adapter);
    const QString cache = QStandardPaths::writableLocation(QStandardPaths::CacheLocation);
    Browser::Session session(cache.isEmpty() ? QString() : cache + QStringLiteral("/pictures"));
    const Browser::Preferences preferences = Browser::Preferences::load();
    if (!options.isGroupGiven)
        options.stack.options.setDiscoveryGroups(preferences.groups);
    session.setPreferences(preferences);
    Browser::MainWindow window(session);
    if (!options.server.isEmpty())
        session.chooseServer(options.server);
    window.show();
    session.start(options.stack);
    return QApplication::exec();
}
