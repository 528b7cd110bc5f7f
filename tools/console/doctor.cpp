// The command "doctor": checks the conditions for finding a media server, in the order of their dependence.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/os_log.h>

#include <QElapsedTimer>
#include <QNetworkInterface>
#include <QNetworkProxy>
#include <QTcpSocket>
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "adapters.h"
#include "commands.h"
#include "discovery.h"
#include "doctor_report.h"
#include "guard_events.h"
#include "picture_file.h"
#include "port_users.h"
#include "server_text.h"
#include "session.h"

namespace Console {
namespace {
using Os::NetworkAdapter;

const QSize ThumbnailSize(160, 120);
const QString MissedAdvice =
    "choose the server's adapter (--adapter) and group (--group), or connect it to this network";

const QString NotHeard = "it was not heard";
const QStringList ContentChecks{"version", "library", "thumbnail"};
const QStringList ConnectionChecks = QStringList{"greeting"} + ContentChecks + QStringList{"guards"};
const QStringList ServerChecks = QStringList{"tcp"} + ConnectionChecks;

QString errorText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// Advice that lists the usable adapters. The loopback is left out, because only this machine can be reached through it.
QString usableAdapters()
{
    QStringList names;
    for (const NetworkAdapter& adapter : NetworkAdapter::GetAll()) {
        if (adapter.GetState().IsUsable() && !adapter.GetState().loopback)
            names << adapterName(adapter);
    }
    return names.isEmpty() ? QString("no other adapter is usable either")
                           : QString("--adapter selects another; usable: %1").arg(names.join(", "));
}

class Doctor
{
public:
    explicit Doctor(const Options& options)
        : m_options(options),
          m_report(options.json, options.server),
          m_used(ArtNet::Adapter::Get()),
          m_name(adapterName(m_used)),
          m_adapter(findAdapter(m_used))
    {
        m_options.stack.options.setObserver(m_guardEvents.observer());
    }

    /// @return true if no check failed
    bool run()
    {
        checkAdapter();
        checkAddress();
        checkMulticast();
        checkPort();
        listen();
        m_discovery.close();
        const QMap<QString, CITP::Server> servers = knownServers();
        const QStringList keys = m_used.IsValid() ? matchingKeys(servers) : QStringList();
        for (const QString& key : keys)
            checkServer(servers.value(key), {});
        if (keys.isEmpty())
            checkServerByKey();
        return m_report.finish();
    }

private:
    // --- This machine ---------------------------------------------------------------------------------------------

    void checkAdapter()
    {
        if (!m_adapter) {
            failAdapter(QString("%1: %2").arg(nameAndAddress(m_used), reasonFor(m_used)),
                        m_name.isEmpty() ? QString("assign an IPv4 address to an adapter")
                                         : "connect the adapter or correct ARTNET_ADAPTER; " + usableAdapters());
            return;
        }
        const QString reason = m_used.IsValid() ? reasonFor(m_used) : QString("it was chosen");
        const NetworkAdapter::State& state = m_adapter->GetState();
        if (!state.up) {
            failAdapter(QString("%1 is down (%2)").arg(m_name, reason),
                        QString("bring it up: ip link set %1 up; ").arg(m_name) + usableAdapters());
        } else if (!state.running) {
            failAdapter(QString("%1 has no carrier (%2)").arg(m_name, reason),
                        "check the cable at both ends and the switch; " + usableAdapters());
        } else if (m_used.GetReason() == ArtNet::Adapter::Reason::Loopback) {
            // The loopback works, but reaches only this machine, which is rarely intended on a show network.
            m_report.failed("adapter", QString("%1, the loopback: %2").arg(m_name, reason),
                            "bring an adapter up, assign an address and connect it; to find only servers on this "
                            "machine, use --adapter " +
                                m_name);
        } else {
            m_report.ok("adapter", QString("%1 is up and has a carrier (%2)").arg(m_name, reason));
        }
    }

    void failAdapter(const QString& text, const QString& advice)
    {
        m_report.failed("adapter", text, advice);
        m_skipReason = "the adapter is not usable";
    }

    void checkAddress()
    {
        if (!m_adapter) {
            m_report.skipped("address", "there is no adapter");
        } else if (!m_used.IsValid()) {
            m_report.failed("address", QString("%1 has no IPv4 address").arg(m_name),
                            "assign one in the servers' network, usually in 2.0.0.0/8 or 10.0.0.0/8");
            if (m_skipReason.isEmpty())
                m_skipReason = "the adapter has no address";
        } else {
            m_report.ok("address", addressAndNetwork());
        }
    }

