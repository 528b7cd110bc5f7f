// Validation of headers and extraction of messages.
// SPDX-License-Identifier: Apache-2.0
#include "framing.h"

#include "wire.h"

namespace MediaServer {
bool MessageCutter::next(QByteArray& message)
{
    if (!m_problem.isEmpty() || m_buffer.size() < HeaderSize)
        return false;
    FieldReader header(m_buffer, 0);
    if (header.bytes(4) != "CITP") {
        m_problem = "a message does not begin with CITP";
        return false;
    }
    header.bytes(4);
    const quint32 size = header.u32();
    if (size < HeaderSize || size > MaxSize) {
        m_problem = QString("a message declares %1 bytes; valid are %2 to %3").arg(size).arg(HeaderSize).arg(MaxSize);
        return false;
    }
    const int length = static_cast<int>(size);
    if (m_buffer.size() < length)
        return false;
    message = m_buffer.left(length);
    m_buffer.remove(0, length);
    return true;
}
} // namespace MediaServer
