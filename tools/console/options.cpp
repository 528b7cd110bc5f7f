// The commands and options with their help texts, and the validation of the values.
// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include <QCommandLineParser>
#include <QRegularExpression>
#include <algorithm>
#include <vector>

#include "commands.h"
#include "printing.h"

namespace Console {
namespace {
struct Command
{
    const char* name;
    const char* brief;
    const char* help;
    int (*run)(const Options&);
    QStringList arguments; ///< positional arguments; optional ones are in brackets
    QStringList options;   ///< in addition to --help and --version
    bool needsGui = false;
    QList<QCommandLineOption> ownOptions = {}; ///< which replace those of the same names of other commands
};

// The options of a command that connects to servers.
QStringList connecting(QStringList options)
{
    for (const QCommandLineOption& option : Tools::stackCommandLineOptions())
        options << option.names().constFirst();
    return options;
}

const std::vector<Command>& commands()
{
    static const std::vector<Command> all{
        {"watch",
         "reports media servers that come up or go down",
         "Connects to every media server that announces itself and prints a line when a server comes up or goes down:\n"
         "local time, event (up or down), key (address and port), name, product and version, MSEX version, layers.\n"
         "Runs until Ctrl-C. If no server is heard for 10 seconds, it prints hints once. A server that announces\n"
         "itself for 10 seconds without coming up is reported on standard error.",
         watch,
         {},
         connecting({"adapter", "json", "log", "seconds"})},
        {"servers",
         "lists the media servers that announce themselves",
         "Listens for announcements and prints the key and the name of each media server as soon as it is heard.\n"
         "Does not connect to the servers. Ends when no other server is heard for 2.5 seconds, at the latest after\n"
         "--timeout.",
         listServers,
         {},
         {"adapter", "group", "json", "log", "timeout"}},
        {"adapters",
         "lists the network adapters",
         "Lists the network adapters of this machine with state and IPv4 addresses, marks the one that is used for\n"
         "media servers, and prints why it was chosen.",
         listAdapters,
         {},
         {"adapter", "json", "log"}},
        {"doctor",
         "checks the conditions for finding media servers",
         "Checks in order the conditions for finding media servers: the adapter, its address, multicast (by joining\n"
         "the groups), UDP port 4809 (by opening it as the library does), and whether a server announces itself\n"
         "within --timeout. Then checks for each server the TCP connection, the greeting, the MSEX version, a library\n"
         "and a thumbnail, and whether a guard has acted. Also reports servers that are heard on another adapter or\n"
         "group only; meanwhile, other programs on this machine that listen for servers hear them too.\n"
         "Prints a line for each check: ok, FAILED, skipped or note. A line below it explains how to fix it. With\n"
         "SERVER, only that server is checked. A server given by its key is checked even without an announcement.\n"
         "Log lines of the library are suppressed unless --log or OS_LOG_MASKS enables them. The exit status is 1 if\n"
         "a check failed.",
         diagnose,
         {"[SERVER]"},
         connecting({"adapter", "json", "log", "timeout"})},
        {"libraries",
         "lists the element libraries of a server",
         "Lists the element libraries of a server. Sub-libraries (MSEX 1.1 and later) follow their parents.",
         listLibraries,
         {"SERVER"},
         connecting({"adapter", "json", "log", "timeout", "type"})},
        {"elements",
         "lists the elements of a library",
         "Lists the elements of one library: media with size, length and frame rate, effects with their parameters,\n"
         "other elements with their names.",
         listElements,
         {"SERVER", "LIBRARY"},
         connecting({"adapter", "json", "log", "timeout", "type"})},
        {"layers",
         "shows the layer status of a server",
         "Shows what the layers of a server play. On a terminal, the table is updated in place; otherwise a table is\n"
         "printed at most once a second. Narrow terminals show fewer columns. With --json, every layer status message\n"
         "is printed; if the output is read too slowly, only the newest ones are. Runs until Ctrl-C.",
         showLayers,
         {"SERVER"},
         connecting({"adapter", "json", "log", "seconds", "timeout"})},
        {"patch",
         "lists the fixture patch of a server",
         "Requests the fixture patch of a server and lists the fixtures. Universes and channels are the server's own\n"
         "numbers. The protocol does not mark the end of a patch: it is considered complete when no fixture arrives\n"
         "for one second. If fixtures are still arriving after --timeout, the command fails.",
         listPatch,
         {"SERVER"},
         connecting({"adapter", "json", "log", "timeout"})},
        {"stats",
         "shows message rates and response times of a server",
         "Counts the messages of a server by type, with rates and sizes, and measures its response times. On a\n"
         "terminal, the table is updated in place; otherwise a table is printed every --interval. The last table\n"
         "covers the whole run. Runs until Ctrl-C.\n"
         "The counted messages are those that the library passes to applications: ELIn, MEIn, EEIn, GLEI, EThn, ELTh,\n"
         "ELUp, LSta and Ptch, each with the size in its header. Announcements, the greeting (PNam, SInf), messages\n"
         "that the library discards, and messages sent to the server are not counted.\n"
         "To measure response times, the command sends at most two requests a second, one at a time: for the media\n"
         "libraries (GELI), for the elements of the first library that has any (GEIn), and for the thumbnail of the\n"
         "first element (GETh). The answers are included in the counts. A response time is the time from passing the\n"
         "request to the library until the application receives the answer. A request that is not answered within\n"
         "half of --timeout is sent a second time.",
         showStatistics,
         {"SERVER"},
         connecting({"adapter", "interval", "json", "log", "seconds", "timeout"})},
        {"thumbnails",
         "saves the thumbnails of a server or library",
         "Requests the thumbnail of every element of a server, or of one library without its sub-libraries. With\n"
         "--to, writes each thumbnail to a file, and all of them to a contact sheet, contact-sheet.jpg. With --html,\n"
         "writes pages that show them, for any browser. RGB8 pictures are saved as\n"
         "PNG, other formats as received. Missing thumbnails are listed, and the exit status is then 1.\n"
         "A library that does not answer the request for its elements is skipped and counts as missing.",
         fetchThumbnails,
         {"SERVER", "[LIBRARY]"},
         connecting({"adapter", "format", "html", "json", "log", "size", "timeout", "to", "type"}),
         true},
        {"decode",
         "prints the CITP messages of a capture file",
         "Reads a capture file, pcap or pcapng, and prints a line for each CITP message of its announcements and\n"
         "connections: local time, direction (* announced, -> to the server, <- from it), key of the server, message,\n"
         "and what matters in it. --full prints source and destination, layer, size and the whole content as the\n"
         "library parses it; --json the fields. --server, --message, --since and --until select messages.\n"
         "FILE - is standard input, which is decoded as it arrives: citp-console capture --write - | citp-console\n"
         "decode -\n"
         "With --write, the selected messages are written to a new capture file instead, and with --no-pictures\n"
         "without pictures, so that the file can be sent on.\n"
         "Also marks messages that the library would discard and lists that announce more records than their bytes "
         "hold\n"
         "(WRONG), protocol errors (ERROR), bytes missing from the capture (GAP), and the start and end of "
         "connections\n"
         "(NOTE).",
         decode,
         {"FILE"},
         {"full", "json", "message", "no-pictures", "server", "since", "summary", "until", "write"},
         false,
         {{{"write", "w"},
           "File for the selected messages, as a capture file. An existing file is overwritten. - writes to standard "
           "output.",
           "FILE"},
          {"no-pictures",
           "Leaves the pictures of ELTh, EThn and StFr out of what --write writes, and messages that could hide "
           "one."}}},
        {"capture",
         "records the CITP traffic of an adapter to a file",
         "Records announcements and the connections of media servers to a file for 'decode' and other programs. A\n"
         "server is recognised by its announcement or by the content of a connection. Only traffic that reaches or\n"
         "leaves this machine is recorded. Stops after 10 minutes, after 1000000 packets or on Ctrl-C, and prints how\n"
         "many packets were written and dropped. With --write -, that goes to standard error; if the pipe is full "
         "when\n"
         "the capture ends, the last packets are lost, and the exit status is 1. A file has its name only when it is\n"
         "complete: a run that is killed leaves NAME.CHARACTERS.part behind, which can be deleted.\n"
         "Requires the permission to capture: run it as root, or run 'sudo setcap cap_net_raw+ep' on the program.\n\n"
         "With --walk, it connects to the server of --server, asks it for its libraries, elements and pictures, one\n"
         "picture at a time, waits for layer status, and stops then. The file contains only the traffic of this\n"
         "server, and 'citp-mediaserver --replay' plays the server from it.",
         capture,
         {},
         connecting(
             {"adapter", "count", "format", "no-pictures", "seconds", "server", "size", "timeout", "walk", "write"})},
        {"test",
         "tests a media server and writes a report for its maker",
         "Runs a list of tests against one media server, in each MSEX version that it offers, and prints a line for "
         "each:\n"
         "passed, warning (odd, but consoles live with it), failed, not run (why), or broken (the test could not be\n"
         "carried out). Causes no more load than a console unless --load is given, and changes nothing on the server.\n"
         "--json and --html write reports, which are kept as far as they are if the tests end early, as by Ctrl-C.\n"
         "Exit status: 0 nothing failed, 1 a test failed, 2 usage error, 3 the tests were not completed.",
         testServer,
         {"[SERVER]"},
         {"adapter", "compare", "html", "json", "list", "load", "log", "only", "operator", "silence", "skip",
          "timeout"},
         true,
         {{"json", "File for the report as JSON lines, described in docs/citp-console-test.schema.json.", "FILE"},
          {"html", "File for the report as one HTML page without scripts, to be sent to the maker of the server.",
           "FILE"},
          {"timeout",
           "Timeout in seconds, 0.1 to 3600, for each answer; and how long announcements are listened to. Default: 5.",
           "SECONDS"}}},
    };
    return all;
}

const char* const ArgumentHelp[][2] = {
    {"FILE",
     "The capture file, pcap or pcapng, of Ethernet, Linux \"any\", loopback or bare IP packets; - for standard "
     "input."},
    {"SERVER",
     "The media server: its key (address and port, such as 2.0.0.10:4811), its name or a unique part of its "
     "name."},
    {"LIBRARY",
     "The library: its id as listed by 'libraries', such as 1,2,0,0, or one number for a top-level library."},
};

QString programDescription()
{
    QString text = "Finds CITP media servers on the network and shows their content.\n\nCommands:\n";
    for (const Command& command : commands())
        text += QString("  %1 %2\n").arg(QString(command.name).leftJustified(12), QString(command.brief));
    return text +
           "\n'citp-console COMMAND --help' describes one command.\n\n"
           "Exit status: 0 success, 1 failure, 2 usage error.";
}

// The options of all commands, in the form that @p command has.
QList<QCommandLineOption> knownOptions(const Command* command = nullptr)
{
    QList<QCommandLineOption> options{
        {{"adapter", "i"},
         "Network adapter, by name or IPv4 address. Default: the adapter in the environment variable ARTNET_ADAPTER; "
         "if "
         "it is not set, the first adapter with an address in 2.0.0.0/8, else in 10.0.0.0/8, else any other, else the "
         "loopback.",
         "NAME|ADDRESS"},
        {"json",
         "Prints one JSON object per line instead of text, each with its type in \"record\". Times are in UTC. The "
         "objects are described in docs/citp-console.schema.json."},
        {"log",
         "Log lines to print on standard error: a comma-separated list of NAME=MASK. NAME is a log context such as "
         "CITP.Stack, CITP.* for CITP and all contexts below it, or Qt for the messages of Qt itself. MASK is a sum of "
         "1 (traffic), 2 (state changes), 4 "
         "(warnings), 8 (failures), 16 (critical errors). Default: the environment variable OS_LOG_MASKS; if it is not "
         "set, CITP.*=28.",
         "MASKS"},
        {"format", "Requested picture format: jpeg, png or rgb8. Default: jpeg.", "FORMAT"},
        {"size",
         "Requested picture size in pixels, each side 1 to 4096. Servers keep the aspect ratio. With rgb8, at most "
         "21845 "
         "pixels in total, because larger pictures do not fit into a message. Default: 160x120.",
         "WIDTHxHEIGHT"},
        {"timeout",
         "Timeout in seconds, 0.1 to 3600, for the server to come up and for each answer. A request is sent again "
         "after half of it. The timeout for the server to come up is at least 10. Default: 10.",
         "SECONDS"},
        {"to", "Folder for the files, created if it does not exist. Existing files are overwritten.", "DIR"},
        {"html",
         "New or empty folder for HTML pages with the pictures: index.html and one for each library. The pages appear "
         "when all are complete.",
         "DIR"},
        {"type", "Library type, 1 to 255: 1 media, 2 effects, 3 and higher others. Default: 1.", "N"},
        {{"seconds", "duration"},
         "Stops after this many seconds, 1 to 86400. Default: run until Ctrl-C; for 'capture' 600.",
         "N"},
        {"interval", "Seconds between two tables, 1 to 3600. Default: 2.", "N"},
        {"count", "Stops after this many packets, 1 to 1000000000. Default: 1000000; none with --walk.", "N"},
        {"summary", "Prints tables with the count and sizes of the messages of each server instead of the messages."},
        {{"write", "w"}, "File to write. An existing file is overwritten. - writes to standard output.", "FILE"},
        {"walk", "Asks the server of --server for everything, and records that."},
        {"no-pictures", "Does not ask for pictures with --walk."},
        {"full", "Prints the whole messages, with source and destination."},
        {"server", "Only what concerns this server: its key, its address or a part of its name.", "SERVER"},
        {"message",
         "Only these messages: a comma-separated list of content codes such as SInf, layers such as MSEX, and the "
         "marks gap, error and note.",
         "CODES"},
        {"list", "Lists the tests with what they do and what they expect, and exits."},
        {"only", "Runs only these tests: numbers and areas as listed by --list, separated by commas.", "TESTS"},
        {"skip", "Leaves these tests out: numbers and areas as listed by --list, separated by commas.", "TESTS"},
        {"compare", "Prints what is better or worse than in this earlier report, written by --json.", "FILE"},
        {"load", "Also runs tests that cause more load than a console. Not during a show."},
        {"operator", "Also runs tests that ask the operator to change something on the server, and wait for it."},
        {"silence",
         "Seconds without any message in the tests of silence, and for the operator to act, 1 to 3600. Default: 60.",
         "SECONDS"},
        {"since", "Only from this local time on: 15:14, 15:14:17.5, or with a date, 2026-11-21T15:14.", "TIME"},
        {"until", "Only up to this local time, as --since.", "TIME"},
    };
    for (const QCommandLineOption& own : command ? command->ownOptions : QList<QCommandLineOption>()) {
        for (QCommandLineOption& option : options) {
            if (option.names().constFirst() == own.names().constFirst())
                option = own;
        }
    }
    return options + Tools::stackCommandLineOptions();
}

// Of the command "test", which waits for each answer that does not come.
constexpr int TestTimeoutMs = 5000;

// Exception: the command line is invalid.
struct UsageError
{
    QString text;
};

// The number of characters to insert, remove, replace or swap with their neighbours to make one word of the other.
int distanceOf(const QString& one, const QString& other)
{
    std::vector<std::vector<int>> costs(static_cast<std::size_t>(one.size()) + 1,
                                        std::vector<int>(static_cast<std::size_t>(other.size()) + 1));
    for (std::size_t i = 0; i < costs.size(); ++i) {
        for (std::size_t j = 0; j < costs[i].size(); ++j) {
            const auto at = static_cast<int>(i);
            const auto otherAt = static_cast<int>(j);
            if (i == 0 || j == 0) {
                costs[i][j] = at + otherAt;
                continue;
            }
            const bool isSame = one.at(at - 1) == other.at(otherAt - 1);
            costs[i][j] = std::min({costs[i - 1][j] + 1, costs[i][j - 1] + 1, costs[i - 1][j - 1] + (isSame ? 0 : 1)});
            if (i > 1 && j > 1 && one.at(at - 1) == other.at(otherAt - 2) && one.at(at - 2) == other.at(otherAt - 1))
                costs[i][j] = std::min(costs[i][j], costs[i - 2][j - 2] + 1);
        }
    }
    return costs.back().back();
}

// The candidate that @p word was probably meant to be, as text for an error message; empty if there is none.
QString suggestion(const QString& word, const QStringList& candidates, const QString& prefix = {})
{
    constexpr int MaxDistance = 2;
    constexpr int MinPrefix = 3;
    QString best;
    int bestDistance = MaxDistance + 1;
    for (const QString& candidate : candidates) {
        int distance = word.size() > 32 ? bestDistance : distanceOf(word.toLower(), candidate);
        if (word.size() >= MinPrefix && candidate.startsWith(word, Qt::CaseInsensitive))
            distance = 1;
        if (distance < bestDistance && distance < candidate.size()) {
            best = candidate;
            bestDistance = distance;
        }
    }
    return best.isEmpty() ? QString() : QString("; did you mean '%1%2'?").arg(prefix, best);
}

class ArgumentReader
{
public:
    CommandLine read(const QStringList& arguments)
    {
        // The form of some options depends on the command.
        QCommandLineParser first;
        prepare(first, nullptr, nullptr);
        first.parse(arguments);
        prepare(m_parser, nullptr, commandNamed(first.positionalArguments().value(0)));
        CommandLine line;
        try {
            if (!m_parser.parse(arguments))
                throw UsageError{m_parser.errorText().remove(QRegularExpression("\\.$")) + suggestedOption()};
            readAction(line);
            if (line.action == CommandLine::Action::Run)
                line.options = options();
        } catch (const UsageError& error) {
            line.action = CommandLine::Action::UsageError;
            line.text = escapeControls(error.text);
        }
        return line;
    }

private:
    static const Command* commandNamed(const QString& name)
    {
        for (const Command& command : commands()) {
            if (name == QLatin1String(command.name))
                return &command;
        }
        return nullptr;
    }

