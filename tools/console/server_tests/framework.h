// The framework of the server tests: what a test is, what it finds, and the bench that the tests run on.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QElapsedTimer>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <QSet>
#include <QSize>
#include <QStringList>
#include <functional>
#include <memory>
#include <vector>

#include "../discovery.h"
#include "../options.h"
#include "probe.h"

namespace Console::ServerTests {
enum class Verdict { Passed, Warning, Failed, NotRun, Broken };
constexpr Verdict AllVerdicts[] = {Verdict::Passed, Verdict::Warning, Verdict::Failed, Verdict::NotRun,
                                   Verdict::Broken};
/// "passed", "warning", "failed", "not run" or "broken".
QString toText(Verdict verdict);

/// Exception: ends a test.
struct Finding
{
    Verdict verdict;
    QString text; ///< one line; may contain unescaped text of the server
};
[[noreturn]] void fail(const QString& text);
[[noreturn]] void notRun(const QString& why);
/// Fails with @p text unless @p isMet.
void expect(bool isMet, const QString& text);

class Bench;

/// A test, which passes if its function returns.
struct TestCase
{
    enum Condition {
        Once = 0,
        EachVersion = 1,  ///< runs in each MSEX version that the server offers
        NeedsLoad = 2,    ///< causes more load than a console: runs only with --load
        NeedsOperator = 4 ///< asks the operator to do something: runs only with --operator
    };
    int number;
    const char* name;     ///< in the field's words
    const char* wire;     ///< what it does on the wire
    const char* expected; ///< what is expected, and why
    void (*run)(Bench& bench);
    int conditions = Once; ///< bit set of Condition
};

struct Area
{
    const char* name; ///< one word
    std::vector<TestCase> tests;
};
/// All tests, in the order in which they run.
const std::vector<Area>& areas();

// One function for each area, in the source of its name.
Area announcementTests();
Area greetingTests();
Area informationTests();
Area headerTests();
Area libraryTests();
Area elementTests();
Area pictureTests();
Area layerTests();
Area connectionTests();
Area patchTests();

/// What a test found.
struct Result
{
    QString area;
    const TestCase* test = nullptr;
    QString version; ///< MSEX version, such as "1.2"; empty if the test does not depend on it
    Verdict verdict = Verdict::Passed;
    QStringList texts;
    QMap<QString, int> measured;
    std::vector<Exchange> exchanges;
};

/// An announcement of the server, as received.
struct Announcement
{
    qint64 afterMs; ///< it came between this time and #timeMs, which differ if the program had to wait
    qint64 timeMs;  ///< since the bench began to listen
    QString sender;
    bool isNewGroup; ///< 239.224.0.180 instead of 224.0.0.180
    QByteArray message;
    QString name;
    int port;
};

/// The connection to the server under test, and its announcements.
class Bench
{
public:
    /// Looks for the server, by its announcements unless it is given by its key.
    /// @throws Failure if it is not found
    explicit Bench(const Options& options);

    QString key() const { return QString("%1:%2").arg(m_address.toString()).arg(m_port); }
    /// The versions that the server offers, in which tests of the condition TestCase::EachVersion run; empty if it does
    /// not answer the greeting.
    std::vector<int> versions();
    /// Whether several connections in a row were refused. Further tests are not run.
    bool isGone() const;
    /// @param minor MSEX version 1.minor; ignored by tests that do not depend on it
    Result run(const Area& area, const TestCase& test, int minor);

    // --- For the tests ------------------------------------------------------------------------------------------

    int minor() const { return m_minor; }
    int timeoutMs() const { return m_options.timeoutMs; }
    int silenceMs() const { return m_options.silenceMs; }
    const QHostAddress& address() const { return m_address; }
    quint16 port() const { return m_port; }

    /// Makes the result a warning, unless the test fails.
    void warn(const QString& text);
    /// Adds a figure to the report.
    void measure(const QString& name, int value) { m_result.measured.insert(name, value); }
    /// Adds a message to the report.
    void record(bool isSent, const QByteArray& message);

