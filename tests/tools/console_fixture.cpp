// Runs of citp-console and citp-mediaserver, and what the leak sanitizer leaves out in them.
// SPDX-License-Identifier: Apache-2.0
#include "console_fixture.h"

#include <QJsonDocument>

#include <memory>

namespace {
// For the children: the sanitizer of this process has read it before main(). It takes wrong addresses for the thread's
// memory of a module that is loaded later, such as an image format of Qt, and crashes while it looks for leaks there.
[[maybe_unused]] const bool hasSuppressions =
    qputenv("LSAN_OPTIONS", "intercept_tls_get_addr=0:print_suppressions=0:suppressions=" LEAKS_FILE);
} // namespace

Server::Server(const QStringList& arguments)
    : Child(SERVER_PROGRAM, QStringList{"--adapter", "lo", "--interval", "100"} + arguments)
{
    waitForLine("listens on");
}

Outcome runConsole(const QStringList& arguments)
{
    Console console(arguments);
    return outcomeOf(console);
}

std::vector<Outcome> runConsoles(const std::vector<QStringList>& runs)
{
    std::vector<std::unique_ptr<Console>> consoles;
    for (const QStringList& arguments : runs)
        consoles.push_back(std::make_unique<Console>(arguments));
    std::vector<Outcome> outcomes;
    for (const auto& console : consoles)
        outcomes.push_back(outcomeOf(*console));
    return outcomes;
}

std::vector<QJsonObject> jsonLines(const QString& output)
{
    std::vector<QJsonObject> objects;
    const QStringList lines = output.split('\n');
    for (const QString& line : lines) {
        if (line.isEmpty())
            continue;
        const QJsonDocument document = QJsonDocument::fromJson(line.toUtf8());
        EXPECT_TRUE(document.isObject()) << line.toStdString();
        objects.push_back(document.object());
    }
    return objects;
}
