// Requests: how each can end, what belongs to what, and the clock, the window and the limits.
// SPDX-License-Identifier: Apache-2.0
#include "fake_transport.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QPointer>

#include <cstdlib>
#include <memory>

using namespace CITP;

namespace {
const QString key = QStringLiteral("2.0.0.10:4811");
const QString other = QStringLiteral("2.0.0.11:4811");
const QString first = QStringLiteral("1,1,0,0");
const QString second = QStringLiteral("1,2,0,0");

/// How a reply has ended, as it was when it said so.
struct End
{
    int count = 0;
    Reply::Status status = Reply::Pending;
    QString error;
    QString mark;
    std::vector<int> numbers;
    QStringList ids;
    int attempts = 0;
    int dropped = 0;
    qint64 time = 0;
};
} // namespace

class RequestsTest : public testing::Test
{
protected:
    RequestsTest() : m_requests(std::make_unique<Requests>(m_net)) { m_net.setUp(key); }

    /// Has the end of @p reply recorded.
    std::shared_ptr<End> follow(Reply* reply)
    {
        auto end = std::make_shared<End>();
        QObject::connect(reply, &Reply::finished, reply, [this, reply, end] {
            ++end->count;
            end->status = reply->status();
            end->error = reply->errorString();
            end->mark = markOf(*reply);
            end->attempts = reply->attempts();
            end->dropped = reply->dropped();
            end->time = m_net.now();
            for (const Element& element : reply->elements())
                end->numbers.push_back(element.number);
            for (const Library& library : reply->libraries())
                end->ids << library.id;
        });
        return end;
    }
    std::shared_ptr<End> get(const Request& request) { return follow(m_requests->get(request)); }
    std::shared_ptr<End> picture(quint8 number, QSize size = {320, 240})
    {
        return get({key, Request::ElementPicture, 1, first, {number}, size});
    }
    std::shared_ptr<End> elements(quint8 type, const QString& library, const std::vector<quint8>& numbers = {})
    {
        return get({key, Request::Elements, type, library, numbers});
    }
    std::shared_ptr<End> libraries(quint8 type, const QString& parent = rootLibrary())
    {
        return get({key, Request::Libraries, type, parent});
    }
    void answer(const Msg_MSEX_ELIN& message) { Q_EMIT m_net.libraryInfo(key, message); }
    void answer(const Msg_MSEX_MEIN& message) { Q_EMIT m_net.mediaInfo(key, message); }
    void answer(const Msg_MSEX_EEIN& message) { Q_EMIT m_net.effectInfo(key, message); }
    void answer(const Msg_MSEX_GLEI& message) { Q_EMIT m_net.genericInfo(key, message); }
    void answer(const Msg_MSEX_ELTH& message) { Q_EMIT m_net.libraryThumbnail(key, message); }
    void answer(const Msg_MSEX_ETHN& message) { Q_EMIT m_net.elementThumbnail(key, message); }
    void answerPicture(quint8 number) { answer(ethn(2, 1, first, number, QString::number(number))); }
    std::size_t sent() const { return m_net.sent.size(); }

    FakeTransport m_net;
    std::unique_ptr<Requests> m_requests;
};

// --- Ends ------------------------------------------------------------------------------------------------------------

TEST_F(RequestsTest, AnAnswerEndsARequest)
{
    const auto end = libraries(1);
    ASSERT_EQ(sent(), 1u);
    EXPECT_EQ(end->count, 0);
    answer(elin(2, 1, {first, second}, QStringLiteral("a")));
    EXPECT_EQ(end->count, 1);
    EXPECT_EQ(end->status, Reply::Answered);
    EXPECT_EQ(end->ids, (QStringList{first, second}));
    m_net.run(20000);
    EXPECT_EQ(end->count, 1);
    EXPECT_EQ(sent(), 1u);
}

TEST_F(RequestsTest, ARequestToAServerThatIsNotUpEndsAfterTheCall)
{
    const auto end = get({other, Request::Libraries});
    EXPECT_EQ(end->count, 0);
    m_net.run(0);
    EXPECT_EQ(end->status, Reply::ServerLost);
    EXPECT_TRUE(end->error.contains(other)) << end->error.toStdString();
}