    // Adds the options of @p command, or all options if it is null, in the form that @p form has.
    static void prepare(QCommandLineParser& parser, const Command* command, const Command* form)
    {
        parser.addOption({{"h", "help"}, "Prints this help and exits."});
        parser.addOption({{"v", "version"}, "Prints the version and exits."});
        for (const QCommandLineOption& option : knownOptions(form)) {
            if (!command || command->options.contains(option.names().constFirst()))
                parser.addOption(option);
        }
        parser.setApplicationDescription(command ? QString(command->help) : programDescription());
        if (!command) {
            parser.addPositionalArgument("command", "One of the commands above.", "COMMAND");
            return;
        }
        parser.addPositionalArgument(command->name, command->brief);
        for (const QString& argument : command->arguments) {
            for (const auto& [name, help] : ArgumentHelp) {
                if (argument.contains(name))
                    parser.addPositionalArgument(QString(name).toLower(), help, argument);
            }
        }
    }

    void readAction(CommandLine& line)
    {
        const QStringList words = m_parser.positionalArguments();
        const Command* const command = commandNamed(words.value(0));
        if (m_parser.isSet("version")) {
            line.action = CommandLine::Action::Version;
            line.text = "citp-console " CITP_VERSION "\n";
        } else if (!words.isEmpty() && !command) {
            throw UsageError{QString("'%1' is not a command").arg(words.constFirst()) + suggestedCommand(words)};
        } else if (m_parser.isSet("help")) {
            QCommandLineParser help;
            prepare(help, command, command);
            line.action = CommandLine::Action::Help;
            line.text = help.helpText();
        } else if (!command) {
            throw UsageError{"no command given"};
        } else {
            checkArguments(*command);
            line.action = CommandLine::Action::Run;
            line.run = command->run;
            line.needsGui = command->needsGui;
        }
    }

