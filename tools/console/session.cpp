// Waiting with the event loop, finding a server by key or name, and loading its lists.
// SPDX-License-Identifier: Apache-2.0
#include "session.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>

#include <algorithm>

#include "adapters.h"
#include "descriptors.h"
#include "discovery.h"
#include "log_lines.h"
#include "printing.h"

namespace Console {
namespace {
constexpr int WakeUpMs = 50;

// More than any show has. Bounds the memory for a server that lists elements without end.
constexpr std::size_t MaxElements = 100000;

QString listed(const CITP::Directory& directory, const QStringList& keys)
{
    constexpr int MaxListed = 10;
    QStringList texts;
    for (const QString& key : keys.mid(0, MaxListed))
        texts << toText(directory.server(key), true);
    if (keys.size() > MaxListed)
        texts << QString("%1 more").arg(keys.size() - MaxListed);
    return texts.join("; ");
}

// Those of keys that are up.
QStringList upAmong(const CITP::Directory& directory, QStringList keys)
{
    const auto isOther = [&](const QString& key) { return directory.server(key).state != CITP::Server::Up; };
    keys.erase(std::remove_if(keys.begin(), keys.end(), isOther), keys.end());
    return keys;
}

} // namespace

// The servers that announce themselves while the stack starts, which takes longer than they take to do so: no other one
// than the one wanted needs to be waited for.
class Session::Neighbours
{
public:
    explicit Neighbours(const Options& options)
        : m_isListening(options.stack.servers.isEmpty() && !Tools::isServerKey(options.server) &&
                        m_discovery.open() == 0 &&
                        m_discovery.join(ArtNet::Adapter::Get(), options.stack.options.discoveryGroups()) == 0)
    {
        m_listening.start();
    }

    void read()
    {
        if (m_isListening)
            m_discovery.read();
    }