TEST_F(RequestsTest, AReceiverOfServerUpMayAskAtOnce)
{
    std::shared_ptr<End> end;
    FakeTransport net;
    QObject::connect(&net, &Transport::serverUp,
                     [&](const QString& server) { end = follow(m_requests->libraries(server, 1)); });
    m_requests = std::make_unique<Requests>(net);
    net.setUp(other);
    EXPECT_EQ(net.sent.size(), 1u);
    EXPECT_EQ(end->count, 0);
    m_requests.reset();
}

TEST_F(RequestsTest, WhatCannotBeSentIsRefused)
{
    const auto badId = elements(1, QStringLiteral("nothing"));
    const auto root = elements(1, rootLibrary());
    const auto noNumber = get({key, Request::ElementPicture, 1, first, {}});
    const auto twoNumbers = get({key, Request::ElementPicture, 1, first, {1, 2}});
    m_net.setUp(other, 0);
    const auto generic = get({other, Request::Elements, 3, QStringLiteral("7")});
    const auto sub = get({other, Request::Libraries, 1, first});
    m_net.onSend = [](const Request&) { return false; };
    const auto rejected = libraries(1);
    m_net.run(0);
    for (const auto& end : {badId, root, noNumber, twoNumbers, generic, sub, rejected}) {
        EXPECT_EQ(end->count, 1);
        EXPECT_EQ(end->status, Reply::Refused);
        EXPECT_TRUE(end->error.contains(QLatin1String("Stage"))) << end->error.toStdString();
    }
    EXPECT_EQ(sent(), 0u);
}

TEST_F(RequestsTest, AServerThatGoesDownEndsItsRequests)
{
    m_net.setUp(other);
    const auto outstanding = picture(1);
    std::vector<std::shared_ptr<End>> waiting;
    for (quint8 number = 2; number < 20; ++number)
        waiting.push_back(picture(number));
    const auto elsewhere = get({other, Request::ElementPicture, 1, first, {1}});
    m_net.setDown(key);
    EXPECT_EQ(outstanding->status, Reply::ServerLost);
    for (const auto& end : waiting)
        EXPECT_EQ(end->status, Reply::ServerLost);
    EXPECT_EQ(elsewhere->count, 0);
    // A new connection knows nothing of the requests of the last one.
    m_net.setUp(key);
    const auto again = picture(1);
    answerPicture(2);
    EXPECT_EQ(again->count, 0);
    answerPicture(1);
    EXPECT_EQ(again->status, Reply::Answered);
}

TEST_F(RequestsTest, WhatIsRejectedBecauseTheServerIsGoneIsLostWithIt)
{
    m_net.lose(key);
    const auto end = picture(1);
    m_net.run(0);
    EXPECT_EQ(end->count, 0);
    m_net.setDown(key);
    EXPECT_EQ(end->status, Reply::ServerLost);
}

TEST_F(RequestsTest, ARejectedRequestDoesNotRefuseTheOthers)
{
    int rejected = 0;
    bool isFull = true;
    m_net.onSend = [&](const Request& request) {
        rejected += isFull ? 1 : 0;
        const quint8 number = request.numbers.front();
        m_net.at(m_net.now() + 1, [this, number] { answerPicture(number); });
        return !isFull;
    };
    const auto refused = picture(1);
    std::vector<std::shared_ptr<End>> ends;
    for (quint8 number = 2; number < 100; ++number)
        ends.push_back(picture(number));
    m_net.run(900);
    EXPECT_EQ(rejected, 1);
    EXPECT_EQ(refused->status, Reply::Refused);
    isFull = false;
    m_net.run(10000);
    for (const auto& end : ends)
        EXPECT_EQ(end->status, Reply::Answered);
}

TEST_F(RequestsTest, ACancelledRequestEndsAtOnceAndMakesRoom)
{
    Reply* const reply = m_requests->libraries(key, 1);
    const auto end = follow(reply);
    const auto next = libraries(1, first);
    reply->cancel();
    EXPECT_EQ(end->count, 1);
    EXPECT_EQ(end->status, Reply::Cancelled);
    m_net.run(0);
    EXPECT_EQ(sent(), 2u);
    // The answer to what was cancelled is nobody else's.
    answer(elin(2, 1, {second}, QStringLiteral("late")));
    EXPECT_EQ(next->count, 0);
    answer(elin(2, 1, {QStringLiteral("2,1,5,0")}, QStringLiteral("own")));
    EXPECT_EQ(next->mark, QStringLiteral("own"));
}

