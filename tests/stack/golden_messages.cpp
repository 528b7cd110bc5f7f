// Golden messages: read by the loader of the unit tests.
// SPDX-License-Identifier: Apache-2.0
#include "golden_messages.h"

#include "golden.h"

#include <QDir>

#include <set>

std::vector<GoldenMessage> goldenAnswers()
{
    const std::set<std::string> answers{"ELIn", "ELUp", "MEIn", "EEIn", "GLEI", "LSta", "ELTh", "EThn", "SInf", "Ptch"};
    std::vector<GoldenMessage> found;
    std::set<std::string> codes;
    const QStringList files = QDir(QStringLiteral(CITP_GOLDEN_FOLDER)).entryList({QStringLiteral("*.golden")});
    for (const QString& file : files) {
        const std::string name = file.section(QLatin1Char('.'), 0, 0).toStdString();
        const golden::Message message = golden::load(name);
        const int offset = message.bytes.mid(16, 4) == "MSEX" ? 22 : 20;
        const std::string code = message.bytes.mid(offset, 4).toStdString();
        if (answers.count(code) > 0) {
            found.push_back({name, code, message.bytes, message.text});
            codes.insert(code);
        }
    }
    EXPECT_EQ(codes, answers) << "of some answers there is no golden message";
    return found;
}