    void checkMulticast()
    {
        if (!m_skipReason.isEmpty()) {
            m_report.skipped("multicast", m_skipReason);
            return;
        }
        QString failed;
        const int error = Discovery::tryToJoin(m_used.GetIpAddress(), groups(), failed);
        if (error == 0) {
            const NetworkAdapter::State& state = m_adapter->GetState();
            m_report.ok("multicast",
                        QString("joined %1 on %2%3")
                            .arg(Tools::addressesOf(groups()).join(" and "), m_name,
                                 state.multicast || state.loopback
                                     ? QString()
                                     : ", but multicast is disabled on it (ip link set " + m_name + " multicast on)"));
            return;
        }
        m_report.failed("multicast", QString("%1 cannot be joined on %2: %3").arg(failed, m_name, errorText(error)),
                        error == ENOBUFS
                            ? "the kernel's limit is reached: raise net.ipv4.igmp_max_memberships (sysctl)"
                            : "check that the adapter still exists and has its address: ip addr show " + m_name);
        m_skipReason = "the group cannot be joined";
    }

    // Independent of the adapter checks, because the socket is bound to the port on all adapters.
    void checkPort()
    {
        const QString holders = programsOnUdpPort(Discovery::Port);
        const int error = m_discovery.open();
        const QString port = QString("UDP %1").arg(Discovery::Port);
        if (error == 0) {
            m_report.ok("port", holders.isEmpty() ? port + " is free" : port + " is shared with " + holders);
            return;
        }
        if (error == EADDRINUSE) {
            m_report.failed("port",
                            QString("%1 is in use by %2, which does not share it")
                                .arg(port, holders.isEmpty() ? QString("another program") : holders),
                            "stop that program or make it share the port; 'sudo ss -ulpn' lists it");
        } else {
            m_report.failed("port", QString("%1 cannot be opened: %2").arg(port, errorText(error)),
                            "check that this program is permitted to use the network");
        }
        if (m_skipReason.isEmpty())
            m_skipReason = port + " is not available";
    }

    // --- Announcements --------------------------------------------------------------------------------------------

    void listen()
    {
        if (!m_skipReason.isEmpty()) {
            m_report.skipped("heard", m_skipReason);
            return;
        }
        const WaitLine waiting("listening for servers on " + nameAndAddress(m_used));
        const int error = m_discovery.join(m_used, groups());
        m_discovery.joinOthers(m_used);
        QElapsedTimer timer;
        timer.start();
        const auto heardKeys = [this] {
            m_discovery.read();
            return matchingKeys(m_discovery.servers());
        };
        if (error == 0 && processEventsUntil([&] { return !heardKeys().isEmpty(); }, m_options.timeoutMs)) {
            const qint64 first = timer.elapsed();
            const auto isUnclear = [this](const QString& key) { return !m_discovery.remarkOn(key).isEmpty(); };
            processEventsUntil([&] { return heardKeys().contains(m_options.server) && !isUnclear(m_options.server); },
                               SettleMs);
            // Servers announce themselves to both groups about the same time, but a datagram may be lost.
            processEventsUntil(
                [&] {
                    const QStringList keys = heardKeys();
                    return std::none_of(keys.begin(), keys.end(), isUnclear);
                },
                SettleMs);
            const auto all = static_cast<int>(m_discovery.servers().size());
            const auto selected = static_cast<int>(heardKeys().size());
            m_report.ok("heard",
                        QString("%1%2, the first after %3")
                            .arg(selected == all ? QString() : QString("%1 of ").arg(selected),
                                 all == 1 ? QString("1 server") : QString("%1 servers").arg(all), secondsText(first)));
            noteMissedServers();
            return;
        }
        const QString problem =
            error == 0 ? nothingHeardText() : "the group could not be joined again: " + errorText(error);
        if (matchingKeys(knownServers()).isEmpty()) {
            m_report.failed("heard", problem, discoveryAdvice());
            m_skipReason = NotHeard;
        } else {
            m_report.skipped("heard", problem + "; servers of --server-at need not be heard");
        }
    }

    void noteMissedServers()
    {
        const QMap<QString, CITP::Server> missed = m_discovery.missedServers();
        const QStringList keys = matchingKeys(missed);
        for (const QString& key : keys)
            m_report.note("heard", missedText(missed.value(key)), MissedAdvice);
    }

