// The soak of the client layer: an application that browses simulated media servers which misbehave all the time, and
// at the end whether every request has ended once, and what became of memory, descriptors and threads. Run by
// scripts/soak. SPDX-License-Identifier: Apache-2.0
#include <citp/citp_options.h>
#include <citp_client/catalogue.h>
#include <citp_client/directory.h>
#include <citp_client/layers.h>
#include <citp_client/pictures.h>
#include <citp_client/requests.h>
#include <citp_system/os_log.h>

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "soak_run.h"
#include "soak_seat.h"

using namespace CITP;

namespace {
constexpr int AskInterval = 5;   // ms
constexpr long MaxPending = 40;  // requests of a server
constexpr int EndBound = 120000; // ms after which requests that have not ended never will
// In bytes: so small that pictures are removed all the time.
constexpr qint64 MemoryLimit = 1 << 20;
constexpr qint64 DiskLimit = 8 << 20;

// Whose requests are all answered; then those that lose some, and those that go down.
const SoakPlan Plans[] = {
    {"well", Fate::Answered, 2, "--layer-rate 20", 0},
    {"well, MSEX 1.0", Fate::Answered, 0, "--layer-rate 20", 0},
    {"well, paced", Fate::Answered, 1, "--layer-rate 20 --product ArKaos", 0},
    {"late and merged", Fate::Answered, 2, "--fault delay,merge --fault-rate 20 --fault-delay 40 --layer-rate 10", 0},
    {"storm", Fate::Answered, 2, "--fault storm --layer-rate 10", 0},
    {"silence", Fate::Struck, 2, "--fault silence --fault-rate 5 --layer-rate 10", 0},
    {"silence, paced", Fate::Struck, 2, "--product ArKaos --fault silence --fault-rate 1 --layer-rate 10", 0},
    {"truncate", Fate::Struck, 1, "--fault truncate --fault-rate 20 --layer-rate 10", 0},
    {"version", Fate::Struck, 2, "--fault version --fault-rate 20 --layer-rate 10", 0},
    {"reset", Fate::Mortal, 2, "--fault reset --fault-rate 2 --layer-rate 10", 0},
    {"dies and revives", Fate::Mortal, 2, "--die-after 4000 --revive-after 1500 --seconds 11 --layer-rate 30", 0},
    {"killed", Fate::Mortal, 2, "--layer-rate 100", 7000},
};

/// Failure lines are expected; what they say is for other tests.
class NoLog : public Os::Log::Sink
{
public:
    void Write(const Os::Log::Line&) override {}
};

/// What became of the requests to one server.
struct Account
{
    long asked = 0;
    long ends[Reply::Cancelled + 1] = {};
    long deleted = 0; ///< by this program; those end without a signal
    long doubles = 0; ///< ends of a request that had ended

    long ended() const
    {
        long sum = deleted;
        for (const long end : ends) {
            sum += end;
        }
        return sum;
    }
};

class Application
{
public:
    Application(const std::vector<std::unique_ptr<SoakSeat>>& seats, const QString& folder)
        : m_seats(seats), m_accounts(seats.size()), m_pictures(m_requests, folder)
    {
        m_pictures.setMemoryLimit(MemoryLimit);
        m_pictures.setDiskLimit(DiskLimit);
        m_directory.followLayers();
        for (const auto& seat : m_seats) {
            m_catalogues.push_back(std::make_unique<Catalogue>(m_requests, seat->key()));
            m_catalogues.back()->loadAll(1);
            m_layers.push_back(std::make_unique<Layers>(m_transport, seat->key()));
        }
        QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] { askNext(); });
        m_timer.start(AskInterval);
    }
    void stopAsking() { m_timer.stop(); }
    bool isDone() const
    {
        for (const Account& account : m_accounts) {
            if (account.asked > account.ended()) {
                return false;
            }
        }
        return true;
    }
    long answers() const { return static_cast<long>(m_requests.statistics().answers); }
    /// Prints the accounts. @return whether each is as it must be
    bool close() const
    {
        std::printf("\n%-18s %8s %9s %9s %8s %8s %10s %8s\n", "server", "asked", "answered", "timed out", "refused",
                    "lost", "cancelled", "deleted");
        bool good = true;
        for (std::size_t i = 0; i < m_seats.size(); ++i) {
            const Account& account = m_accounts[i];
            const Fate fate = m_seats[i]->plan().fate;
            const long lost = account.ends[Reply::ServerLost];
            const long failed = account.ends[Reply::TimedOut] + account.ends[Reply::Refused];
            const bool isGood = account.asked == account.ended() && account.doubles == 0 &&
                                account.ends[Reply::Answered] > 0 && (lost > 0) == (fate == Fate::Mortal) &&
                                (failed == 0 || fate != Fate::Answered);
            std::printf("%-18s %8ld %9ld %9ld %8ld %8ld %10ld %8ld  %s\n", m_seats[i]->plan().name, account.asked,
                        account.ends[Reply::Answered], account.ends[Reply::TimedOut], account.ends[Reply::Refused],
                        lost, account.ends[Reply::Cancelled], account.deleted, isGood ? "yes" : "NO");
            good = good && isGood;
        }
        std::printf("\n");
        return good;
    }

