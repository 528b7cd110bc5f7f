// Holds the table of docs/protocol.md to the code: the message classes of the headers, what the stack takes for
// sending, what it has signals for, which codes it knows, and the MSEX versions that each class reads or writes.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_msg_msex_thumbnails.h>
#include <citp/citp_msg_peer.h>
#include <citp/citp_stack.h>
#include <citp_system/os_log.h>
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QMetaMethod>
#include <QRegularExpression>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <type_traits>

namespace {
using Names = std::set<std::string>;

struct Row
{
    std::string layer;
    std::string code;
    std::string name; ///< of the class
    Names directions;
    Names versions;
    std::string remark;
};

QString read(const QString& name)
{
    QFile file(QStringLiteral(CITP_SOURCES) + name);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << name.toStdString();
    return QString::fromUtf8(file.readAll());
}

Names split(const QString& text, const QString& separator)
{
    Names names;
    for (const QString& part : text.split(separator)) {
        if (!part.trimmed().isEmpty())
            names.insert(part.trimmed().toStdString());
    }
    return names;
}

std::map<std::string, Row> readTable()
{
    std::map<std::string, Row> rows;
    for (const QString& line : read("docs/protocol.md").split('\n')) {
        const QStringList cells = line.split('|');
        if (cells.size() != 8 || !cells.at(3).contains("`Msg_"))
            continue;
        Row row{cells.at(1).trimmed().toStdString(),
                cells.at(2).trimmed().toStdString(),
                cells.at(3).trimmed().remove('`').toStdString(),
                split(cells.at(4), ","),
                split(cells.at(5), " "),
                cells.at(6).toStdString()};
        EXPECT_TRUE(rows.emplace(row.name, row).second) << row.name << " stands in the table twice";
    }
    return rows;
}

// A message of the layer that has room for every field that its class reads, all zero.
QByteArray message(const Row& row, int minor)
{
    QByteArray out;
    out >> CITP::Msg_Header(0, QString::fromStdString(row.layer));
    if (row.layer == "MSEX") {
        out.append('\1');
        out.append(static_cast<char>(minor));
    }
    out.append(row.code.c_str(), 4);
    out.append(200, '\0');
    CITP::Msg_Header::setSize(out);
    return out;
}

// What the test must know of a class to try it.
struct Probe
{
    std::function<bool(const QByteArray&)> reads; ///< whether it parses the message as valid; empty if it parses none
    std::function<std::unique_ptr<CITP::Msg_Header>(int minor)> make; ///< one to send; empty if none can be made
};

template <typename Message>
Probe received()
{
    return {[](const QByteArray& bytes) { return Message(bytes).valid; },
            [](int) -> std::unique_ptr<CITP::Msg_Header> { return std::make_unique<Message>(); }};
}

template <typename Message, typename... Arguments>
Probe sent(Arguments... arguments)
{
    return {nullptr, [arguments...](int) -> std::unique_ptr<CITP::Msg_Header> {
                return std::make_unique<Message>(arguments...);
            }};
}

template <typename Message, typename... Arguments>
Probe request(Arguments... arguments)
{
    return {nullptr, [arguments...](int minor) -> std::unique_ptr<CITP::Msg_Header> {
                return std::make_unique<Message>(static_cast<unsigned char>(minor), arguments...);
            }};
}

std::map<std::string, Probe> probes()
{
    using Bytes = std::vector<unsigned char>;
    const unsigned char type = 1;
    const unsigned short pixels = 64;
    std::map<std::string, Probe> all{
        {"Msg_PEER_PLOC", sent<CITP::Msg_PEER_PLOC>(QString(), QString(), QString(), pixels)},
        {"Msg_PEER_PNAM", sent<CITP::Msg_PEER_PNAM>(QString())},
        {"Msg_MSEX_CInf", sent<CITP::Msg_MSEX_CInf>()},
        {"Msg_MSEX_SINF", received<CITP::Msg_MSEX_SINF>()},
        {"Msg_MSEX_GELI", request<CITP::Msg_MSEX_GELI>(type, QString("1,0,0,0"), Bytes{})},
        {"Msg_MSEX_GEIN", request<CITP::Msg_MSEX_GEIN>(type, QString("1,0,0,0"), Bytes{})},
        {"Msg_MSEX_GELT",
         request<CITP::Msg_MSEX_GELT>(type, std::vector<QString>{"1,0,0,0"}, pixels, pixels, QString("JPEG"))},
        {"Msg_MSEX_GETH",
         request<CITP::Msg_MSEX_GETH>(type, QString("1,0,0,0"), pixels, pixels, QString("JPEG"), Bytes{})},
        {"Msg_MSEX_ELIN", received<CITP::Msg_MSEX_ELIN>()},
        {"Msg_MSEX_ELUP", received<CITP::Msg_MSEX_ELUP>()},
        {"Msg_MSEX_MEIN", received<CITP::Msg_MSEX_MEIN>()},
        {"Msg_MSEX_EEIN", received<CITP::Msg_MSEX_EEIN>()},
        {"Msg_MSEX_GLEI", received<CITP::Msg_MSEX_GLEI>()},
        {"Msg_MSEX_ELTH", received<CITP::Msg_MSEX_ELTH>()},
        {"Msg_MSEX_ETHN", received<CITP::Msg_MSEX_ETHN>()},
        {"Msg_MSEX_LSTA", received<CITP::Msg_MSEX_LSTA>()},
        {"Msg_FPTC_SPTC", sent<CITP::Msg_FPTC_SPTC>(static_cast<const std::vector<unsigned short>*>(nullptr))},
        {"Msg_FPTC_PTCH", received<CITP::Msg_FPTC_PTCH>()},
    };
    return all;
}

// Keeps what sendMsg() says of a message that it refuses.
class Refusals : public Os::Log::Sink
{
public:
    Refusals() { Os::Log::SetSink(this); }
    ~Refusals() override { Os::Log::SetSink(nullptr); }
    void Write(const Os::Log::Line& line) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_last = line.text.c_str();
    }
    std::string last() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_last;
    }

