// SearchModel: what it loads of servers that hold very much.
// SPDX-License-Identifier: Apache-2.0
#include "models/search_model.h"

#include "fake_transport.h"

#include <gtest/gtest.h>

#include <deque>
#include <map>

#include "browser_fixture.h"

using namespace CITP;
using Browser::SearchModel;

namespace {
/// The libraries that @p request asks for: media, on two levels of @p count each.
Msg_MSEX_ELIN libraries(const Request& request, int count)
{
    const bool isTop = request.library == rootLibrary();
    QStringList ids;
    for (int i = 1; i <= count && request.type == 1; ++i)
        ids << (isTop ? QString("1,%1,0,0").arg(i)
                      : QString("2,%1,%2,0").arg(request.library.section(',', 1, 1)).arg(i));
    Msg_MSEX_ELIN message = elin(2, request.type, ids, "Library");
    for (auto& library : message.Libraries)
        library.SubLibraryCount = static_cast<unsigned short>(isTop ? count : 0);
    return message;
}
} // namespace

TEST(SearchModelTest, TheServersWithMostLibrariesAreLeftOutIfThereAreTooMany)
{
    const std::map<QString, int> counts{{"2.0.0.10:4811", 10}, {"2.0.0.11:4811", 200}, {"2.0.0.12:4811", 255}};
    FakeTransport net;
    net.onSend = [&](const Request& request) {
        net.at(net.now() + 1, [&net, &counts, request] {
            Q_EMIT net.libraryInfo(request.server, libraries(request, counts.at(request.server)));
        });
        return true;
    };
    Requests requests(net);
    Directory directory(net);
    SearchModel search(requests, directory);
    for (const auto& server : counts)
        net.setUp(server.first);
    search.setText("Library");
    const QString tooMany = "too many libraries, not searched: " + requests.nameOf("2.0.0.12:4811");
    EXPECT_TRUE(waitFor([&] {
        net.run(10);
        return search.state().endsWith(tooMany);
    })) << search.state().toStdString();
    // Nothing of it is asked for any more, also after a loss; the others are searched.
    ASSERT_TRUE(waitFor([&] {
        net.run(10);
        return !search.state().contains("loading");
    })) << search.state().toStdString();
    net.sent.clear();
    net.setDown("2.0.0.12:4811");
    net.setUp("2.0.0.12:4811");
    net.run(1000);
    EXPECT_TRUE(net.sent.empty());
    search.setText("1,7,0,0");
    EXPECT_EQ(search.rowCount(), 2);
    EXPECT_EQ(search.hit(0).server.toStdString(), "2.0.0.10:4811");
    EXPECT_EQ(search.hit(1).server.toStdString(), "2.0.0.11:4811");
}

TEST(SearchModelTest, HitsAreShownWhileContentArrivesAndTheirRowsStay)
{
    FakeTransport net;
    std::deque<Request> unanswered;
    net.onSend = [&](const Request& request) {
        unanswered.push_back(request);
        return true;
    };
    Requests requests(net);
    requests.setTimeout(1000000);
    Directory directory(net);
    SearchModel search(requests, directory);
    net.setUp("2.0.0.10:4811");
    search.setText("Library");
    // An answer with every turn, more often than there is a pause.
    const auto answerOne = [&] {
        net.run(1);
        if (unanswered.empty())
            return;
        const Request request = unanswered.front();
        unanswered.pop_front();
        Q_EMIT net.libraryInfo(request.server, libraries(request, 255));
    };
    EXPECT_TRUE(waitFor([&] {
        answerOne();
        return search.rowCount() > 0;
    }));
    EXPECT_TRUE(search.state().contains("loading")) << search.state().toStdString();
    ASSERT_TRUE(waitFor([&] {
        answerOne();
        return !search.state().contains("loading");
    })) << search.state().toStdString();
    int resets = 0;
    QObject::connect(&search, &SearchModel::modelReset, &search, [&] { ++resets; });
    search.setText("Librar");
    EXPECT_EQ(resets, 0);
    search.setText("1,7,0,0");
    EXPECT_EQ(resets, 1);
}
