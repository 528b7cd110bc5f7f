// citp-console decode on capture files that the tests write: what it prints, its JSON, its summary, and damaged files.
// SPDX-License-Identifier: Apache-2.0
#include <QDir>
#include <QJsonArray>
#include <QTemporaryDir>

#include "capture_writer.h"
#include "console_fixture.h"
#include "golden.h"

namespace {
QByteArray bytesOf(const char* name)
{
    return golden::load(name).bytes;
}

/// A server that announces itself, is greeted and answers.
cap::Talk shortTalk()
{
    cap::Talk talk;
    talk.announce(bytesOf("ploc_mediaserver").replace(24, 2, QByteArray::fromHex("cb12")));
    talk.connect();
    talk.toServer(bytesOf("pnam"));
    talk.fromServer(bytesOf("sinf_1_2")).acknowledge();
    talk.toServer(bytesOf("geli_1_2"));
    talk.fromServer(bytesOf("elin_1_2")).acknowledge();
    return talk;
}

QString fileOf(const cap::Files& files, const cap::Talk& talk)
{
    return files.write("talk.pcap", cap::pcap(cap::Ethernet, talk.frames));
}

Outcome decode(const QString& file, const QStringList& more = {})
{
    qputenv("TZ", "UTC-1");
    return runConsole(QStringList{"decode", file} + more);
}

/// The events of @p talk as words: a message's code, else what is said.
QStringList words(const cap::Talk& talk)
{
    const cap::Files files;
    const Outcome outcome = decode(fileOf(files, talk), {"--json"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    QStringList list;
    for (const QJsonObject& event : jsonLines(outcome.output)) {
        const QString kind = event.value("record").toString();
        list << (kind == "message" ? event.value("code").toString() : kind + ": " + event.value("text").toString());
    }
    return list;
}

std::string joined(const QStringList& list)
{
    return list.join("\n").toStdString();
}
} // namespace

TEST(ConsoleDecode, PrintsEachWholeMessage)
{
    const cap::Files files;
    const Outcome outcome = decode(fileOf(files, shortTalk()), {"--full"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.errors.toStdString(), "");
    const QStringList lines = outcome.output.split('\n');
    ASSERT_GE(lines.size(), 7) << outcome.output.toStdString();
    EXPECT_EQ(lines.at(0).toStdString(), "2023-11-14, UTC+01:00");
    EXPECT_TRUE(lines.at(1).startsWith("23:13:20.000  2.0.0.10:50000 -> 224.0.0.180:4809  PINF PLoc "))
        << lines.at(1).toStdString();
    EXPECT_TRUE(lines.at(1).contains(" port=4811 type=MediaServer ")) << lines.at(1).toStdString();
    EXPECT_EQ(lines.at(2).toStdString(), "23:13:20.001  2.0.0.5:40000 -> 2.0.0.10:4811  NOTE: connects");
    EXPECT_TRUE(lines.at(3).startsWith("23:13:20.004  2.0.0.5:40000 -> 2.0.0.10:4811  PINF PNam "))
        << lines.at(3).toStdString();
    EXPECT_TRUE(lines.at(4).startsWith("23:13:20.005  2.0.0.10:4811 -> 2.0.0.5:40000  MSEX SInf 123 bytes  "))
        << lines.at(4).toStdString();
    EXPECT_TRUE(lines.at(4).contains(" MSEXVersion=258 ")) << lines.at(4).toStdString();
    EXPECT_TRUE(lines.at(5).contains("  MSEX GELI ")) << lines.at(5).toStdString();
    EXPECT_TRUE(lines.at(6).contains("  MSEX ELIn ")) << lines.at(6).toStdString();
    EXPECT_TRUE(lines.at(6).contains("LibraryCount=")) << lines.at(6).toStdString();
}

TEST(ConsoleDecode, PrintsAnAlignedLineForEachMessage)
{
    const cap::Files files;
    const Outcome outcome = decode(fileOf(files, shortTalk()));
    EXPECT_EQ(outcome.errors.toStdString(), "");
    EXPECT_EQ(outcome.output.toStdString(),
              "2023-11-14, UTC+01:00\n"
              "23:13:20.000  *   2.0.0.10:4811          PLoc   \"B\u00fchne 1\"  MediaServer, port 4811, Running\n"
              "23:13:20.001  ->  2.0.0.10:4811          NOTE   connects\n"
              "23:13:20.004  ->  2.0.0.10:4811          PNam   \"Stage 1\"\n"
              "23:13:20.005  <-  2.0.0.10:4811          SInf   W\u00e9\\ud800 2.10.255  MSEX 1.0 1.1 1.2  3 layers\n"
              "23:13:20.007  ->  2.0.0.10:4811          GELI   type 1, libraries 0 255 of 1,2,0,0\n"
              "23:13:20.008  <-  2.0.0.10:4811          ELIn   type 1, 2 libraries: 7,0,0,0 \"Films\", 255,1,2,3 "
              "\"B\u00fchne \u2603\"\n");
}

TEST(ConsoleDecode, SelectsByServerMessageAndTime)
{
    const cap::Files files;
    const QString file = fileOf(files, shortTalk());
    const auto codes = [&file](const QStringList& options) {
        QStringList list;
        for (const QJsonObject& event : jsonLines(decode(file, options + QStringList{"--json"}).output))
            list << event.value("code").toString("-");
        return list.join(' ').toStdString();
    };
    EXPECT_EQ(codes({"--message", "sinf,ELIn"}), "SInf ELIn");
    EXPECT_EQ(codes({"--message", "PINF,note"}), "PLoc - PNam");
    EXPECT_EQ(codes({"--since", "23:13:20.005"}), "SInf GELI ELIn");
    EXPECT_EQ(codes({"--until", "23:13:20.004"}), "PLoc - PNam");
    EXPECT_EQ(codes({"--since", "2023-11-14T23:13:20.005", "--until", "2023-11-14T23:13:20.005"}), "SInf");
    EXPECT_EQ(codes({"--since", "2023-11-15T00:00"}), "");
    const std::string all = "PLoc - PNam SInf GELI ELIn";
    EXPECT_EQ(codes({"--server", "2.0.0.10"}), all);
    EXPECT_EQ(codes({"--server", "2.0.0.10:4811"}), all);
    EXPECT_EQ(codes({"--server", "2.0.0.1"}), "");
    EXPECT_EQ(codes({"--server", "HNE 1"}), all);
    const Outcome none = decode(file, {"--message", "LSta"});
    EXPECT_EQ(none.output.toStdString(), "");
    EXPECT_EQ(none.errors.toStdString(),
              QString("citp-console: '%1' contains no CITP that matches the options, among 6 "
                      "messages and marks\n")
                  .arg(file)
                  .toStdString());
    EXPECT_EQ(decode(file, {"--since", "25:00"}).status, 2);
    EXPECT_EQ(decode(file, {"--until", "2023-11-31T10:00"}).status, 2);
}

TEST(ConsoleDecode, ReadsStandardInput)
{
    const cap::Files files;
    const QString file = fileOf(files, shortTalk());
    const QString expected = decode(file).output;
    Child piped("sh", {"-c", "cat " + file + " | " CONSOLE_PROGRAM " decode -"});
    EXPECT_EQ(piped.waitForEnd(), 0);
    EXPECT_EQ(piped.output().toStdString(), expected.toStdString());
    Child none("sh", {"-c", "exec " CONSOLE_PROGRAM " decode - </dev/null"});
    EXPECT_EQ(none.waitForEnd(), 1);
    EXPECT_TRUE(none.errors().startsWith("citp-console: 'standard input' is not a readable pcap or pcapng file"))
        << none.errors().toStdString();
}

TEST(ConsoleDecode, EndsOnCtrlCBeforeTheFirstByteOfStandardInput)
{
    const QTemporaryDir folder;
    const QString pipe = folder.filePath("pipe");
    // Open at both ends: it is never at its end.
    Child console("sh", {"-c", "mkfifo " + pipe + " && exec " CONSOLE_PROGRAM " decode - <>" + pipe});
    // Before its thread that waits for signals runs, the signal would end it in any case.
    ASSERT_TRUE(waitFor([&] {
        return QDir(QString("/proc/%1/task").arg(console.id()))
                   .entryList({"*"}, QDir::Dirs | QDir::NoDotAndDotDot)
                   .size() > 1;
    }));
    console.interrupt();
    EXPECT_EQ(console.waitForEnd(), 1);
    EXPECT_EQ(console.errors().toStdString(), "citp-console: interrupted\n");
}

TEST(ConsoleDecode, PrintsOneJsonObjectALine)
{
    const cap::Files files;
    const std::vector<QJsonObject> events = jsonLines(decode(fileOf(files, shortTalk()), {"--json"}).output);
    ASSERT_EQ(events.size(), 6u);
    EXPECT_EQ(events[0].value("direction").toString().toStdString(), "discovery");
    EXPECT_EQ(events[0].value("time").toString().toStdString(), "2023-11-14T22:13:20.000Z");
    const QJsonObject& sinf = events[3];
    EXPECT_EQ(sinf.value("record").toString().toStdString(), "message");
    EXPECT_EQ(sinf.value("time").toString().toStdString(), "2023-11-14T22:13:20.005Z");
    EXPECT_EQ(sinf.value("from").toString().toStdString(), "2.0.0.10:4811");
    EXPECT_EQ(sinf.value("to").toString().toStdString(), "2.0.0.5:40000");
    EXPECT_EQ(sinf.value("server").toString().toStdString(), "2.0.0.10:4811");
    EXPECT_EQ(sinf.value("direction").toString().toStdString(), "from server");
    EXPECT_EQ(sinf.value("layer").toString().toStdString(), "MSEX");
    EXPECT_EQ(sinf.value("code").toString().toStdString(), "SInf");
    EXPECT_EQ(sinf.value("size").toInt(), 123);
    EXPECT_FALSE(sinf.contains("problem"));
    EXPECT_EQ(events[4].value("direction").toString().toStdString(), "to server");
    for (const QJsonObject& event : events)
        EXPECT_EQ(event.value("server").toString().toStdString(), "2.0.0.10:4811");
}

TEST(ConsoleDecode, ReadsEveryLinkTypeInBothFormats)
{
    const cap::Files files;
    const cap::Talk talk = shortTalk();
    const Outcome expected = decode(fileOf(files, talk));
    for (const cap::LinkType linkType : {cap::Null, cap::Loop, cap::RawIp, cap::LinuxCooked, cap::LinuxCooked2}) {
        std::vector<cap::Frame> frames;
        for (const cap::Frame& frame : talk.frames) {
            // Without the Ethernet header, and without what fills up a short frame.
            const int length = static_cast<uchar>(frame.bytes.at(16)) * 256 + static_cast<uchar>(frame.bytes.at(17));
            frames.push_back({frame.timeUs, cap::framed(linkType, frame.bytes.mid(14, length))});
        }
        for (const QByteArray& file : {cap::pcap(linkType, frames), cap::pcapng(linkType, frames)}) {
            const Outcome outcome = decode(files.write("linktype", file));
            EXPECT_EQ(outcome.output.toStdString(), expected.output.toStdString())
                << linkType << outcome.errors.toStdString();
        }
    }
}

TEST(ConsoleDecode, PutsSegmentsInOrderAndDropsRepeatedOnes)
{
    const QByteArray elin = bytesOf("elin_1_2");
    cap::Talk talk(0xfffffff0);
    talk.connect();
    talk.fromServerAt(30, elin.mid(30)).fromServerAt(10, elin.mid(10, 25)).fromServerAt(0, elin.left(12));
    talk.fromServerAt(0, elin.left(30)).fromServerAt(20, elin.mid(20)).lose(static_cast<int>(elin.size()));
    talk.fromServer(bytesOf("lsta_1_2")).acknowledge();
    EXPECT_EQ(joined(words(talk)), "note: connects\nELIn\nLSta");
}

TEST(ConsoleDecode, SaysAGapWithItsSizeAndGoesOn)
{
    const QByteArray ethn = bytesOf("ethn_1_2");
    cap::Talk talk;
    talk.connect().fromServer(bytesOf("sinf_1_2"));
    talk.fromServer(ethn.left(40)).lose(5).fromServer(ethn.mid(45) + bytesOf("elin_1_2")).acknowledge();
    talk.wait(2000).fromServer(bytesOf("lsta_1_2")).acknowledge();
    EXPECT_EQ(
        joined(words(talk)),
        QString("note: connects\nSInf\ngap: 5 bytes are missing from the capture; a message of %1 bytes, MSEX EThn, "
                "is lost with them\nELIn\nLSta")
            .arg(ethn.size())
            .toStdString());
}

TEST(ConsoleDecode, BeginsInTheMiddleOfAConnectionThatNobodyAnnounced)
{
    cap::Talk talk;
    talk.fromServer(bytesOf("elin_1_2").mid(33) + bytesOf("elin_1_2")).toServer(bytesOf("geli_1_2"));
    const cap::Files files;
    const std::vector<QJsonObject> events = jsonLines(decode(fileOf(files, talk), {"--json"}).output);
    ASSERT_EQ(events.size(), 3u);
    EXPECT_TRUE(events[0].value("text").toString().startsWith("starts within a message: "));
    EXPECT_EQ(events[1].value("code").toString().toStdString(), "ELIn");
    EXPECT_EQ(events[1].value("direction").toString().toStdString(), "from server");
    EXPECT_EQ(events[2].value("direction").toString().toStdString(), "to server");
    EXPECT_EQ(events[2].value("server").toString().toStdString(), "2.0.0.10:4811");
}

TEST(ConsoleDecode, KnowsAConnectionFromItsStartThoughTheAnnouncementComesLater)
{
    cap::Talk talk;
    const QByteArray pnam = bytesOf("pnam");
    talk.connect().toServer(pnam.left(5)).toServer(pnam.mid(5));
    talk.announce(bytesOf("ploc_mediaserver").replace(24, 2, QByteArray::fromHex("cb12")));
    EXPECT_EQ(joined(words(talk)), "note: connects\nPNam\nPLoc");
}

TEST(ConsoleDecode, SaysWhoEndsAConnectionAndHow)
{
    cap::Talk ended = shortTalk();
    ended.fromServer(bytesOf("sinf_1_2").left(50)).end(cap::Fin);
    const QStringList said = words(ended);
    EXPECT_EQ(said.mid(said.size() - 2).join("\n").toStdString(),
              "note: ends the connection\nerror: ends within a message, MSEX SInf: 50 of 123 bytes");

    cap::Talk reset = shortTalk();
    reset.end(cap::Reset);
    EXPECT_EQ(words(reset).last().toStdString(), "note: resets the connection");

    cap::Talk refused;
    refused.announce(bytesOf("ploc_mediaserver").replace(24, 2, QByteArray::fromHex("cb12")));
    refused.add(cap::tcp(cap::Talk::Console, cap::Talk::Server, 5, 0, cap::Syn));
    refused.add(cap::tcp(cap::Talk::Server, cap::Talk::Console, 0, 6, cap::Reset | cap::Ack));
    EXPECT_EQ(joined(words(refused)), "PLoc\nnote: connects\nnote: refuses the connection");
}

TEST(ConsoleDecode, TellsConnectionsBetweenTheSameEndsApart)
{
    cap::Talk talk = shortTalk();
    cap::Talk again(777777, 12345);
    again.connect().fromServer(bytesOf("lsta_1_2"));
    for (const cap::Frame& frame : again.frames)
        talk.frames.push_back({talk.frames.back().timeUs + 1000, frame.bytes});
    EXPECT_EQ(joined(words(talk)), "PLoc\nnote: connects\nPNam\nSInf\nGELI\nELIn\nnote: connects\nLSta");
}

TEST(ConsoleDecode, MarksWhatTheLibraryWouldNotUse)
{
    QByteArray lsta = bytesOf("lsta_1_2");
    lsta[21] = 1;
    const cap::Files files;
    cap::Talk talk;
    talk.connect().fromServer(lsta + "nonsense" + bytesOf("lsta_1_2"));
    const Outcome outcome = decode(fileOf(files, talk));
    EXPECT_TRUE(outcome.output.contains("  LSta   WRONG: not accepted in MSEX version 1.1  "))
        << outcome.output.toStdString();
    EXPECT_TRUE(outcome.output.contains("  ERROR  skipped 8 bytes that do not begin a message\n"))
        << outcome.output.toStdString();
    EXPECT_EQ(outcome.errors.toStdString(), "");
}

TEST(ConsoleDecode, SaysFragmentsAndDatagramsThatAreNoMessage)
{
    cap::Talk talk;
    talk.announce("HELLO everybody on the network");
    talk.add(
        cap::ipv4(17, 0x0200000a, 0xe00000b4, QByteArray::fromHex("c35012c903000000") + bytesOf("pnam"), 0, 0x2000));
    talk.add(cap::ipv4(17, 0x0200000a, 0xe00000b4, "the rest", 0, 5));
    const cap::Files files;
    const Outcome outcome = decode(fileOf(files, talk));
    EXPECT_TRUE(outcome.output.contains("ERROR  a datagram of 30 bytes that is not a CITP message"))
        << outcome.output.toStdString();
    EXPECT_EQ(outcome.output.count("NOTE   a fragmented packet"), 1) << outcome.output.toStdString();
    EXPECT_EQ(outcome.errors.toStdString(), "citp-console: 2 IP fragments were not reassembled\n");
}

TEST(ConsoleDecode, LeavesOutWhatIsNotCitp)
{
    cap::Talk talk;
    talk.connect().fromServer("HTTP/1.1 200 OK\r\n\r\nCITP is a protocol, and this is no message of it\r\n");
    const cap::Files files;
    const QString file = fileOf(files, talk);
    const Outcome outcome = decode(file);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output.toStdString(), "");
    EXPECT_EQ(outcome.errors.toStdString(),
              QString("citp-console: '%1' contains no CITP among its 4 packets\n").arg(file).toStdString());
}

TEST(ConsoleDecode, NamesTheFileAsItIs)
{
    cap::Talk talk;
    talk.connect();
    const cap::Files files;
    const QByteArray whole = cap::pcap(cap::Ethernet, talk.frames);
    const QString file = files.write("50%2 %3.pcap", whole.left(whole.size() - 5));
    const Outcome outcome = decode(file);
    EXPECT_TRUE(outcome.errors.startsWith("citp-console: '" + file +
                                          "' contains no CITP among its 2 packets\ncitp-console: '" + file +
                                          "' is damaged after 2 packets: "))
        << outcome.errors.toStdString();
}

TEST(ConsoleDecode, KeepsHostileTextsFromTheTerminalAndFromPassingForLines)
{
    QByteArray ploc = bytesOf("ploc_mediaserver").left(24);
    ploc +=
        QByteArray::fromHex("cb12") + "MediaServer" + '\0' + "\x1b[2J\n12:00:00.000  forged" + '\0' + "Running" + '\0';
    cap::Talk talk;
    talk.announce(golden::withTrueSize(ploc));
    const cap::Files files;
    const QString file = fileOf(files, talk);
    EXPECT_FALSE(decode(file).output.contains('\x1b'));
    EXPECT_EQ(decode(file).output.count('\n'), 2) << decode(file).output.toStdString();
    const QString output = decode(file, {"--full"}).output;
    EXPECT_FALSE(output.contains('\x1b'));
    EXPECT_TRUE(output.contains("\\u001b[2J\n    12:00:00.000  forged")) << output.toStdString();
    EXPECT_EQ(output.count('\n'), 3) << output.toStdString();
    EXPECT_FALSE(decode(file, {"--summary"}).output.contains('\x1b'));
    EXPECT_FALSE(decode(file, {"--json"}).output.contains('\x1b'));
}

TEST(ConsoleDecode, SumsUpEachServer)
{
    cap::Talk talk = shortTalk();
    QByteArray wrong = bytesOf("lsta_1_2");
    wrong[21] = 1;
    talk.wait(1988).fromServer(wrong).fromServer(bytesOf("lsta_1_2")).lose(7).fromServer(bytesOf("lsta_1_2"));
    talk.frames.back().timeUs = cap::Talk::StartUs + 2000000;
    const cap::Files files;
    const QString file = fileOf(files, talk);

    const std::vector<QJsonObject> servers = jsonLines(decode(file, {"--summary", "--json"}).output);
    ASSERT_EQ(servers.size(), 1u);
    const QJsonObject& server = servers[0];
    EXPECT_EQ(server.value("server").toString().toStdString(), "2.0.0.10:4811");
    EXPECT_EQ(server.value("type").toString().toStdString(), "MediaServer");
    EXPECT_EQ(server.value("first").toString().toStdString(), "2023-11-14T22:13:20.000Z");
    EXPECT_EQ(server.value("last").toString().toStdString(), "2023-11-14T22:13:22.000Z");
    EXPECT_EQ(server.value("connections").toInt(), 1);
    EXPECT_EQ(server.value("errors").toInt(), 1);
    EXPECT_EQ(server.value("gaps").toInt(), 1);
    EXPECT_EQ(server.value("missing").toInt(), 7);
    const int lsta = static_cast<int>(wrong.size());
    for (const QJsonValue& value : server.value("messages").toArray()) {
        const QJsonObject message = value.toObject();
        if (message.value("code") != "LSta")
            continue;
        EXPECT_EQ(message.value("layer").toString().toStdString(), "MSEX");
        EXPECT_EQ(message.value("direction").toString().toStdString(), "from server");
        EXPECT_EQ(message.value("count").toInt(), 3);
        EXPECT_EQ(message.value("bytes").toInt(), 3 * lsta);
        EXPECT_EQ(message.value("smallest").toInt(), lsta);
        EXPECT_EQ(message.value("largest").toInt(), lsta);
        EXPECT_EQ(message.value("wrong").toInt(), 1);
        EXPECT_DOUBLE_EQ(message.value("perSecond").toDouble(), 1.5);
    }
    EXPECT_EQ(server.value("messages").toArray().size(), 6);

    const QString text = decode(file, {"--summary"}).output;
    EXPECT_TRUE(text.startsWith("2.0.0.10:4811  \"")) << text.toStdString();
    EXPECT_TRUE(
        text.contains("seen from 2023-11-14 23:13:20.000 to 2023-11-14 23:13:22.000, 2.0 s; connections begun: 1\n"))
        << text.toStdString();
    EXPECT_TRUE(text.contains("protocol errors: 1; gaps in the capture: 1, 7 bytes\n")) << text.toStdString();
    EXPECT_TRUE(
        text.simplified().contains(QString("MSEX LSta from server 3 %1 %2 %2 1.5 1 23:13:21.").arg(3 * lsta).arg(lsta)))
        << text.toStdString();
}

TEST(ConsoleDecode, SaysWhereADamagedFileBreaksOff)
{
    const cap::Files files;
    const cap::Talk talk = shortTalk();
    for (const QByteArray& whole : {cap::pcap(cap::Ethernet, talk.frames), cap::pcapng(cap::Ethernet, talk.frames)}) {
        const QString file = files.write("cut", whole.left(whole.size() - 5));
        const Outcome outcome = decode(file);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_TRUE(outcome.output.contains("  ELIn   ")) << outcome.output.toStdString();
        EXPECT_EQ(outcome.errors.count('\n'), 1) << outcome.errors.toStdString();
        EXPECT_TRUE(outcome.errors.startsWith(
            QString("citp-console: '%1' is damaged after %2 packets: ").arg(file).arg(talk.frames.size() - 1)))
            << outcome.errors.toStdString();
    }
}

TEST(ConsoleDecode, RefusesWhatIsNoCaptureInOneLine)
{
    const cap::Files files;
    const std::pair<QString, QString> refused[] = {
        {files.path("missing"), "cannot be opened"},
        {files.path(""), "is not a file"},
        {files.write("empty", ""), "is not a readable pcap or pcapng file"},
        {files.write("text", "This is a text and no capture at all."), "is not a readable pcap or pcapng file"},
        {files.write("ppp", cap::pcap(static_cast<cap::LinkType>(9), {})), "link type PPP"}};
    for (const auto& [file, complaint] : refused) {
        const Outcome outcome = decode(file);
        EXPECT_EQ(outcome.status, 1) << file.toStdString();
        EXPECT_EQ(outcome.output.toStdString(), "");
        EXPECT_EQ(outcome.errors.count('\n'), 1) << outcome.errors.toStdString();
        EXPECT_TRUE(outcome.errors.contains(complaint)) << outcome.errors.toStdString();
    }
}

namespace {
/// What --json prints of @p file.
std::string eventsOf(const QString& file)
{
    const Outcome outcome = decode(file, {"--json"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    return outcome.output.toStdString();
}

/// Writes the messages of @p talk to a new capture. @return what is printed about it
QString rewrite(const cap::Files& files, const cap::Talk& talk, const QStringList& more = {})
{
    const Outcome outcome = decode(fileOf(files, talk), QStringList{"--write", files.path("new.pcap")} + more);
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    EXPECT_EQ(outcome.errors.toStdString(), "");
    return QString(outcome.output).replace(files.path("new.pcap"), "NEW");
}

/// An EThn in MSEX 1.2 with @p picture.
QByteArray thumbnail(const QByteArray& picture)
{
    QByteArray message = bytesOf("ethn_1_2");
    EXPECT_EQ(message.mid(22, 4).toStdString(), "EThn");
    message = message.left(40);
    const auto append = [&](int at, int bytes, qint64 value) {
        for (int count = 0; count < bytes; ++count)
            message[at + count] = static_cast<char>(value >> (8 * count));
    };
    message += QByteArray(2, '\0');
    append(40, 2, picture.size());
    message += picture;
    append(8, 4, message.size());
    return message;
}
} // namespace

TEST(DecodeToAFile, KeepsEveryMessageWithItsTimeAndConnection)
{
    for (const quint8 end : {cap::Fin, cap::Reset}) {
        const cap::Files files;
        cap::Talk talk = shortTalk();
        talk.fromServer(thumbnail(QByteArray(65000, 'p')).left(40000));
        talk.fromServer(thumbnail(QByteArray(65000, 'p')).mid(40000)).acknowledge();
        talk.wait(50).toServer(bytesOf("geli_1_2"));
        talk.lose(100).acknowledge().wait(2000);
        talk.fromServer(bytesOf("elin_1_2")).acknowledge();
        talk.lose(200).acknowledge().wait(2000);
        talk.end(end | cap::Ack);
        talk.connect().toServer(bytesOf("pnam"));
        EXPECT_EQ(rewrite(files, talk).toStdString(), "9 messages written to NEW\n");
        EXPECT_EQ(eventsOf(files.path("new.pcap")), eventsOf(fileOf(files, talk)));
    }
}

TEST(DecodeToAFile, KeepsARefusedConnection)
{
    const cap::Files files;
    cap::Talk talk;
    talk.announce(bytesOf("ploc_mediaserver").replace(24, 2, QByteArray::fromHex("cb12")));
    talk.add(cap::tcp(cap::Talk::Console, cap::Talk::Server, 9000, 0, cap::Syn));
    talk.add(cap::tcp(cap::Talk::Server, cap::Talk::Console, 0, 9001, cap::Reset | cap::Ack));
    EXPECT_EQ(rewrite(files, talk).toStdString(), "1 messages written to NEW\n");
    const std::string events = eventsOf(files.path("new.pcap"));
    EXPECT_EQ(events, eventsOf(fileOf(files, talk)));
    EXPECT_NE(events.find("refuses the connection"), std::string::npos) << events;
}

TEST(DecodeToAFile, KeepsAResetBeforeTheFirstMessage)
{
    const cap::Files files;
    cap::Talk talk;
    talk.announce(bytesOf("ploc_mediaserver").replace(24, 2, QByteArray::fromHex("cb12")));
    talk.connect().end(cap::Reset);
    talk.connect().end(cap::Reset);
    rewrite(files, talk);
    const std::string events = eventsOf(files.path("new.pcap"));
    EXPECT_EQ(events, eventsOf(fileOf(files, talk)));
    EXPECT_NE(events.find("resets the connection"), std::string::npos) << events;
}

TEST(DecodeToAFile, WritesWhatIsSelectedWithItsConnection)
{
    const cap::Files files;
    EXPECT_EQ(rewrite(files, shortTalk(), {"--message", "SInf,ELIn"}).toStdString(), "2 messages written to NEW\n");
    QStringList events;
    for (const QJsonObject& event : jsonLines(QString::fromStdString(eventsOf(files.path("new.pcap")))))
        events << event.value("code").toString(event.value("text").toString());
    EXPECT_EQ(joined(events), "connects\nSInf\nELIn");
}

TEST(DecodeToAFile, LeavesPicturesOut)
{
    const cap::Files files;
    cap::Talk talk = shortTalk();
    const QByteArray picture = thumbnail(QByteArray(5000, 'p'));
    const QByteArray frame = QByteArray(bytesOf("elin_1_2")).replace(22, 4, "StFr");
    // A list that swallows the picture behind it, and the second part of a picture.
    QByteArray swallowing = bytesOf("elin_1_2") + picture;
    const auto size = static_cast<quint32>(swallowing.size());
    for (int at = 0; at < 4; ++at)
        swallowing[8 + at] = static_cast<char>(size >> (8 * at));
    QByteArray part = QByteArray(picture).replace(22, 4, "pppp");
    part[12] = 2;
    part[14] = 1;
    talk.fromServer(picture).fromServer(frame).fromServer(swallowing).fromServer(part).acknowledge();
    EXPECT_EQ(rewrite(files, talk, {"--no-pictures"}).toStdString(),
              "6 messages written to NEW, 2 pictures left out; 2 errors, notes and doubtful messages are not in it\n");
    QFile file(files.path("new.pcap"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_FALSE(file.readAll().contains("pp"));
    const std::vector<QJsonObject> events = jsonLines(QString::fromStdString(eventsOf(file.fileName())));
    const QJsonObject& last = events.back();
    EXPECT_EQ(last.value("code").toString().toStdString(), "EThn");
    EXPECT_EQ(last.value("size").toInt(), 42);
}

TEST(DecodeToAFile, WritesNoFileThatIsNotWhole)
{
    const cap::Files files;
    cap::Talk talk = shortTalk();
    for (int count = 0; count < 100; ++count)
        talk.fromServer(thumbnail(QByteArray(5000, 'p'))).acknowledge();
    const QString written = files.path("new.pcap");
    // As on a full disk. The output goes through a pipe, as files have that limit.
    Child console("bash", {"-c", "set -o pipefail; trap '' XFSZ; (ulimit -f 8; exec " CONSOLE_PROGRAM " decode " +
                                     fileOf(files, talk) + " --write " + written + ") 2>&1 | cat"});
    EXPECT_EQ(console.waitForEnd(), 1);
    EXPECT_TRUE(console.output().contains("citp-console: '" + written + "' cannot be written: is the disk full?\n"))
        << console.output().toStdString();
    EXPECT_FALSE(QFile::exists(written));
    // Nor one without a message.
    const Outcome none = decode(fileOf(files, talk), {"--server", "Typo", "--write", written});
    EXPECT_EQ(none.status, 1);
    EXPECT_TRUE(none.errors.endsWith("citp-console: '" + written + "' was not written: there is no message for it\n"))
        << none.errors.toStdString();
    EXPECT_FALSE(QFile::exists(written));
}

TEST(DecodeToAFile, SaysWhatIsNotInIt)
{
    const cap::Files files;
    cap::Talk talk = shortTalk();
    talk.fromServer("no message at all").fromServer(bytesOf("elin_1_2")).acknowledge();
    EXPECT_EQ(rewrite(files, talk).toStdString(),
              "6 messages written to NEW; 1 errors, notes and doubtful messages are not in it\n");
}

TEST(DecodeToAFile, RefusesWhatItCannotDo)
{
    const cap::Files files;
    const QString file = fileOf(files, shortTalk());
    const auto refusal = [&](const QStringList& options, int status) {
        const Outcome outcome = decode(file, options);
        EXPECT_EQ(outcome.status, status);
        return outcome.errors.section('\n', 0, 0).toStdString();
    };
    EXPECT_EQ(refusal({"--no-pictures"}, 2), "citp-console: --no-pictures requires --write FILE; see --help");
    EXPECT_EQ(refusal({"--json", "--write", files.path("new.pcap")}, 2),
              "citp-console: --write cannot be combined with --json; see --help");
    EXPECT_EQ(refusal({"--write", "/dev/full"}, 1),
              "citp-console: '/dev/full' cannot be written: it is not a regular file");
    EXPECT_FALSE(QFile::exists(files.path("new.pcap")));
}
