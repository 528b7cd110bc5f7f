// What opening a library causes on the network in each mode: requests and bytes a second.
// SPDX-License-Identifier: Apache-2.0
#include "client.h"
#include "media.h"

#include <citp_client/catalogue.h>
#include <citp_client/pictures.h>

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>

#include <functional>

namespace {
constexpr int ElementsShown = 100;
constexpr int PictureBytes = 8192;
constexpr int PictureTime = 10;  // ms
constexpr int LongestRun = 2000; // ms
constexpr int RequestsPerSecond = 20;
constexpr int BytesPerSecond = 200000;

/// Opens a library of a server that takes its time for each picture: requests its elements and then all pictures.
/// @param isByHand whether the user waits for it
void openLibrary(benchmark::State& state, const std::function<void(CITP::Requests&)>& setMode, bool isByHand)
{
    Client& client = Client::get();
    FakeServer server;
    Connection connection = client.addServer(server, "Product");
    for (auto _ : state) {
        const Media media({&connection}, {1, ElementsShown, QByteArray(PictureBytes, 'p'), PictureTime});
        CITP::StackTransport transport;
        CITP::Requests requests(transport);
        setMode(requests);
        CITP::Catalogue catalogue(requests, server.key());
        CITP::Pictures pictures(requests);
        int ready = 0;
        QObject::connect(&catalogue, &CITP::Catalogue::elementsChanged, &pictures,
                         [&](quint8 type, const QString& library) {
                             std::vector<CITP::PictureId> wanted;
                             for (const CITP::Element& element : catalogue.elements(type, library)) {
                                 wanted.push_back({server.key(), type, library, element.number});
                             }
                             pictures.setWanted(0, wanted);
                         });
        QObject::connect(&pictures, &CITP::Pictures::changed, &pictures, [&ready] { ++ready; });
        QElapsedTimer time;
        time.start();
        QTimer end;
        end.start(LongestRun);
        catalogue.loadElements(1, QStringLiteral("1,1,0,0"));
        if (isByHand) {
            pictures.setWanted(0, {{server.key(), 1, QStringLiteral("1,1,0,0"), 5}}, true);
        }
        while (ready < ElementsShown && time.elapsed() < LongestRun) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        const double seconds = double(time.elapsed()) / 1000;
        state.SetIterationTime(seconds);
        state.counters["requests"] = media.requests();
        state.counters["requests_a_second"] = media.requests() / seconds;
        state.counters["bytes_a_second"] = double(media.bytes()) / seconds;
        client.reset();
    }
}

void registerMode(const char* name, const std::function<void(CITP::Requests&)>& setMode, bool isByHand = false)
{
    benchmark::RegisterBenchmark(name, [=](benchmark::State& state) { openLibrary(state, setMode, isByHand); })
        ->UseManualTime()
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
}
} // namespace

void registerManners();

void registerManners()
{
    registerMode("Manners/library/open", [](CITP::Requests&) {});
    registerMode("Manners/library/limited",
                 [](CITP::Requests& requests) { requests.setRateLimit(RequestsPerSecond, BytesPerSecond); });
    const auto quiet = [](CITP::Requests& requests) { requests.setQuiet(true); };
    registerMode("Manners/library/quiet", quiet);
    registerMode("Manners/library/quiet_by_hand", quiet, true);
}
