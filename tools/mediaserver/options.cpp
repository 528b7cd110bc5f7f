// Options, their help, and the checks of their values.
// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include <QCommandLineParser>
#include <QRegularExpression>
#include <QUuid>

namespace MediaServer {
namespace {
const char* const Description =
    "Plays one or several CITP media servers on the network: announces each on the group 224.0.0.180, port 4809,\n"
    "accepts consoles on TCP, introduces itself when a console's client information arrives, and reports on\n"
    "standard output what happens, one line an event. Ends on SIGINT or SIGTERM.\n\n"
    "Exit status: 0 ended as asked, 1 failed (an address or port is taken, for example), 2 wrong use.";

// The first problem found; what follows it is not looked at.
struct Problem
{
    QString text;
};

QString faultHelp()
{
    QStringList lines;
    for (const FaultDescription& description : faultDescriptions())
        lines << QString("%1: %2").arg(description.name, description.help);
    return lines.join("; ") + '.';
}

class Reader
{
public:
    Reader()
    {
        m_parser.setApplicationDescription(Description);
        add({"h", "help"}, "Prints this help and ends.");
        add({"v", "version"}, "Prints the version and ends.");
        add({"count"},
            "Number of servers, 1 to 200; default 1. Each has an address and a port of its own: ports count "
            "up; on loopback addresses count up too, on another adapter its addresses are used in turn.",
            "N");
        add({"name"}, "Name of the server; default 'Simulated Server'. With several servers, each adds its number.",
            "TEXT");
        add({"adapter"},
            "Adapter to announce on, by name or IPv4 address; default: the first with an address in "
            "2.0.0.0/8, else in 10.0.0.0/8, else any other, else loopback.",
            "NAME|ADDRESS");
        add({"address"},
            "IPv4 address of the first server; default 127.0.0.2 on loopback, else the adapter's first. "
            "Without --adapter it chooses the adapter too.",
            "ADDRESS");
        add({"port"}, "TCP port of the first server, 1 to 65535; default 4811.", "PORT");
        add({"interval"}, "Time between two announcements in milliseconds, 10 to 3600000; default 1000.", "MS");
        add({"msex"}, "MSEX version that the servers speak: 1.0, 1.1 or 1.2; default 1.2.", "VERSION");
        add({"product"}, "Product name; default 'Citp Simulator'.", "TEXT");
        add({"product-version"},
            "Product version, each part 0 to 255; default this program's own. The bugfix part is "
            "told from MSEX 1.2 on.",
            "MAJOR.MINOR[.BUGFIX]");
        add({"layers"}, "Number of layers, 0 to 255; default 2. Each has a DMX source of its own.", "N");
        add({"uuid"},
            "UUID of the server, told from MSEX 1.2 on; default: derived from its name, so that it stays the "
            "same from run to run. Only with one server.",
            "UUID");
        add({"die-after"},
            "A server vanishes this many milliseconds after the start, 0 to 86400000: its connections "
            "are reset and it is silent. Default: never.",
            "MS");
        add({"revive-after"},
            "It comes back this many milliseconds after it vanished, 0 to 86400000; default: never. "
            "Needs --die-after.",
            "MS");
        add({"die-server"}, "Which server vanishes, 1 to the number of servers; default 1. Needs --die-after.",
            "INDEX");
        add({"media"},
            "Folder of pictures to serve. Its sub-folders are the top-level element libraries, numbered from 1 "
            "by name, and theirs are sub-libraries down to the third level; pictures in the folder itself "
            "are library 0. A change in it is told at once. Default: drawn pictures.",
            "DIR");
        add({"effects"}, "Number of effect libraries (type 2), 0 to 50; default 0.", "N");
        add({"generic"}, "Number of generic libraries (type 3), 0 to 50; default 0.", "N");
        add({"layer-rate"},
            "Layer states a second that each greeted console is sent, 0 to 100; default 0. MSEX 1.1 has "
            "no layout for them: a 1.1 server sends them as 1.0 messages.",
            "N");
        add({"patch"},
            "JSON file of the fixtures that a console is told when it asks for the patch: an array of "
            "{\"id\": 1, \"universe\": 0, \"channel\": 1, \"channels\": 20, \"make\": \"Acme\", "
            "\"name\": \"Spot\"}. Default: no fixtures.",
            "FILE");
        add({"fault"},
            "Misbehaves; names with commas between, and the option again, add up. They strike the answers to "
            "requests and to the asking for the patch, not the SInf, "
            "unless it says so here. " +
                faultHelp(),
            "NAME,...");
        add({"fault-rate"}, "Percentage of the occasions at which a fault strikes, 1 to 100; default 100.", "PERCENT");
        add({"fault-delay"}, "How late the fault 'delay' makes answers, in milliseconds, 1 to 600000; default 500.",
            "MS");
        add({"seed"},
            "Seed of all that faults leave to chance, 0 to 2147483647; default 1. The same seed and the same "
            "requests give the same faults.",
            "N");
        add({"seconds"}, "Ends after this many seconds, 1 to 86400; default: runs until it is stopped.", "N");
        add({"quiet"}, "Reports nothing on standard output.");
    }