TEST_F(RequestsTest, ADeletedReplyIsForgottenWithoutASignal)
{
    Reply* const reply = m_requests->libraries(key, 1);
    const auto end = follow(reply);
    const auto next = libraries(1, first);
    delete reply;
    m_net.run(0);
    EXPECT_EQ(end->count, 0);
    answer(elin(2, 1, {}, {}));
    EXPECT_EQ(next->count, 0); // the empty answer may be the other's
    answer(elin(2, 1, {}, {}));
    EXPECT_EQ(next->status, Reply::Answered);
}

TEST_F(RequestsTest, RequestsDeletesItsReplies)
{
    const QPointer<Reply> outstanding = m_requests->libraries(key, 1);
    const QPointer<Reply> waiting = m_requests->libraries(key, 1, first);
    m_requests.reset();
    EXPECT_FALSE(outstanding);
    EXPECT_FALSE(waiting);
}

TEST_F(RequestsTest, AReceiverMayDeleteEverything)
{
    Reply* const reply = m_requests->libraries(key, 1);
    const auto waiting = libraries(1, first);
    QObject::connect(reply, &Reply::finished, &m_net, [this] { m_requests.reset(); });
    answer(elin(2, 1, {}, {}));
    EXPECT_FALSE(m_requests);
    EXPECT_EQ(waiting->count, 0);
}

TEST_F(RequestsTest, RepliesAreDeletedWhenControlReturnsToTheLoop)
{
    constexpr int count = 200;
    std::vector<QPointer<Reply>> replies;
    QObject owner;
    std::size_t nested = 0;
    for (int number = 0; number < count; ++number) {
        replies.emplace_back(m_requests->picture(key, 1, first, static_cast<quint8>(number)));
        QObject::connect(replies.back(), &Reply::finished, &owner, [&, number] {
            // Each is still there when it tells of its end, whatever its receivers do with it.
            if (number == 1) {
                delete replies[1];
            } else if (number == 2) {
                replies[2]->deleteLater();
            } else if (number == 3) {
                replies[3]->setParent(&owner);
            }
            nested += replies[static_cast<std::size_t>(number)].isNull() ? 1 : 0;
        });
    }
    for (int number = 0; number < count; ++number) {
        answer(ethn(2, 1, first, static_cast<quint8>(number), "x"));
    }
    EXPECT_EQ(nested, 1u);
    EXPECT_TRUE(replies.back());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    for (const QPointer<Reply>& reply : replies) {
        EXPECT_FALSE(reply);
    }
}

TEST_F(RequestsTest, AReplyDeletesItself)
{
    const QPointer<Reply> reply = m_requests->libraries(key, 1);
    answer(elin(2, 1, {}, {}));
    EXPECT_TRUE(reply);
    m_net.at(1, [] {});
    m_net.run(2);
    EXPECT_FALSE(reply);
}

TEST_F(RequestsTest, AnEmptyPictureIsARefusal)
{
    const auto end = picture(1);
    answer(ethn(2, 1, first, 1, {}));
    EXPECT_EQ(end->status, Reply::Refused);
    EXPECT_TRUE(end->error.contains(QLatin1String("element 1"))) << end->error.toStdString();
}

TEST_F(RequestsTest, AnAnswerInAnUnknownVersionIsARefusal)
{
    const auto list = libraries(1);
    const auto media = elements(1, first);
    const auto image = picture(1);
    answer(elin(3, 1, {}, {}));
    answer(mein(3, {}, {}, {}));
    answer(ethn(3, 1, {}, 0, {}));
    for (const auto& end : {list, media, image}) {
        EXPECT_EQ(end->status, Reply::Refused);
        EXPECT_TRUE(end->error.contains(QLatin1String("MSEX 1.3"))) << end->error.toStdString();
    }
}

// --- Matching --------------------------------------------------------------------------------------------------------

