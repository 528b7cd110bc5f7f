// Limits and checks of descriptors.
// SPDX-License-Identifier: Apache-2.0
#include "descriptors.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>

namespace Console {
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
    const int descriptor = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
    if (descriptor >= 0) {
        close(descriptor);
        return {};
    }
    rlimit limit{};
    if (errno != EMFILE || getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return {};
    return QString("too many servers for %1 descriptors; the hard limit of 'ulimit -n' allows no more")
        .arg(static_cast<qulonglong>(limit.rlim_cur));
}
} // namespace Console
