// Prints how many nanoseconds the first citp_stack::Get() of a process takes.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_stack.h>

#include <QCoreApplication>

#include <chrono>
#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const auto start = std::chrono::steady_clock::now();
    CITP::citp_stack::Get();
    const std::chrono::nanoseconds taken = std::chrono::steady_clock::now() - start;
    std::printf("%lld\n", static_cast<long long>(taken.count()));
    return 0;
}
