// Catalogue: loading on demand and whole, updates, lost servers, and odd ones.
// SPDX-License-Identifier: Apache-2.0
#include "fake_transport.h"

#include <citp_client/catalogue.h>

#include <gtest/gtest.h>

#include <map>
#include <random>

using namespace CITP;

namespace {
const QString key = QStringLiteral("2.0.0.10:4811");

QString topLevel(int number)
{
    return QStringLiteral("1,%1,0,0").arg(number);
}

struct Content
{
    quint32 serial = 0;
    std::map<quint8, QString> elements; ///< names by number
};
} // namespace

/// A server that answers from a tree of libraries, at once or after a while.
class CatalogueTest : public testing::Test
{
protected:
    CatalogueTest()
    {
        m_net.onSend = [this](const Request& request) {
            answer(request);
            return true;
        };
        QObject::connect(&m_net, &Transport::serverDown, [this] { ++m_connection; });
        QObject::connect(&m_catalogue, &Catalogue::elementsChanged, [this] { ++m_elementChanges; });
        QObject::connect(&m_catalogue, &Catalogue::idle, [this] { ++m_idles; });
        for (int number = 1; number <= 3; ++number)
            add(topLevel(number), 5);
        add(QStringLiteral("2,1,1,0"), 2);
        add(QStringLiteral("3,1,1,7"), 1);
        m_net.setUp(key);
    }

    void add(const QString& id, quint8 elements)
    {
        m_content[id].serial = ++m_serial;
        for (quint8 number = 0; number < elements; ++number)
            m_content[id].elements[number] = QStringLiteral("%1 of %2").arg(number).arg(id);
    }
    /// Answers with what it has now.
    void answer(const Request& request)
    {
        const auto isAsked = [&](quint8 number) {
            return request.numbers.empty() ||
                   std::find(request.numbers.begin(), request.numbers.end(), number) != request.numbers.end();
        };
        if (request.kind == Request::Elements) {
            auto message = mein(2, request.library, {}, {});
            const Content none;
            const auto found = m_content.find(request.library);
            for (const auto& element : (found == m_content.end() ? none : found->second).elements) {
                if (!isAsked(element.first))
                    continue;
                Msg_MSEX_MEIN::MediaInformation item;
                item.Number = element.first;
                item.Name = element.second;
                message.Media.push_back(item);
            }
            deliver([this, message] { Q_EMIT m_net.mediaInfo(key, message); });
            return;
        }
        auto message = elin(2, request.type, {}, {});
        for (const auto& content : m_content) {
            if (parentLibrary(content.first) != request.library || !isAsked(libraryNumber(content.first)))
                continue;
            Msg_MSEX_ELIN::ElementLibraryInformation item;
            item.LIBID = content.first;
            item.SerialNumber = content.second.serial;
            item.ElementCount = static_cast<unsigned short>(content.second.elements.size());
            for (const auto& other : m_content)
                if (parentLibrary(other.first) == content.first)
                    ++item.SubLibraryCount;
            message.Libraries.push_back(item);
        }
        deliver([this, message] { Q_EMIT m_net.libraryInfo(key, message); });
    }
    /// Sends an answer, after a while, if the connection still exists.
    void deliver(const std::function<void()>& send)
    {
        m_net.at(m_net.now() + m_delay, [this, send, connection = m_connection] {
            if (connection == m_connection)
                send();
        });
    }
    void update(const QString& library, unsigned flags, const std::vector<quint8>& elements = {},
                const std::vector<quint8>& libraries = {})
    {
        Msg_MSEX_ELUP message;
        message.versionMinor = 2;
        message.LibraryType = 1;
        message.LibraryId = library;
        message.UpdateFlags = static_cast<quint8>(flags);
        for (const quint8 number : elements)
            message.AffectedElements.at(number / 8) |= static_cast<unsigned char>(1 << (number % 8));
        for (const quint8 number : libraries)
            message.AffectedLibraries.at(number / 8) |= static_cast<unsigned char>(1 << (number % 8));
        Q_EMIT m_net.libraryUpdated(key, message);
    }
    /// Whether the catalogue has what the server has.
    void expectSame()
    {
        EXPECT_EQ(m_catalogue.allLibraries(1).size(), m_content.size());
        for (const Library& library : m_catalogue.allLibraries(1)) {
            const Content& content = m_content.at(library.id);
            EXPECT_EQ(library.serialNumber, content.serial);
            QStringList expected;
            for (const auto& element : content.elements)
                expected << QStringLiteral("%1 %2").arg(element.first).arg(element.second);
            QStringList elements;
            for (const Element& element : m_catalogue.elements(1, library.id))
                elements << QStringLiteral("%1 %2").arg(element.number).arg(element.name);
            EXPECT_EQ(elements.join(QLatin1Char('\n')).toStdString(), expected.join(QLatin1Char('\n')).toStdString())
                << library.id.toStdString();
        }
    }
    void loadAll()
    {
        m_catalogue.loadAll(1);
        m_net.run(1000);
    }

