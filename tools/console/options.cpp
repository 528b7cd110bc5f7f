// Commands and options, their help, and the checks of their values.
// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include <QCommandLineParser>
#include <QRegularExpression>
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
    QStringList arguments; ///< words behind the command's name; those in brackets may be left out
    QStringList options;   ///< besides help and version
    bool drawsText = false;
};

const std::vector<Command>& commands()
{
    static const std::vector<Command> all{
        {"watch",
         "shows media servers coming up and going down",
         "Connects to every media server that announces itself and prints a line for each one that comes up or goes\n"
         "down: local time, up or down, key (address and port), name, product and version, MSEX version, layers.\n"
         "Runs until Ctrl-C. If nothing is heard for 10 seconds it says, once, what to look at.",
         watch,
         {},
         {"adapter", "json", "log", "seconds"}},
        {"adapters",
         "lists the network adapters and which one is used",
         "Lists this machine's network adapters with state and IPv4 addresses, marks the one that is used for media\n"
         "servers, and says why it is that one.",
         listAdapters,
         {},
         {"adapter", "json", "log"}},
        {"doctor",
         "checks what must hold for servers to be seen",
         "Checks, one after the other, what must hold for a media server to be seen: the adapter, its address, "
         "multicast\n"
         "(by joining the group), UDP port 4809 (by opening it as the library does), whether a server is heard within\n"
         "--timeout, and for each server TCP, the answer to the greeting, the MSEX version, a library and a "
         "thumbnail.\n"
         "Prints a line for each, ok, FAILED or skipped, and below a failure what to do about it. SERVER limits it to "
         "one\n"
         "server; its key is tried even if it is not heard. Log lines of the library are left out unless --log or\n"
         "OS_LOG_MASKS asks for them. The exit status is 1 if anything failed.",
         diagnose,
         {"[SERVER]"},
         {"adapter", "json", "log", "timeout"}},
        {"libraries",
         "lists a server's element libraries",
         "Lists the element libraries of a server, sub-libraries (from MSEX 1.1 on) below their parents.",
         listLibraries,
         {"SERVER"},
         {"adapter", "json", "log", "timeout", "type"}},
        {"elements",
         "lists what is in a library",
         "Lists the elements of one library: media with size, length and frame rate, effects with their parameters,\n"
         "others with their names.",
         listElements,
         {"SERVER", "LIBRARY"},
         {"adapter", "json", "log", "timeout", "type"}},
        {"layers",
         "shows what a server's layers are playing",
         "Shows the layers of a server as it tells them: a table that stays in place on a terminal, else one a "
         "second;\n"
         "with --json everything that comes. Runs until Ctrl-C.",
         showLayers,
         {"SERVER"},
         {"adapter", "json", "log", "seconds", "timeout"}},
        {"patch",
         "lists a server's fixture patch",
         "Asks a server for its fixture patch and lists the fixtures. Universes and channels are the server's own\n"
         "numbers. Nothing tells the end of a patch: it is taken to be whole when nothing has come for a second. One\n"
         "that is still coming after --timeout is a failure.",
         listPatch,
         {"SERVER"},
         {"adapter", "json", "log", "timeout"}},
        {"stats",
         "shows what a server sends and how fast it answers",
         "Counts what a server sends, by type, with rates and sizes, and times its answers: a table that stays in "
         "place\n"
         "on a terminal, else one each --interval, and one of the whole time at the end. Runs until Ctrl-C.\n"
         "Counted are the messages that the library hands to applications: ELIn, MEIn, EEIn, GLEI, EThn, ELTh, ELUp,\n"
         "LSta and Ptch, each with the size in its own header. Not counted are announcements, the greeting (PNam,\n"
         "SInf), what the library drops, and what is sent to the server. To have answers to time it asks, twice a\n"
         "second at most and one thing at a time, for the media libraries (GELI), the elements of the first one that\n"
         "has any (GEIn) and the thumbnail of the first of these (GETh); those answers are counted, too. Times are\n"
         "those an application sees: from handing a request to the library until the answer is handed over. An answer\n"
         "that comes after --timeout has gone by is taken for one to the next request of its kind.",
         showStatistics,
         {"SERVER"},
         {"adapter", "interval", "json", "log", "seconds", "timeout"}},
        {"thumbnails",
         "fetches the pictures of a server or library into a folder",
         "Fetches the thumbnail of every element of a server, or of one library without its sub-libraries, and writes\n"
         "each into a file of its own and all of them onto a contact sheet, contact-sheet.png. RGB8 pictures become "
         "PNG\n"
         "files, others are written as they came. What is missing is listed, and the exit status is then 1.\n"
         "A library that does not tell its elements is passed over and counts as missing; after two in a row the\n"
         "server is given up.",
         fetchThumbnails,
         {"SERVER", "[LIBRARY]"},
         {"adapter", "format", "json", "log", "size", "timeout", "to", "type"},
         true},
        {"decode",
         "shows what was said on the network, from a capture file",
         "Reads a capture file, pcap or pcapng, follows the CITP in it, announcements and connections, and prints "
         "each\n"
         "message: local time, from where to where, layer and code, size, and what the library makes of it. Marked "
         "are\n"
         "messages that the library would not use (WRONG), breaches of the protocol (ERROR), bytes that the capture\n"
         "lacks (GAP), and connections that begin and end (NOTE). With --json times are UTC.",
         decode,
         {"FILE"},
         {"json", "summary"}},
        {"capture",
         "records the CITP traffic of an adapter into a file",
         "Records announcements and the connections of the servers announced, or recognised by what they say, into a\n"
         "file for 'decode' and other programs. It hears what this machine sends and receives. Ends after 10 minutes\n"
         "and 1000000 packets unless told otherwise, or at Ctrl-C, and says how many packets were written and "
         "dropped.\n"
         "Needs the right to capture: root's, or 'sudo setcap cap_net_raw+ep' on the program.",
         capture,
         {},
         {"adapter", "count", "seconds", "write"}},
    };
    return all;
}

