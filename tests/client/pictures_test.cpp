// Pictures: their order, the cache in memory, and the one on disk with all that can go wrong there.
// SPDX-License-Identifier: Apache-2.0
#include "fake_transport.h"

#include <citp_client/pictures.h>

#include <gtest/gtest.h>

#include <QDateTime>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>

#include <memory>

using namespace CITP;

namespace {
const QString key = QStringLiteral("2.0.0.10:4811");
const QString other = QStringLiteral("2.0.0.11:4811");
const QString first = QStringLiteral("1,1,0,0");

PictureId pictureOf(int number, quint64 version = 1)
{
    return {key, 1, first, number, version};
}

std::vector<PictureId> picturesOf(int from, int to)
{
    std::vector<PictureId> ids;
    for (int number = from; number < to; ++number)
        ids.push_back(pictureOf(number));
    return ids;
}
} // namespace

class PicturesTest : public testing::Test
{
protected:
    PicturesTest()
    {
        m_net.onSend = [this](const Request& request) {
            const quint8 number = request.numbers.empty() ? quint8(0) : request.numbers.front();
            const QString mark = QStringLiteral("%1 of %2").arg(number).arg(m_generation);
            m_net.at(m_net.now() + 100, [this, request, number, mark] {
                if (request.kind == Request::LibraryPicture)
                    Q_EMIT m_net.libraryThumbnail(key, elth(2, 1, request.library, mark));
                else
                    Q_EMIT m_net.elementThumbnail(key,
                                                  ethn(2, 1, request.library, number, number == 99 ? QString() : mark));
            });
            return true;
        };
        m_net.setUp(key);
        start();
    }

    /// Starts anew, as after a restart of the application.
    void start()
    {
        m_pictures = std::make_unique<Pictures>(m_requests, m_folder.path());
        QObject::connect(m_pictures.get(), &Pictures::changed,
                         [this](const PictureId& id) { m_changes.push_back(id.number); });
        m_net.sent.clear();
        m_changes.clear();
    }
    void get(const std::vector<PictureId>& ids)
    {
        m_pictures->setWanted(0, ids);
        m_net.run(10000);
    }
    QByteArray data(const PictureId& id) const { return m_pictures->find(id).data; }
    QStringList files() const
    {
        QStringList names;
        QDirIterator entries(m_folder.path(), QDir::Files, QDirIterator::Subdirectories);
        while (entries.hasNext())
            names << entries.next();
        return names;
    }

    FakeTransport m_net;
    Requests m_requests{m_net};
    QTemporaryDir m_folder;
    int m_generation = 1;
    std::unique_ptr<Pictures> m_pictures;
    std::vector<int> m_changes;
};

TEST_F(PicturesTest, WhatIsWantedMostComesFirst)
{
    m_pictures->setWanted(1, picturesOf(0, 20));
    m_net.run(10);
    EXPECT_EQ(m_net.sent.size(), 4u);
    m_pictures->setWanted(0, picturesOf(50, 52));
    EXPECT_EQ(m_pictures->state(pictureOf(50)), Pictures::Waiting);
    m_net.run(10000);
    EXPECT_EQ(m_net.sent.at(4).numbers.front(), 50);
    EXPECT_EQ(m_net.sent.at(5).numbers.front(), 51);
    EXPECT_EQ(m_net.sent.size(), 22u);
    EXPECT_EQ(m_changes.size(), 22u);
    EXPECT_EQ(data(pictureOf(7)), "7 of 1");
    EXPECT_EQ(m_pictures->state(pictureOf(7)), Pictures::Ready);
    EXPECT_EQ(m_pictures->state(pictureOf(200)), Pictures::Unknown);
}

TEST_F(PicturesTest, AServerThatIsSlowOrDownDoesNotStopTheOthers)
{
    const QString down = QStringLiteral("2.0.0.1:4811");
    m_net.setUp(other);
    m_net.onSend = [this](const Request& request) {
        const quint8 number = request.numbers.front();
        if (request.server == other) {
            m_net.at(m_net.now() + 100, [this, number] {
                Q_EMIT m_net.elementThumbnail(other, ethn(2, 1, first, number, QStringLiteral("x")));
            });
        }
        return true;
    };
    std::vector<PictureId> ids{{down, 1, first, 1, 1}};
    for (int number = 0; number < 20; ++number) {
        ids.push_back(pictureOf(number));
        ids.push_back({other, 1, first, number, 1});
    }
    m_pictures->setWanted(0, ids);
    m_net.run(4000);
    for (int number = 0; number < 20; ++number)
        EXPECT_EQ(m_pictures->state({other, 1, first, number, 1}), Pictures::Ready) << number;
    EXPECT_EQ(m_net.sent.size(), 24u);
    EXPECT_EQ(m_pictures->state({down, 1, first, 1, 1}), Pictures::Waiting);
}