    FakeTransport m_net;
    Requests m_requests{m_net};
    Catalogue m_catalogue{m_requests, key};
    std::map<QString, Content> m_content;
    quint32 m_serial = 0; ///< of the last change
    qint64 m_delay = 0;
    int m_connection = 0;
    int m_elementChanges = 0;
    int m_idles = 0;
};

TEST_F(CatalogueTest, InQuietModeWhatIsLoadedByHandIsRequested)
{
    m_requests.setQuiet(true);
    m_catalogue.loadLibraries(1);
    m_catalogue.loadElements(1, topLevel(1), true);
    m_net.run(1000);
    EXPECT_EQ(m_net.sent.size(), 1u);
    EXPECT_EQ(m_catalogue.elementsState(1, topLevel(1)), Catalogue::Loaded);
    EXPECT_FALSE(m_catalogue.isIdle());
    m_catalogue.loadLibraries(1, rootLibrary(), true);
    m_net.run(1000);
    // What was requested before, and once more.
    EXPECT_EQ(m_net.sent.size(), 3u);
    EXPECT_EQ(m_catalogue.librariesState(1), Catalogue::Loaded);
    EXPECT_TRUE(m_catalogue.isIdle());
}

TEST_F(CatalogueTest, LoadsOnDemand)
{
    EXPECT_EQ(m_catalogue.librariesState(1), Catalogue::Unknown);
    m_catalogue.loadLibraries(1);
    EXPECT_EQ(m_catalogue.librariesState(1), Catalogue::Loading);
    EXPECT_FALSE(m_catalogue.isIdle());
    m_net.run(10);
    EXPECT_EQ(m_catalogue.librariesState(1), Catalogue::Loaded);
    ASSERT_EQ(m_catalogue.libraries(1).size(), 3u);
    EXPECT_EQ(m_catalogue.library(1, topLevel(2)).elements, 5);
    EXPECT_EQ(m_catalogue.elementsState(1, topLevel(2)), Catalogue::Unknown);
    m_catalogue.loadElements(1, topLevel(2));
    m_net.run(10);
    EXPECT_EQ(m_catalogue.elements(1, topLevel(2)).size(), 5u);
    EXPECT_EQ(m_net.sent.size(), 2u);
    EXPECT_TRUE(m_catalogue.isIdle());
    EXPECT_EQ(m_idles, 2);
}

TEST_F(CatalogueTest, LoadsTheWholeTreeWithOneRequestForEachList)
{
    loadAll();
    expectSame();
    EXPECT_EQ(m_catalogue.allLibraries(1).at(1).id, QStringLiteral("2,1,1,0"));
    EXPECT_EQ(m_net.sent.size(), 3u + 5u);
    EXPECT_EQ(m_idles, 1);
}

TEST_F(CatalogueTest, LoadsAllLibrariesWithoutTheirElements)
{
    m_catalogue.loadAllLibraries(1);
    m_net.run(10);
    EXPECT_EQ(m_catalogue.allLibraries(1).size(), 5u);
    EXPECT_EQ(m_catalogue.elementsState(1, topLevel(1)), Catalogue::Unknown);
    EXPECT_EQ(m_net.sent.size(), 3u);
    EXPECT_FALSE(m_catalogue.isFull());
}

