// Golden messages: the reader of their files, line by line, and the way in which fields are written there.
// SPDX-License-Identifier: Apache-2.0
#include "golden.h"

#include <fstream>

namespace golden {
namespace {
std::string trimmed(const std::string& text)
{
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

/// A line of hex: bytes as two digits each, blanks between them, then perhaps a comment.
void readBytes(const std::string& line, QByteArray& bytes, const std::string& where)
{
    const std::string digits = trimmed(line.substr(0, line.find('#')));
    const QByteArray hex = QByteArray::fromStdString(digits);
    const QByteArray read = QByteArray::fromHex(hex);
    EXPECT_EQ(QByteArray(hex).replace(" ", ""), read.toHex()) << where << ": not bytes in hex";
    bytes += read;
}
} // namespace

Message load(const std::string& name)
{
    const std::string path = std::string(CITP_GOLDEN_FOLDER "/") + name + ".golden";
    std::ifstream file(path);
    EXPECT_TRUE(file.is_open()) << path << " cannot be read";

    Message message;
    std::string section;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        const std::string where = path + ":" + std::to_string(number);
        line = trimmed(line);
        if (line.empty() || line[0] == '#')
            continue;
        if (line[0] == '[') {
            section = line;
        } else if (section == "[bytes]") {
            readBytes(line, message.bytes, where);
        } else if (section == "[valid from]") {
            message.validFrom = std::stoi(line);
        } else if (section == "[fields]") {
            const auto equals = line.find(" = ");
            if (equals == std::string::npos)
                ADD_FAILURE() << where << ": a field is written as `name = value`";
            else
                EXPECT_TRUE(message.fields.emplace(line.substr(0, equals), trimmed(line.substr(equals + 3))).second)
                    << where << ": this field stands here twice";
        } else if (section == "[text]") {
            // The text may be spread over several lines, each in quotes of its own.
            if (line.size() < 2 || line.front() != '"' || line.back() != '"')
                ADD_FAILURE() << where << ": the debug text stands in double quotes";
            else
                message.text += line.substr(1, line.size() - 2);
        } else {
            ADD_FAILURE() << where << ": outside of [bytes], [valid from], [fields] and [text]";
        }
    }
    message.text = '"' + message.text + '"';
    EXPECT_GT(message.bytes.size(), 0) << path << " has no bytes";
    EXPECT_GT(message.fields.size(), 0u) << path << " has no fields";
    return message;
}

std::string quoted(const QString& text)
{
    std::string result = "\"";
    for (const QChar character : text) {
        const unsigned unit = character.unicode();
        if (unit >= 0x20 && unit < 0x7f && unit != '"' && unit != '\\')
            result += static_cast<char>(unit);
        else
            result += QString::asprintf("\\u%04x", unit).toStdString();
    }
    return result + '"';
}

QByteArray withTrueSize(QByteArray bytes)
{
    for (int index = 0; bytes.size() >= 12 && index < 4; ++index)
        bytes[8 + index] = static_cast<char>((static_cast<unsigned long long>(bytes.size()) >> (8 * index)) & 0xff);
    return bytes;
}

Collector& Collector::add(const std::string& name, std::uint64_t value)
{
    m_fields[name] = std::to_string(value);
    return *this;
}

Collector& Collector::add(const std::string& name, const QString& value)
{
    m_fields[name] = quoted(value);
    return *this;
}

Collector& Collector::addHeader(const CITP::Msg_Header& header)
{
    return add("header.valid", header.valid)
        .add("header.size", header.size)
        .add("header.citpMajor", header.citpMajor)
        .add("header.citpMinor", header.citpMinor)
        .add("header.requestIndex", header.requestIndex)
        .add("header.partCount", header.partCount)
        .add("header.part", header.part)
        .add("header.contentType", header.contentType())
        .add("header.cookie", header.cookie);
}
} // namespace golden