    QString missedText(const CITP::Server& server) const
    {
        return toText(server, true) + ": " + m_discovery.remarkOn(server.key);
    }

    QStringList matchingKeys(const QMap<QString, CITP::Server>& servers) const
    {
        return m_options.server.isEmpty() ? QStringList(servers.keys())
                                          : CITP::Directory::find({servers.begin(), servers.end()}, m_options.server);
    }

    // The servers to which the stack connects: those that were heard, and those of --server-at.
    QMap<QString, CITP::Server> knownServers() const
    {
        QMap<QString, CITP::Server> servers = m_discovery.servers();
        for (const QString& key : m_options.stack.servers) {
            if (!servers.contains(key))
                servers[key].key = key;
        }
        return servers;
    }

    QString nothingHeardText() const
    {
        const QString timeout = secondsText(m_options.timeoutMs);
        QStringList heard;
        for (const CITP::Server& server : m_discovery.servers())
            heard << toText(server, true);
        for (const CITP::Server& server : m_discovery.missedServers())
            heard << missedText(server);
        if (!heard.isEmpty())
            return QString("no %1 within %2; heard: %3")
                .arg(m_options.server.isEmpty() ? QString("media server")
                                                : QString("server '%1'").arg(escapeControls(m_options.server)),
                     timeout, heard.join("; "));
        const QString others = m_discovery.others();
        if (!others.isEmpty())
            return QString("no media server within %1; heard: %2").arg(timeout, others);
        return "nothing within " + timeout;
    }

    QString discoveryAdvice() const
    {
        const QMap<QString, CITP::Server> missed = m_discovery.missedServers();
        if (!matchingKeys(missed).isEmpty())
            return MissedAdvice;
        if (!m_discovery.servers().isEmpty() || !missed.isEmpty())
            return "use the key or name of a server that was heard, or check that CITP is enabled in the missing one";
        if (m_adapter->GetState().loopback)
            return "the loopback reaches only servers on this machine; --adapter selects another adapter";
        return QString(
                   "check that the server runs, with CITP enabled, in the network %1; then check the firewalls "
                   "(incoming UDP 4809) and whether a switch filters multicast (IGMP snooping without a querier); "
                   "--server-at connects without multicast")
            .arg(addressAndNetwork());
    }

    // --- One server -----------------------------------------------------------------------------------------------

    // A key contains address and port, so TCP can be checked without an announcement.
    void checkServerByKey()
    {
        if (Tools::isServerKey(m_options.server) && m_used.IsValid()) {
            CITP::Server server;
            server.key = m_options.server;
            checkServer(server, m_skipReason);
            return;
        }
        skip(ServerChecks, m_skipReason == NotHeard ? QString("no server was heard") : m_skipReason);
    }

    void skip(const QStringList& checks, const QString& reason)
    {
        for (const QString& check : checks)
            m_report.skipped(check, reason);
    }

    /// @param skipReason why the library cannot connect to the server; empty if it can
    void checkServer(const CITP::Server& server, const QString& skipReason)
    {
        m_report.beginServer(server.key, "server " + toText(server, true));
        const QString remark = m_discovery.remarkOn(server.key);
        if (skipReason.isEmpty() && !remark.isEmpty())
            m_report.note("heard", remark, "if there are such consoles, let the server announce itself to both groups");
        if (!checkTcp(server)) {
            skip(ConnectionChecks, "there is no connection");
            return;
        }
        if (!skipReason.isEmpty()) {
            skip(ConnectionChecks,
                 skipReason + "; a console connects only to servers that it hears, or with --server-at");
            return;
        }
        const std::unique_ptr<Session> session = checkGreeting(server.key);
        if (session) {
            checkVersion(server.key);
            checkContent(*session);
        } else {
            skip(ContentChecks, "the server did not answer the greeting");
        }
        checkGuards(server.key);
    }

    // After the other checks, during which a guard may have acted.
    void checkGuards(const QString& key)
    {
        const QStringList lines = m_guardEvents.linesAbout(key);
        if (!m_options.stack.hasGuards())
            m_report.skipped("guards", "--no-guards was given");
        else if (lines.isEmpty())
            m_report.ok("guards", "none has acted");
        else
            m_report.failed("guards", lines.join("; "),
                            "restart the server and check its cable; if it happens again, inform its manufacturer: the "
                            "server may disturb a console without guards");
    }