TEST_F(CatalogueTest, AnUpdateIsAskedForAndNothingElse)
{
    loadAll();
    m_net.sent.clear();
    m_content[topLevel(2)].elements[3] = QStringLiteral("new");
    m_content[topLevel(2)].elements.erase(4);
    m_content[topLevel(2)].serial = ++m_serial;
    update(topLevel(2), 0x03, {3, 4});
    m_net.run(10);
    expectSame();
    ASSERT_EQ(m_net.sent.size(), 2u);
    EXPECT_EQ(m_net.sent.front().numbers, (std::vector<quint8>{3, 4}));
    EXPECT_EQ(m_net.sent.back().kind, Request::Libraries);
    EXPECT_EQ(m_net.sent.back().numbers, std::vector<quint8>{2});
}

TEST_F(CatalogueTest, AnUpdateWithoutNumbersIsAskedForWhole)
{
    loadAll();
    for (const unsigned flags : {0x01u, 0x11u}) {
        m_net.sent.clear();
        m_content[topLevel(2)].elements[0] = QStringLiteral("flags %1").arg(flags);
        update(topLevel(2), flags, flags == 0x11 ? std::vector<quint8>{1} : std::vector<quint8>{});
        m_net.run(10);
        expectSame();
        EXPECT_TRUE(m_net.sent.front().numbers.empty());
    }
}

TEST_F(CatalogueTest, LibrariesComeAndGo)
{
    loadAll();
    m_net.sent.clear();
    m_content.erase(topLevel(3));
    add(topLevel(9), 2);
    update(rootLibrary(), 0x08, {}, {3, 9});
    m_net.run(10);
    expectSame();
    EXPECT_EQ(m_net.sent.size(), 2u); // and the elements of the new one
    EXPECT_EQ(m_catalogue.elementsState(1, topLevel(3)), Catalogue::Unknown);
}

TEST_F(CatalogueTest, RequestsForALibraryThatGoesEndWithIt)
{
    m_net.onSend = [this](const Request& request) {
        if (request.kind == Request::Libraries)
            answer(request);
        return true;
    };
    m_catalogue.loadAll(1);
    m_net.run(100);
    EXPECT_FALSE(m_catalogue.isIdle());
    m_content.clear();
    update(rootLibrary(), 0x04);
    m_net.run(100);
    EXPECT_TRUE(m_catalogue.isIdle());
    EXPECT_EQ(m_idles, 1);
}

TEST_F(CatalogueTest, AChangeDuringARequestIsNotLost)
{
    loadAll();
    m_delay = 100;
    update(topLevel(1), 0x01, {1});
    m_net.run(50);
    // The answer is on its way, and is outdated now.
    m_content[topLevel(1)].elements[1] = QStringLiteral("later");
    update(topLevel(1), 0x01, {1});
    m_net.run(500);
    expectSame();
    EXPECT_EQ(m_elementChanges, 12);
}

TEST_F(CatalogueTest, AServerThatIsBackIsAskedOnlyForWhatHasChanged)
{
    loadAll();
    m_net.setDown(key);
    EXPECT_EQ(m_catalogue.elements(1, topLevel(2)).size(), 5u);
    m_content[topLevel(2)].elements[0] = QStringLiteral("changed");
    m_content[topLevel(2)].serial = ++m_serial;
    m_net.sent.clear();
    m_net.setUp(key);
    m_net.run(100);
    expectSame();
    int elements = 0;
    for (const Request& request : m_net.sent)
        elements += request.kind == Request::Elements ? 1 : 0;
    EXPECT_EQ(elements, 1);
}

TEST_F(CatalogueTest, AServerThatIsNotUpYetIsLoadedWhenItIs)
{
    m_net.setDown(key);
    loadAll();
    EXPECT_EQ(m_catalogue.librariesState(1), Catalogue::Failed);
    EXPECT_FALSE(m_catalogue.librariesProblem(1).isEmpty());
    m_net.setUp(key);
    m_net.run(100);
    expectSame();
    EXPECT_TRUE(m_catalogue.librariesProblem(1).isEmpty());
}

