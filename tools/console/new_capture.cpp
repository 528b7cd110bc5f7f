// Writing of capture files with libpcap.
// SPDX-License-Identifier: Apache-2.0
#include "new_capture.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "printing.h"
#include "shutdown.h"

namespace Console {
namespace {
bool isStandardOutput(const QString& file)
{
    return file == QLatin1String("-");
}
} // namespace

bool NewCapture::isForTerminal(const QString& file)
{
    if (!isStandardOutput(file) || isatty(STDOUT_FILENO) == 0)
        return false;
    warn("--write: packets cannot go to a terminal; give a file, or '| citp-console decode -' to read them");
    return true;
}

NewCapture::NewCapture(pcap_t* capture, const QString& file)
    : m_name(isStandardOutput(file) ? QString("standard output") : escapeControls(file)),
      m_isPiped(isStandardOutput(file)),
      m_newFile(file)
{
    if (!m_isPiped && !m_newFile.open())
        throw Failure{QString("'%1' cannot be written: %2").arg(m_name, m_newFile.problem())};
    // Closing the stream must not close the descriptor of the new file.
    const int descriptor = m_isPiped ? STDOUT_FILENO : m_newFile.descriptor();
    m_file.reset(pcap_dump_fopen(capture, fdopen(dup(descriptor), "wb")));
    if (!m_file)
        throw Failure{QString("'%1' cannot be written: %2")
                          .arg(m_name, escapeControls(QString::fromLocal8Bit(pcap_geterr(capture))))};
}

void NewCapture::write(const pcap_pkthdr& header, const QByteArray& frame)
{
    pcap_dump(reinterpret_cast<u_char*>(m_file.get()), &header, reinterpret_cast<const u_char*>(frame.constData()));
    // pcap_dump() reports no error, and writes nothing more after one, so that a later flush finds none.
    if (m_error == 0 && std::ferror(pcap_dump_file(m_file.get())) != 0)
        m_error = errno;
}

bool NewCapture::flush()
{
    if (m_error == 0 && pcap_dump_flush(m_file.get()) != 0)
        m_error = errno;
    return m_error == 0 || fail("is the disk full?");
}

bool NewCapture::commit()
{
    const bool isWritten = m_problem.isEmpty() && flush();
    m_file.reset();
    return isWritten && (m_isPiped || m_newFile.commit() || fail(m_newFile.problem()));
}

bool NewCapture::fail(const QString& why)
{
    if (m_isPiped && m_error == EPIPE)
        throw OutputFailure{true};
    m_problem = QString("'%1' cannot be written: %2").arg(m_name, why);
    return false;
}
} // namespace Console