TEST_F(PicturesTest, ManyServersAreAskedAtOnce)
{
    m_net.onSend = [](const Request&) { return true; };
    std::vector<PictureId> ids;
    for (int server = 0; server < 100; ++server) {
        const QString address = QStringLiteral("2.0.1.%1:4811").arg(server);
        m_net.setUp(address);
        for (int number = 0; number < 10; ++number)
            ids.push_back({address, 1, first, number, 1});
    }
    m_pictures->setWanted(0, ids);
    m_net.run(10);
    EXPECT_EQ(m_net.sent.size(), 400u);
}

TEST_F(PicturesTest, InQuietModeOnlyWhatIsWantedByHandIsRequested)
{
    m_requests.setQuiet(true);
    m_pictures->setWanted(1, picturesOf(0, 20));
    m_net.run(10);
    m_pictures->setWanted(0, picturesOf(50, 52), true);
    m_net.run(1000);
    EXPECT_EQ(m_net.sent.size(), 2u);
    EXPECT_EQ(m_pictures->state(pictureOf(51)), Pictures::Ready);
    m_pictures->setWanted(1, picturesOf(60, 80));
    m_net.run(1000);
    m_requests.setQuiet(false);
    m_net.run(1000);
    EXPECT_EQ(m_net.sent.size(), 22u);
}

TEST_F(PicturesTest, WhatWaitsToBeSentIsSentFirstIfItIsWantedByHand)
{
    m_requests.setRateLimit(1, 0);
    m_pictures->setWanted(1, picturesOf(0, 20));
    m_net.run(10);
    ASSERT_EQ(m_net.sent.size(), 1u);
    m_pictures->setWanted(0, picturesOf(2, 3), true);
    m_pictures->setWanted(2, picturesOf(50, 51), true);
    m_net.run(2500);
    ASSERT_EQ(m_net.sent.size(), 3u);
    EXPECT_EQ(m_net.sent.at(1).numbers.front(), 2);
    EXPECT_EQ(m_net.sent.at(2).numbers.front(), 50);
    m_requests.setRateLimit(0, 0);
    m_net.run(2000);
    EXPECT_EQ(m_net.sent.size(), 21u);
}

TEST_F(PicturesTest, WhatIsToBeSentAgainIsSentInQuietModeIfItIsWantedByHand)
{
    m_net.onSend = [this](const Request& request) {
        if (request.numbers.front() == 50) {
            m_net.at(m_net.now() + 1,
                     [this] { Q_EMIT m_net.elementThumbnail(key, ethn(2, 1, first, 50, QStringLiteral("x"))); });
        }
        return true;
    };
    m_pictures->setWanted(1, picturesOf(0, 20));
    m_net.run(10);
    m_requests.setQuiet(true);
    m_net.run(6000);
    ASSERT_EQ(m_net.sent.size(), 4u);
    m_pictures->setWanted(0, picturesOf(50, 51), true);
    m_net.run(10);
    ASSERT_EQ(m_net.sent.size(), 5u);
    EXPECT_EQ(m_net.sent.back().numbers.front(), 50);
    m_pictures->setWanted(0, picturesOf(2, 3), true);
    m_net.run(10);
    ASSERT_EQ(m_net.sent.size(), 6u);
    EXPECT_EQ(m_net.sent.back().numbers.front(), 2);
}

TEST_F(PicturesTest, FailuresOfWhatIsNotWantedAreNotKeptWithoutBound)
{
    m_pictures->setWanted(1, {pictureOf(99, 5000)});
    for (quint64 version = 1; version <= 1200; ++version) {
        m_pictures->setWanted(0, {pictureOf(99, version)});
        m_net.run(200);
    }
    m_pictures->setWanted(0, {});
    int failures = 0;
    for (quint64 version = 1; version <= 1200; ++version)
        failures += m_pictures->state(pictureOf(99, version)) == Pictures::Failed ? 1 : 0;
    EXPECT_LE(failures, 1024);
    EXPECT_EQ(m_pictures->state(pictureOf(99, 5000)), Pictures::Failed);
    m_net.run(1000);
    EXPECT_EQ(m_net.sent.size(), 1201u);
}

TEST_F(PicturesTest, ALibraryHasAPictureToo)
{
    get({pictureOf(-1)});
    EXPECT_EQ(m_net.sent.front().kind, Request::LibraryPicture);
    EXPECT_EQ(data(pictureOf(-1)), "0 of 1");
}