private:
    mutable std::mutex m_mutex;
    std::string m_last;
};

template <typename Keys>
Names namesOf(const Keys& keys)
{
    Names names;
    for (const auto& key : keys)
        names.insert(key.first);
    return names;
}

Names withDirection(const std::map<std::string, Row>& table, const std::string& direction)
{
    Names names;
    for (const auto& [name, row] : table) {
        if (row.directions.count(direction) > 0)
            names.insert(name);
    }
    return names;
}

TEST(ProtocolTableTest, NamesTheMessageClassesOfTheHeaders)
{
    Names classes;
    const QDir folder(QStringLiteral(CITP_SOURCES "citp"));
    const QRegularExpression declaration("^class CITP_EXPORT (Msg_[A-Za-z]+_[A-Za-z]+) ",
                                         QRegularExpression::MultilineOption);
    for (const QString& header : folder.entryList({"citp_msg_*.h"})) {
        auto match = declaration.globalMatch(read("citp/" + header));
        while (match.hasNext())
            classes.insert(match.next().captured(1).toStdString());
    }
    EXPECT_EQ(namesOf(readTable()), classes);
    // What follows tries every one of them.
    EXPECT_EQ(namesOf(probes()), classes);
}

TEST(ProtocolTableTest, TellsWhatMayBeSent)
{
    CITP::citp_stack* const stack = CITP::citp_stack::Get();
    const Refusals refusals;
    Names sendable;
    for (const auto& [name, probe] : probes()) {
        EXPECT_FALSE(stack->sendMsg("nobody:1", *probe.make(2)));
        // Looked for only once the message itself has been found good.
        if (refusals.last() == "sendMsg failed: server not found")
            sendable.insert(name);
        else
            EXPECT_EQ(refusals.last(), "sendMsg failed: cannot send this message type") << name;
    }
    EXPECT_EQ(withDirection(readTable(), "sent"), sendable);
}

