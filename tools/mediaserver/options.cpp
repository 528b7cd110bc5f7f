// The options with their help texts, and the validation of their values.
// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include <QCommandLineParser>
#include <QRegularExpression>
#include <QUuid>

namespace MediaServer {
namespace {
const char* const Description =
    "Simulates one or more CITP media servers. Announces each server to a multicast group, port 4809,\n"
    "accepts TCP connections of consoles, answers their requests, and logs events on standard output, one line for\n"
    "each. Or plays a media server that was recorded (--replay). Runs until SIGINT or SIGTERM.\n\n"
    "Exit status: 0 success, 1 failure (for example, the address is in use), 2 usage error.";

// Exception: the command line is invalid.
struct UsageError
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

class ArgumentReader
{
public:
    ArgumentReader()
    {
        m_parser.setApplicationDescription(Description);
        add({"h", "help"}, "Prints this help and exits.");
        add({"v", "version"}, "Prints the version and exits.");
        add({"count"},
            "Number of servers, 1 to 200. Default: 1. Each server has its own address and port. Ports count up from "
            "--port. On loopback, addresses count up from --address; on other adapters, their addresses are used in "
            "turn.",
            "N");
        add({"name"},
            "Name of the server. Default: 'Simulated Server'. With several servers, a number is appended to each name.",
            "TEXT");
        add({"adapter"},
            "Network adapter for announcements, by name or IPv4 address. Default: the first adapter with an address in "
            "2.0.0.0/8, else in 10.0.0.0/8, else any other, else the loopback.",
            "NAME|ADDRESS");
        add({"address"},
            "IPv4 address of the first server. Default: 127.0.0.2 on loopback, otherwise the first address of the "
            "adapter. Without --adapter, it also selects the adapter.",
            "ADDRESS");
        add({"port"}, "TCP port of the first server, 1 to 65535. Default: 4811.", "PORT");
        add({"group"},
            "Multicast group of the announcements: old is 224.0.0.180, new is 239.224.0.180, both is each of them, and "
            "none announces nothing, for consoles that are given the address of the server. Default: old.",
            "old|new|both|none");
        add({"interval"}, "Interval of announcements in milliseconds, 10 to 3600000. Default: 1000.", "MS");
        add({"msex"}, "MSEX version of the servers: 1.0, 1.1 or 1.2. Default: 1.2.", "VERSION");
        add({"product"}, "Product name. Default: 'Citp Simulator'.", "TEXT");
        add({"product-version"},
            "Product version, each part 0 to 255. Default: the version of this program. The bugfix part is sent only "
            "in "
            "MSEX 1.2.",
            "MAJOR.MINOR[.BUGFIX]");
        add({"layers"}, "Number of layers, 0 to 255. Default: 2. Each layer has its own DMX source.", "N");
        add({"uuid"},
            "UUID of the server, sent only in MSEX 1.2. Default: derived from the name, so that it is the same in "
            "every "
            "run. Only for a single server.",
            "UUID");
        add({"die-after"},
            "A server vanishes this many milliseconds after the start, 0 to 86400000: its connections are reset and it "
            "is no longer announced. Default: never.",
            "MS");
        add({"revive-after"},
            "The server comes back this many milliseconds after it vanished, 0 to 86400000. Default: never. Requires "
            "--die-after.",
            "MS");
        add({"die-server"},
            "The server that vanishes, from 1 to the number of servers. Default: 1. Requires --die-after.", "INDEX");
        add({"media"},
            "Folder of pictures to serve. Its sub-folders are the top-level element libraries, numbered from 1 by "
            "name; "
            "deeper sub-folders are sub-libraries, down to the third level. Pictures in the folder itself are library "
            "0. "
            "Consoles are notified of changes in the folder. Default: drawn pictures.",
            "DIR");
        add({"effects"}, "Number of effect libraries (type 2), 0 to 50. Default: 0.", "N");
        add({"generic"}, "Number of generic libraries (type 3), 0 to 50. Default: 0.", "N");
        add({"layer-rate"},
            "Layer status messages per second to each console, 0 to 100. Default: 0. MSEX 1.1 defines no layout for "
            "them, so a 1.1 server sends 1.0 messages.",
            "N");
        add({"patch"},
            "JSON file with the fixture patch: an array of "
            "{\"id\": 1, \"universe\": 0, \"channel\": 1, \"channels\": 20, \"make\": \"Acme\", "
            "\"name\": \"Spot\"}. Default: no fixtures.",
            "FILE");
        add({"replay"},
            "Plays a media server from a capture file (pcap or pcapng), as 'citp-console capture' and network tools "
            "write it: its announcements, its SInf, its answers to what is asked, its layer states with their timing "
            "and its patch. What was never asked in the recording is listed at the end. Port, groups and times of the "
            "announcements are as recorded, unless --port, --group or --interval are given.",
            "FILE");
        add({"server"},
            "The server to replay: its key (address and port), its address or a part of its name. Required if the file "
            "contains several.",
            "SERVER");
        add({"unknown"},
            "How the replay answers what was never asked in the recording. silence: not at all; empty: with an empty "
            "list, and pictures not at all. Default: silence.",
            "silence|empty");
        add({"speed"},
            "How fast announcements and layer states are replayed, 0.01 to 100 times as recorded. Default: 1.",
            "FACTOR");
        add({"fault"},
            "Injects faults: a comma-separated list of names. The option can be repeated. Unless noted otherwise, "
            "faults "
            "affect the answers to requests, including the request for the patch, but not the SInf. " +
                faultHelp(),
            "NAME,...");
        add({"fault-on"},
            "Content codes, separated by commas, of the only messages that faults change, such as EThn; with SInf, "
            "PLoc, "
            "LSta and ELUp also those. The fault 'silence' goes by the code of the request. Other faults that do not "
            "change "
            "messages are not affected.",
            "CODE,...");
        add({"fault-rate"}, "Probability of a fault at each occasion in percent, 1 to 100. Default: 100.", "PERCENT");
        add({"fault-delay"}, "Delay of the fault 'delay' in milliseconds, 1 to 600000. Default: 500.", "MS");
        add({"forged"},
            "Number of servers announced by the fault 'forge', 1 to 60000, at most 20000 a second. Default: 1000.",
            "N");
        add({"forged-from"},
            "Source address of the first of them; the others count up from it. The machine must own all of these "
            "addresses, as it owns 127.0.0.0/8. Default: all have the address of the server, and ports count up.",
            "ADDRESS");
        add({"seed"},
            "Seed for random faults, 0 to 2147483647. Default: 1. With the same seed and the same requests, the faults "
            "are the same.",
            "N");
        add({"seconds"}, "Stops after this many seconds, 1 to 86400. Default: run until a signal.", "N");
        add({"quiet"}, "Disables the log on standard output.");
    }