TEST_F(RequestsTest, LibrariesOfOneTypeAreAskedForOneAfterTheOther)
{
    const auto a = libraries(1);
    const auto b = libraries(1, first);
    const auto c = libraries(2);
    EXPECT_EQ(sent(), 2u);
    answer(elin(2, 2, {first}, QStringLiteral("c")));
    answer(elin(2, 1, {first}, QStringLiteral("a")));
    EXPECT_EQ(sent(), 3u);
    answer(elin(2, 1, {QStringLiteral("2,1,1,0")}, QStringLiteral("b")));
    EXPECT_EQ(a->mark + b->mark + c->mark, QStringLiteral("abc"));
}

TEST_F(RequestsTest, ElementsAreToldApartByLibraryAndKind)
{
    const auto a = elements(1, first);
    const auto b = elements(1, second);
    const auto c = elements(2, first);
    const auto d = elements(3, first);
    const auto e = elements(4, first); // before MSEX 1.2 a GLEI does not say its type
    EXPECT_EQ(sent(), 4u);
    answer(glei(2, 4, first, {1}, QStringLiteral("stranger")));
    answer(glei(2, 3, first, {1}, QStringLiteral("d")));
    answer(eein(2, first, {1}, QStringLiteral("c")));
    answer(mein(2, second, {1}, QStringLiteral("b")));
    answer(mein(2, first, {1}, QStringLiteral("a")));
    EXPECT_EQ(sent(), 5u);
    answer(glei(1, 0, first, {1}, QStringLiteral("e")));
    EXPECT_EQ(a->mark + b->mark + c->mark + d->mark + e->mark, QStringLiteral("abcde"));
    EXPECT_EQ(m_requests->statistics().unexpected, 1);
}

TEST_F(RequestsTest, PicturesComeInAnyOrderButTwoSizesOfOneDoNot)
{
    const auto a = picture(1);
    const auto large = picture(1, {640, 480});
    const auto b = picture(2);
    EXPECT_EQ(sent(), 2u);
    answerPicture(2);
    EXPECT_EQ(b->mark, QStringLiteral("2"));
    answerPicture(1);
    EXPECT_EQ(a->count, 1);
    EXPECT_EQ(large->count, 0);
    ASSERT_EQ(sent(), 3u);
    EXPECT_EQ(m_net.sent.back().size, QSize(640, 480));
    answerPicture(1);
    EXPECT_EQ(large->count, 1);
}

TEST_F(RequestsTest, AnotherSizeWaitsForTheLateAnswerToACancelledRequest)
{
    Reply* const small = m_requests->get({key, Request::ElementPicture, 1, first, {1}, {64, 48}});
    small->cancel();
    const auto large = picture(1);
    const auto other = picture(2);
    EXPECT_EQ(sent(), 2u);
    // The server may answer in any order.
    answerPicture(2);
    EXPECT_EQ(other->count, 1);
    m_net.run(9000);
    EXPECT_EQ(sent(), 2u);
    answerPicture(1);
    EXPECT_EQ(large->count, 0);
    ASSERT_EQ(sent(), 3u);
    answerPicture(1);
    EXPECT_EQ(large->status, Reply::Answered);
}

TEST_F(RequestsTest, AnotherSizeWaitsUntilTheServerIsSilentOrALongTimeHasPassed)
{
    m_requests->get({key, Request::ElementPicture, 1, first, {1}, {64, 48}})->cancel();
    const auto large = picture(1);
    m_net.run(9999);
    EXPECT_EQ(sent(), 1u);
    m_net.run(1);
    ASSERT_EQ(sent(), 2u);
    // The first answer is its own now.
    answerPicture(1);
    EXPECT_EQ(large->status, Reply::Answered);

    m_requests->get({key, Request::ElementPicture, 1, first, {2}, {64, 48}})->cancel();
    picture(2);
    for (int second = 0; second < 59; ++second) {
        libraries(1);
        m_net.run(1000);
        answer(elin(2, 1, {}, {}));
    }
    EXPECT_EQ(sent(), 3u + 59u);
    m_net.run(1000);
    EXPECT_EQ(sent(), 4u + 59u);
}

