// The command "capture": records the CITP traffic of an adapter into a file.
// SPDX-License-Identifier: Apache-2.0
#include <pcap/pcap.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QSocketNotifier>
#include <QTimer>
#include <climits>
#include <limits>
#include <memory>
#include <vector>

#include "adapters.h"
#include "capture/classifier.h"
#include "commands.h"
#include "new_capture.h"
#include "printing.h"
#include "session.h"
#include "walk.h"

namespace Console {
namespace {
// An IP packet with its headers below. The kernel's buffer has room for as many packets of this size as fit into it,
// however small they are.
constexpr int MaxFrameBytes = 65536 + 100;
constexpr int BufferBytes = 64 << 20;
// The packets before the server of a walk is found.
constexpr qint64 MaxHeldBytes = 64 << 20;
constexpr int DefaultSeconds = 600;
constexpr int DefaultCount = 1000000;
constexpr int MaxPacketsPerBatch = 1000;
// The servers' ports are unknown until they announce themselves, and a console connects right after that. The kernel
// filter therefore passes all TCP traffic, and the Classifier selects what is written.
constexpr const char* Filter = "udp port 4809 or tcp";

struct CaptureCloser
{
    void operator()(pcap_t* capture) const { pcap_close(capture); }
};
using Capture = std::unique_ptr<pcap_t, CaptureCloser>;

QString reason(const Capture& capture)
{
    return escapeControls(QString::fromLocal8Bit(pcap_geterr(capture.get())));
}

Capture openAdapter(const QString& adapter)
{
    const QString name = escapeControls(adapter);
    char problem[PCAP_ERRBUF_SIZE] = "";
    Capture capture(pcap_create(QFile::encodeName(adapter).constData(), problem));
    if (!capture)
        throw Failure{QString("cannot capture on %1: %2").arg(name, escapeControls(QString::fromLocal8Bit(problem)))};
    pcap_set_snaplen(capture.get(), MaxFrameBytes);
    pcap_set_buffer_size(capture.get(), BufferBytes);
    pcap_set_immediate_mode(capture.get(), 1);
    const int status = pcap_activate(capture.get());
    if (status == PCAP_ERROR_PERM_DENIED)
        throw Failure{QString("not allowed to capture on %1: run it with sudo, or grant the permission permanently: "
                              "sudo setcap cap_net_raw+ep %2")
                          .arg(name, escapeControls(QCoreApplication::applicationFilePath()))};
    if (status < 0)
        throw Failure{QString("cannot capture on %1: %2").arg(name, reason(capture))};
    const int linkType = pcap_datalink(capture.get());
    if (!Tools::isKnownLinkType(linkType)) {
        const char* const linkName = pcap_datalink_val_to_name(linkType);
        throw Failure{QString("cannot capture on %1: link type %2 is not supported")
                          .arg(name, linkName ? QString(linkName) : QString::number(linkType))};
    }
    bpf_program filter{};
    if (pcap_compile(capture.get(), &filter, Filter, 1, PCAP_NETMASK_UNKNOWN) != 0)
        throw Failure{QString("cannot filter on %1: %2").arg(name, reason(capture))};
    const int filtered = pcap_setfilter(capture.get(), &filter);
    pcap_freecode(&filter);
    if (filtered != 0)
        throw Failure{QString("cannot filter on %1: %2").arg(name, reason(capture))};
    return capture;
}

class Recorder
{
public:
    /// @param isForOne holds the packets back until setServer() is called
    Recorder(const QString& adapter, const QString& file, qint64 maxPackets, bool isForOne)
        : m_maxPackets(maxPackets), m_isForOne(isForOne), m_capture(openAdapter(adapter)), m_file(m_capture.get(), file)
    {
        char problem[PCAP_ERRBUF_SIZE] = "";
        if (pcap_setnonblock(m_capture.get(), 1, problem) != 0)
            throw Failure{QString("cannot capture: %1").arg(escapeControls(QString::fromLocal8Bit(problem)))};
    }

    /// Writes only the packets of the server with this key, also those held back.
    void setServer(const QString& key)
    {
        m_server = key;
        for (const Held& held : m_held)
            write(held.header, held.frame);
        m_held.clear();
    }

    int descriptor() const { return pcap_get_selectable_fd(m_capture.get()); }

    /// Writes the packets captured since the last call.
    /// @return false if the recording is finished: an error occurred or the packet limit was reached
    bool writeCaptured()
    {
        const int count = pcap_dispatch(m_capture.get(), MaxPacketsPerBatch, &Recorder::handlePacket,
                                        reinterpret_cast<u_char*>(this));
        if (count == PCAP_ERROR)
            m_problem = QString("capturing ended: %1").arg(reason(m_capture));
        else
            m_file.flush();
        return m_problem.isEmpty() && m_file.problem().isEmpty() && m_written < m_maxPackets;
    }

    /// Writes what has been captured. Ends early enough for the file to get its name after Ctrl-C.
    void drain()
    {
        constexpr qint64 MaxMs = 200;
        QElapsedTimer elapsed;
        elapsed.start();
        for (qint64 before = -1; before != m_captured && elapsed.elapsed() < MaxMs;) {
            before = m_captured;
            writeCaptured();
        }
    }

