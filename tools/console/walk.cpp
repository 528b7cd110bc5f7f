// The requests of a walk, in an order and at a pace that no server has trouble with.
// SPDX-License-Identifier: Apache-2.0
#include "walk.h"

#include <citp_client/layers.h>

#include <QStringList>
#include <map>
#include <optional>
#include <vector>

#include "printing.h"
#include "progress.h"
#include "session.h"

namespace Console {
namespace {
constexpr int MinLayerReports = 10;
constexpr int LayerSilenceMs = 2000;

// What a walk has found, as text.
class Found
{
public:
    void add(qint64 count, const QString& what) { m_texts << QString("%1 %2").arg(count).arg(what); }
    QString text() const { return m_texts.join(", "); }

private:
    QStringList m_texts;
};

// Every picture that the server may have.
std::vector<CITP::Request> pictureRequests(Session& session, const Options& options)
{
    std::vector<CITP::Request> requests;
    const CITP::Catalogue& catalogue = session.catalogue();
    for (const quint8 type : session.server().types) {
        for (const CITP::Library& library : catalogue.allLibraries(type)) {
            CITP::Request request{
                session.key(), CITP::Request::LibraryPicture, type, library.id, {}, options.size, options.format,
                false};
            requests.push_back(request);
            request.kind = CITP::Request::ElementPicture;
            for (const CITP::Element& element : catalogue.elements(type, library.id)) {
                request.numbers = {element.number};
                requests.push_back(request);
            }
        }
    }
    return requests;
}

void checkRecording(const WalkCalls& calls)
{
    if (calls.isOver())
        throw Failure{"the recording ended before everything was asked for"};
}

// One after the other: a console asks for several at once. Where the server falls silent, the rest of the library is
// left out, and everything if the server has never answered: each picture would take as long as its timeout.
// @return the number of pictures
int fetchPictures(Session& session, const std::vector<CITP::Request>& requests, const WalkCalls& calls)
{
    struct Kind
    {
        QString library; ///< asked last
        bool isAnswered = false;
    };
    std::map<CITP::Request::Kind, Kind> kinds;
    int received = 0;
    Progress progress(static_cast<int>(requests.size()));
    for (std::size_t i = 0; i < requests.size(); ++i) {
        checkRecording(calls);
        const CITP::Request& request = requests[i];
        Kind& kind = kinds[request.kind];
        const bool isHopeless = !kind.isAnswered || kind.library == request.library;
        if (isHopeless && session.requests().isSilent(session.key(), request.kind))
            continue;
        kind.library = request.library;
        std::optional<CITP::Reply::Status> status;
        CITP::Reply* const reply = session.requests().get(request);
        QObject context;
        QObject::connect(reply, &CITP::Reply::finished, &context, [&status, reply] { status = reply->status(); });
        session.waitUntil([&status] { return status.has_value(); });
        received += status == CITP::Reply::Answered ? 1 : 0;
        kind.isAnswered = kind.isAnswered || status == CITP::Reply::Answered;
        progress.show(static_cast<int>(i) + 1);
    }
    return received;
}

// @return the number of reports
int awaitLayers(Session& session, const WalkCalls& calls)
{
    CITP::Layers layers(session.transport(), session.key());
    layers.setInterval(0);
    int reports = 0;
    QObject::connect(&layers, &CITP::Layers::changed, [&] { reports += layers.isStale() ? 0 : 1; });
    const WaitLine waiting("waiting for the layer status of " + session.name());
    for (int before = -1; reports < MinLayerReports && reports != before;) {
        checkRecording(calls);
        before = reports;
        session.waitUntil([&] { return reports > before; }, LayerSilenceMs);
    }
    return reports;
}
} // namespace

void walk(const Options& options, const WalkCalls& calls)
{
    Options wanted = options;
    wanted.server = options.filteredServer;
    Session session(wanted);
    calls.found(session.key());
    calls.say("asking " + session.name() + " for everything");
    CITP::Catalogue& catalogue = session.catalogue();
    qint64 libraries = 0;
    qint64 elements = 0;
    for (const quint8 type : session.server().types) {
        catalogue.loadAll(type);
        session.waitForCatalogue();
        checkRecording(calls);
        session.warnAboutLists(type, CITP::Request::Libraries);
        session.warnAboutLists(type, CITP::Request::Elements);
        for (const CITP::Library& library : catalogue.allLibraries(type)) {
            ++libraries;
            elements += static_cast<qint64>(catalogue.elements(type, library.id).size());
        }
    }
    Found found;
    found.add(libraries, "libraries");
    found.add(elements, "elements");
    if (!options.noPictures) {
        const std::vector<CITP::Request> requests = pictureRequests(session, options);
        const int pictures = fetchPictures(session, requests, calls);
        found.add(pictures, "pictures");
        if (pictures < static_cast<int>(requests.size()))
            warn(QString("%1: %2 pictures were not received")
                     .arg(session.name(), QString::number(static_cast<int>(requests.size()) - pictures)));
    }
    found.add(awaitLayers(session, calls), "layer states");
    calls.say(session.name() + ": " + found.text());
}
} // namespace Console