TEST_F(RequestsTest, AnswersThatNobodyHasAskedForAreNoSignOfLife)
{
    m_requests->get({key, Request::ElementPicture, 1, first, {1}, {64, 48}})->cancel();
    const auto picture = this->picture(1);
    const auto list = libraries(1);
    const auto silent = elements(1, first);
    const auto silentToo = elements(1, second);
    for (int time = 4000; time <= 60000; time += 4000) {
        m_net.at(time, [this] {
            answer(elin(2, 2, {first}, {}));
            answer(mein(2, QStringLiteral("1,3,0,0"), {1}, {}));
        });
    }
    m_net.run(10000);
    EXPECT_EQ(list->status, Reply::TimedOut);
    EXPECT_EQ(silent->status, Reply::TimedOut);
    EXPECT_EQ(silentToo->status, Reply::TimedOut);
    EXPECT_EQ(m_net.sent.back().size, QSize(320, 240));
    m_net.run(10000);
    EXPECT_TRUE(m_requests->isSilent(key, Request::Elements));
    EXPECT_EQ(picture->status, Reply::TimedOut);
}

TEST_F(RequestsTest, OnlyWhatWasAskedForIsKept)
{
    const auto some = elements(1, first, {3, 5});
    answer(mein(2, first, {1, 3, 3, 5}, QStringLiteral("x")));
    EXPECT_EQ(some->numbers, (std::vector<int>{3, 5}));
    EXPECT_EQ(some->dropped, 1);
    const auto libs = get({key, Request::Libraries, 1, rootLibrary(), {2}});
    answer(elin(2, 1, {first, second, QStringLiteral("2,2,1,0"), second}, QStringLiteral("x")));
    EXPECT_EQ(libs->ids, QStringList{second});
    EXPECT_EQ(libs->dropped, 2);
}

TEST_F(RequestsTest, AServerOfMsex10IsAskedByNumber)
{
    m_net.setUp(key, 0);
    const auto libs = libraries(1);
    answer(elin(0, 1, {QStringLiteral("7")}, QStringLiteral("x")));
    EXPECT_EQ(libs->ids, QStringList{QStringLiteral("7")});
    const auto media = elements(1, QStringLiteral("1,7,0,0"));
    EXPECT_EQ(m_net.sent.back().library, QStringLiteral("7"));
    answer(mein(0, QStringLiteral("7"), {1}, QStringLiteral("y")));
    EXPECT_EQ(media->mark, QStringLiteral("y"));
}

TEST_F(RequestsTest, ANumberFromALaterServerIsATopLevelLibrary)
{
    m_net.setUp(key, 1);
    const auto libs = libraries(1);
    answer(elin(0, 1, {QStringLiteral("1")}, QStringLiteral("x")));
    EXPECT_EQ(libs->ids, QStringList{first});
    const auto media = elements(1, first);
    answer(mein(0, QStringLiteral("1"), {1}, QStringLiteral("y")));
    EXPECT_EQ(media->mark, QStringLiteral("y"));
}

// --- Time ------------------------------------------------------------------------------------------------------------

TEST_F(RequestsTest, ASilentServerIsAskedTwiceAndThenEverythingEnds)
{
    std::vector<std::shared_ptr<End>> ends;
    for (quint8 number = 0; number < 50; ++number)
        ends.push_back(picture(number));
    EXPECT_EQ(sent(), 4u);
    m_net.run(4999);
    EXPECT_EQ(sent(), 4u);
    m_net.run(30000);
    for (const auto& end : ends) {
        EXPECT_EQ(end->count, 1);
        EXPECT_EQ(end->status, Reply::TimedOut);
    }
    EXPECT_EQ(ends.front()->attempts, 2);
    EXPECT_EQ(ends.front()->time, 10000);
    EXPECT_EQ(ends.back()->time, 10000);
    EXPECT_TRUE(ends.back()->error.contains(QLatin1String("Stage"))) << ends.back()->error.toStdString();
}

