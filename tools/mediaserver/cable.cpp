// A socket filter that drops every packet.
// SPDX-License-Identifier: Apache-2.0
#include "cable.h"

#include <linux/filter.h>
#include <sys/socket.h>

namespace MediaServer {
void setCable(qintptr socket, bool isConnected)
{
    sock_filter dropAll = BPF_STMT(BPF_RET | BPF_K, 0);
    const sock_fprog program{1, &dropAll};
    setsockopt(static_cast<int>(socket), SOL_SOCKET, isConnected ? SO_DETACH_FILTER : SO_ATTACH_FILTER, &program,
               sizeof program);
}
} // namespace MediaServer