    /// A new connection, on which nothing was sent.
    /// @throws Finding if the server refuses it, or (broken) if this machine cannot connect
    std::unique_ptr<Probe> connect();
    /// A new connection that is greeted as a console does.
    /// @param information receives the SInf
    std::unique_ptr<Probe> greet(QByteArray* information = nullptr);
    /// The connection that tests share. A test that fails ends it.
    /// @throws Finding (not run or broken) if there is none
    Probe& console();
    /// The SInf of console().
    const QByteArray& information();

    /// Sends @p request on the shared connection, and waits for an answer with the content code @p code.
    /// @throws Finding (failed) if none comes
    QByteArray ask(const QByteArray& request, const char* code);
    /// The fields of the answer, as decode shows them.
    QJsonObject askFields(const QByteArray& request, const char* code);
    /// Several answers with the content code @p code to @p request: waits for @p expected of them, and takes what else
    /// comes before the answer to a request for the libraries, which follows.
    std::vector<QByteArray> askAll(const QByteArray& request, const char* code, int expected = 0);

    using Announcements = std::vector<Announcement>;
    /// The announcements so far; waits until they are enough, within the timeout.
    Announcements announcements(const std::function<bool(const Announcements&)>& areEnough);

private:
    void openDiscovery();
    void findByName();
    void listen();
    void hear(const QByteArray& datagram, const QString& sender, quint32 destination);
    Announcements ownAnnouncements() const;

    const Options m_options;
    QHostAddress m_address;
    quint16 m_port = 0;
    Discovery m_discovery;
    bool m_isListening = false;
    QElapsedTimer m_listening;
    qint64 m_listenedMs = 0; ///< when listen() was called last
    Announcements m_announcements;
    std::unique_ptr<Probe> m_console;
    QByteArray m_information;
    int m_refusals = 0;        ///< connections refused one after the other
    int m_failedGreetings = 0; ///< of the shared connection, one after the other
    int m_minor = 0;
    Result m_result;
};

// --- What several areas use ------------------------------------------------------------------------------------------

/// A request in MSEX 1.minor. Empty numbers request all.
QByteArray librariesRequest(int minor, int type, const QString& parent = {},
                            const std::vector<unsigned char>& numbers = {});
QByteArray elementsRequest(int minor, int type, const QString& library, const std::vector<unsigned char>& numbers = {});
QByteArray libraryPicturesRequest(int minor, int type, const std::vector<QString>& libraries, const QSize& size,
                                  const QString& format);
QByteArray picturesRequest(int minor, int type, const QString& library, const std::vector<unsigned char>& numbers,
                           const QSize& size, const QString& format);
QByteArray patchRequest(const std::vector<unsigned short>& fixtures = {});
/// PNam, CInf and SPtc, as a console sends them.
QByteArray peerName();
QByteArray clientInformation();

/// The content code of the answer to a request for elements of libraries of @p type.
const char* elementsCode(int type);
/// The types of libraries that the server has, media first.
std::vector<int> libraryTypes(Bench& bench);

// What the other tests need before they begin: "not run" instead of "failed" if the server does not answer.

/// The number of layers in the SInf.
int layersListed(Bench& bench);
/// The libraries of @p type below @p parent.
QJsonArray knownLibraries(Bench& bench, int type, const QString& parent = {});
/// The first 50 of @p libraries: tests ask for no more, so that they end.
QJsonArray firstOf(const QJsonArray& libraries);
/// The first library of @p type that has elements, and these.
QJsonArray knownElements(Bench& bench, int type, QString& library);
/// The highest number up to @p most that is not among @p used.
int unusedNumber(const QSet<int>& used, int most = 255);
/// The number of an element that is not among @p elements.
unsigned char unusedElement(const QJsonArray& elements);
/// A top-level library of @p type that does not exist.
QString unknownLibrary(Bench& bench, int type);
} // namespace Console::ServerTests
