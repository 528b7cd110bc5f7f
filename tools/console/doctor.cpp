// The command "doctor": what must hold for a server to be seen, checked in the order in which it is needed.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_msg_msex_thumbnails.h>
#include <citp_system/os_log.h>

#include <QNetworkInterface>
#include <QNetworkProxy>
#include <QTcpSocket>
#include <cerrno>
#include <cstring>
#include <optional>

#include "adapters.h"
#include "catalogue.h"
#include "commands.h"
#include "discovery.h"
#include "doctor_report.h"
#include "pictures.h"
#include "port_holders.h"
#include "printing.h"

namespace Console {
namespace {
using Os::NetworkAdapter;

constexpr quint8 Media = 1;
const QSize ThumbnailSize(160, 120);
// Servers announce themselves about once a second: after that long the others have been heard, too.
constexpr int SettleMs = 1500;

const QStringList ServerChecks{"tcp", "greeting", "version", "library", "thumbnail"};

QString errorText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

QString seconds(qint64 milliseconds)
{
    return QString("%1 s").arg(static_cast<double>(milliseconds) / 1000.0);
}

QString versionText(unsigned int version)
{
    return QString("%1.%2").arg(version >> 8).arg(version & 0xFF);
}

// The adapters with a cable and an address, for advice; the loopback is no advice.
QString usableAdapters()
{
    QStringList names;
    for (const NetworkAdapter& adapter : NetworkAdapter::GetAll()) {
        if (adapter.GetState().IsUsable() && !adapter.GetState().loopback)
            names << harmless(QString::fromStdString(adapter.GetName()));
    }
    return names.isEmpty() ? QString("none of the others works either")
                           : QString("--adapter chooses another that works: %1").arg(names.join(", "));
}

std::optional<NetworkAdapter> adapterOf(const ArtNet::Adapter& used)
{
    for (const NetworkAdapter& adapter : NetworkAdapter::GetAll()) {
        if (adapter.GetName() == used.GetName())
            return adapter;
    }
    return std::nullopt;
}

class Doctor
{
public:
    explicit Doctor(const Options& options)
        : m_options(options), m_report(options.json), m_used(ArtNet::Adapter::Get()), m_adapter(adapterOf(m_used))
    {
    }

    /// @return whether all is well
    bool run()
    {
        checkAdapter();
        checkAddress();
        checkMulticast();
        checkPort();
        listen();
        const QMap<QString, ServerText>& heard = m_discovery.servers();
        for (const QString& key : std::as_const(m_keys))
            checkServer(heard.value(key), {});
        if (m_keys.isEmpty())
            checkUnheard();
        return m_report.finish();
    }

private:
    // --- This machine ---------------------------------------------------------------------------------------------

    void checkAdapter()
    {
        const QString name = harmless(QString::fromStdString(m_used.GetName()));
        if (!m_adapter) {
            failAdapter(QString("%1: %2").arg(nameAndAddress(m_used), reasonFor(m_used)),
                        name.isEmpty() ? QString("give an adapter an IPv4 address")
                                       : "plug it in or mend ARTNET_ADAPTER; " + usableAdapters());
            return;
        }
        const QString why = m_used.IsValid() ? reasonFor(m_used) : QString("it was chosen");
        const NetworkAdapter::State& state = m_adapter->GetState();
        if (!state.up) {
            failAdapter(QString("%1 is switched off (%2)").arg(name, why),
                        QString("switch it on: ip link set %1 up; ").arg(name) + usableAdapters());
        } else if (!state.running) {
            failAdapter(QString("%1 has no carrier (%2)").arg(name, why),
                        "look at its cable, at both ends, and at the switch; " + usableAdapters());
        } else if (m_used.GetReason() == ArtNet::Adapter::Reason::Loopback) {
            // Works, but only for this machine: nobody in front of a show network has that in mind.
            m_report.failed("adapter", QString("%1, the loopback: %2").arg(name, why),
                            "switch an adapter on, give it an address and plug it in; for servers on this machine "
                            "alone say --adapter " +
                                name);
        } else {
            m_report.ok("adapter", QString("%1 is up and has a carrier (%2)").arg(name, why));
        }
    }

    void failAdapter(const QString& text, const QString& advice)
    {
        m_report.failed("adapter", text, advice);
        m_obstacle = "the adapter does not work";
    }