private:
    void askNext()
    {
        const std::size_t number = m_random() % m_seats.size();
        const QString key = m_seats[number]->key();
        Account& account = m_accounts[number];
        if (m_directory.server(key).state != Server::Up || account.asked - account.ended() >= MaxPending) {
            return;
        }
        const QString library = libraryId(QStringLiteral("1,1,0,0"), m_requests.msexMinor(key));
        const auto kind = static_cast<Request::Kind>(m_random() % 4);
        Request request{key, kind, 1, kind == Request::Libraries ? rootLibrary() : library};
        if (kind == Request::ElementPicture) {
            request.numbers = {0};
        }
        request.size = QSize(16, 12);
        Reply* const reply = m_requests.get(request);
        ++account.asked;
        const auto isEnded = std::make_shared<bool>(false);
        QObject::connect(reply, &Reply::finished, reply, [&account, isEnded, reply] {
            account.doubles += *isEnded ? 1 : 0;
            *isEnded = true;
            ++account.ends[reply->status()];
        });
        if (m_random() % 50 == 0) {
            reply->cancel();
        } else if (m_random() % 50 == 0) {
            ++account.deleted;
            delete reply;
        }
        // Versions that no server has, so that most are requested, and some come from memory or from disk. Of another
        // element, as the late answer to one size of a picture delays requests for another.
        std::vector<PictureId> wanted;
        for (int i = 0; i < 4; ++i) {
            wanted.push_back({key, 1, library, 1, 1 + m_random() % 5000, QSize(32, 24), {}});
        }
        m_pictures.setWanted(static_cast<int>(number), std::move(wanted));
    }

    const std::vector<std::unique_ptr<SoakSeat>>& m_seats;
    std::vector<Account> m_accounts;
    std::minstd_rand m_random;
    StackTransport m_transport;
    Requests m_requests{m_transport};
    Directory m_directory{m_transport};
    Pictures m_pictures;
    std::vector<std::unique_ptr<Catalogue>> m_catalogues;
    std::vector<std::unique_ptr<Layers>> m_layers;
    QTimer m_timer;
};

bool soak(double minutes, const QString& program)
{
    static NoLog* const log = new NoLog;
    Os::Log::SetSink(log);
    const QTemporaryDir folder;
    citp_stack::Get()->setOptions(citp_options::recommended());
    SoakRun run;
    SoakLedger ledger;
    std::vector<std::unique_ptr<SoakSeat>> seats;
    for (const SoakPlan& plan : Plans) {
        seats.push_back(std::make_unique<SoakSeat>(plan, static_cast<int>(seats.size()), program, ledger));
        seats.back()->start();
    }
    auto application = std::make_unique<Application>(seats, folder.path());
    run.pass(minutes, "   answers", [&application] {
        char text[20];
        std::snprintf(text, sizeof text, "%10ld", application->answers());
        return std::string(text);
    });
    application->stopAsking();
    QElapsedTimer ending;
    ending.start();
    while (!application->isDone() && ending.elapsed() < EndBound) {
        Soak::pass(100);
    }
    const bool isGood = Soak::say(application->close(),
                                  "every request has ended once, and with a server that answers all, as Answered");
    application.reset();
    seats.clear();
    return run.isAsBefore() && isGood;
}
} // namespace

int main(int argc, char** argv)
{
    return soakMain(argc, argv, nullptr,
                    [](double minutes, const QString& program, bool) { return soak(minutes, program); });
}