    static QString suggestedCommand(const QStringList& words)
    {
        QStringList names;
        for (const Command& command : commands())
            names << command.name;
        return suggestion(words.constFirst(), names);
    }

    QString suggestedOption() const
    {
        QStringList names;
        for (const QCommandLineOption& option : knownOptions())
            names << option.names();
        return suggestion(m_parser.unknownOptionNames().value(0), names, "--");
    }

    // The parser accepts the options of all commands, so options that the command does not support are rejected here.
    void checkArguments(const Command& command) const
    {
        for (const QCommandLineOption& option : knownOptions()) {
            const QString name = option.names().constFirst();
            if (m_parser.isSet(name) && !command.options.contains(name))
                throw UsageError{QString("'%1' does not support --%2").arg(QString(command.name), name)};
        }
        const QStringList words = m_parser.positionalArguments().mid(1);
        if (words.size() > command.arguments.size())
            throw UsageError{QString("unexpected argument '%1'").arg(words.at(command.arguments.size()))};
        for (int i = 0; i < command.arguments.size(); ++i) {
            const bool isRequired = !command.arguments.at(i).startsWith('[');
            if (isRequired && (i >= words.size() || words.at(i).isEmpty()))
                throw UsageError{QString("'%1' requires %2").arg(QString(command.name), command.arguments.at(i))};
        }
        if (command.options.contains("to") && !m_parser.isSet("to") && !m_parser.isSet("html"))
            throw UsageError{QString("'%1' requires --to DIR or --html DIR").arg(QString(command.name))};
        if (command.options.contains("walk")) {
            if (m_parser.isSet("walk") && !m_parser.isSet("server"))
                throw UsageError{"--walk requires --server SERVER"};
            // A reader that has gone could not end the walk.
            if (m_parser.isSet("walk") && m_parser.value("write") == QLatin1String("-"))
                throw UsageError{"--walk requires a file to write, not standard output"};
            // Those that connect have no meaning for a recording alone.
            for (const QString& option : connecting({"format", "no-pictures", "server", "size", "timeout"})) {
                if (m_parser.isSet(option) && !m_parser.isSet("walk"))
                    throw UsageError{QString("'capture' does not support --%1 without --walk").arg(option)};
            }
        }
        const bool isWritten = m_parser.isSet("write");
        if (command.options.contains("write") && !isWritten && command.arguments.isEmpty())
            throw UsageError{QString("'%1' requires --write FILE").arg(QString(command.name))};
        if (command.options.contains("no-pictures") && m_parser.isSet("no-pictures") && !isWritten)
            throw UsageError{"--no-pictures requires --write FILE"};
        for (const QString& option : QStringList{"full", "json", "summary"}) {
            if (isWritten && m_parser.isSet(option))
                throw UsageError{QString("--write cannot be combined with --%1").arg(option)};
        }
    }