    bool checkTcp(const CITP::Server& server)
    {
        const QString host = server.key.section(':', 0, 0);
        const auto port = static_cast<quint16>(server.key.section(':', 1).toUInt());
        const WaitLine waiting("connecting to " + toText(server, true));
        QTcpSocket socket;
        socket.setProxy(QNetworkProxy::NoProxy);
        socket.bind(QHostAddress(m_used.GetIpAddress()));
        QElapsedTimer timer;
        timer.start();
        socket.connectToHost(host, port);
        const bool isDecided = processEventsUntil(
            [&] {
                return socket.state() == QAbstractSocket::ConnectedState ||
                       socket.state() == QAbstractSocket::UnconnectedState;
            },
            m_options.timeoutMs);
        if (socket.state() == QAbstractSocket::ConnectedState) {
            m_report.ok("tcp", QString("port %1 accepts connections, after %2 ms").arg(port).arg(timer.elapsed()));
            socket.abort();
            return true;
        }
        const QString network =
            isInNetwork(QHostAddress(host))
                ? QString()
                : QString("; %1 is outside of %2: correct an address or netmask").arg(host, addressAndNetwork());
        if (!isDecided)
            m_report.failed(
                "tcp", QString("port %1 does not answer within %2").arg(port).arg(secondsText(m_options.timeoutMs)),
                "check the server's firewall (TCP to that port)" + network);
        else if (socket.error() == QAbstractSocket::ConnectionRefusedError)
            m_report.failed(
                "tcp",
                QString("port %1 %2")
                    .arg(port)
                    .arg(server.name.isEmpty() ? "refuses connections" : "is announced, but refuses connections"),
                "restart CITP in the server, or the server; a firewall may also refuse them" + network);
        else
            m_report.failed("tcp", QString("port %1: %2").arg(port).arg(escapeControls(socket.errorString())),
                            "check the route to the server: ping " + host + network);
        return false;
    }

    /// @return null if the server does not come up in time
    std::unique_ptr<Session> checkGreeting(const QString& key)
    {
        Options options = m_options;
        options.server = key;
        QElapsedTimer timer;
        timer.start();
        try {
            auto session = std::make_unique<Session>(options);
            const CITP::Server& server = session->server();
            const QString product = server.product.isEmpty() ? QString()
                                                             : QString(": %1 %2, %3 layers")
                                                                   .arg(escapeControls(server.product), server.version,
                                                                        QString::number(server.layers.size()));
            m_report.ok("greeting",
                        QString("answered with an SInf%1, up after %2").arg(product, secondsText(timer.elapsed())));
            return session;
        } catch (const Failure&) {
            m_report.failed("greeting",
                            QString("the server accepts the connection, but does not send an SInf within %1")
                                .arg(secondsText(qMax(m_options.timeoutMs, MinSearchMs))),
                            m_guardEvents.linesAbout(key).isEmpty()
                                ? "disconnect other consoles from it, then restart CITP in the server; citp-console "
                                  "watch --log 'CITP.*=31' shows the messages"
                                : "a guard has acted: see below");
            return nullptr;
        }
    }

    void checkVersion(const QString& key)
    {
        CITP::Msg_MSEX_SINF information;
        CITP::citp_stack::Get()->getServerInfo(key, &information, nullptr);
        const QString version = QString("%1.%2").arg(information.versionMajor).arg(information.versionMinor);
        if (information.versionMajor != 1 || information.versionMinor > 2) {
            m_report.failed("version",
                            QString("the SInf came in MSEX %1, which is not supported: its content is ignored, and the "
                                    "server is treated as an MSEX 1.0 server")
                                .arg(version),
                            "set the server to MSEX 1.2, 1.1 or 1.0, or ask its manufacturer");
            return;
        }
        QStringList supported;
        for (const unsigned short known : information.SupportedMsexVersions)
            supported << versionText(known);
        QString more = supported.isEmpty() ? QString() : QString(" (the server supports %1)").arg(supported.join(", "));
        if (information.versionMinor == 1)
            more = " (its layer status is not supported)";
        m_report.ok("version", "MSEX " + version + more);
    }