const char* const ArgumentHelp[][2] = {
    {"FILE", "The capture file, pcap or pcapng, of Ethernet, Linux \"any\", loopback or bare IP packets."},
    {"SERVER",
     "The media server, by its key (address and port, such as 2.0.0.10:4811) or a part of its name that no "
     "other server has."},
    {"LIBRARY",
     "The library: four levels with commas as 'libraries' shows them, such as 1,2,0,0, or one number for a "
     "top-level library."},
};

QString programDescription()
{
    QString text = "Finds CITP media servers on the network and shows what they have.\n\nCommands:\n";
    for (const Command& command : commands())
        text += QString("  %1 %2\n").arg(QString(command.name).leftJustified(12), QString(command.brief));
    return text +
           "\n'citp-console COMMAND --help' explains one command.\n\n"
           "Exit status: 0 done or ended as asked, 1 failed, 2 wrong use.";
}

QList<QCommandLineOption> knownOptions()
{
    return {
        {{"adapter", "i"},
         "Network adapter to use, by name or IPv4 address. Without it the environment variable ARTNET_ADAPTER says so; "
         "else it is the first adapter with an address in 2.0.0.0/8, else in 10.0.0.0/8, else any other, else the "
         "loopback.",
         "NAME|ADDRESS"},
        {"json", "Prints one JSON object a line instead of text."},
        {"log",
         "Log lines to print on standard error: NAME=MASK with commas between, where NAME is a log context such as "
         "CITP.Stack, or CITP.* for it and all below it, and MASK a sum of 1 (traffic), 2 (changes of state), 4 "
         "(oddities), 8 (failures), 16 (critical). Default: CITP.*=28, or what the environment variable OS_LOG_MASKS "
         "says.",
         "MASKS"},
        {"format", "Format to ask for: jpeg, png or rgb8. Default: jpeg.", "FORMAT"},
        {"size",
         "Size to ask for in pixels, 1 to 4096 each; servers keep the proportions of their pictures. For rgb8 at most "
         "21845 pixels in all, for more do not fit into a message. Default: 160x120.",
         "WIDTHxHEIGHT"},
        {"timeout",
         "The longest wait in seconds for any one thing, the server itself or an answer; 0.1 to 3600. For the "
         "server itself it is at least 5. Default: 10.",
         "SECONDS"},
        {"to", "Folder for the files; made if it is not there. Files of the same names are replaced.", "DIR"},
        {"type", "Library type: 1 media, 2 effects, 3 and up others; 1 to 255. Default: 1.", "N"},
        {{"seconds", "duration"},
         "Ends after this many seconds, 1 to 86400. Default: runs until Ctrl-C; 'capture': 600.",
         "N"},
        {"interval", "Seconds between two tables, 1 to 3600. Default: 2.", "N"},
        {"count", "Ends after this many packets, 1 to 1000000000. Default: 1000000.", "N"},
        {"summary", "Prints a table for each server instead of the messages: what was said, how often, and how big."},
        {{"write", "w"}, "The file to write; one of that name is replaced.", "FILE"},
    };
}