    [[noreturn]] void throwInvalid(const QString& option, const QString& reason) const
    {
        throw UsageError{QString("--%1: '%2' is %3").arg(option, m_parser.value(option), reason)};
    }

    int number(const QString& option, int min, int max, int defaultValue) const
    {
        if (!m_parser.isSet(option))
            return defaultValue;
        bool isValid = false;
        const int value = m_parser.value(option).toInt(&isValid);
        if (!isValid || value < min || value > max)
            throwInvalid(option, QString("not a whole number from %1 to %2").arg(min).arg(max));
        return value;
    }

    QString text(const QString& option) const
    {
        QString value = m_parser.value(option);
        if (m_parser.isSet(option) && value.isEmpty())
            throwInvalid(option, "empty");
        return value;
    }

    QStringList names(const QString& option) const
    {
        return m_parser.isSet(option) ? text(option).split(',') : QStringList();
    }

    static QString library(const QString& text)
    {
        QStringList levels = text.split(',');
        for (QString& level : levels) {
            bool isValid = false;
            const uint number = level.toUInt(&isValid);
            if (!isValid || number > 255 || (levels.size() != 1 && levels.size() != 4))
                throw UsageError{QString("'%1' is not a library id: four numbers from 0 to 255 separated by commas, "
                                         "such as 1,2,0,0, or one number")
                                     .arg(text)};
            level = QString::number(number);
        }
        return levels.join(',');
    }

