// Golden messages for the tests of the stack: what a media server can send, with the debug text it must give.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>

#include <string>
#include <vector>

struct GoldenMessage
{
    std::string name; ///< the file's, e.g. "elin_1_0"
    std::string code; ///< "ELIn"
    QByteArray bytes;
    std::string text; ///< the debug text as golden::quoted() gives it
};

/// Every message of the golden files that a server sends over its connection and the console passes on, in the order
/// of their names.
std::vector<GoldenMessage> goldenAnswers();
