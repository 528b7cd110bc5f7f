// The soak: a console that browses simulated media servers which misbehave all the time or, with guards, never, for as
// long as it is told, and at the end a verdict on its memory, its descriptors, its threads, its requests and its
// guards. Run by scripts/soak.
//
// SPDX-License-Identifier: Apache-2.0
#include "soak_ledger.h"
#include "soak_run.h"
#include "soak_seat.h"

#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_msg_msex_thumbnails.h>
#include <citp/citp_options.h>
#include <citp/citp_stack.h>
#include <citp_system/os_log.h>

#include <QElapsedTimer>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using CITP::citp_stack;

namespace {
constexpr int QuietTime = 5000;   // ms without an answer after which no more are awaited
constexpr int QuietBound = 60000; // ms after which that is not waited for any longer
constexpr auto RequestInterval = std::chrono::milliseconds(5);

// Servers without a fault, which no guard may disturb.
const SoakPlan HonestPlans[] = {
    {"well", Fate::Answered, 2, "--layer-rate 20", 0},
    {"well, MSEX 1.0", Fate::Answered, 0, "--layer-rate 20", 0},
    {"well, MSEX 1.1", Fate::Answered, 1, "--layer-rate 20", 0},
    {"well, paced", Fate::Answered, 2, "--layer-rate 20 --product ArKaos", 0},
    {"many layer states", Fate::Answered, 2, "--layer-rate 100", 0},
    {"late", Fate::Answered, 2, "--fault delay --fault-rate 5 --fault-delay 800 --layer-rate 10", 0},
    {"late, split and merged", Fate::Answered, 1,
     "--product Coolux --layer-rate 10 --fault delay,merge,split --fault-rate 20 --fault-delay 40", 0},
    {"dies and revives", Fate::Mortal, 2, "--die-after 4000 --revive-after 1500 --seconds 11 --layer-rate 30", 0},
    {"killed", Fate::Mortal, 2, "--layer-rate 100", 7000},
    {"killed, paced", Fate::Mortal, 1, "--product Coolux --layer-rate 100", 9000},
};

// The faults that leave the answers in one piece; those that do not; those after which nothing comes any more; ends.
const SoakPlan Plans[] = {
    {"well", Fate::Answered, 2, "--layer-rate 20", 0},
    {"well, MSEX 1.0", Fate::Answered, 0, "--layer-rate 20", 0},
    {"well, MSEX 1.1", Fate::Answered, 1, "--layer-rate 20", 0},
    {"well, paced", Fate::Answered, 2, "--layer-rate 20 --product ArKaos", 0},
    {"late and merged, paced", Fate::Answered, 1,
     "--product Coolux --layer-rate 10 --fault delay,merge --fault-rate 20 --fault-delay 40", 0},
    {"late", Fate::Answered, 2, "--fault delay --fault-rate 5 --fault-delay 800 --layer-rate 10", 0},
    {"split and garbage", Fate::Answered, 2, "--fault split,garbage --fault-rate 10 --layer-rate 10", 0},
    {"oversize", Fate::Answered, 1, "--fault oversize,garbage,merge --fault-rate 50 --layer-rate 10", 0},
    {"storm", Fate::Answered, 2, "--fault storm --layer-rate 10", 0},
    {"silence", Fate::Struck, 2, "--fault silence --fault-rate 5 --layer-rate 10", 0},
    {"truncate", Fate::Struck, 0, "--fault truncate --fault-rate 20 --layer-rate 10", 0},
    {"version, paced", Fate::Struck, 2, "--product ArKaos --fault version --fault-rate 20 --layer-rate 10", 0},
    {"silence, paced", Fate::Stuck, 2, "--product ArKaos --fault silence --fault-rate 1 --layer-rate 10", 0},
    {"silence, paced, ends", Fate::Mortal, 1, "--product ArKaos --fault silence --fault-rate 10 --seconds 20", 0},
    {"noise", Fate::Mortal, 2, "--fault noise --fault-rate 1 --layer-rate 10 --seconds 20", 0},
    {"reset", Fate::Mortal, 2, "--fault reset --fault-rate 2 --layer-rate 10", 0},
    {"reset, paced", Fate::Mortal, 0, "--product ArKaos --fault reset,split --fault-rate 2", 0},
    {"everything", Fate::Mortal, 2,
     "--fault delay,silence,split,merge,truncate,oversize,version,garbage,reset --fault-rate 3 --fault-delay 100 "
     "--layer-rate 20",
     0},
    {"dies and revives", Fate::Mortal, 2, "--die-after 4000 --revive-after 1500 --seconds 11 --layer-rate 30", 0},
    {"killed", Fate::Mortal, 2, "--layer-rate 100", 7000},
    {"killed, paced", Fate::Mortal, 1, "--product Coolux --layer-rate 100", 9000},
};

/// Counts the failure lines; what they say is for other tests.
class FailureCount : public Os::Log::Sink
{
public:
    void Write(const Os::Log::Line& line) override
    {
        if (line.level & (Os::Log::Failure | Os::Log::Critical)) {
            ++m_count;
        }
    }
    long count() const { return m_count; }

private:
    std::atomic<long> m_count{0};
};

void keepBooks(citp_stack* stack, SoakLedger& ledger, std::atomic<long>& layerStates)
{
    const auto listen = [stack](auto signal, auto receiver) {
        QObject::connect(stack, signal, stack, receiver, Qt::DirectConnection);
    };
    const auto answer = [&ledger](const QString& key) { ledger.answer(key); };
    listen(&citp_stack::serverUp, [&ledger](const QString& key) { ledger.up(key); });
    listen(&citp_stack::serverDown, [&ledger](const QString& key) { ledger.down(key); });
    listen(&citp_stack::libraryInfo, answer);
    listen(&citp_stack::mediaInfo, answer);
    listen(&citp_stack::libraryThumbnail, answer);
    listen(&citp_stack::elementThumbnail, answer);
    listen(&citp_stack::layerStatus, [&layerStates] { ++layerStates; });
}

/// Counts what reaches the application's own thread.
void countDeliveries(citp_stack* stack, QObject& receiver, long& delivered)
{
    const auto count = [&delivered] { ++delivered; };
    QObject::connect(stack, &citp_stack::libraryInfo, &receiver, count);
    QObject::connect(stack, &citp_stack::mediaInfo, &receiver, count);
    QObject::connect(stack, &citp_stack::libraryThumbnail, &receiver, count);
    QObject::connect(stack, &citp_stack::elementThumbnail, &receiver, count);
}

/// One of the four kinds of request, each of which has exactly one answer.
bool sendRequest(citp_stack* stack, const SoakSeat& seat, unsigned kind)
{
    const unsigned char minor = seat.plan().msexMinor;
    const QString root = QStringLiteral("0,0,0,0");
    const QString library = minor == 0 ? QStringLiteral("1") : QStringLiteral("1,1,0,0");
    const QString format = QStringLiteral("RGB8");
    switch (kind % 4) {
        case 0:
            return stack->sendMsg(seat.key(), CITP::Msg_MSEX_GELI(minor, 1, root, {}));
        case 1:
            return stack->sendMsg(seat.key(), CITP::Msg_MSEX_GEIN(minor, 1, library, {}));
        case 2:
            return stack->sendMsg(seat.key(), CITP::Msg_MSEX_GELT(minor, 1, {library}, 12, 16, format));
        default:
            return stack->sendMsg(seat.key(), CITP::Msg_MSEX_GETH(minor, 1, library, 12, 16, format, {0}));
    }
}

using Seats = std::vector<std::unique_ptr<SoakSeat>>;

void sendUntil(const std::atomic<bool>& done, citp_stack* stack, const Seats& seats, SoakLedger& ledger)
{
    for (unsigned kind = 0; !done; ++kind) {
        for (const auto& seat : seats) {
            const long life = ledger.book(seat->key());
            if (life != 0 && !sendRequest(stack, *seat, kind)) {
                ledger.takeBack(seat->key(), life);
            }
            std::this_thread::sleep_for(RequestInterval);
        }
    }
}

/// Lets answers come that are still to come.
void waitForQuiet(const SoakLedger& ledger)
{
    QElapsedTimer time;
    time.start();
    for (long before = -1; before != ledger.answersInAll() && time.elapsed() < QuietBound;) {
        before = ledger.answersInAll();
        Soak::pass(QuietTime);
    }
}

/// Whether every request to this server is accounted for; prints its line of the table.
bool closeAccount(const SoakSeat& seat, const SoakLedger& ledger)
{
    const SoakLedger::Account account = ledger.account(seat.key());
    const long open = account.up ? account.lifeSent - account.lifeAnswered : 0;
    const long queued = account.sent - seat.seen(); // of use for one life only
    const long spoilt = seat.seen() - account.answered;
    bool good = account.sent > 0 && account.answered > 0 && account.late == 0 &&
                account.sent == account.answered + account.lost + open;
    switch (seat.plan().fate) {
        case Fate::Answered:
            good = good && account.ups == 1 && account.downs == 0 && open == 0 && queued == 0;
            break;
        case Fate::Struck:
            good = good && account.ups == 1 && account.downs == 0 && queued == 0 && spoilt <= account.struck;
            break;
        case Fate::Stuck:
            good = good && account.ups == 1 && account.downs == 0 && queued > 0 && spoilt == account.struck;
            break;
        case Fate::Mortal:
            good = good && account.downs > 0 && account.worstLoss <= SoakLedger::Window + account.struck;
            break;
    }
    std::printf("%-24s %6ld %9ld %9ld %7ld %7ld %6ld  %s\n", seat.plan().name, account.ups, account.sent,
                account.answered, account.struck, account.lost, open, good ? "yes" : "NO");
    return good;
}

bool isBalanced(const Seats& seats, const SoakLedger& ledger)
{
    std::printf("\n%-24s %6s %9s %9s %7s %7s %6s  accounted for\n", "server", "lives", "requests", "answers", "struck",
                "lost", "open");
    bool good = true;
    for (const auto& seat : seats) {
        good = closeAccount(*seat, ledger) && good;
    }
    std::printf(
        "struck: answers that the server says it withheld or spoilt; lost: unanswered when the server went\n"
        "down; open: unanswered at the end, withheld or waiting behind a withheld one\n\n");
    return good;
}

/// Switches the recommended guards on, and counts those that act.
void switchGuardsOn(citp_stack* stack, std::atomic<long>& guardEvents)
{
    CITP::citp_options options = CITP::citp_options::recommended();
    options.setObserver([&guardEvents](const CITP::citp_options::Event& event) {
        ++guardEvents;
        std::printf("%s\n", qPrintable(event.text));
    });
    stack->setOptions(options);
}

bool soak(double minutes, const QString& program, bool isGuarded)
{
    static FailureCount* const failures = new FailureCount;
    Os::Log::SetSink(failures);
    citp_stack* const stack = citp_stack::Get();
    SoakLedger ledger;
    std::atomic<long> layerStates{0};
    std::atomic<long> guardEvents{0};
    long delivered = 0;
    QObject receiver;
    keepBooks(stack, ledger, layerStates);
    countDeliveries(stack, receiver, delivered);
    if (isGuarded) {
        switchGuardsOn(stack, guardEvents);
    }
    SoakRun run;
    Seats seats;
    const auto [firstPlan, lastPlan] = isGuarded ? std::pair(std::begin(HonestPlans), std::end(HonestPlans))
                                                 : std::pair(std::begin(Plans), std::end(Plans));
    for (const SoakPlan& plan : std::vector<SoakPlan>(firstPlan, lastPlan)) {
        seats.push_back(std::make_unique<SoakSeat>(plan, static_cast<int>(seats.size()), program, ledger));
        seats.back()->start();
    }
    std::atomic<bool> done{false};
    std::vector<std::thread> senders;
    for (int i = 0; i < 2; ++i) {
        senders.emplace_back([&] { sendUntil(done, stack, seats, ledger); });
    }
    run.pass(minutes, "   answers layer states  failures", [&] {
        char text[80];
        std::snprintf(text, sizeof text, "%10ld %12ld %9ld", ledger.answersInAll(), layerStates.load(),
                      failures->count());
        return std::string(text);
    });
    done = true;
    for (std::thread& sender : senders) {
        sender.join();
    }
    waitForQuiet(ledger);
    bool good = isBalanced(seats, ledger);
    const long answers = ledger.answersInAll();
    seats.clear();
    good = run.isAsBefore() && good;
    good = Soak::say(run.fewestThreads() == run.mostThreads(), "nor meanwhile: " + std::to_string(run.fewestThreads()) +
                                                                   " to " + std::to_string(run.mostThreads()) +
                                                                   ", the two senders included") &&
           good;
    good = Soak::say(ledger.outOfTurn() == 0,
                     "every server goes down as often as it came up, and nothing comes from one that is down") &&
           good;
    good =
        Soak::say(delivered >= answers, "every answer reached the application's thread: " + std::to_string(answers)) &&
        good;
    if (isGuarded) {
        good = Soak::say(guardEvents == 0, "no guard acted: " + std::to_string(guardEvents) + " reports") && good;
        stack->setOptions(CITP::citp_options());
        Soak::tick();
    }
    return good;
}
} // namespace

int main(int argc, char** argv)
{
    return soakMain(argc, argv, "--guards", soak);
}
