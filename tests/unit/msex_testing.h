// What the tests of the MSEX requests and answers share: messages made by hand, and the replay of golden answers
// against the reference parser.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "golden.h"
#include "reference_parser.h"

#include <citp/citp_codecs.h>
#include <citp/citp_msg_msex.h>
#include <citp_system/os_log.h>

#include <random>

namespace msex {
/// A whole message with a good CITP header, MSEX version 1.@p minor, and @p body in hex.
inline QByteArray message(int minor, const char* code, const char* body)
{
    QByteArray bytes = QByteArray::fromHex("43495450 0100 0000 00000000 0100 0000 4d534558 01");
    bytes += static_cast<char>(minor);
    bytes += code;
    bytes += QByteArray::fromHex(body);
    return golden::withTrueSize(bytes);
}

/// Starts the fields of a message with those of the two headers.
inline golden::Collector headersOf(const CITP::Msg_MSEX& message)
{
    golden::Collector fields;
    fields.addHeader(message)
        .add("versionMajor", message.versionMajor)
        .add("versionMinor", message.versionMinor)
        .add("cookie", message.cookie);
    return fields;
}

inline bool contains(const std::string& text, const char* part)
{
    return text.find(part) != std::string::npos;
}

/// Keeps message parsing from logging while it lives: the damaged headers of a replay are thousands of lines.
class QuietParsing
{
public:
    QuietParsing() { Os::Log::SetMask("CITP.Message", 0); }
    ~QuietParsing() { Os::Log::SetMask("CITP.Message", Os::Log::DefaultMask); }
    QuietParsing(const QuietParsing&) = delete;
    QuietParsing& operator=(const QuietParsing&) = delete;
};

/// Holds the library's reading of @p bytes against the reference parser's.
template <typename Class>
void expectAsReference(const QByteArray& bytes)
{
    const Class parsed(bytes);
    Class expected;
    reference::parse(bytes, expected);
    EXPECT_TRUE(reference::same(parsed, expected)) << "differs from the reference parser:\n"
                                                   << CITP::hexDump(bytes).toStdString();
}

/// Replays the golden answer @p name: whole, cut, lengthened and damaged.
template <typename Class>
void replay(const std::string& name, golden::Fields (*fieldsOf)(const Class&))
{
    golden::check<Class>(name, fieldsOf);
    golden::checkTailIgnored<Class>(name, fieldsOf);

    SCOPED_TRACE(name);
    const QuietParsing quiet;
    const QByteArray whole = golden::load(name).bytes;
    for (int length = 0; length <= whole.size(); ++length) {
        expectAsReference<Class>(whole.left(length));
        expectAsReference<Class>(golden::withTrueSize(whole.left(length)));
    }

    // The seed is fixed and the generator's numbers are used as they come, so that every machine tries the same.
    std::mt19937 random(4809);
    for (int round = 0; round < 400; ++round) {
        QByteArray damaged = whole;
        if (random() % 4 == 0)
            damaged.truncate(static_cast<int>(random() % static_cast<unsigned>(whole.size() + 1)));
        for (auto left = random() % 4 + 1; left > 0 && !damaged.isEmpty(); --left)
            damaged[static_cast<int>(random() % static_cast<unsigned>(damaged.size()))] =
                static_cast<char>(random() & 0xff);
        expectAsReference<Class>(damaged);
        // The headers repaired, the damage is the body's alone.
        const int headers = static_cast<int>(qMin(damaged.size(), whole.left(CITP::Msg_MSEX::MIN_MSEX_LENGTH).size()));
        damaged.replace(0, headers, whole.left(headers));
        expectAsReference<Class>(golden::withTrueSize(damaged));
    }
}
} // namespace msex
