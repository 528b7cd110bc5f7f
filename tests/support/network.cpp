// The network namespace of a test and the ip command.
// SPDX-License-Identifier: Apache-2.0
#include "network.h"

#include <gtest/gtest.h>

#include <cstdlib>

bool hasNamespace()
{
    return std::getenv("CITP_TEST_NAMESPACE") != nullptr;
}

void ip(const std::string& arguments)
{
    ASSERT_EQ(std::system(("ip " + arguments).c_str()), 0) << "ip " << arguments;
}