    CommandLine read(const QStringList& arguments)
    {
        CommandLine line;
        try {
            if (!m_parser.parse(arguments))
                throw Problem{m_parser.errorText().remove(QRegularExpression("\\.$"))};
            if (m_parser.isSet("help")) {
                line.action = CommandLine::Action::Help;
                line.text = m_parser.helpText();
            } else if (m_parser.isSet("version")) {
                line.action = CommandLine::Action::Version;
                line.text = "citp-mediaserver " CITP_VERSION "\n";
            } else {
                line.options = options();
            }
        } catch (const Problem& problem) {
            line.action = CommandLine::Action::WrongUse;
            line.text = problem.text.simplified();
        }
        return line;
    }

private:
    void add(const QStringList& names, const QString& help, const QString& value = {})
    {
        m_parser.addOption(QCommandLineOption(names, help, value));
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

    QString text(const QString& option, const QString& preset) const
    {
        if (!m_parser.isSet(option))
            return preset;
        QString value = m_parser.value(option);
        if (value.isEmpty())
            refuse(option, "empty; give a text");
        return value;
    }

    void readVersion(Options& options) const
    {
        const QString given = text("product-version", CITP_VERSION);
        static const QRegularExpression form("^(\\d{1,3})\\.(\\d{1,3})(?:\\.(\\d{1,3}))?$");
        const QRegularExpressionMatch match = form.match(given);
        quint8* const parts[] = {&options.versionMajor, &options.versionMinor, &options.versionBugfix};
        for (int i = 0; i < 3; ++i) {
            const int part = match.captured(i + 1).toInt();
            if (!match.hasMatch() || part > 255)
                refuse("product-version", "no version; give MAJOR.MINOR or MAJOR.MINOR.BUGFIX, each part 0 to 255");
            *parts[i] = static_cast<quint8>(part);
        }
    }

    void readIdentity(Options& options) const
    {
        options.name = text("name", "Simulated Server");
        options.product = text("product", "Citp Simulator");
        readVersion(options);
        options.layers = number("layers", 0, 255, options.layers);
        const QString msex = text("msex", "1.2");
        static const QStringList known{"1.0", "1.1", "1.2"};
        if (!known.contains(msex))
            refuse("msex", "no MSEX version that is known here; give 1.0, 1.1 or 1.2");
        options.msexMinor = static_cast<quint8>(known.indexOf(msex));
        if (m_parser.isSet("uuid")) {
            const QUuid uuid(m_parser.value("uuid"));
            if (uuid.isNull())
                refuse("uuid", "no UUID; give 36 characters such as 6ba7b810-9dad-11d1-80b4-00c04fd430c8");
            if (options.count > 1)
                throw Problem{"--uuid names one server: leave it out when --count asks for several"};
            options.uuid = uuid.toByteArray(QUuid::WithoutBraces);
        }
    }

    void readPlace(Options& options) const
    {
        options.count = number("count", 1, 200, options.count);
        options.adapter = text("adapter", {});
        options.port = static_cast<quint16>(number("port", 1, 65535, options.port));
        if (options.port + options.count - 1 > 65535)
            throw Problem{QString("--port: %1 servers do not fit above %2; give a lower port")
                              .arg(options.count)
                              .arg(options.port)};
        options.intervalMs = number("interval", 10, 3600000, options.intervalMs);
        if (m_parser.isSet("address")) {
            options.address = QHostAddress(m_parser.value("address"));
            if (options.address.protocol() != QAbstractSocket::IPv4Protocol)
                refuse("address", "no IPv4 address; give one such as 127.0.0.2");
            if (options.adapter.isEmpty())
                options.adapter = options.address.toString();
        }
    }

    void readContent(Options& options) const
    {
        options.media = text("media", {});
        options.effects = number("effects", 0, 50, options.effects);
        options.generic = number("generic", 0, 50, options.generic);
        options.layerRate = number("layer-rate", 0, 100, options.layerRate);
        options.patch = text("patch", {});
    }

    void readFaults(FaultPlan& plan) const
    {
        const QStringList names = m_parser.values("fault").join(',').split(',');
        for (const QString& name : names) {
            if (m_parser.isSet("fault"))
                plan.faults |= static_cast<quint32>(faultNamed(name));
        }
        plan.rate = number("fault-rate", 1, 100, plan.rate);
        plan.delayMs = number("fault-delay", 1, 600000, plan.delayMs);
        plan.seed = static_cast<quint32>(number("seed", 0, 2147483647, static_cast<int>(plan.seed)));
    }

    static Fault faultNamed(const QString& name)
    {
        QStringList known;
        for (const FaultDescription& description : faultDescriptions()) {
            if (name == QLatin1String(description.name))
                return description.fault;
            known << QLatin1String(description.name);
        }
        throw Problem{QString("--fault: '%1' is no fault; give some of %2").arg(name, known.join(", "))};
    }

    void readLifetime(Options& options) const
    {
        options.dieAfterMs = number("die-after", 0, 86400000, -1);
        options.reviveAfterMs = number("revive-after", 0, 86400000, -1);
        options.dieServer = number("die-server", 1, options.count, 1);
        options.seconds = number("seconds", 1, 86400, 0);
        options.quiet = m_parser.isSet("quiet");
        for (const char* const option : {"revive-after", "die-server"}) {
            if (m_parser.isSet(option) && options.dieAfterMs < 0)
                throw Problem{QString("--%1 means nothing without --die-after: give both").arg(option)};
        }
    }

    Options options() const
    {
        if (!m_parser.positionalArguments().isEmpty())
            throw Problem{
                QString("'%1' belongs to no option: leave it out").arg(m_parser.positionalArguments().constFirst())};
        Options options;
        readPlace(options);
        readIdentity(options);
        readContent(options);
        readFaults(options.faults);
        readLifetime(options);
        return options;
    }

    QCommandLineParser m_parser;
};
} // namespace

CommandLine readCommandLine(const QStringList& arguments)
{
    return Reader().read(arguments);
}
} // namespace MediaServer