TEST_F(CatalogueTest, AnOddListIsSaidToBeOdd)
{
    m_net.onSend = [this](const Request&) {
        m_net.at(m_net.now(), [this] {
            Q_EMIT m_net.libraryInfo(key, elin(2, 1, {topLevel(1), topLevel(1), rootLibrary()}, {}));
        });
        return true;
    };
    m_catalogue.loadLibraries(1);
    m_net.run(10);
    EXPECT_EQ(m_catalogue.libraries(1).size(), 1u);
    EXPECT_TRUE(m_catalogue.librariesProblem(1).contains(QLatin1Char('2'))) << "two were left out";
}

// The conversion must not depend on the entries that are left out.
TEST_F(CatalogueTest, OfAListOfStrangersAndDoublesTheRestIsTaken)
{
    m_net.onSend = [this](const Request&) {
        m_net.at(m_net.now(), [this] {
            QStringList ids;
            for (int i = 0; i < 65535; ++i)
                ids << QStringLiteral("1,%1,%2,0").arg(i % 300).arg(i / 256);
            ids[7] = QStringLiteral("2,7,7,0");
            Q_EMIT m_net.libraryInfo(key, elin(2, 1, ids, {}));
        });
        return true;
    };
    m_catalogue.loadLibraries(1);
    m_net.run(10);
    EXPECT_EQ(m_catalogue.libraries(1).size(), 256u);
    EXPECT_TRUE(m_catalogue.librariesProblem(1).contains(QLatin1String("65279")));
}

TEST_F(CatalogueTest, AnEndlessTreeEnds)
{
    m_content.clear();
    m_net.onSend = [this](const Request& request) {
        if (request.kind == Request::Elements) {
            answer(request);
            return true;
        }
        m_net.at(m_net.now(), [this, request] {
            auto message = elin(2, 1, {}, {});
            const QStringList levels = request.library.split(QLatin1Char(','));
            const int depth = levels.first().toInt();
            for (int number = 0; number < 41; ++number) {
                QStringList id = levels;
                id[0] = QString::number(depth + 1);
                if (depth < 3)
                    id[depth + 1] = QString::number(number);
                Msg_MSEX_ELIN::ElementLibraryInformation item;
                item.LIBID = id.join(QLatin1Char(','));
                item.SubLibraryCount = 41;
                message.Libraries.push_back(item);
            }
            Q_EMIT m_net.libraryInfo(key, message);
        });
        return true;
    };
    m_catalogue.loadAll(1);
    m_net.run(100000);
    EXPECT_TRUE(m_catalogue.isIdle());
    EXPECT_TRUE(m_catalogue.isFull());
    EXPECT_LE(m_catalogue.allLibraries(1).size(), std::size_t(Catalogue::maxLibraries));
    EXPECT_GE(m_catalogue.allLibraries(1).size(), 60000u);
}

TEST_F(CatalogueTest, RandomChangesLeaveTheSame)
{
    for (unsigned seed = 1; seed <= 1000; ++seed) {
        std::mt19937 random(seed);
        m_delay = random() % 200;
        loadAll();
        for (int step = 0; step < 20; ++step) {
            const int number = static_cast<int>(1 + random() % 4);
            const QString id = topLevel(number);
            const auto element = static_cast<quint8>(random() % 6);
            switch (random() % 6) {
                case 0:
                    m_content.erase(id);
                    update(rootLibrary(), 0x08, {}, {static_cast<quint8>(number)});
                    break;
                case 1:
                    if (m_content.count(id) == 0) {
                        add(id, 3);
                        update(rootLibrary(), 0x08, {}, {static_cast<quint8>(number)});
                    }
                    break;
                case 2:
                    m_net.setDown(key);
                    m_net.setUp(key);
                    break;
                default:
                    if (m_content.count(id) > 0) {
                        m_content[id].serial = ++m_serial;
                        m_content[id].elements[element] = QString::number(random());
                        update(id, 0x03, random() % 3 == 0 ? std::vector<quint8>{} : std::vector<quint8>{element});
                    }
            }
            m_net.run(random() % 300);
        }
        m_net.run(30000);
        m_content.erase(QStringLiteral("2,1,1,0"));
        m_content.erase(QStringLiteral("3,1,1,7"));
        update(rootLibrary(), 0x0c);
        update(topLevel(1), 0x0c);
        m_net.run(30000);
        expectSame();
        ASSERT_FALSE(HasFailure()) << "seed " << seed;
    }
}