    // Whether exactly one server matches @p wanted, among all that were heard long enough, and it is up.
    bool areNone(const CITP::Directory& directory, const QString& wanted)
    {
        read();
        if (!m_isListening || m_listening.elapsed() < SettleMs)
            return false;
        QMap<QString, CITP::Server> servers = m_discovery.servers();
        const QStringList keys = directory.keys();
        for (const QString& key : keys)
            servers.insert(key, directory.server(key));
        const QStringList found = CITP::Directory::find({servers.begin(), servers.end()}, wanted);
        return found.size() == 1 && servers.value(found.constFirst()).state == CITP::Server::Up;
    }

private:
    Discovery m_discovery;
    const bool m_isListening;
    QElapsedTimer m_listening;
};

namespace {
// At most once, because the servers announce themselves again and again.
void warnAboutDescriptors()
{
    constexpr qint64 IntervalMs = 500;
    static bool hasWarned = false;
    static QElapsedTimer sinceCheck;
    if (hasWarned || (sinceCheck.isValid() && sinceCheck.elapsed() < IntervalMs))
        return;
    sinceCheck.start();
    const QString problem = Tools::descriptorProblem();
    hasWarned = !problem.isEmpty();
    if (hasWarned)
        warn(problem);
}
} // namespace

bool processEventsUntil(const std::function<bool()>& isDone, int milliseconds)
{
    QTimer wakeUp; // makes processEvents() return regularly, so that the timeout is checked
    wakeUp.start(WakeUpMs);
    QElapsedTimer timer;
    timer.start();
    while (!isDone()) {
        if (isInterrupted())
            throw Interrupted{};
        checkOutput();
        flushLog();
        warnAboutDescriptors();
        if (timer.elapsed() >= milliseconds)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    }
    return true;
}

void enableStack(const Options& options)
{
    CITP::citp_stack* const stack = CITP::citp_stack::Get();
    stack->setOptions(options.stack.options);
    stack->setEnabled(true);
}

Session::Session(const Options& options)
    : m_neighbours(std::make_unique<Neighbours>(options)), m_timeoutMs(options.timeoutMs)
{
    m_requests.setTimeout(m_timeoutMs / CITP::Requests::maxAttempts);
    QObject::connect(&m_transport, &CITP::Transport::serverDown, &m_requests,
                     [this](const QString& key) { m_isDown = m_isDown || key == m_server.key; });
    // Now, because it takes a descriptor.
    const QString adapter = nameAndAddress(ArtNet::Adapter::Get());
    enableStack(options);
    find(options, adapter);
    m_neighbours.reset();
    m_catalogue.emplace(m_requests, key());
    QObject::connect(
        &*m_catalogue, &CITP::Catalogue::elementsChanged, &m_requests,
        [this](quint8 type, const QString& library) { m_elements += m_catalogue->elements(type, library).size(); });
}

Session::~Session() = default;

bool Session::waitUntil(const std::function<bool()>& isDone, int milliseconds)
{
    const auto isOver = [&] {
        if (isDone())
            return true;
        checkIsUp();
        return false;
    };
    return processEventsUntil(isOver, milliseconds);
}

void Session::checkIsUp() const
{
    if (m_isDown)
        throw Failure{name() + " went down"};
}

Failure Session::noAnswer(const QString& what, const QString& remark) const
{
    return {QString("%1 did not send %2 within %3%4; --timeout allows more time")
                .arg(name(), what, secondsText(m_timeoutMs), remark.isEmpty() ? QString() : ' ' + remark)};
}

// --- The catalogue ---------------------------------------------------------------------------------------------------

void Session::waitForCatalogue()
{
    const WaitLine waiting("waiting for " + name());
    const auto isTooLarge = [this] { return m_catalogue->isFull() || m_elements > MaxElements; };
    waitUntil([&] { return m_catalogue->isIdle() || isTooLarge(); });
    checkIsUp();
    if (m_catalogue->isFull())
        throw Failure{QString("%1 lists more than %2 libraries").arg(name()).arg(CITP::Catalogue::maxLibraries)};
    if (isTooLarge())
        throw Failure{QString("%1 lists more than %2 elements; give a library").arg(name()).arg(MaxElements)};
}

QString Session::loadElements(quint8 type, const QString& library)
{
    const QString known = CITP::libraryId(library, m_server.msexMinor);
    // What the server's version cannot express is refused with the reason.
    QString id = known.isEmpty() ? library : known;
    m_catalogue->loadElements(type, id, true);
    waitForCatalogue();
    const QString problem = escapeControls(m_catalogue->elementsProblem(type, id));
    if (m_catalogue->elementsState(type, id) == CITP::Catalogue::Failed)
        throw Failure{problem};
    if (!problem.isEmpty())
        warn(problem);
    if (!m_catalogue->elements(type, id).empty())
        return id;
    m_catalogue->loadLibraries(type, CITP::parentLibrary(id), true);
    waitForCatalogue();
    const bool areListed = m_catalogue->librariesState(type, CITP::parentLibrary(id)) == CITP::Catalogue::Loaded;
    if (areListed && m_catalogue->library(type, id).id.isEmpty())
        throw Failure{QString("%1 has no library %2 of type %3; 'citp-console libraries' lists them")
                          .arg(name(), id, QString::number(type))};
    return id;
}

int Session::warnAboutLists(quint8 type, CITP::Request::Kind kind)
{
    constexpr int MaxLines = 5;
    int problems = 0;
    int missing = 0;
    const bool areLibraries = kind == CITP::Request::Libraries;
    std::vector<CITP::Library> libraries = m_catalogue->allLibraries(type);
    if (areLibraries)
        libraries.emplace(libraries.begin())->id = CITP::rootLibrary();
    for (const CITP::Library& library : libraries) {
        const QString problem = areLibraries ? m_catalogue->librariesProblem(type, library.id)
                                             : m_catalogue->elementsProblem(type, library.id);
        const CITP::Catalogue::State state =
            areLibraries ? m_catalogue->librariesState(type, library.id) : m_catalogue->elementsState(type, library.id);
        missing += state == CITP::Catalogue::Failed ? 1 : 0;
        if (!problem.isEmpty() && ++problems <= MaxLines)
            warn(escapeControls(problem));
    }
    if (problems > MaxLines)
        warn(QString("%1: %2 more lists are odd or missing").arg(name(), QString::number(problems - MaxLines)));
    return missing;
}

// --- Finding the server ----------------------------------------------------------------------------------------------

// What was found instead of the server wanted.
QString Session::foundText(const QString& wanted) const
{
    constexpr int MaxOverdue = 5;
    QStringList texts;
    const QStringList up = upAmong(m_directory, m_directory.keys());
    if (!up.isEmpty())
        texts << "found: " + listed(m_directory, up);
    QStringList overdue = m_directory.find(wanted);
    if (overdue.isEmpty())
        overdue = m_directory.keys();
    for (const QString& key : up)
        overdue.removeAll(key);
    for (const QString& key : overdue.mid(0, MaxOverdue))
        texts << overdueText(m_directory.server(key), m_transport.now());
    if (overdue.size() > MaxOverdue)
        texts << QString("%1 more are heard").arg(overdue.size() - MaxOverdue);
    if (texts.isEmpty())
        texts << "no server was found";
    const QString problem = Tools::descriptorProblem();
    if (!problem.isEmpty())
        texts << problem;
    if (up.isEmpty())
        texts << "run 'citp-console doctor' to find the cause";
    return texts.join("; ");
}

void Session::find(const Options& options, const QString& adapter)
{
    const QString& wanted = options.server;
    const int searchMs = qMax(m_timeoutMs, MinSearchMs);
    const auto matching = [&] { return upAmong(m_directory, m_directory.find(wanted)); };
    WaitLine waiting(QString("waiting for server '%1' to come up on %2").arg(escapeControls(wanted), adapter));
    const auto isFound = [&] {
        m_neighbours->read();
        return !matching().isEmpty();
    };
    if (!processEventsUntil(isFound, searchMs))
        throw Failure{QString("no server '%1' within %2 on adapter %3; %4")
                          .arg(escapeControls(wanted), secondsText(searchMs), adapter, foundText(wanted))};
    const auto isSure = [&] {
        return m_directory.server(wanted).state == CITP::Server::Up || m_neighbours->areNone(m_directory, wanted);
    };
    if (!isSure()) {
        waiting.show(QString("waiting for other servers that match '%1'").arg(escapeControls(wanted)));
        processEventsUntil(isSure, SettleMs);
    }
    const QStringList keys = matching();
    if (keys.isEmpty())
        throw Failure{QString("server '%1' went down").arg(escapeControls(wanted))};
    if (keys.size() > 1)
        throw Failure{QString("'%1' matches several servers; give the full name or the key: %2")
                          .arg(escapeControls(wanted), listed(m_directory, keys))};
    m_server = m_directory.server(keys.constFirst());
}
} // namespace Console
