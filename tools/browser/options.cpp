// Options and their checks.
// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include <QCommandLineParser>
#include <QRegularExpression>

#include <algorithm>

#include "models/adapters.h"

namespace Browser {
namespace {
const char* const Description =
    "Shows the CITP media servers of the network in a window: their libraries, pictures, layers and fixture "
    "patches.\n\n"
    "Exit status: 0 the window was closed, 1 failed, 2 wrong use.";

Options wrong(const QString& what)
{
    Options options;
    options.action = Options::Action::WrongUse;
    options.text = what;
    return options;
}
} // namespace

Options readOptions(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(Description));
    parser.addOptions({{{"h", "help"}, "Prints this help and ends."},
                       {{"v", "version"}, "Prints the version and ends."},
                       {"adapter", "Network adapter to listen on, by name or IPv4 address.", "NAME|ADDRESS"},
                       {"server", "Server to show first, as ADDRESS:PORT.", "KEY"}});
    if (!parser.parse(arguments))
        return wrong(parser.errorText().remove(QRegularExpression(QStringLiteral("\\.$"))));
    Options options;
    if (parser.isSet("help") || parser.isSet("version")) {
        options.action = Options::Action::Print;
        options.text = QStringLiteral("citp-browser " CITP_VERSION "\n");
        if (parser.isSet("help"))
            options.text = parser.helpText();
        return options;
    }
    if (!parser.positionalArguments().isEmpty())
        return wrong(QStringLiteral("'%1' is not expected here; --help lists the options")
                         .arg(oneLine(parser.positionalArguments().constFirst())));
    options.adapter = parser.value("adapter");
    options.server = parser.value("server");
    const auto all = adapterOptions();
    const bool isThere = std::any_of(all.begin(), all.end(), [&](const AdapterOption& option) {
        return option.name == options.adapter || option.addresses.contains(options.adapter);
    });
    if (parser.isSet("adapter") && !isThere)
        return wrong(QStringLiteral("--adapter: '%1' is no adapter or IPv4 address of this machine; 'citp-console "
                                    "adapters' lists them")
                         .arg(oneLine(options.adapter)));
    static const QRegularExpression key(QStringLiteral("^\\d{1,3}(\\.\\d{1,3}){3}:\\d{1,5}$"));
    if (parser.isSet("server") && !key.match(options.server).hasMatch())
        return wrong(QStringLiteral("--server: '%1' is no server's key; give one such as 2.0.0.10:4811")
                         .arg(oneLine(options.server)));
    return options;
}
} // namespace Browser
