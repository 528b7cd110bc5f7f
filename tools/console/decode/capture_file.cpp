// Reads capture files with libpcap.
// SPDX-License-Identifier: Apache-2.0
#include "capture_file.h"

#include <pcap/pcap.h>
#include <poll.h>
#include <unistd.h>

#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "printing.h"
#include "shutdown.h"

namespace Console {
namespace {
struct FileCloser
{
    void operator()(pcap_t* capture) const { pcap_close(capture); }
};
using OpenFile = std::unique_ptr<pcap_t, FileCloser>;

// Reads what there is, so that a packet is decoded as soon as it arrives. An interruption is the end of the file.
ssize_t readInput(void*, char* buffer, size_t size)
{
    constexpr int PollMs = 50;
    pollfd input{STDIN_FILENO, POLLIN, 0};
    while (!isInterrupted()) {
        if (poll(&input, 1, PollMs) > 0)
            return read(STDIN_FILENO, buffer, size);
    }
    return 0;
}

std::FILE* openStream(const QString& file)
{
    if (isStandardInput(file))
        return fopencookie(nullptr, "rb", {readInput, nullptr, nullptr, nullptr});
    return std::fopen(QFile::encodeName(file).constData(), "rb");
}

OpenFile open(const QString& file)
{
    const QString name = nameOfFile(file);
    if (!isStandardInput(file) && QFileInfo::exists(file) && !QFileInfo(file).isFile())
        throw Failure{QString("'%1' is not a file").arg(name)};
    std::FILE* const stream = openStream(file);
    if (!stream)
        throw Failure{QString("'%1' cannot be opened: %2").arg(name, QString::fromLocal8Bit(std::strerror(errno)))};
    char reason[PCAP_ERRBUF_SIZE] = "";
    OpenFile capture(pcap_fopen_offline(stream, reason));
    if (!capture) {
        std::fclose(stream);
        if (isInterrupted())
            throw Interrupted{};
        throw Failure{QString("'%1' is not a readable pcap or pcapng file: %2")
                          .arg(name, escapeControls(QString::fromLocal8Bit(reason)))};
    }
    const int linkType = pcap_datalink(capture.get());
    if (!isKnownLinkType(linkType)) {
        const char* const linkName = pcap_datalink_val_to_name(linkType);
        throw Failure{QString("'%1' contains packets of link type %2, which is not supported; capture on an Ethernet "
                              "adapter or on 'any'")
                          .arg(name, linkName ? QString(linkName) : QString::number(linkType))};
    }
    return capture;
}

// A damaged file may contain any number of seconds, so the value is limited.
qint64 microseconds(const timeval& time)
{
    constexpr qint64 MaxSeconds = Q_INT64_C(100000000000);
    const qint64 seconds = qBound(-MaxSeconds, static_cast<qint64>(time.tv_sec), MaxSeconds);
    return seconds * 1000000 + qBound(qint64(0), static_cast<qint64>(time.tv_usec), qint64(999999));
}
} // namespace

bool isStandardInput(const QString& file)
{
    return file == QLatin1String("-");
}

QString nameOfFile(const QString& file)
{
    return isStandardInput(file) ? QString("standard input") : escapeControls(file);
}

CaptureFile readCapture(const QString& file, const std::function<void(const Packet&)>& handle)
{
    const OpenFile capture = open(file);
    const int linkType = pcap_datalink(capture.get());
    CaptureFile result;
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    int status = 0;
    while ((status = pcap_next_ex(capture.get(), &header, &data)) == 1) {
        if (isInterrupted() && !isStandardInput(file))
            throw Interrupted{};
        ++result.packets;
        const QByteArray frame =
            QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<int>(header->caplen));
        handle(readPacket(linkType, frame, microseconds(header->ts)));
    }
    if (status == PCAP_ERROR && !(isStandardInput(file) && isInterrupted()))
        result.problem = escapeControls(QString::fromLocal8Bit(pcap_geterr(capture.get())));
    return result;
}
} // namespace Console
