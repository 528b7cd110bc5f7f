// NewCapture: a capture file that is written, under its name only when it is complete, or to standard output.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pcap/pcap.h>

#include <QByteArray>
#include <QString>
#include <memory>

#include "new_file.h"

namespace Console {
class NewCapture
{
public:
    /// @param capture gives the link type; must outlive this object
    /// @param file path; "-" for standard output
    /// @throws Failure if the file cannot be created
    NewCapture(pcap_t* capture, const QString& file);

    /// Whether @p file is standard output and that is a terminal, which is warned about.
    static bool isForTerminal(const QString& file);
    bool isPiped() const { return m_isPiped; }     ///< to standard output
    const QString& name() const { return m_name; } ///< for messages

    void write(const pcap_pkthdr& header, const QByteArray& frame);
    /// Passes on what was written.
    /// @throws OutputFailure if nobody reads standard output any more
    /// @return false on an error, see problem()
    bool flush();
    /// Flushes, and gives the file its name unless an error occurred.
    bool commit();
    const QString& problem() const { return m_problem; } ///< a whole sentence; empty if everything was written

private:
    struct Closer
    {
        void operator()(pcap_dumper_t* file) const { pcap_dump_close(file); }
    };

    bool fail(const QString& why);

    const QString m_name;
    const bool m_isPiped;
    NewFile m_newFile;
    std::unique_ptr<pcap_dumper_t, Closer> m_file;
    int m_error = 0; ///< errno of the first write that failed
    QString m_problem;
};
} // namespace Console
