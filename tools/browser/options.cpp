// Parsing and validation of the options.
// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include <QCommandLineParser>
#include <QRegularExpression>

#include <algorithm>

#include "models/adapters.h"
#include "models/texts.h"

namespace Browser {
namespace {
const char* const Description =
    "Shows the CITP media servers of the network in a window: their libraries, pictures, layers and fixture "
    "patches.\n\n"
    "Exit status: 0 success, 1 failure, 2 usage error.";

Options usageError(const QString& what)
{
    Options options;
    options.action = Options::Action::UsageError;
    options.text = what;
    return options;
}
} // namespace

Options readOptions(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(Description));
    parser.addOptions({{{"h", "help"}, "Prints this help and exits."},
                       {{"v", "version"}, "Prints the version and exits."},
                       {"adapter", "Network adapter to listen on, by name or IPv4 address.", "NAME|ADDRESS"},
                       {"server", "Server to show first, as ADDRESS:PORT.", "KEY"}});
    parser.addOptions(Tools::stackCommandLineOptions());
    if (!parser.parse(arguments))
        return usageError(parser.errorText().remove(QRegularExpression(QStringLiteral("\\.$"))));
    Options options;
    if (parser.isSet("help") || parser.isSet("version")) {
        options.action = Options::Action::Print;
        options.text = QStringLiteral("citp-browser " CITP_VERSION "\n");
        if (parser.isSet("help"))
            options.text = parser.helpText();
        return options;
    }
    if (!parser.positionalArguments().isEmpty())
        return usageError(QStringLiteral("'%1' is not expected here; --help lists the options")
                              .arg(toSingleLine(parser.positionalArguments().constFirst())));
    options.adapter = parser.value("adapter");
    options.server = parser.value("server");
    options.isGroupGiven = parser.isSet("group");
    const auto all = availableAdapters();
    const bool isPresent = std::any_of(all.begin(), all.end(), [&](const AdapterOption& option) {
        return option.name == options.adapter || option.addresses.contains(options.adapter);
    });
    if (parser.isSet("adapter") && !isPresent)
        return usageError(QStringLiteral("--adapter: '%1' is no adapter or IPv4 address of this machine; 'citp-console "
                                         "adapters' lists them")
                              .arg(toSingleLine(options.adapter)));
    if (parser.isSet("server") && !Tools::isServerKey(options.server))
        return usageError(QStringLiteral("--server: '%1' is not a server key such as 2.0.0.10:4811")
                              .arg(toSingleLine(options.server)));
    const QString problem = Tools::readStackOptions(parser, options.stack);
    return problem.isEmpty() ? options : usageError(toSingleLine(problem));
}
} // namespace Browser
