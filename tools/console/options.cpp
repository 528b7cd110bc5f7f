// Commands and options, their help, and the checks of their values.
#include "options.h"

#include <QCommandLineParser>
#include <QRegularExpression>
#include <vector>

#include "printing.h"

namespace Console {
namespace {
using Action = CommandLine::Action;

struct Command
{
    Action action;
    const char* name;
    const char* brief;
    const char* help;
    QStringList options; ///< besides help and version
};

const std::vector<Command>& commands()
{
    static const std::vector<Command> all{
        {Action::Watch,
         "watch",
         "shows media servers coming up and going down",
         "Connects to every media server that announces itself and prints a line for each one that comes up or goes\n"
         "down: local time, up or down, key (address and port), name, product and version, MSEX version, layers.\n"
         "Runs until Ctrl-C. If nothing is heard for 10 seconds it says, once, what to look at.",
         {"adapter", "json", "log", "seconds"}},
        {Action::Adapters,
         "adapters",
         "lists the network adapters and which one is used",
         "Lists this machine's network adapters with state and IPv4 addresses, marks the one that is used for media\n"
         "servers, and says why it is that one.",
         {"adapter", "json", "log"}},
    };
    return all;
}

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
        {"adapter",
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
        {"seconds", "Ends after this many seconds, 1 to 86400. Default: runs until Ctrl-C.", "N"},
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
            if (line.action != Action::Help && line.action != Action::Version)
                line.options = options();
        } catch (const Problem& problem) {
            line.action = Action::WrongUse;
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
        if (command)
            parser.addPositionalArgument(command->name, command->brief);
        else
            parser.addPositionalArgument("command", "One of the commands above.", "COMMAND");
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
            line.action = Action::Version;
            line.text = "citp-console " CITP_VERSION "\n";
        } else if (!words.isEmpty() && !command) {
            throw Problem{QString("'%1' is no command; give one such as 'watch'").arg(words.constFirst())};
        } else if (m_parser.isSet("help")) {
            QCommandLineParser help;
            prepare(help, command);
            line.action = Action::Help;
            line.text = help.helpText();
        } else if (!command) {
            throw Problem{"no command; give one such as 'watch'"};
        } else {
            refuseForeign(*command);
            line.action = command->action;
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
        const QStringList words = m_parser.positionalArguments();
        if (words.size() > 1)
            throw Problem{QString("'%1' belongs to nothing: leave it out").arg(words.at(1))};
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

    Options options() const
    {
        Options options;
        options.adapter = text("adapter");
        options.json = m_parser.isSet("json");
        options.seconds = number("seconds", 1, 86400, 0);
        options.log = text("log");
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