    CommandLine read(const QStringList& arguments)
    {
        CommandLine line;
        try {
            if (!m_parser.parse(arguments))
                throw UsageError{m_parser.errorText().remove(QRegularExpression("\\.$"))};
            if (m_parser.isSet("help")) {
                line.action = CommandLine::Action::Help;
                line.text = m_parser.helpText();
            } else if (m_parser.isSet("version")) {
                line.action = CommandLine::Action::Version;
                line.text = "citp-mediaserver " CITP_VERSION "\n";
            } else {
                line.options = options();
            }
        } catch (const UsageError& error) {
            line.action = CommandLine::Action::UsageError;
            line.text = error.text.simplified();
        }
        return line;
    }

private:
    void add(const QStringList& names, const QString& help, const QString& value = {})
    {
        m_parser.addOption(QCommandLineOption(names, help, value));
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

    QString text(const QString& option, const QString& defaultValue) const
    {
        if (!m_parser.isSet(option))
            return defaultValue;
        QString value = m_parser.value(option);
        if (value.isEmpty())
            throwInvalid(option, "empty");
        return value;
    }

    void readVersion(Options& options) const
    {
        const QString given = text("product-version", CITP_VERSION);
        static const QRegularExpression pattern("^(\\d{1,3})\\.(\\d{1,3})(?:\\.(\\d{1,3}))?$");
        const QRegularExpressionMatch match = pattern.match(given);
        quint8* const parts[] = {&options.versionMajor, &options.versionMinor, &options.versionBugfix};
        for (int i = 0; i < 3; ++i) {
            const int part = match.captured(i + 1).toInt();
            if (!match.hasMatch() || part > 255)
                throwInvalid("product-version", "not a version: MAJOR.MINOR or MAJOR.MINOR.BUGFIX, each part 0 to 255");
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
            throwInvalid("msex", "not a supported MSEX version: 1.0, 1.1 or 1.2");
        options.msexMinor = static_cast<quint8>(known.indexOf(msex));
        if (m_parser.isSet("uuid")) {
            const QUuid uuid(m_parser.value("uuid"));
            if (uuid.isNull())
                throwInvalid("uuid", "not a UUID: 36 characters such as 6ba7b810-9dad-11d1-80b4-00c04fd430c8");
            if (options.count > 1)
                throw UsageError{"--uuid cannot be used with several servers"};
            options.uuid = uuid.toByteArray(QUuid::WithoutBraces);
        }
    }

    void readEndpoints(Options& options) const
    {
        options.count = number("count", 1, 200, options.count);
        options.adapter = text("adapter", {});
        options.port = static_cast<quint16>(number("port", 1, 65535, options.port));
        if (options.port + options.count - 1 > 65535)
            throw UsageError{QString("--port: %1 servers need ports above 65535; use a lower port than %2")
                                 .arg(options.count)
                                 .arg(options.port)};
        options.intervalMs = number("interval", 10, 3600000, options.intervalMs);
        const QString group = text("group", "old");
        static const QStringList known{"old", "new", "both", "none"};
        if (!known.contains(group))
            throwInvalid("group", "not one of " + known.join(", "));
        if (group == "old" || group == "both")
            options.groups << QHostAddress("224.0.0.180");
        if (group == "new" || group == "both")
            options.groups << QHostAddress("239.224.0.180");
        if (m_parser.isSet("address")) {
            options.address = QHostAddress(m_parser.value("address"));
            if (options.address.protocol() != QAbstractSocket::IPv4Protocol)
                throwInvalid("address", "not an IPv4 address");
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
                plan.set(faultNamed(name));
        }
        if (m_parser.isSet("fault-on"))
            plan.codes = text("fault-on", {}).split(',');
        plan.rate = number("fault-rate", 1, 100, plan.rate);
        plan.delayMs = number("fault-delay", 1, 600000, plan.delayMs);
        plan.forged = number("forged", 1, 60000, plan.forged);
        if (m_parser.isSet("forged-from")) {
            plan.forgedFrom = QHostAddress(m_parser.value("forged-from"));
            if (plan.forgedFrom.protocol() != QAbstractSocket::IPv4Protocol)
                throwInvalid("forged-from", "not an IPv4 address");
        }
        plan.seed = static_cast<quint32>(number("seed", 0, 2147483647, static_cast<int>(plan.seed)));
    }

    static QString nameOf(Fault fault)
    {
        for (const FaultDescription& description : faultDescriptions()) {
            if (description.fault == fault)
                return description.name;
        }
        return {};
    }

    static Fault faultNamed(const QString& name)
    {
        QStringList known;
        for (const FaultDescription& description : faultDescriptions()) {
            if (name == QLatin1String(description.name))
                return description.fault;
            known << QLatin1String(description.name);
        }
        throw UsageError{QString("--fault: '%1' is not a fault: %2").arg(name, known.join(", "))};
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
                throw UsageError{QString("--%1 requires --die-after").arg(option)};
        }
    }

    // Faults that could never occur.
    static void checkFaults(const Options& options)
    {
        const bool isReplay = !options.replay.file.isEmpty();
        const struct
        {
            Fault fault;
            bool isPossible;
            const char* requirement;
        } requirements[] = {{Fault::Unplug, options.dieAfterMs >= 0, "--die-after"},
                            {Fault::LongName, !options.patch.isEmpty() || isReplay, "--patch"},
                            {Fault::Storm, !options.groups.isEmpty(), "announcements, not --group none"},
                            {Fault::Forge, !options.groups.isEmpty(), "announcements, not --group none"}};
        // Faults of what a recording decides.
        for (const Fault fault :
             {Fault::LayerFlood, Fault::ListFlood, Fault::UpdateFlood, Fault::Mute, Fault::NeedsName, Fault::LyingSinf,
              Fault::OddSinf, Fault::LateSinf, Fault::Unread, Fault::SingleMinded, Fault::IgnoresNumbers,
              Fault::FirstNumber, Fault::NeedsNumbers, Fault::IgnoresSize, Fault::WrongFormat, Fault::Invents,
              Fault::UnknownSilent, Fault::OwnVersion}) {
            if (options.faults.has(fault) && isReplay)
                throw UsageError{QString("--fault %1 cannot be combined with --replay").arg(nameOf(fault))};
        }
        for (const auto& [fault, isPossible, requirement] : requirements) {
            if (options.faults.has(fault) && !isPossible)
                throw UsageError{QString("--fault %1 requires %2").arg(nameOf(fault), requirement)};
        }
    }

    // What comes from the recording.
    void checkReplay() const
    {
        const bool isReplay = m_parser.isSet("replay");
        for (const char* const option : {"server", "unknown", "speed"}) {
            if (m_parser.isSet(option) && !isReplay)
                throw UsageError{QString("--%1 requires --replay").arg(option)};
        }
        for (const char* const option : {"count", "name", "msex", "product", "product-version", "layers", "uuid",
                                         "media", "effects", "generic", "layer-rate", "patch"}) {
            if (m_parser.isSet(option) && isReplay)
                throw UsageError{QString("--%1 cannot be combined with --replay").arg(option)};
        }
    }

    void readReplay(Options& options) const
    {
        checkReplay();
        ReplayOptions& replay = options.replay;
        replay.file = text("replay", {});
        replay.server = text("server", {});
        const QString unknown = text("unknown", "silence");
        if (unknown != "silence" && unknown != "empty")
            throwInvalid("unknown", "not one of silence, empty");
        replay.unknown = unknown == "empty" ? Replay::Unknown::Empty : Replay::Unknown::Silence;
        bool isValid = true;
        if (m_parser.isSet("speed"))
            replay.speed = m_parser.value("speed").toDouble(&isValid);
        if (!isValid || !(replay.speed >= 0.01 && replay.speed <= 100))
            throwInvalid("speed", "not a number from 0.01 to 100");
        if (replay.file.isEmpty())
            return;
        if (replay.file == "-")
            throwInvalid("replay", "read twice; give a file");
        if (!m_parser.isSet("port"))
            options.port = 0;
        if (!m_parser.isSet("interval"))
            options.intervalMs = 0;
        options.hasGroups = m_parser.isSet("group");
    }

    Options options() const
    {
        if (!m_parser.positionalArguments().isEmpty())
            throw UsageError{QString("unexpected argument '%1'").arg(m_parser.positionalArguments().constFirst())};
        Options options;
        readEndpoints(options);
        readIdentity(options);
        readContent(options);
        readFaults(options.faults);
        readReplay(options);
        readLifetime(options);
        checkFaults(options);
        return options;
    }

    QCommandLineParser m_parser;
};
} // namespace

CommandLine readCommandLine(const QStringList& arguments)
{
    return ArgumentReader().read(arguments);
}
} // namespace MediaServer