    int timeoutMs(int defaultValue) const
    {
        if (!m_parser.isSet("timeout"))
            return defaultValue;
        bool isValid = false;
        const double seconds = m_parser.value("timeout").toDouble(&isValid);
        if (!isValid || !(seconds >= 0.1 && seconds <= 3600))
            throwInvalid("timeout", "not a number from 0.1 to 3600");
        return static_cast<int>(seconds * 1000);
    }

    Moment moment(const QString& option) const
    {
        const QString text = m_parser.value(option);
        const int start = text.contains('T') ? static_cast<int>(text.indexOf('T')) + 1 : 0;
        static const QRegularExpression form("^\\d\\d:\\d\\d(:\\d\\d(\\.\\d{1,3})?)?$");
        Moment moment;
        if (start > 0)
            moment.date = QDate::fromString(text.left(start - 1), Qt::ISODate);
        if (form.match(text.mid(start)).hasMatch())
            moment.time = QTime::fromString(text.mid(start), Qt::ISODateWithMs);
        if (m_parser.isSet(option) && (!moment.time.isValid() || (start > 0 && !moment.date.isValid())))
            throwInvalid(option, "not a time such as 15:14:17 or 2026-11-21T15:14");
        return moment;
    }

    QString format() const
    {
        QString format = m_parser.isSet("format") ? m_parser.value("format").toUpper() : QString("JPEG");
        if (format != "JPEG" && format != "PNG" && format != "RGB8")
            throwInvalid("format", "not a supported format: jpeg, png or rgb8" +
                                       suggestion(m_parser.value("format"), {"jpeg", "png", "rgb8"}));
        return format;
    }

