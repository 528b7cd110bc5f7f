// main() of the test programs that use Qt: an application object around all tests.
// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <QCoreApplication>

#include <csignal>

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    testing::InitGoogleTest(&argc, argv);
    const QCoreApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