    void checkAddress()
    {
        if (!m_adapter) {
            m_report.skipped("address", "there is no adapter");
        } else if (!m_used.IsValid()) {
            m_report.failed("address",
                            QString("%1 has no IPv4 address").arg(harmless(QString::fromStdString(m_used.GetName()))),
                            "give it one in the servers' network, usually in 2.0.0.0/8 or 10.0.0.0/8");
            if (m_obstacle.isEmpty())
                m_obstacle = "the adapter has no address";
        } else {
            m_report.ok("address", addressAndNetwork());
        }
    }

    void checkMulticast()
    {
        if (!m_obstacle.isEmpty()) {
            m_report.skipped("multicast", m_obstacle);
            return;
        }
        const int error = Discovery::tryToJoin(m_used.GetIpAddress());
        const QString name = harmless(QString::fromStdString(m_used.GetName()));
        if (error == 0) {
            const NetworkAdapter::State& state = m_adapter->GetState();
            m_report.ok("multicast", QString("joined %1 on %2%3")
                                         .arg(Discovery::Group, name,
                                              state.multicast || state.loopback
                                                  ? QString()
                                                  : ", though multicast is switched off there (ip link set " + name +
                                                        " multicast on)"));
            return;
        }
        m_report.failed("multicast",
                        QString("%1 cannot be joined on %2: %3").arg(Discovery::Group, name, errorText(error)),
                        error == ENOBUFS
                            ? "the kernel's limit is reached: raise net.ipv4.igmp_max_memberships (sysctl)"
                            : "see whether the adapter is still there and still has its address: ip addr show " + name);
        m_obstacle = "the group cannot be joined";
    }