    QSize size(const QString& format) const
    {
        constexpr int MaxPictureBytes = 65535;
        static const QRegularExpression pattern("^(\\d{1,4})x(\\d{1,4})$");
        const QRegularExpressionMatch match =
            pattern.match(m_parser.isSet("size") ? m_parser.value("size") : "160x120");
        const QSize size(match.captured(1).toInt(), match.captured(2).toInt());
        if (size.isEmpty() || size.width() > 4096 || size.height() > 4096)
            throwInvalid("size", "not a size: WIDTHxHEIGHT such as 160x120, each 1 to 4096");
        if (format == "RGB8" && size.width() * size.height() * 3 > MaxPictureBytes)
            throwInvalid("size", "too large for rgb8, which allows 21845 pixels in total, such as 160x120");
        return size;
    }

    Options options() const
    {
        Options options;
        const QStringList words = m_parser.positionalArguments();
        options.server = words.value(1);
        options.library = words.size() > 2 ? library(words.at(2)) : QString();
        options.type = number("type", 1, 255, options.type);
        const bool isTest = words.value(0) == "test";
        options.timeoutMs = timeoutMs(isTest ? TestTimeoutMs : options.timeoutMs);
        options.intervalMs = number("interval", 1, 3600, options.intervalMs / 1000) * 1000;
        options.to = text("to");
        options.html = text("html");
        options.format = format();
        options.size = size(options.format);
        options.adapter = text("adapter");
        options.json = m_parser.isSet("json") && !isTest;
        options.jsonFile = isTest ? text("json") : QString();
        options.list = m_parser.isSet("list");
        options.only = names("only");
        options.skip = names("skip");
        options.compare = text("compare");
        options.load = m_parser.isSet("load");
        options.askOperator = m_parser.isSet("operator");
        options.silenceMs = number("silence", 1, 3600, options.silenceMs / 1000) * 1000;
        if (isTest && options.server.isEmpty() && !options.list)
            throw UsageError{"'test' requires SERVER"};
        options.seconds = number("seconds", 1, 86400, 0);
        options.log = text("log");
        const QString problem = Tools::readStackOptions(m_parser, options.stack);
        if (!problem.isEmpty())
            throw UsageError{problem};
        options.file = words.value(1);
        options.summary = m_parser.isSet("summary");
        options.write = text("write");
        options.full = m_parser.isSet("full");
        if (options.full && (options.json || options.summary))
            throw UsageError{"--full cannot be combined with --json or --summary"};
        options.filteredServer = text("server");
        options.messages = names("message");
        options.since = moment("since");
        options.until = moment("until");
        options.walk = m_parser.isSet("walk");
        options.noPictures = m_parser.isSet("no-pictures");
        options.count = number("count", 1, 1000000000, 0);
        return options;
    }

    QCommandLineParser m_parser;
};
} // namespace

CommandLine readCommandLine(const QStringList& arguments)
{
    return ArgumentReader().read(arguments);
}
} // namespace Console
