// Golden messages: a message as commented hex beside the fields and the debug text it must give, and the checks on it.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_header.h>
#include <gtest/gtest.h>

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <map>
#include <string>

#include "log_capture.h"

namespace golden {
/// Field names and values as a golden file writes them: numbers in decimal, texts as quoted() gives them.
using Fields = std::map<std::string, std::string>;

/// One file of tests/golden. See tests/golden/README.md for how such a file is written.
struct Message
{
    QByteArray bytes;
    /// The shortest beginning of the message that parses as valid once its size field tells its true length.
    int validFrom = 0;
    Fields fields;
    std::string text; ///< the debug text, quoted
};

/// Reads tests/golden/@p name.golden; a file that is missing or wrongly written fails the running test.
Message load(const std::string& name);

/// @p text between double quotes; a character that is not printable ASCII, a quote and a backslash become \uXXXX.
std::string quoted(const QString& text);

/// @p bytes with their size field set to their length, if they are long enough to have one.
QByteArray withTrueSize(QByteArray bytes);

/// Collects the fields of a message to be held against those of a golden file.
class Collector
{
public:
    Collector& add(const std::string& name, std::uint64_t value);
    Collector& add(const std::string& name, const QString& value);
    /// Adds every element of a vector as name[0], name[1], ... and their number as name.size.
    template <typename Element>
    Collector& addAll(const std::string& name, const Element& elements)
    {
        std::size_t index = 0;
        for (const auto& element : elements)
            add(name + "[" + std::to_string(index++) + "]", element);
        return add(name + ".size", index);
    }
    /// Adds the members of the CITP header, the root of every message, with "header." before their names.
    Collector& addHeader(const CITP::Msg_Header& header);

    const Fields& fields() const { return m_fields; }

private:
    Fields m_fields;
};

/// The debug text of @p message, quoted.
template <typename Class>
std::string textOf(const Class& message)
{
    QString text;
    using CITP::operator>>;
    text >> message;
    return quoted(text);
}

/// Parses the golden message @p name as a Class and holds its fields and debug text against the file; then does the
/// same with what a bad network makes of it: every shorter length, as it came and with a size field that fits, and one
/// byte too many. Only the header's faults are logged, each once.
/// @param fieldsOf names the fields of a Class, as the file does
template <typename Class>
void check(const std::string& name, Fields (*fieldsOf)(const Class&))
{
    SCOPED_TRACE(name);
    const Message golden = load(name);
    LogCapture log;
    const Class message(golden.bytes);
    EXPECT_EQ(fieldsOf(message), golden.fields);
    EXPECT_EQ(textOf(message), golden.text);
    EXPECT_EQ(log.takeTexts(), std::vector<std::string>());

    const std::vector<std::string> tooShort = {"error reading CITP header: too short for a CITP message"};
    const std::vector<std::string> wrongSize = {"error reading CITP header: header size != datagram size"};

    for (int length = 0; length < golden.bytes.size(); ++length) {
        SCOPED_TRACE("cut to " + std::to_string(length) + " bytes");
        const Class cut(golden.bytes.left(length));
        EXPECT_FALSE(cut.valid);
        EXPECT_NE(textOf(cut), "\"\"");
        EXPECT_EQ(log.takeTexts(), length < 20 ? tooShort : wrongSize);
        const Class cutAndTrue(withTrueSize(golden.bytes.left(length)));
        EXPECT_EQ(cutAndTrue.valid, length >= golden.validFrom);
        EXPECT_NE(textOf(cutAndTrue), "\"\"");
        EXPECT_EQ(log.takeTexts(), length < 20 ? tooShort : std::vector<std::string>());
    }

    const Class tooLong(golden.bytes + QByteArray(1, '\0'));
    EXPECT_FALSE(tooLong.valid);
    EXPECT_EQ(log.takeTexts(), wrongSize);
}

/// Holds that bytes behind the golden message @p name, with a size field that covers them, change no field but the
/// size: later versions of the protocol append fields.
template <typename Class>
void checkTailIgnored(const std::string& name, Fields (*fieldsOf)(const Class&))
{
    SCOPED_TRACE(name);
    Message golden = load(name);
    golden.fields["header.size"] = std::to_string(golden.bytes.size() + 1);
    EXPECT_EQ(fieldsOf(Class(withTrueSize(golden.bytes + QByteArray(1, 'x')))), golden.fields);
}
} // namespace golden
