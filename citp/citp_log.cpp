// The log contexts of the stack, and the form of peers' texts in log lines.
// SPDX-License-Identifier: Apache-2.0
#include "citp_log_p.h"

#include <citp/citp_codecs.h>

namespace CITP {
Os::Log::Context& stackLogContext()
{
    static Os::Log::Context context("Stack", &CITPLogContext());
    return context;
}

Os::Log::Context& plocLogContext()
{
    static Os::Log::Context context("Ploc", &stackLogContext());
    return context;
}

Os::Log::Context& trafficLogContext()
{
    static Os::Log::Context context("Traffic", &stackLogContext());
    return context;
}

std::string toAscii(const QString& text)
{
    std::string ascii = text.toLatin1().toStdString();
    for (char& character : ascii) {
        if (static_cast<unsigned char>(character) > 0x7F) {
            character = '?';
        }
    }
    return ascii;
}
} // namespace CITP