TEST_F(PicturesTest, WhatTheServerDoesNotHaveHasFailed)
{
    get({pictureOf(99), pictureOf(1)});
    EXPECT_EQ(m_pictures->state(pictureOf(99)), Pictures::Failed);
    EXPECT_FALSE(m_pictures->problem(pictureOf(99)).isEmpty());
    EXPECT_EQ(m_pictures->state(pictureOf(1)), Pictures::Ready);
    m_pictures->retry();
    m_net.run(1000);
    EXPECT_EQ(m_net.sent.size(), 3u);
}

TEST_F(PicturesTest, ALostServerIsAskedAgainWhenItIsBack)
{
    m_pictures->setWanted(0, picturesOf(0, 20));
    m_net.run(10);
    m_net.setDown(key);
    m_net.run(1000);
    EXPECT_EQ(m_pictures->state(pictureOf(0)), Pictures::Waiting);
    m_net.setUp(key);
    m_net.run(10000);
    EXPECT_EQ(m_pictures->state(pictureOf(0)), Pictures::Ready);
    EXPECT_EQ(m_pictures->state(pictureOf(19)), Pictures::Ready);
}

TEST_F(PicturesTest, AfterARestartNothingIsAskedAgain)
{
    get(picturesOf(0, 90));
    start();
    get(picturesOf(0, 90));
    EXPECT_EQ(m_net.sent.size(), 0u);
    EXPECT_EQ(m_changes.size(), 90u);
    EXPECT_EQ(data(pictureOf(89)), "89 of 1");
}

TEST_F(PicturesTest, AnotherVersionIsAnotherPicture)
{
    get({pictureOf(1, 1)});
    m_generation = 2;
    get({pictureOf(1, 2)});
    EXPECT_EQ(data(pictureOf(1, 2)), "1 of 2");
    start();
    get({pictureOf(1, 2), pictureOf(1, 1)});
    EXPECT_EQ(data(pictureOf(1, 2)), "1 of 2");
    EXPECT_EQ(data(pictureOf(1, 1)), "1 of 1");
    EXPECT_EQ(m_net.sent.size(), 0u);
}

TEST_F(PicturesTest, WhatHasNoVersionIsNotKeptAndIsRenewedByAnUpdate)
{
    get({pictureOf(1, 0)});
    EXPECT_TRUE(files().isEmpty());
    m_generation = 2;
    Msg_MSEX_ELUP update;
    update.versionMinor = 2;
    update.LibraryType = 1;
    update.LibraryId = first;
    update.UpdateFlags = 1;
    Q_EMIT m_net.libraryUpdated(key, update);
    m_net.run(1000);
    EXPECT_EQ(data(pictureOf(1, 0)), "1 of 2");
}

TEST_F(PicturesTest, ManyUpdatesAreTakenTogether)
{
    get({pictureOf(1, 0)});
    m_net.sent.clear();
    Msg_MSEX_ELUP update;
    update.versionMinor = 2;
    update.LibraryType = 1;
    update.LibraryId = first;
    for (int i = 0; i < 1000; ++i)
        Q_EMIT m_net.libraryUpdated(key, update);
    m_net.run(1000);
    EXPECT_EQ(m_net.sent.size(), 1u);
}

TEST_F(PicturesTest, WhatHasNoVersionIsAskedForAgainAfterALoss)
{
    get({pictureOf(1, 0), pictureOf(2)});
    m_net.setDown(key);
    m_net.sent.clear();
    m_generation = 2;
    m_net.setUp(key);
    m_net.run(1000);
    EXPECT_EQ(data(pictureOf(1, 0)), "1 of 2");
    EXPECT_EQ(data(pictureOf(2)), "2 of 1");
    EXPECT_EQ(m_net.sent.size(), 1u);
}

TEST_F(PicturesTest, AnotherServerAtTheSameAddressHasOtherPictures)
{
    get({pictureOf(1)});
    m_net.setDown(key);
    m_generation = 2;
    m_net.setUp(key, 1); // without a UUID
    m_net.run(1000);
    EXPECT_EQ(data(pictureOf(1)), "1 of 2");
}

TEST_F(PicturesTest, WhatIsReloadedIsAskedForAgain)
{
    get({pictureOf(1), pictureOf(2), pictureOf(99)});
    m_net.sent.clear();
    m_generation = 2;
    m_pictures->reload({pictureOf(1), pictureOf(99), pictureOf(3)});
    EXPECT_EQ(m_pictures->state(pictureOf(1)), Pictures::Waiting);
    m_net.run(1000);
    EXPECT_EQ(m_net.sent.size(), 2u);
    EXPECT_EQ(data(pictureOf(1)), "1 of 2");
    EXPECT_EQ(data(pictureOf(2)), "2 of 1");
}

