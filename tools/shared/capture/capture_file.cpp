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

namespace Tools {
namespace {
struct FileCloser
{
    void operator()(pcap_t* capture) const { pcap_close(capture); }
};
using OpenFile = std::unique_ptr<pcap_t, FileCloser>;

// Reads what there is, so that a packet is decoded as soon as it arrives. An interruption is the end of the file.
ssize_t readInput(void* isInterrupted, char* buffer, size_t size)
{
    constexpr int PollMs = 50;
    pollfd input{STDIN_FILENO, POLLIN, 0};
    while (!(*static_cast<const std::function<bool()>*>(isInterrupted))()) {
        if (poll(&input, 1, PollMs) > 0)
            return read(STDIN_FILENO, buffer, size);
    }
    return 0;
}

std::FILE* openStream(const QString& file, const std::function<bool()>& isInterrupted)
{
    if (isStandardInput(file))
        return fopencookie(const_cast<std::function<bool()>*>(&isInterrupted), "rb",
                           {readInput, nullptr, nullptr, nullptr});
    return std::fopen(QFile::encodeName(file).constData(), "rb");
}

// Null if it was interrupted before the header was there.
OpenFile open(const QString& file, const std::function<bool()>& isInterrupted)
{
    const QString name = nameOfFile(file);
    if (!isStandardInput(file) && QFileInfo::exists(file) && !QFileInfo(file).isFile())
        throw CaptureFailure{QString("'%1' is not a file").arg(name)};
    std::FILE* const stream = openStream(file, isInterrupted);
    if (!stream)
        throw CaptureFailure{
            QString("'%1' cannot be opened: %2").arg(name, QString::fromLocal8Bit(std::strerror(errno)))};
    char reason[PCAP_ERRBUF_SIZE] = "";
    OpenFile capture(pcap_fopen_offline(stream, reason));
    if (!capture) {
        std::fclose(stream);
        if (isInterrupted())
            return {};
        throw CaptureFailure{
            QString("'%1' is not a readable pcap or pcapng file: %2").arg(name, QString::fromLocal8Bit(reason))};
    }
    const int linkType = pcap_datalink(capture.get());
    if (!isKnownLinkType(linkType)) {
        const char* const linkName = pcap_datalink_val_to_name(linkType);
        throw CaptureFailure{
            QString("'%1' contains packets of link type %2, which is not supported; capture on an Ethernet "
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
    return isStandardInput(file) ? QString("standard input") : file;
}

CaptureFile readCapture(const QString& file, const std::function<void(const Packet&)>& handle,
                        const std::function<bool()>& isInterrupted, const std::function<void(qint64)>& progress)
{
    constexpr qint64 PacketsPerProgress = 4096;
    CaptureFile result;
    const OpenFile capture = open(file, isInterrupted);
    if (!capture) {
        result.isInterrupted = true;
        return result;
    }
    const int linkType = pcap_datalink(capture.get());
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    int status = 0;
    while ((status = pcap_next_ex(capture.get(), &header, &data)) == 1) {
        // What has arrived from a pipe is still read.
        if (isInterrupted() && !isStandardInput(file)) {
            result.isInterrupted = true;
            return result;
        }
        if (++result.packets % PacketsPerProgress == 0 && progress)
            progress(std::ftell(pcap_file(capture.get())));
        const QByteArray frame =
            QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<int>(header->caplen));
        handle(readPacket(linkType, frame, microseconds(header->ts)));
    }
    if (status == PCAP_ERROR && !(isStandardInput(file) && isInterrupted()))
        result.problem = QString::fromLocal8Bit(pcap_geterr(capture.get()));
    return result;
}
} // namespace Tools