TEST_F(RequestsTest, OneListThatNeverComesDoesNotEndTheOthers)
{
    const auto silent = libraries(1, first);
    const auto good = libraries(1, second);
    m_net.onSend = [this](const Request& request) {
        if (request.library == second)
            m_net.at(m_net.now() + 1, [this] { answer(elin(2, 1, {QStringLiteral("2,2,1,0")}, {})); });
        return true;
    };
    m_net.run(30000);
    EXPECT_EQ(silent->status, Reply::TimedOut);
    EXPECT_TRUE(silent->error.contains(QLatin1String("within 10 s, asked 2 times"))) << silent->error.toStdString();
    EXPECT_EQ(good->status, Reply::Answered);
}

TEST_F(RequestsTest, AfterTwoListsThatNeverComeAllEnd)
{
    std::vector<std::shared_ptr<End>> ends;
    for (int number = 0; number < 50; ++number)
        ends.push_back(libraries(1, QStringLiteral("1,%1,0,0").arg(number)));
    m_net.run(20000);
    EXPECT_EQ(sent(), 4u);
    for (const auto& end : ends)
        EXPECT_EQ(end->status, Reply::TimedOut);
}

TEST_F(RequestsTest, ASlowServerAnswersAll)
{
    std::vector<std::shared_ptr<End>> ends;
    // One after the other, 3 s each.
    qint64 free = 0;
    m_net.onSend = [&](const Request& request) {
        free = qMax(free, m_net.now()) + 3000;
        const quint8 number = request.numbers.front();
        m_net.at(free, [this, number] { answerPicture(number); });
        return true;
    };
    for (quint8 number = 0; number < 40; ++number)
        ends.push_back(picture(number));
    m_net.run(200000);
    for (const auto& end : ends)
        EXPECT_EQ(end->status, Reply::Answered) << end->error.toStdString();
    EXPECT_EQ(sent(), 40u);
    EXPECT_EQ(m_requests->windowFor(key, Request::ElementPicture), 1);
}

TEST_F(RequestsTest, SignsOfLifeOfAnotherKindDoNotCount)
{
    const auto image = picture(1);
    for (int time = 1000; time <= 20000; time += 1000)
        m_net.at(time, [this] { answer(mein(2, first, {}, {})); });
    m_net.run(10000);
    EXPECT_EQ(image->status, Reply::TimedOut);
}

TEST_F(RequestsTest, AnAnswerThatComesLateStillCounts)
{
    const auto image = picture(1);
    m_net.run(6000);
    EXPECT_EQ(sent(), 2u);
    answerPicture(1);
    EXPECT_EQ(image->status, Reply::Answered);
    EXPECT_EQ(image->attempts, 2);
    // The answer to the second attempt is nobody else's.
    const auto large = picture(1, {640, 480});
    answerPicture(1);
    EXPECT_EQ(large->count, 0);
    answerPicture(1);
    EXPECT_EQ(large->status, Reply::Answered);
}

TEST_F(RequestsTest, ALateAnswerIsUsedForTheSameRequestOfSomebodyElse)
{
    Reply* const reply = m_requests->picture(key, 1, first, 1);
    reply->cancel();
    std::vector<std::shared_ptr<End>> before;
    for (quint8 number = 10; number < 14; ++number)
        before.push_back(picture(number));
    const auto waiting = picture(1);
    answerPicture(1);
    EXPECT_EQ(waiting->status, Reply::Answered);
    EXPECT_EQ(waiting->attempts, 0);
}

TEST_F(RequestsTest, ALostRequestIsSentAgainWhileOthersAreAnswered)
{
    m_net.onSend = [&](const Request& request) {
        const quint8 number = request.numbers.front();
        if (number != 0 || sent() > 0)
            m_net.at(m_net.now() + 100, [this, number] { answerPicture(number); });
        return true;
    };
    const auto lost = picture(0);
    std::vector<std::shared_ptr<End>> others;
    for (int number = 1; number < 255; ++number)
        others.push_back(picture(static_cast<quint8>(number)));
    m_net.run(4000);
    EXPECT_EQ(lost->status, Reply::Answered);
    EXPECT_EQ(lost->attempts, 2);
}

// --- Window and limits -----------------------------------------------------------------------------------------------