    /// Gives the file its name, and prints how many packets were written and dropped.
    /// @throws Failure if an error ended the recording
    void report()
    {
        if (!m_file.commit())
            throw Failure{m_file.problem()};
        pcap_stat counts{};
        const bool isKnown = pcap_stats(m_capture.get(), &counts) == 0;
        const QString dropped = isKnown ? QString::number(quint64(counts.ps_drop) + counts.ps_ifdrop) : QString("?");
        say(QString("%1 packets written to %2, %3 dropped").arg(m_written).arg(m_file.name(), dropped));
        if (!m_problem.isEmpty())
            throw Failure{m_problem};
    }

    /// Prints @p line where the packets do not go.
    void say(const QString& line) const
    {
        if (m_file.isPiped())
            warn(line);
        else
            printLine(line);
    }

private:
    struct Held
    {
        pcap_pkthdr header;
        QByteArray frame;
    };

    bool isWanted(const Tools::Packet& packet) const
    {
        if (!m_isForOne)
            return true;
        Tools::Endpoint server{packet.from.address, 0};
        if (packet.isUdp)
            server.port = Tools::Announcement::read(packet.data).port;
        else
            server = m_classifier.serverOf(Tools::Classifier::connectionOf(packet));
        return toText(server) == m_server;
    }

    static void handlePacket(u_char* recorder, const pcap_pkthdr* header, const u_char* data)
    {
        auto* const self = reinterpret_cast<Recorder*>(recorder);
        ++self->m_captured;
        self->write(*header,
                    QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<int>(header->caplen)));
    }

    void write(const pcap_pkthdr& header, const QByteArray& frame)
    {
        const Tools::Packet packet = Tools::readPacket(pcap_datalink(m_capture.get()), frame, 0);
        if (m_written >= m_maxPackets || !m_classifier.learn(packet))
            return;
        if (m_isForOne && m_server.isEmpty()) {
            m_heldBytes += frame.size();
            if (m_heldBytes <= MaxHeldBytes)
                m_held.push_back({header, QByteArray(frame.constData(), frame.size())});
            return;
        }
        if (!isWanted(packet))
            return;
        m_file.write(header, frame);
        ++m_written;
    }

    const qint64 m_maxPackets;
    const bool m_isForOne;
    QString m_server; ///< the only one to record, if #m_isForOne; empty until it is found
    std::vector<Held> m_held;
    qint64 m_heldBytes = 0;
    Capture m_capture;
    NewCapture m_file;
    Tools::Classifier m_classifier;
    QString m_problem;
    qint64 m_written = 0;
    qint64 m_captured = 0; ///< also what was not written
};

// What was recorded until a failure is kept.
int recordWalk(Recorder& recorder, QSocketNotifier& arrival, const Options& options)
{
    constexpr int WriteMs = 50;
    bool isOver = false;
    const auto write = [&] { isOver = !recorder.writeCaptured() || isOver; };
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &timer, write);
    QObject::connect(&arrival, &QSocketNotifier::activated, &timer, write);
    timer.start(WriteMs);
    if (options.seconds > 0)
        interruptAfter(options.seconds);
    QString failure;
    try {
        walk(options, {[&](const QString& key) { recorder.setServer(key); },
                       [&](const QString& line) { recorder.say(line); }, [&] { return isOver; }});
    } catch (const Failure& caught) {
        failure = caught.text;
    } catch (const Interrupted&) {
        failure = "interrupted before everything was asked for";
    } catch (const OutputFailure&) {
        failure = "not all output could be written";
    }
    recorder.drain();
    recorder.report();
    if (!failure.isEmpty())
        throw Failure{failure};
    return 0;
}
} // namespace

int capture(const Options& options)
{
    if (NewCapture::isForTerminal(options.write))
        return ExitUsageError;
    const ArtNet::Adapter used = ArtNet::Adapter::Get();
    if (!used.IsValid())
        throw Failure{"no adapter to capture on; 'citp-console adapters' lists them, --adapter chooses one"};
    const int seconds = options.seconds > 0 ? options.seconds : DefaultSeconds;
    const qint64 defaultCount = options.walk ? std::numeric_limits<qint64>::max() : DefaultCount;
    Recorder recorder(QString::fromStdString(used.GetName()), options.write,
                      options.count > 0 ? options.count : defaultCount, options.walk);

    // Wakes the event loop. On some adapters the descriptor does not become readable for every packet; those packets
    // are written when the loop wakes up by itself.
    QSocketNotifier arrival(recorder.descriptor(), QSocketNotifier::Read);

    if (options.walk)
        return recordWalk(recorder, arrival, options);
    recorder.say(QString("capturing on %1 for %2 s; Ctrl-C stops it earlier").arg(nameAndAddress(used)).arg(seconds));
    interruptAfter(seconds);
    try {
        processEventsUntil([&recorder] { return !recorder.writeCaptured(); }, INT_MAX);
    } catch (const Interrupted&) {
        recorder.writeCaptured();
    }
    recorder.report();
    // The kernel may need more time to close the capture than a shutdown has.
    setExitStatus(0);
    return 0;
}
} // namespace Console
