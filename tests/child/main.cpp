// The child process of the tests: runs the mode that its first argument names.
// SPDX-License-Identifier: Apache-2.0
#include "modes.h"

#include <cstdio>

namespace {
bool leakSearchSkipped = false;
}

// Asked by the address sanitizer before it searches.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off();

int __lsan_is_turned_off()
{
    return leakSearchSkipped ? 1 : 0;
}

void skipLeakSearch()
{
    leakSearchSkipped = true;
}

int main(int argc, char** argv)
{
    const std::string mode = argc > 1 ? argv[1] : "";
    const std::string how = argc > 2 ? argv[2] : "";
    if (mode == "log") {
        return logChild(how);
    }
    if (mode == "monitor") {
        return monitorChild(how);
    }
    if (mode == "exit") {
        return exitChild(how);
    }
    if (mode == "endless") {
        return endlessChild(how);
    }
    std::fprintf(stderr, "usage: %s log|monitor|exit|endless [HOW]\n", argv[0]);
    return 2;
}
