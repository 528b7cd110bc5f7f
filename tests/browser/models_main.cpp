// main() of the models' tests: they need no display.
// SPDX-License-Identifier: Apache-2.0
#include "browser_fixture.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
