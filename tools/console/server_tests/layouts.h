// The layouts of the messages of a media server, field by field: for tests that accept nothing else.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

namespace Console::ServerTests {
/// How a message differs from its layout in the MSEX version that it names: a text without a terminator, a count of
/// more entries than there are, or bytes behind the last field.
struct LayoutProblem
{
    QString text;            ///< empty if there is none
    bool isTrailing = false; ///< only that bytes follow the last field
    bool isText = false;     ///< a text without a terminator
};
LayoutProblem layoutProblem(const QByteArray& message);

/// The number of entries of the list of @p message, of an SInf the layers, whatever follows its fields; -1 if the
/// layout has another problem.
int entriesIn(const QByteArray& message);
} // namespace Console::ServerTests