    // Does not need the adapter: the port is taken on all of them at once.
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
                            QString("%1 is taken by %2, which does not share it")
                                .arg(port, holders.isEmpty() ? QString("another program") : holders),
                            "end that program, or have it share the port; 'sudo ss -ulpn' shows who has it");
        } else {
            m_report.failed("port", QString("%1 cannot be opened: %2").arg(port, errorText(error)),
                            "see whether this program may use the network");
        }
        if (m_obstacle.isEmpty())
            m_obstacle = port + " is not to be had";
    }

    // --- Who is there ---------------------------------------------------------------------------------------------

    void listen()
    {
        if (!m_obstacle.isEmpty()) {
            m_report.skipped("heard", m_obstacle);
            return;
        }
        const int error = m_discovery.join(m_used.GetIpAddress());
        QElapsedTimer timer;
        timer.start();
        const auto hear = [this] {
            m_discovery.read();
            return !wanted().isEmpty();
        };
        if (error == 0 && pumpUntil(hear, m_options.timeoutMs)) {
            const qint64 first = timer.elapsed();
            pumpUntil([&] { return hear() && m_discovery.servers().contains(m_options.server); }, SettleMs);
            m_keys = wanted();
            const auto all = static_cast<int>(m_discovery.servers().size());
            const auto chosen = static_cast<int>(m_keys.size());
            m_report.ok("heard",
                        QString("%1%2, the first after %3")
                            .arg(chosen == all ? QString() : QString("%1 of ").arg(chosen),
                                 all == 1 ? QString("1 server") : QString("%1 servers").arg(all), seconds(first)));
            return;
        }
        m_report.failed("heard", error == 0 ? silence() : "the group could not be joined again: " + errorText(error),
                        advice());
        m_obstacle = "it was not heard";
    }

    QStringList wanted() const
    {
        const QMap<QString, ServerText>& servers = m_discovery.servers();
        return m_options.server.isEmpty() ? servers.keys() : matching(servers, m_options.server);
    }

    QString silence() const
    {
        const QString limit = seconds(m_options.timeoutMs);
        QStringList heard;
        for (const ServerText& server : m_discovery.servers())
            heard << toText(server, true);
        if (!heard.isEmpty())
            return QString("no server '%1' for %2; heard were: %3")
                .arg(harmless(m_options.server), limit, heard.join("; "));
        const QString others = m_discovery.others();
        if (!others.isEmpty())
            return QString("no media server for %1; heard were: %2").arg(limit, others);
        return "nothing for " + limit;
    }

    QString advice() const
    {
        if (!m_discovery.servers().isEmpty())
            return "give a key or a name of those that are heard; is CITP switched on in the other one?";
        if (m_adapter->GetState().loopback)
            return "on the loopback only servers on this machine are heard; --adapter chooses another adapter";
        return QString(
                   "see that the server runs, with CITP switched on, in the network %1; then look at the firewalls "
                   "(UDP 4809 comes in) and at a switch that filters multicast (IGMP snooping without a querier)")
            .arg(addressAndNetwork());
    }

    // --- One server -----------------------------------------------------------------------------------------------

    // A key says where to knock even if nothing was heard: an answer then means that multicast alone is held back.
    void checkUnheard()
    {
        const QHostAddress host = CITP::citp_stack::getHostAddressFromSERV_ID(m_options.server);
        const int port = m_options.server.section(':', 1).toInt();
        const bool isKey = host.protocol() == QAbstractSocket::IPv4Protocol && port > 0 && port <= 65535;
        if (isKey && m_used.IsValid()) {
            ServerText server;
            server.key = m_options.server;
            checkServer(server, m_obstacle);
            return;
        }
        skipFrom(ServerChecks.constFirst(),
                 m_obstacle == "it was not heard" ? QString("no server was heard") : m_obstacle);
    }

    void skipFrom(const QString& first, const QString& reason)
    {
        for (const QString& check : ServerChecks.mid(ServerChecks.indexOf(first)))
            m_report.skipped(check, reason);
    }

    /// @param silent why the library cannot know of the server; empty if it can
    void checkServer(const ServerText& server, const QString& silent)
    {
        m_report.beginServer(server.key, "server " + (server.isKnown ? toText(server, true) : harmless(server.key)));
        if (!checkTcp(server)) {
            skipFrom("greeting", "there is no connection");
            return;
        }
        if (!silent.isEmpty()) {
            skipFrom("greeting", silent + ", and consoles connect only to servers that are");
            return;
        }
        const std::unique_ptr<Session> session = checkGreeting(server.key);
        if (!session) {
            skipFrom("version", "the server has not told what it is");
            return;
        }
        checkVersion(server.key);
        checkContent(*session);
    }

    bool checkTcp(const ServerText& server)
    {
        const QString host = server.key.section(':', 0, 0);
        const auto port = static_cast<quint16>(server.key.section(':', 1).toUInt());
        QTcpSocket socket;
        socket.setProxy(QNetworkProxy::NoProxy);
        socket.bind(QHostAddress(m_used.GetIpAddress()));
        QElapsedTimer timer;
        timer.start();
        socket.connectToHost(host, port);
        const bool decided = pumpUntil(
            [&] {
                return socket.state() == QAbstractSocket::ConnectedState ||
                       socket.state() == QAbstractSocket::UnconnectedState;
            },
            m_options.timeoutMs);
        if (socket.state() == QAbstractSocket::ConnectedState) {
            m_report.ok("tcp", QString("port %1 takes connections, after %2 ms").arg(port).arg(timer.elapsed()));
            socket.abort();
            return true;
        }
        const QString network =
            isInNetwork(QHostAddress(host))
                ? QString()
                : QString("; %1 is outside of %2: mend an address or a mask").arg(host, addressAndNetwork());
        if (!decided)
            m_report.failed("tcp",
                            QString("port %1 does not answer for %2").arg(port).arg(seconds(m_options.timeoutMs)),
                            "look at the server's firewall (TCP to that port)" + network);
        else if (socket.error() == QAbstractSocket::ConnectionRefusedError)
            m_report.failed("tcp",
                            QString("port %1 %2")
                                .arg(port)
                                .arg(server.isKnown ? "is announced, but refuses connections" : "refuses connections"),
                            "restart CITP in the server, or the server; a firewall may refuse them, too" + network);
        else
            m_report.failed("tcp", QString("port %1: %2").arg(port).arg(harmless(socket.errorString())),
                            "look at the way to the server: ping " + host + network);
        return false;
    }

    /// @return null if the server does not come up
    std::unique_ptr<Session> checkGreeting(const QString& key)
    {
        Options options = m_options;
        options.server = key;
        QElapsedTimer timer;
        timer.start();
        try {
            auto session = std::make_unique<Session>(options);
            const ServerText& server = session->server();
            const QString product = server.product.isEmpty() ? QString()
                                                             : QString(": %1 %2, %3 layers")
                                                                   .arg(harmless(server.product), server.productVersion,
                                                                        QString::number(server.layers));
            m_report.ok("greeting",
                        QString("answered by an SInf%1, up after %2").arg(product, seconds(timer.elapsed())));
            return session;
        } catch (const Failure&) {
            m_report.failed("greeting",
                            QString("the server takes the connection, but does not say what it is (no SInf) within %1")
                                .arg(seconds(qMax(m_options.timeoutMs, ShortestSearchMs))),
                            "end other consoles that it may be talking to, then restart CITP in the server; what "
                            "passes by shows citp-console watch --log 'CITP.*=31'");
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
                            QString("the SInf came in MSEX %1, which is not known here: it is not read, and the server "
                                    "is taken for one of MSEX 1.0")
                                .arg(version),
                            "set the server to MSEX 1.2, 1.1 or 1.0, or ask its maker");
            return;
        }
        QStringList supported;
        for (const unsigned short known : information.SupportedMsexVersions)
            supported << versionText(known);
        QString more = supported.isEmpty() ? QString() : QString(" (the server knows %1)").arg(supported.join(", "));
        if (information.versionMinor == 1)
            more = " (its layer states cannot be read)";
        m_report.ok("version", "MSEX " + version + more);
    }

    void checkContent(Session& session)
    {
        std::vector<Library> libraries;
        try {
            libraries = fetchLibraries(session, Media);
            m_report.ok("library", QString("%1 media libraries").arg(libraries.size()));
        } catch (const Failure& failure) {
            m_report.failed("library", failure.text,
                            "see whether the server has media, and whether it is busy loading them; its log may say "
                            "more");
            m_report.skipped("thumbnail", "no library is known");
            return;
        }
        try {
            checkThumbnail(session, libraries);
        } catch (const Failure& failure) {
            m_report.failed("thumbnail", failure.text,
                            "try again with more time (--timeout); citp-console thumbnails tells it of every element");
        }
    }

    void checkThumbnail(Session& session, const std::vector<Library>& libraries)
    {
        for (const Library& library : libraries) {
            if (library.info.ElementCount == 0)
                continue;
            const ElementList list = fetchElements(session, Media, library.info.LIBID);
            if (list.elements.empty())
                continue;
            const Element& element = list.elements.front();
            const Picture picture = fetchThumbnail(session, library.info.LIBID, element.number);
            const QString which = QString("library %1, element %2 \"%3\": ")
                                      .arg(harmless(library.info.LIBID))
                                      .arg(element.number)
                                      .arg(harmless(element.name));
            if (picture.problem.isEmpty())
                m_report.ok("thumbnail", which + QString("%1, %2 x %3")
                                                     .arg(picture.format)
                                                     .arg(picture.size.width())
                                                     .arg(picture.size.height()));
            else
                m_report.failed("thumbnail", which + harmless(picture.problem),
                                "see how that element looks in the server itself; citp-console thumbnails tells it of "
                                "every element, and takes --format png");
            return;
        }
        m_report.skipped("thumbnail", "no library has an element");
    }

    static Picture fetchThumbnail(Session& session, const QString& library, quint8 element)
    {
        std::optional<Picture> picture;
        QObject scope;
        QObject::connect(CITP::citp_stack::Get(), &CITP::citp_stack::elementThumbnail, &scope,
                         [&](const QString& key, const CITP::Msg_MSEX_ETHN& answer) {
                             if (key == session.key() && !picture)
                                 picture.emplace(toPicture(answer));
                         });
        session.send(CITP::Msg_MSEX_GETH(session.msexMinor(), Media, library,
                                         static_cast<quint16>(ThumbnailSize.height()),
                                         static_cast<quint16>(ThumbnailSize.width()), "JPEG", {element}));
        session.await(QString("the thumbnail of element %1 of library %2").arg(element).arg(harmless(library)),
                      [&] { return picture.has_value(); });
        return *picture;
    }

    // --- Words ----------------------------------------------------------------------------------------------------

    // The entry of the system's table with the address that is used.
    QNetworkAddressEntry entry() const
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
        const int prefix = entry().prefixLength();
        const QString address = QHostAddress(m_used.GetIpAddress()).toString();
        return prefix < 0 ? address : QString("%1/%2").arg(address).arg(prefix);
    }

    bool isInNetwork(const QHostAddress& host) const
    {
        const QNetworkAddressEntry own = entry();
        return own.prefixLength() < 0 || host.isInSubnet(own.ip(), own.prefixLength());
    }

    const Options& m_options;
    DoctorReport m_report;
    const ArtNet::Adapter m_used;
    const std::optional<NetworkAdapter> m_adapter;
    Discovery m_discovery;
    QString m_obstacle; ///< why nothing can be heard, or nothing was; empty as long as all is well
    QStringList m_keys; ///< the servers to check
};
} // namespace

int diagnose(const Options& options)
{
    // The report says what is wrong; without a wish of the user's the library need not say it, too.
    if (options.log.isEmpty() && qEnvironmentVariableIsEmpty("OS_LOG_MASKS"))
        Os::Log::SetMask("CITP.*", Os::Log::Critical);
    return Doctor(options).run() ? 0 : 1;
}
} // namespace Console
