// Limits and checks of descriptors.
// SPDX-License-Identifier: Apache-2.0
#include "descriptors.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>

namespace Tools {
void prepareDescriptors()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    // Read-only, so that writing fails.
    while (fcntl(STDIN_FILENO, F_GETFD) < 0 || fcntl(STDOUT_FILENO, F_GETFD) < 0 || fcntl(STDERR_FILENO, F_GETFD) < 0) {
        if (open("/dev/null", O_RDONLY) < 0)
            return;
    }
}

QString descriptorProblem()
{
    // A connection takes two while it is opened.
    const int one = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
    const int other = one < 0 ? -1 : fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
    const int error = errno;
    for (const int descriptor : {one, other}) {
        if (descriptor >= 0)
            close(descriptor);
    }
    if (other >= 0)
        return {};
    rlimit limit{};
    if (error != EMFILE || getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return {};
    return QString("too many servers for %1 descriptors; the hard limit of 'ulimit -n' allows no more")
        .arg(static_cast<qulonglong>(limit.rlim_cur));
}
} // namespace Tools
