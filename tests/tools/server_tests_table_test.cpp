// Holds the table of docs/testing-servers.md to the tests of the program, and reads messages as strictly as those do.
// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <QFile>
#include <QSet>

#include "server_tests/framework.h"
#include "server_tests/layouts.h"

using namespace Console::ServerTests;

TEST(ServerTestsTable, TheDocumentHasEveryTest)
{
    QFile document(QStringLiteral(CITP_SOURCES "docs/testing-servers.md"));
    ASSERT_TRUE(document.open(QIODevice::ReadOnly));
    QStringList written;
    for (const QString& line : QString::fromUtf8(document.readAll()).split('\n')) {
        if (line.startsWith("| ") && line.at(2).isDigit())
            written << line;
    }
    QStringList wanted;
    for (const Area& area : areas()) {
        for (const TestCase& test : area.tests)
            wanted << QString("| %1 | %2 | %3 | %4 | %5 |")
                          .arg(test.number)
                          .arg(area.name, test.name, test.wire, test.expected);
    }
    // If it differs, replace the rows by these.
    EXPECT_EQ(written.join('\n').toStdString(), wanted.join('\n').toStdString());
}

TEST(ServerTestsTable, NumbersAreUniqueAndInOrder)
{
    int last = 0;
    int count = 0;
    for (const Area& area : areas()) {
        for (const TestCase& test : area.tests) {
            EXPECT_GT(test.number, last);
            last = test.number;
            ++count;
        }
    }
    EXPECT_GE(count, 60);
}
