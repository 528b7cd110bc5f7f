// Tests of the header and the layout of all answers.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex.h>

#include <QSet>

#include "../decode/message_fields.h"
#include "framework.h"
#include "layouts.h"

namespace Console::ServerTests {
namespace {
const QSize SmallPicture(32, 32);

// The answers of each kind, as far as the server gives them.
struct Answers
{
    std::vector<QByteArray> messages;
    bool hasLists = false; ///< there is an ELIn among them
    QString end;           ///< why nothing is readable behind them; empty if there is no reason
};

Answers answersOfAllKinds(Bench& bench)
{
    const int minor = bench.minor();
    Answers answers;
    answers.messages.push_back(bench.information());
    const std::vector<int> types = libraryTypes(bench);
    // Taken last: the calls above may have connected again.
    Probe& probe = bench.console();
    QByteArray requests = patchRequest();
    const auto nextList = [&] {
        QByteArray list = probe.next("ELIn");
        if (!list.isEmpty()) {
            answers.messages.push_back(list);
            answers.hasLists = true;
        }
        return list;
    };
    probe.clear();
    for (const int type : types) {
        probe.send(librariesRequest(minor, type));
        const QByteArray list = nextList();
        if (list.isEmpty())
            break;
        const QJsonArray libraries = fieldsOf(list).value("libraries").toArray();
        for (const QJsonValue known : libraries) {
            if (known.toObject().value("elements").toInt() == 0)
                continue;
            const QString id = known.toObject().value("library").toString();
            requests += elementsRequest(minor, type, id);
            requests += libraryPicturesRequest(minor, type, {id}, SmallPicture, "JPEG");
            requests += picturesRequest(minor, type, id, {0, 1}, SmallPicture, "JPEG");
            break;
        }
    }
    probe.send(requests + librariesRequest(minor, 1));
    nextList();
    answers.end = probe.endText();
    answers.messages.insert(answers.messages.end(), probe.received().begin(), probe.received().end());
    return answers;
}

template <typename Check>
void forEachAnswer(Bench& bench, const Check& check)
{
    const Answers answers = answersOfAllKinds(bench);
    for (const QByteArray& message : answers.messages)
        check(message);
    if (!answers.hasLists)
        notRun("no ELIn answers a GELI" + answers.end);
}

QString nameOf(const QByteArray& message)
{
    return QString::fromLatin1(codeOf(message));
}

void saysCitpOneZero(Bench& bench)
{
    forEachAnswer(bench, [&](const QByteArray& message) {
        const CITP::Msg_Header header(message);
        expect(header.citpMajor == 1 && header.citpMinor == 0, QString("the header of a %1 says CITP %2.%3")
                                                                   .arg(nameOf(message))
                                                                   .arg(header.citpMajor)
                                                                   .arg(header.citpMinor));
    });
}

void keepsTheStreamWhole(Bench& bench)
{
    const Answers answers = answersOfAllKinds(bench);
    expect(answers.end.isEmpty(), "behind these answers no other one is found" + answers.end);
    if (!answers.hasLists)
        notRun("no ELIn answers a GELI");
    // The next answer is readable only if the sizes of those before were right.
    Probe& probe = bench.console();
    probe.send(librariesRequest(bench.minor(), 1));
    const QByteArray answer = probe.next("ELIn");
    expect(!answer.isEmpty(), "behind these answers no other one is found" + probe.endText());
}

void isOneMessage(Bench& bench)
{
    forEachAnswer(bench, [&](const QByteArray& message) {
        const CITP::Msg_Header header(message);
        const bool isWhole = header.part == 0 && header.partCount <= 1;
        expect(isWhole, QString("a %1 is part %2 of %3").arg(nameOf(message)).arg(header.part).arg(header.partCount));
        if (header.partCount == 0)
            bench.warn(QString("a %1 says that it consists of no parts").arg(nameOf(message)));
    });
}

void isOfAKnownLayer(Bench& bench)
{
    static const QSet<QString> layers{"PINF", "MSEX", "FPTC", "FSEL", "FINF", "SDMX", "CAEX"};
    forEachAnswer(bench, [&](const QByteArray& message) {
        const QString layer = CITP::Msg_Header::contentType(message);
        expect(layers.contains(layer), QString("a message is of the layer '%1'").arg(layer));
    });
}

void isOfAKnownKind(Bench& bench)
{
    static const QSet<QString> codes{"SInf", "NAck", "LSta", "ELIn", "ELUp", "MEIn", "EEIn", "GLEI", "ELTh",
                                     "EThn", "VSrc", "StFr", "Ptch", "UPtc", "SPtc", "PNam", "PLoc"};
    // The layers of which a console knows the kinds.
    static const QSet<QString> layers{"PINF", "MSEX", "FPTC"};
    forEachAnswer(bench, [&](const QByteArray& message) {
        expect(codes.contains(nameOf(message)) || !layers.contains(CITP::Msg_Header::contentType(message)),
               QString("a message has the content code '%1'").arg(nameOf(message)));
    });
}

void isOfTheVersionAsked(Bench& bench)
{
    forEachAnswer(bench, [&](const QByteArray& message) {
        static const QSet<QString> unasked{"SInf", "LSta", "ELUp"};
        if (CITP::Msg_Header::contentType(message) != "MSEX" || unasked.contains(nameOf(message)))
            return;
        const CITP::Msg_MSEX layer(message);
        expect(layer.versionMajor == 1 && layer.versionMinor == bench.minor(),
               QString("a request in MSEX 1.%1 is answered with a %2 of %3.%4")
                   .arg(bench.minor())
                   .arg(nameOf(message))
                   .arg(layer.versionMajor)
                   .arg(layer.versionMinor));
    });
}

void hasTheRequestIndex(Bench& bench)
{
    forEachAnswer(bench, [&](const QByteArray& message) {
        const int index = CITP::Msg_Header(message).requestIndex;
        expect(index == 0, QString("a %1 has the request index %2").arg(nameOf(message)).arg(index));
    });
}

void endsItsTexts(Bench& bench)
{
    forEachAnswer(bench, [&](const QByteArray& message) {
        const LayoutProblem problem = layoutProblem(message);
        expect(!problem.isText, QString("%1: %2").arg(nameOf(message), problem.text));
    });
}

void countsItsEntries(Bench& bench)
{
    forEachAnswer(bench, [&](const QByteArray& message) {
        const LayoutProblem problem = layoutProblem(message);
        expect(problem.text.isEmpty() || problem.isText || problem.isTrailing,
               QString("%1: %2").arg(nameOf(message), problem.text));
    });
}

void endsWithItsFields(Bench& bench)
{
    QString found;
    forEachAnswer(bench, [&](const QByteArray& message) {
        const LayoutProblem problem = layoutProblem(message);
        if (problem.isTrailing && found.isEmpty())
            found = QString("%1: %2").arg(nameOf(message), problem.text);
    });
    if (!found.isEmpty())
        bench.warn(found);
}
} // namespace

Area headerTests()
{
    return {
        "headers",
        {
            {401, "every message is CITP 1.0", "asks for one answer of each kind",
             "CITP version 1.0 in the headers: consoles drop others", saysCitpOneZero, TestCase::EachVersion},
            {402, "every size is right", "asks for one answer of each kind, then once more for the libraries",
             "an ELIn: each message begins where the size of the one before says", keepsTheStreamWhole,
             TestCase::EachVersion},
            {403, "every message is in one part", "asks for one answer of each kind",
             "part 0 of 1: consoles do not put parts together", isOneMessage, TestCase::EachVersion},
            {404, "every message is of a known layer", "asks for one answer of each kind",
             "PINF, MSEX, FPTC or another layer of CITP as content type: consoles drop others", isOfAKnownLayer,
             TestCase::EachVersion},
            {405, "every message is of a known kind", "asks for one answer of each kind",
             "a content code of its layer, PINF, MSEX or FPTC: consoles drop others", isOfAKnownKind,
             TestCase::EachVersion},
            {406, "every answer is of the version of its request", "asks for one answer of each kind",
             "the MSEX version of the request: the layout of the answer depends on it", isOfTheVersionAsked,
             TestCase::EachVersion},
            {407, "every answer has the index of its request", "asks for one answer of each kind with the index 0",
             "request index 0: it tells which request is answered", hasTheRequestIndex, TestCase::EachVersion},
            {408, "every text has a terminator", "asks for one answer of each kind, reads it field by field",
             "a zero behind each text: otherwise the text runs into the next field", endsItsTexts,
             TestCase::EachVersion},
            {409, "every count is right", "asks for one answer of each kind, reads it field by field",
             "as many entries as counted, and all fields whole: consoles show empty entries or drop the list",
             countsItsEntries, TestCase::EachVersion},
            {410, "nothing follows the last field", "asks for one answer of each kind, reads it field by field",
             "the end of the message (otherwise a warning, as consoles do not read further)", endsWithItsFields,
             TestCase::EachVersion},
        },
    };
}
} // namespace Console::ServerTests