// The first problem found; what follows it is not looked at.
struct Problem
{
    QString text;
};

class Reader
{
public:
    CommandLine read(const QStringList& arguments)
    {
        prepare(m_parser, nullptr);
        CommandLine line;
        try {
            if (!m_parser.parse(arguments))
                throw Problem{m_parser.errorText().remove(QRegularExpression("\\.$"))};
            readAction(line);
            if (line.action == CommandLine::Action::Run)
                line.options = options();
        } catch (const Problem& problem) {
            line.action = CommandLine::Action::WrongUse;
            line.text = harmless(problem.text);
        }
        return line;
    }

private:
    // With the options of @p command, or with all of them.
    static void prepare(QCommandLineParser& parser, const Command* command)
    {
        parser.addOption({{"h", "help"}, "Prints this help and ends."});
        parser.addOption({{"v", "version"}, "Prints the version and ends."});
        for (const QCommandLineOption& option : knownOptions()) {
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
        const Command* command = nullptr;
        for (const Command& candidate : commands()) {
            if (!words.isEmpty() && words.constFirst() == candidate.name)
                command = &candidate;
        }
        if (m_parser.isSet("version")) {
            line.action = CommandLine::Action::Version;
            line.text = "citp-console " CITP_VERSION "\n";
        } else if (!words.isEmpty() && !command) {
            throw Problem{QString("'%1' is no command; give one such as 'watch'").arg(words.constFirst())};
        } else if (m_parser.isSet("help")) {
            QCommandLineParser help;
            prepare(help, command);
            line.action = CommandLine::Action::Help;
            line.text = help.helpText();
        } else if (!command) {
            throw Problem{"no command; give one such as 'watch'"};
        } else {
            refuseForeign(*command);
            line.action = CommandLine::Action::Run;
            line.run = command->run;
            line.drawsText = command->drawsText;
        }
    }

    // What is known but means nothing to this command was meant for something: it is not passed over in silence.
    void refuseForeign(const Command& command) const
    {
        for (const QCommandLineOption& option : knownOptions()) {
            const QString name = option.names().constFirst();
            if (m_parser.isSet(name) && !command.options.contains(name))
                throw Problem{QString("'%1' knows no --%2: leave it out").arg(QString(command.name), name)};
        }
        const QStringList words = m_parser.positionalArguments().mid(1);
        if (words.size() > command.arguments.size())
            throw Problem{QString("'%1' belongs to nothing: leave it out").arg(words.at(command.arguments.size()))};
        for (int i = 0; i < command.arguments.size(); ++i) {
            const bool isNeeded = !command.arguments.at(i).startsWith('[');
            if (isNeeded && (i >= words.size() || words.at(i).isEmpty()))
                throw Problem{QString("'%1' needs a %2: give it").arg(QString(command.name), command.arguments.at(i))};
        }
        if (command.options.contains("to") && !m_parser.isSet("to"))
            throw Problem{QString("'%1' needs a folder: give --to DIR").arg(QString(command.name))};
        if (command.options.contains("write") && !m_parser.isSet("write"))
            throw Problem{QString("'%1' needs a file: give --write FILE").arg(QString(command.name))};
    }

    [[noreturn]] void refuse(const QString& option, const QString& what) const
    {
        throw Problem{QString("--%1: '%2' is %3").arg(option, m_parser.value(option), what)};
    }

    int number(const QString& option, int lowest, int highest, int preset) const
    {
        if (!m_parser.isSet(option))
            return preset;
        bool good = false;
        const int value = m_parser.value(option).toInt(&good);
        if (!good || value < lowest || value > highest)
            refuse(option, QString("not possible; give a whole number from %1 to %2").arg(lowest).arg(highest));
        return value;
    }

    QString text(const QString& option) const
    {
        QString value = m_parser.value(option);
        if (m_parser.isSet(option) && value.isEmpty())
            refuse(option, "empty; give a text");
        return value;
    }

    static QString library(const QString& text)
    {
        QStringList levels = text.split(',');
        for (QString& level : levels) {
            bool good = false;
            const uint number = level.toUInt(&good);
            if (!good || number > 255 || (levels.size() != 1 && levels.size() != 4))
                throw Problem{QString("'%1' is no library; give four numbers from 0 to 255 with commas, such as "
                                      "1,2,0,0, or one number")
                                  .arg(text)};
            level = QString::number(number);
        }
        return levels.join(',');
    }

    int timeoutMs(int preset) const
    {
        if (!m_parser.isSet("timeout"))
            return preset;
        bool good = false;
        const double seconds = m_parser.value("timeout").toDouble(&good);
        if (!good || !(seconds >= 0.1 && seconds <= 3600))
            refuse("timeout", "not possible; give a number of seconds from 0.1 to 3600");
        return static_cast<int>(seconds * 1000);
    }

    QString format() const
    {
        QString format = m_parser.isSet("format") ? m_parser.value("format").toUpper() : QString("JPEG");
        if (format != "JPEG" && format != "PNG" && format != "RGB8")
            refuse("format", "no format that can be asked for; give jpeg, png or rgb8");
        return format;
    }

    QSize size(const QString& format) const
    {
        constexpr int BytesInAMessage = 65535;
        static const QRegularExpression form("^(\\d{1,4})x(\\d{1,4})$");
        const QRegularExpressionMatch match = form.match(m_parser.isSet("size") ? m_parser.value("size") : "160x120");
        const QSize size(match.captured(1).toInt(), match.captured(2).toInt());
        if (size.isEmpty() || size.width() > 4096 || size.height() > 4096)
            refuse("size", "no size; give WIDTHxHEIGHT such as 160x120, each 1 to 4096");
        if (format == "RGB8" && size.width() * size.height() * 3 > BytesInAMessage)
            refuse("size",
                   "too big for rgb8, which has room for 21845 pixels such as 160x120; give less or another "
                   "format");
        return size;
    }

    Options options() const
    {
        Options options;
        const QStringList words = m_parser.positionalArguments();
        options.server = words.value(1);
        options.library = words.size() > 2 ? library(words.at(2)) : QString();
        options.type = number("type", 1, 255, options.type);
        options.timeoutMs = timeoutMs(options.timeoutMs);
        options.intervalMs = number("interval", 1, 3600, options.intervalMs / 1000) * 1000;
        options.to = text("to");
        options.format = format();
        options.size = size(options.format);
        options.adapter = text("adapter");
        options.json = m_parser.isSet("json");
        options.seconds = number("seconds", 1, 86400, 0);
        options.log = text("log");
        options.file = words.value(1);
        options.summary = m_parser.isSet("summary");
        options.write = text("write");
        options.count = number("count", 1, 1000000000, 0);
        return options;
    }

    QCommandLineParser m_parser;
};
} // namespace

CommandLine readCommandLine(const QStringList& arguments)
{
    return Reader().read(arguments);
}
} // namespace Console