TEST_F(RequestsTest, AQuickServerIsAskedForMoreUpToABound)
{
    std::size_t most = 0;
    std::size_t outstanding = 0;
    m_net.onSend = [&](const Request& request) {
        most = qMax(most, ++outstanding);
        const quint8 number = request.numbers.front();
        m_net.at(m_net.now() + 50, [&, number] {
            --outstanding;
            answerPicture(number);
        });
        return true;
    };
    for (int number = 0; number < 256; ++number)
        picture(static_cast<quint8>(number));
    EXPECT_EQ(outstanding, 4u);
    m_net.run(10000);
    EXPECT_EQ(most, 32u);
    EXPECT_EQ(sent(), 256u);
}

TEST_F(RequestsTest, ACancelledRequestThatIsMadeAgainIsNotSentAgain)
{
    m_requests->picture(key, 1, first, 1)->cancel();
    const auto again = picture(1);
    EXPECT_EQ(sent(), 1u);
    answerPicture(1);
    EXPECT_EQ(again->status, Reply::Answered);
    EXPECT_EQ(again->attempts, 1);
    // If the answer is lost, it is sent again like any other.
    m_requests->picture(key, 1, first, 2)->cancel();
    const auto lost = picture(2);
    m_net.run(5000);
    EXPECT_EQ(sent(), 3u);
    m_net.run(10000);
    EXPECT_EQ(lost->status, Reply::TimedOut);
}

// Otherwise a user who scrolls would have the server work on any number of pictures.
TEST_F(RequestsTest, ACancelledRequestKeepsItsPlaceInTheWindow)
{
    for (quint8 number = 0; number < 4; ++number)
        m_requests->picture(key, 1, first, number)->cancel();
    picture(10);
    picture(11);
    m_net.run(0);
    EXPECT_EQ(sent(), 4u);
    answerPicture(0);
    EXPECT_EQ(sent(), 5u);
    answerPicture(1);
    EXPECT_EQ(sent(), 6u);
}

TEST_F(RequestsTest, ACancelledRequestIsNotWaitedForLongerThanAnother)
{
    for (quint8 number = 0; number < 4; ++number)
        m_requests->picture(key, 1, first, number)->cancel();
    picture(10);
    m_net.run(4999);
    EXPECT_EQ(sent(), 4u);
    m_net.run(1);
    EXPECT_EQ(sent(), 5u);
    EXPECT_EQ(m_requests->windowFor(key, Request::ElementPicture), 1);
}

TEST_F(RequestsTest, APacedServerThatWorksOnACancelledRequestGetsNoOther)
{
    m_net.setUp(key, 2, "ArKaos MediaMaster");
    m_requests->elements(key, 2, first)->cancel();
    const auto next = libraries(1);
    m_net.run(0);
    EXPECT_EQ(sent(), 1u);
    answer(eein(2, first, {1}, {}));
    EXPECT_EQ(sent(), 2u);
    answer(elin(2, 1, {first}, QStringLiteral("own")));
    EXPECT_EQ(next->mark, QStringLiteral("own"));
}

TEST_F(RequestsTest, AfterALostAnswerTheNextOneMakesRoomAtOnce)
{
    m_net.setUp(key, 2, "ArKaos MediaMaster");
    const auto lost = elements(1, first);
    m_net.run(5000);
    ASSERT_EQ(sent(), 2u);
    for (std::size_t count = 3; count < 6; ++count) {
        const auto next = elements(1, first);
        EXPECT_EQ(sent(), count - 1);
        answer(mein(2, first, {1}, {}));
        EXPECT_EQ(sent(), count);
    }
    EXPECT_EQ(lost->status, Reply::Answered);
}

TEST_F(RequestsTest, APacedServerGetsOneRequestForAListAtATime)
{
    m_net.setUp(key, 2, "ArKaos MediaMaster");
    const auto a = elements(2, first);
    const auto b = libraries(1);
    const auto c = elements(1, first);
    const auto image = picture(1);
    ASSERT_EQ(sent(), 2u);
    EXPECT_EQ(m_net.sent.back().kind, Request::ElementPicture);
    answer(eein(2, first, {1}, QStringLiteral("a")));
    EXPECT_EQ(sent(), 3u);
    answer(elin(2, 1, {first}, QStringLiteral("b")));
    EXPECT_EQ(sent(), 4u);
    answer(mein(2, first, {1}, QStringLiteral("c")));
    EXPECT_EQ(a->mark + b->mark + c->mark, QStringLiteral("abc"));
}

