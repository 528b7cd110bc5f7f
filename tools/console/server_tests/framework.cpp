// Finding and connecting to the server, running a test, and requests.
// SPDX-License-Identifier: Apache-2.0
#include "framework.h"

#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_msg_msex_sinf.h>
#include <citp/citp_msg_peer.h>

#include <citp_client/values.h>
#include <citp_system/net_address.h>

#include <algorithm>

#include "../adapters.h"
#include "../decode/message_fields.h"
#include "../printing.h"
#include "../session.h"
#include "layouts.h"

namespace Console::ServerTests {
namespace {
constexpr std::size_t MaxExchanges = 40;
// May contain a text of the server.
constexpr int MaxText = 500;
// For answers that nobody expects.
constexpr int QuietMs = 50;
constexpr std::size_t MaxAnnouncements = 2000;
// After that, the server is taken for dead.
constexpr int MaxRefusals = 3;

template <typename Message>
QByteArray bytesOf(const Message& message)
{
    QByteArray bytes;
    bytes >> message;
    return bytes;
}
} // namespace

QString toText(Verdict verdict)
{
    static const char* const texts[] = {"passed", "warning", "failed", "not run", "broken"};
    return texts[static_cast<int>(verdict)];
}

void fail(const QString& text)
{
    throw Finding{Verdict::Failed, text};
}

void notRun(const QString& why)
{
    throw Finding{Verdict::NotRun, why};
}

void expect(bool isMet, const QString& text)
{
    if (!isMet)
        fail(text);
}

const std::vector<Area>& areas()
{
    static const std::vector<Area> all{announcementTests(), greetingTests(), informationTests(), headerTests(),
                                       libraryTests(),      elementTests(),  pictureTests(),     layerTests(),
                                       connectionTests(),   patchTests()};
    return all;
}

// --- The server ------------------------------------------------------------------------------------------------------

Bench::Bench(const Options& options) : m_options(options)
{
    if (!Tools::isServerKey(options.server)) {
        findByName();
        return;
    }
    const int colon = static_cast<int>(options.server.indexOf(':'));
    m_address = QHostAddress(options.server.left(colon));
    m_port = options.server.mid(colon + 1).toUShort();
}

void Bench::openDiscovery()
{
    if (m_isListening)
        return;
    m_discovery.setObserver([this](const QByteArray& datagram, const QString& sender, quint32 destination) {
        hear(datagram, sender, destination);
    });
    m_listening.start();
    const ArtNet::Adapter& adapter = ArtNet::Adapter::Get();
    if (m_discovery.open() != 0 || m_discovery.join(adapter, CITP::citp_options::BothGroups) != 0)
        throw Failure{QString("cannot listen for announcements on %1; run 'citp-console doctor' to find the cause")
                          .arg(nameAndAddress(adapter))};
    m_isListening = true;
}

void Bench::findByName()
{
    const WaitLine waiting(QString("waiting for server '%1'").arg(escapeControls(m_options.server)));
    openDiscovery();
    QStringList keys;
    const auto find = [&] {
        listen();
        const QMap<QString, CITP::Server> servers = m_discovery.servers();
        keys = CITP::Directory::find({servers.begin(), servers.end()}, m_options.server);
        return false;
    };
    const auto isFound = [&] { return find() || !keys.isEmpty(); };
    if (!processEventsUntil(isFound, qMax(m_options.timeoutMs, MinSearchMs)))
        throw Failure{QString("no server '%1' announces itself; give its address and port, such as 2.0.0.10:4811, or "
                              "run 'citp-console doctor' to find the cause")
                          .arg(escapeControls(m_options.server))};
    processEventsUntil(find, SettleMs);
    if (keys.size() > 1)
        throw Failure{QString("'%1' matches several servers; give the key of one: %2")
                          .arg(escapeControls(m_options.server), keys.mid(0, 10).join(", "))};
    const int colon = static_cast<int>(keys.constFirst().indexOf(':'));
    m_address = QHostAddress(keys.constFirst().left(colon));
    m_port = keys.constFirst().mid(colon + 1).toUShort();
}

void Bench::listen()
{
    const qint64 now = m_listening.elapsed();
    m_discovery.read();
    m_listenedMs = now;
}

void Bench::hear(const QByteArray& datagram, const QString& sender, quint32 destination)
{
    // Before the server is known, all are kept.
    const bool isOther = m_port != 0 && sender != m_address.toString();
    if (isOther || codeOf(datagram) != "PLoc" || m_announcements.size() >= MaxAnnouncements)
        return;
    const bool isNew = destination == Net::Address(Tools::DiscoveryGroups[1].address).GetHostIp();
    const CITP::Msg_PEER_PLOC message(datagram);
    m_announcements.push_back(
        {m_listenedMs, m_listening.elapsed(), sender, isNew, datagram, message.name, message.port});
}

// Other peers may announce themselves from the same address. What has its port is the server's, and what has the name
// in that.
Bench::Announcements Bench::ownAnnouncements() const
{
    QSet<QString> names;
    Announcements own;
    for (const Announcement& one : m_announcements) {
        if (one.sender != m_address.toString())
            continue;
        own.push_back(one);
        if (one.port == m_port)
            names.insert(one.name);
    }
    const auto isOther = [&](const Announcement& one) { return !names.contains(one.name); };
    if (!names.isEmpty())
        own.erase(std::remove_if(own.begin(), own.end(), isOther), own.end());
    return own;
}

Bench::Announcements Bench::announcements(const std::function<bool(const Announcements&)>& areEnough)
{
    openDiscovery();
    const auto find = [&] {
        listen();
        return areEnough(ownAnnouncements());
    };
    processEventsUntil(find, m_options.timeoutMs);
    Announcements own = ownAnnouncements();
    for (std::size_t i = 0; i < qMin<std::size_t>(3, own.size()); ++i)
        record(false, own[i].message);
    return own;
}

std::unique_ptr<Probe> Bench::connect()
{
    // Some servers accept only one console at a time.
    m_console.reset();
    auto probe = std::make_unique<Probe>(*this);
    if (isGone())
        notRun("the server accepts no connection any more");
    if (!probe->open()) {
        ++m_refusals;
        if (!probe->localProblem().isEmpty())
            throw Finding{Verdict::Broken, QString("cannot connect to %1: %2").arg(key(), probe->localProblem())};
        fail(QString("no connection to %1%2").arg(key(), probe->endText()));
    }
    m_refusals = 0;
    return probe;
}

std::unique_ptr<Probe> Bench::greet(QByteArray* information)
{
    std::unique_ptr<Probe> probe = connect();
    probe->send(peerName() + clientInformation() + patchRequest());
    const QByteArray answer = probe->next("SInf");
    if (answer.isEmpty())
        fail(QString("the greeting is not answered with an SInf within %1%2")
                 .arg(secondsText(timeoutMs()), probe->endText()));
    if (information)
        *information = answer;
    return probe;
}

bool Bench::isGone() const
{
    return m_refusals >= MaxRefusals;
}

Probe& Bench::console()
{
    if (!m_console || !m_console->endText().isEmpty()) {
        if (m_failedGreetings >= MaxRefusals)
            notRun("the server does not answer the greeting");
        try {
            m_console = greet(&m_information);
            m_failedGreetings = 0;
        } catch (const Finding& finding) {
            if (finding.verdict == Verdict::Broken)
                throw;
            ++m_failedGreetings;
            notRun(finding.text);
        }
    }
    return *m_console;
}

const QByteArray& Bench::information()
{
    console();
    // It was received earlier.
    if (m_result.exchanges.empty())
        record(false, m_information);
    return m_information;
}

std::vector<int> Bench::versions()
{
    std::vector<int> minors;
    try {
        const CITP::Msg_MSEX_SINF message(information());
        for (const unsigned short version : message.SupportedMsexVersions) {
            if (version >= 0x0100 && version <= 0x0102)
                minors.push_back(version & 0xFF);
        }
        if (minors.empty())
            minors.push_back(message.GetHighestMsexVersion());
    } catch (const Finding&) {
        return {}; // The tests will say why they are not run.
    }
    std::sort(minors.begin(), minors.end());
    minors.erase(std::unique(minors.begin(), minors.end()), minors.end());
    return minors;
}

// --- One test --------------------------------------------------------------------------------------------------------

Result Bench::run(const Area& area, const TestCase& test, int minor)
{
    m_minor = minor;
    m_result = {};
    m_result.area = area.name;
    m_result.test = &test;
    const bool isForVersion = (test.conditions & TestCase::EachVersion) != 0;
    m_result.version = isForVersion ? QString("1.%1").arg(minor) : QString();
    try {
        if ((test.conditions & TestCase::NeedsLoad) != 0 && !m_options.load)
            notRun("it causes more load than a console; --load runs it");
        if ((test.conditions & TestCase::NeedsOperator) != 0 && !m_options.askOperator)
            notRun("it asks the operator to change something; --operator runs it");
        test.run(*this);
    } catch (const Finding& finding) {
        m_result.verdict = finding.verdict;
        m_result.texts << finding.text.left(MaxText);
        // What is left of this test must not disturb the next one.
        if (finding.verdict != Verdict::NotRun)
            m_console.reset();
    } catch (const Failure& failure) {
        m_result.verdict = Verdict::Broken;
        m_result.texts << failure.text;
    }
    // Nor may an answer that comes late.
    if (m_console && m_console->hasMissed())
        m_console.reset();
    return m_result;
}

void Bench::warn(const QString& text)
{
    m_result.verdict = Verdict::Warning;
    m_result.texts << text.left(MaxText);
}

void Bench::record(bool isSent, const QByteArray& message)
{
    std::vector<Exchange>& all = m_result.exchanges;
    if (all.size() >= MaxExchanges) {
        // What failed came last, and was asked for.
        const auto oldest = std::find_if(all.begin(), all.end(), [](const Exchange& one) { return !one.isSent; });
        all.erase(oldest == all.end() ? all.begin() : oldest);
    }
    all.push_back({isSent, message.left(Exchange::MaxBytes), static_cast<int>(message.size())});
}

// --- Requests --------------------------------------------------------------------------------------------------------

QByteArray Bench::ask(const QByteArray& request, const char* code)
{
    Probe& probe = console();
    probe.clear();
    probe.send(request);
    QByteArray answer = probe.next(code);
    if (answer.isEmpty())
        fail(QString("no %1 answers the %2 within %3%4")
                 .arg(code, QString::fromLatin1(codeOf(request)), secondsText(timeoutMs()), probe.endText()));
    return answer;
}

QJsonObject Bench::askFields(const QByteArray& request, const char* code)
{
    return fieldsOf(ask(request, code));
}

std::vector<QByteArray> Bench::askAll(const QByteArray& request, const char* code, int expected)
{
    Probe& probe = console();
    probe.clear();
    probe.send(request);
    std::vector<QByteArray> answers;
    while (static_cast<int>(answers.size()) < expected) {
        const QByteArray answer = probe.next(code);
        if (answer.isEmpty())
            return answers;
        answers.push_back(answer);
    }
    probe.send(librariesRequest(minor(), 1));
    expect(!probe.next("ELIn").isEmpty(), QString("behind the answers to a %1, no ELIn answers a GELI%2")
                                              .arg(QString::fromLatin1(codeOf(request)), probe.endText()));
    probe.wait(QuietMs);
    for (const QByteArray& message : probe.received()) {
        if (codeOf(message) == code)
            answers.push_back(message);
    }
    if (answers.empty())
        probe.setMissed();
    return answers;
}

QByteArray librariesRequest(int minor, int type, const QString& parent, const std::vector<unsigned char>& numbers)
{
    return bytesOf(CITP::Msg_MSEX_GELI(static_cast<unsigned char>(minor), static_cast<unsigned char>(type),
                                       parent.isEmpty() ? CITP::rootLibrary() : parent, numbers));
}

QByteArray elementsRequest(int minor, int type, const QString& library, const std::vector<unsigned char>& numbers)
{
    return bytesOf(
        CITP::Msg_MSEX_GEIN(static_cast<unsigned char>(minor), static_cast<unsigned char>(type), library, numbers));
}

QByteArray libraryPicturesRequest(int minor, int type, const std::vector<QString>& libraries, const QSize& size,
                                  const QString& format)
{
    return bytesOf(CITP::Msg_MSEX_GELT(static_cast<unsigned char>(minor), static_cast<unsigned char>(type), libraries,
                                       static_cast<unsigned short>(size.height()),
                                       static_cast<unsigned short>(size.width()), format));
}

QByteArray picturesRequest(int minor, int type, const QString& library, const std::vector<unsigned char>& numbers,
                           const QSize& size, const QString& format)
{
    return bytesOf(CITP::Msg_MSEX_GETH(static_cast<unsigned char>(minor), static_cast<unsigned char>(type), library,
                                       static_cast<unsigned short>(size.height()),
                                       static_cast<unsigned short>(size.width()), format, numbers));
}

QByteArray patchRequest(const std::vector<unsigned short>& fixtures)
{
    return bytesOf(CITP::Msg_FPTC_SPTC(&fixtures));
}

QByteArray peerName()
{
    return bytesOf(CITP::Msg_PEER_PNAM(QString("citp-console")));
}

QByteArray clientInformation()
{
    return bytesOf(CITP::Msg_MSEX_CInf());
}

const char* elementsCode(int type)
{
    return type == 1 ? "MEIn" : (type == 2 ? "EEIn" : "GLEI");
}

std::vector<int> libraryTypes(Bench& bench)
{
    const CITP::Msg_MSEX_SINF message(bench.information());
    std::vector<int> types;
    for (int type = 1; type < 16; ++type) {
        if ((message.SupportedLibraryTypes >> type & 1) != 0 && (type < 3 || bench.minor() > 0))
            types.push_back(type);
    }
    if (types.empty())
        types = bench.minor() > 0 ? std::vector<int>{1, 2, 3} : std::vector<int>{1, 2};
    return types;
}

int layersListed(Bench& bench)
{
    const int layers = entriesIn(bench.information());
    if (layers < 0)
        notRun("the SInf is not readable, see test 302");
    return layers;
}

QJsonArray knownLibraries(Bench& bench, int type, const QString& parent)
{
    try {
        return bench.askFields(librariesRequest(bench.minor(), type, parent), "ELIn").value("libraries").toArray();
    } catch (const Finding& finding) {
        notRun("the libraries are not known: " + finding.text);
    }
}

QJsonArray firstOf(const QJsonArray& libraries)
{
    QJsonArray first;
    for (int i = 0; i < 50 && i < libraries.size(); ++i)
        first.append(libraries.at(i));
    return first;
}

QJsonArray knownElements(Bench& bench, int type, QString& library)
{
    const QJsonArray libraries = knownLibraries(bench, type);
    for (const QJsonValue known : libraries) {
        if (known.toObject().value("elements").toInt() == 0)
            continue;
        library = known.toObject().value("library").toString();
        try {
            QJsonArray elements = bench.askFields(elementsRequest(bench.minor(), type, library), elementsCode(type))
                                      .value("elements")
                                      .toArray();
            if (!elements.isEmpty())
                return elements;
        } catch (const Finding& finding) {
            notRun("the elements are not known: " + finding.text);
        }
    }
    notRun(QString("there is no top-level library of type %1 that has elements").arg(type));
}

int unusedNumber(const QSet<int>& used, int most)
{
    for (int number = most; number >= 0; --number) {
        if (!used.contains(number))
            return number;
    }
    notRun("every number is in use");
}

unsigned char unusedElement(const QJsonArray& elements)
{
    QSet<int> used;
    for (const QJsonValue element : elements)
        used.insert(element.toObject().value("element").toInt());
    return static_cast<unsigned char>(unusedNumber(used));
}

QString unknownLibrary(Bench& bench, int type)
{
    QSet<int> used;
    for (const QJsonValue library : knownLibraries(bench, type))
        used.insert(CITP::libraryNumber(library.toObject().value("library").toString()));
    return CITP::libraryId(QString::number(unusedNumber(used)), static_cast<quint8>(bench.minor()));
}
} // namespace Console::ServerTests