TEST_F(PicturesTest, OfAServerThatIsSilentAllHaveFailed)
{
    get(picturesOf(0, 10));
    m_net.onSend = [](const Request&) { return true; };
    m_net.sent.clear();
    m_pictures->setWanted(0, picturesOf(0, 200));
    m_net.run(30000);
    EXPECT_EQ(m_pictures->state(pictureOf(9)), Pictures::Ready);
    EXPECT_EQ(m_pictures->state(pictureOf(199)), Pictures::Failed);
    EXPECT_TRUE(m_pictures->problem(pictureOf(199)).contains(key));
    const std::size_t before = m_net.sent.size();
    EXPECT_LE(before, 30u);
    m_net.run(30000);
    EXPECT_EQ(m_net.sent.size(), before);
    // Asked for again, they are not taken for failed at once.
    m_pictures->retry();
    EXPECT_EQ(m_pictures->state(pictureOf(199)), Pictures::Waiting);
    EXPECT_GT(m_net.sent.size(), before);
}

TEST_F(PicturesTest, MemoryIsBoundedAndTheDiskHelps)
{
    m_pictures->setMemoryLimit(50 * 210);
    get(picturesOf(0, 90));
    EXPECT_TRUE(data(pictureOf(0)).isEmpty());
    EXPECT_FALSE(data(pictureOf(89)).isEmpty());
    m_net.sent.clear();
    get(picturesOf(0, 10));
    EXPECT_FALSE(data(pictureOf(0)).isEmpty());
    EXPECT_EQ(m_net.sent.size(), 0u);
}

TEST_F(PicturesTest, DamagedFilesAreReplaced)
{
    get({pictureOf(1)});
    ASSERT_EQ(files().size(), 1);
    QFile file(files().front());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray good = file.readAll();
    file.close();
    // Cut at every length, as by a crash, and with every byte changed.
    for (int i = 0; i < 2 * good.size(); ++i) {
        QByteArray bad = good.left(i);
        if (i >= good.size()) {
            bad = good;
            bad[i - good.size()] = static_cast<char>(bad[i - good.size()] ^ 1);
        }
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bad);
        file.close();
        start();
        get({pictureOf(1)});
        EXPECT_EQ(m_net.sent.size(), 1u) << i;
        EXPECT_EQ(data(pictureOf(1)), "1 of 1");
    }
}

TEST_F(PicturesTest, AFileOfAnotherPictureIsNotTakenForIt)
{
    get({pictureOf(1)});
    const QString one = files().front();
    get({pictureOf(2)});
    QStringList both = files();
    both.removeOne(one);
    ASSERT_TRUE(QFile::remove(both.front()));
    ASSERT_TRUE(QFile::copy(one, both.front()));
    start();
    get({pictureOf(2)});
    EXPECT_EQ(data(pictureOf(2)), "2 of 1");
    EXPECT_EQ(m_net.sent.size(), 1u);
}

TEST_F(PicturesTest, AFolderThatCannotBeWrittenIsAProblemThatIsTold)
{
    // Under a file: that cannot be written by root either.
    QFile file(m_folder.filePath(QStringLiteral("file")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    m_pictures = std::make_unique<Pictures>(m_requests, file.fileName());
    int problems = 0;
    QObject::connect(m_pictures.get(), &Pictures::diskProblemChanged, [&] { ++problems; });
    get(picturesOf(0, 10));
    EXPECT_EQ(data(pictureOf(9)), "9 of 1");
    EXPECT_FALSE(m_pictures->diskProblem().isEmpty());
    EXPECT_EQ(problems, 1);
}

TEST_F(PicturesTest, TheFolderIsBoundedAndKeepsWhatWasUsedLast)
{
    get(picturesOf(0, 50));
    const QStringList names = files();
    ASSERT_EQ(names.size(), 50);
    qint64 total = 0;
    for (const QString& name : names) {
        QFile file(name);
        total += file.size();
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        // Long ago, in the order of the names.
        const QDateTime used = QDateTime::currentDateTimeUtc().addDays(-100).addSecs(names.indexOf(name) * 10);
        ASSERT_TRUE(file.setFileTime(used, QFileDevice::FileModificationTime));
    }
    start();
    get({pictureOf(3)});
    m_pictures->setDiskLimit(total / 2);
    get(picturesOf(50, 70));
    qint64 left = 0;
    for (const QString& name : files())
        left += QFile(name).size();
    EXPECT_LE(left, total / 2 + total / 16);
    EXPECT_GE(left, total / 4);
    start();
    get({pictureOf(3)});
    EXPECT_EQ(m_net.sent.size(), 0u);
}

TEST_F(PicturesTest, TwoCanShareAFolder)
{
    Pictures other(m_requests, m_folder.path());
    for (int round = 0; round < 5; ++round) {
        other.setWanted(0, picturesOf(round * 10, round * 10 + 20));
        get(picturesOf(round * 10 + 5, round * 10 + 25));
    }
    start();
    get(picturesOf(0, 65));
    EXPECT_EQ(m_net.sent.size(), 0u);
}