    void checkContent(Session& session)
    {
        CITP::Catalogue& catalogue = session.catalogue();
        try {
            catalogue.loadAllLibraries(MediaLibraries);
            session.waitForCatalogue();
            if (catalogue.librariesState(MediaLibraries) == CITP::Catalogue::Failed)
                throw Failure{escapeControls(catalogue.librariesProblem(MediaLibraries))};
            m_report.ok("library", QString("%1 media libraries").arg(catalogue.allLibraries(MediaLibraries).size()));
        } catch (const Failure& failure) {
            m_report.failed("library", failure.text,
                            "check whether the server has media and whether it is busy loading them; its log may "
                            "contain details");
            m_report.skipped("thumbnail", "no library was received");
            return;
        }
        try {
            checkThumbnail(session);
        } catch (const Failure& failure) {
            m_report.failed("thumbnail", failure.text,
                            "try again with a longer --timeout; citp-console thumbnails checks every element");
        }
    }

    void checkThumbnail(Session& session)
    {
        for (const CITP::Library& library : session.catalogue().allLibraries(MediaLibraries)) {
            if (library.elements == 0)
                continue;
            session.loadElements(MediaLibraries, library.id);
            const std::vector<CITP::Element>& elements = session.catalogue().elements(MediaLibraries, library.id);
            if (elements.empty())
                continue;
            const CITP::Element element = elements.front();
            const Tools::PictureFile picture = fetchThumbnail(session, library.id, element.number);
            const QString subject = QString("library %1, element %2 \"%3\": ")
                                        .arg(library.id)
                                        .arg(element.number)
                                        .arg(escapeControls(element.name));
            if (picture.problem.isEmpty())
                m_report.ok("thumbnail", subject + QString("%1, %2 x %3")
                                                       .arg(picture.format)
                                                       .arg(picture.size.width())
                                                       .arg(picture.size.height()));
            else
                m_report.failed("thumbnail", subject + escapeControls(picture.problem),
                                "check that element in the server itself; citp-console thumbnails checks every "
                                "element and accepts --format png");
            return;
        }
        m_report.skipped("thumbnail", "no library has an element");
    }

    static Tools::PictureFile fetchThumbnail(Session& session, const QString& library, quint8 element)
    {
        const WaitLine waiting("waiting for a thumbnail of " + session.name());
        CITP::Picture received;
        QString problem;
        bool hasEnded = false;
        QObject scope;
        CITP::Reply* const reply = session.requests().get(
            {session.key(), CITP::Request::ElementPicture, MediaLibraries, library, {element}, ThumbnailSize, "JPEG"});
        QObject::connect(reply, &CITP::Reply::finished, &scope, [&, reply] {
            received = reply->picture();
            problem = reply->errorString();
            hasEnded = true;
        });
        session.waitUntil([&] { return hasEnded; });
        session.checkIsUp();
        if (!problem.isEmpty())
            throw Failure{escapeControls(problem)};
        return Tools::toPictureFile(received, ThumbnailSize);
    }

    // --- Network ---------------------------------------------------------------------------------------------------

    Discovery::Groups groups() const { return m_options.stack.options.discoveryGroups(); }

    // The operating system's entry for the address in use.
    QNetworkAddressEntry addressEntry() const
    {
        const QHostAddress address(m_used.GetIpAddress());
        const auto entries =
            QNetworkInterface::interfaceFromName(QString::fromStdString(m_used.GetName())).addressEntries();
        for (const QNetworkAddressEntry& entry : entries) {
            if (entry.ip() == address)
                return entry;
        }
        return {};
    }

    QString addressAndNetwork() const
    {
        const int prefix = addressEntry().prefixLength();
        const QString address = QHostAddress(m_used.GetIpAddress()).toString();
        return prefix < 0 ? address : QString("%1/%2").arg(address).arg(prefix);
    }

    bool isInNetwork(const QHostAddress& host) const
    {
        const QNetworkAddressEntry own = addressEntry();
        return own.prefixLength() < 0 || host.isInSubnet(own.ip(), own.prefixLength());
    }

    Options m_options; ///< with an observer of the guards
    const GuardEvents m_guardEvents;
    DoctorReport m_report;
    const ArtNet::Adapter m_used;
    const QString m_name; ///< of the adapter in use, with control characters escaped
    const std::optional<NetworkAdapter> m_adapter;
    Discovery m_discovery;
    QString m_skipReason; ///< why later checks are skipped; empty if they can be run
};
} // namespace

int diagnose(const Options& options)
{
    // The report covers the problems that the library logs, so its log lines are suppressed by default.
    if (options.log.isEmpty() && qEnvironmentVariableIsEmpty("OS_LOG_MASKS"))
        Os::Log::SetMask("CITP.*", Os::Log::Critical);
    return Doctor(options).run() ? 0 : 1;
}
} // namespace Console