TEST(ProtocolTableTest, TellsWhatIsReceivedAndTheSignalOfEach)
{
    const std::map<std::string, Row> table = readTable();
    Names signalled;
    const QMetaObject& meta = CITP::citp_stack::staticMetaObject;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QList<QByteArray> types = meta.method(i).parameterTypes();
        if (types.size() != 2 || !types.at(1).startsWith("CITP::Msg_"))
            continue;
        const std::string name = types.at(1).mid(6).toStdString();
        signalled.insert(name);
        ASSERT_EQ(table.count(name), 1U) << name;
        EXPECT_NE(table.at(name).remark.find('`' + meta.method(i).name().toStdString() + '`'), std::string::npos)
            << name;
    }
    // Two are acted upon by the stack itself.
    signalled.insert({"Msg_PEER_PLOC", "Msg_MSEX_SINF"});
    EXPECT_EQ(withDirection(table, "received"), signalled);
}

TEST(ProtocolTableTest, TellsTheCodesThatTheStackKnows)
{
    Names known;
    const QRegularExpression code("\"([A-Za-z]{4})\"");
    auto match = code.globalMatch(read("citp/citp_stack.cpp"));
    while (match.hasNext())
        known.insert(match.next().captured(1).toStdString());
    for (const char* other : {"CITP", "PINF", "MSEX", "FPTC"})
        EXPECT_EQ(known.erase(other), 1U) << other; // the cookie, the layers

    Names incoming;
    for (const auto& [name, row] : readTable()) {
        if (row.directions.count("received") + row.directions.count("ignored") > 0)
            incoming.insert(row.code);
    }
    EXPECT_EQ(incoming, known);
}

TEST(ProtocolTableTest, TellsTheCodeThatIsWritten)
{
    for (const auto& [name, row] : readTable()) {
        const std::unique_ptr<CITP::Msg_Header> made = probes().at(name).make(2);
        const QString layer = QString::fromStdString(row.layer);
        QString code;
        if (const auto* const msex = dynamic_cast<const CITP::Msg_MSEX*>(made.get()))
            code = msex->cookie;
        else if (const auto* const peer = dynamic_cast<const CITP::Msg_PEER*>(made.get()))
            code = peer->cookie;
        else if (const auto* const fptc = dynamic_cast<const CITP::Msg_FPTC*>(made.get()))
            code = fptc->cookie;
        // One that is only received has neither until it has been.
        if (row.directions.count("sent") + row.directions.count("written only") > 0) {
            EXPECT_EQ(made->contentType(), layer) << name;
            EXPECT_EQ(code.toStdString(), row.code) << name;
        }
    }
}

TEST(ProtocolTableTest, TellsTheVersions)
{
    for (const auto& [name, row] : readTable()) {
        const Probe probe = probes().at(name);
        Names versions;
        for (int minor = 0; row.layer == "MSEX" && minor < 4; ++minor) {
            const std::string version = "1." + std::to_string(minor);
            if (probe.reads) {
                // Some let a newer version pass as empty: that is not reading it, and the table ends with 1.2.
                if (minor < 3 && probe.reads(message(row, minor)))
                    versions.insert(version);
            } else if (minor < 3) {
                const std::unique_ptr<CITP::Msg_Header> made = probe.make(minor);
                versions.insert("1." + std::to_string(static_cast<CITP::Msg_MSEX*>(made.get())->versionMinor));
            }
        }
        EXPECT_EQ(row.versions, versions) << name;
    }
}

TEST(ProtocolTableTest, EveryMessageAndVersionHasAGoldenMessage)
{
    for (const auto& [name, row] : readTable()) {
        for (const std::string& version : row.versions) {
            const QString file =
                QString("tests/golden/%1_%2.golden")
                    .arg(QString::fromStdString(row.code).toLower(), QString::fromStdString(version).replace('.', '_'));
            EXPECT_TRUE(row.code == "CInf" || QFile::exists(QStringLiteral(CITP_SOURCES) + file)) << file.toStdString();
        }
    }
}
} // namespace