TEST_F(RequestsTest, InQuietModeOnlyRequestsByHandAreSent)
{
    m_requests->setQuiet(true);
    const auto background = picture(1);
    Request byHand{key, Request::ElementPicture, 1, first, {2}};
    byHand.isByHand = true;
    get(byHand);
    answerPicture(2);
    m_net.run(60000);
    ASSERT_EQ(sent(), 1u);
    EXPECT_EQ(m_net.sent.back().numbers.front(), 2);
    EXPECT_EQ(background->count, 0);
    m_requests->setQuiet(false);
    m_net.run(0);
    EXPECT_EQ(m_net.sent.back().numbers.front(), 1);
}

TEST_F(RequestsTest, RequestsByHandGoFirst)
{
    for (quint8 number = 0; number < 10; ++number)
        picture(number);
    Request byHand{key, Request::ElementPicture, 1, first, {200}};
    byHand.isByHand = true;
    get(byHand);
    answerPicture(0);
    EXPECT_EQ(m_net.sent.at(4).numbers.front(), 200);
}

TEST_F(RequestsTest, TheRateOfRequestsIsBoundedForAllServersTogetherAndShared)
{
    m_net.setUp(other);
    m_requests->setRateLimit(10, 0);
    std::map<qint64, int> perSecond;
    std::map<QString, int> perServer;
    m_net.onSend = [&](const Request& request) {
        ++perSecond[m_net.now() / 1000];
        ++perServer[request.server];
        const quint8 number = request.numbers.front();
        const QString server = request.server;
        m_net.at(m_net.now() + 10, [this, server, number] {
            Q_EMIT m_net.elementThumbnail(server, ethn(2, 1, first, number, QStringLiteral("x")));
        });
        return true;
    };
    for (quint8 number = 0; number < 50; ++number) {
        picture(number);
        get({other, Request::ElementPicture, 1, first, {number}});
    }
    m_net.run(5000);
    for (const auto& second : perSecond)
        EXPECT_LE(second.second, 10) << "second " << second.first;
    EXPECT_LE(std::abs(perServer[key] - perServer[other]), 1);
    m_net.run(6000);
    EXPECT_EQ(sent(), 100u);
}

TEST_F(RequestsTest, TheRateOfBytesIsBounded)
{
    m_requests->setRateLimit(0, 1000); // an answer has 100
    m_net.onSend = [&](const Request& request) {
        const quint8 number = request.numbers.front();
        m_net.at(m_net.now() + 1, [this, number] { answerPicture(number); });
        return true;
    };
    for (int number = 0; number < 256; ++number)
        picture(static_cast<quint8>(number));
    m_net.run(10000);
    EXPECT_LE(m_requests->statistics().bytes, 11 * 1000);
    EXPECT_GE(m_requests->statistics().bytes, 9 * 1000);
}

TEST_F(RequestsTest, BytesThatNobodyHasAskedForStopNoRequests)
{
    m_net.setUp(other);
    m_requests->setRateLimit(0, 1000);
    Msg_MSEX_ETHN unasked = ethn(2, 1, first, 1, QStringLiteral("x"));
    unasked.size = 60000;
    for (int i = 0; i < 100; ++i)
        Q_EMIT m_net.elementThumbnail(other, unasked);
    picture(1);
    picture(2);
    m_net.run(1000);
    EXPECT_EQ(sent(), 2u);
    EXPECT_EQ(m_requests->statistics().bytes, 100 * 60000);
}

TEST_F(RequestsTest, APictureFitsItsMessage)
{
    picture(1, {4000, 4000});
    EXPECT_EQ(m_net.sent.back().size, QSize(4000, 4000));
    EXPECT_EQ(m_net.sent.back().format, QStringLiteral("JPEG"));
    get({key, Request::ElementPicture, 1, first, {2}, {640, 480}, QStringLiteral("RGB8")});
    const QSize size = m_net.sent.back().size;
    EXPECT_LE(size.width() * size.height() * 3, 65535);
    EXPECT_EQ(size, QSize(170, 127));
}
