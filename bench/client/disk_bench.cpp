// The first screenful of pictures after a restart: read from disk and decoded, without a request.
// SPDX-License-Identifier: Apache-2.0
#include "client.h"
#include "media.h"

#include <citp_client/pictures.h>
#include <citp_images/images.h>

#include <benchmark/benchmark.h>

#include <QBuffer>
#include <QCoreApplication>
#include <QTemporaryDir>

#include <stdexcept>

namespace {
constexpr int Screenful = 48;
constexpr QSize Size(320, 240);

/// Not as easy to compress as what is drawn, not as hard as noise.
QByteArray jpeg()
{
    QImage image(Size, QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            image.setPixel(x, y, qRgb((x * x / 97 + y) & 255, (x + y * y / 61) & 255, (x * y / 53) & 255));
        }
    }
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "jpeg", 75);
    return buffer.data();
}

/// Seconds of this thread's processor time until the screenful is there, in a new set of objects.
double load(const QString& folder, const QString& key, bool isDecoded)
{
    CITP::StackTransport transport;
    CITP::Requests requests(transport);
    const ThreadClock clock = ThreadClock::ofCurrentThread();
    const double start = clock.seconds();
    CITP::Pictures pictures(requests, folder);
    std::vector<CITP::PictureId> wanted;
    for (int number = 0; number < Screenful; ++number) {
        wanted.push_back({key, 1, QStringLiteral("1,1,0,0"), number, 9, Size, {}});
    }
    int ready = 0;
    QObject::connect(&pictures, &CITP::Pictures::changed, &pictures, [&](const CITP::PictureId& id) {
        const CITP::Picture picture = pictures.find(id);
        if (picture.data.isEmpty() || (isDecoded && CITP::decodePicture(picture, Size).image.isNull())) {
            throw std::runtime_error("a picture is missing");
        }
        ++ready;
    });
    pictures.setWanted(0, wanted);
    while (ready < Screenful) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return clock.seconds() - start;
}

void screenful(benchmark::State& state, bool isDecoded)
{
    Client& client = Client::get();
    FakeServer server;
    Connection connection = client.addServer(server, "Product");
    const QTemporaryDir folder;
    {
        const Media media({&connection}, {1, Screenful, jpeg()});
        load(folder.path(), server.key(), false);
        const int before = media.pictureRequests();
        for (auto _ : state) {
            state.SetIterationTime(load(folder.path(), server.key(), isDecoded));
        }
        state.counters["requests"] = media.pictureRequests() - before;
        client.reset();
    }
}
} // namespace

void registerDisk();

void registerDisk()
{
    for (const bool isDecoded : {false, true}) {
        benchmark::RegisterBenchmark(isDecoded ? "Disk/screenful/decoded" : "Disk/screenful/read",
                                     [isDecoded](benchmark::State& state) { screenful(state, isDecoded); })
            ->UseManualTime()
            ->Iterations(20)
            ->Unit(benchmark::kMillisecond);
    }
}
