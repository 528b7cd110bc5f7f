// PictureStore: what is shown if pictures change while they are decoded.
// SPDX-License-Identifier: Apache-2.0
#include "fake_transport.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <QImage>

#include "browser_fixture.h"
#include "models/picture_store.h"

using namespace CITP;
using Browser::PictureStore;

namespace {
const QString server = QStringLiteral("2.0.0.10:4811");
const PictureId id{server, 1, QStringLiteral("1,1,0,0"), 7, 1};

QByteArray jpeg()
{
    QImage image(8, 8, QImage::Format_RGB32);
    image.fill(Qt::red);
    QByteArray data;
    QBuffer buffer(&data);
    image.save(&buffer, "JPEG");
    return data;
}

class PictureStoreTest : public testing::Test
{
protected:
    PictureStoreTest() { m_net.setUp(server); }

    void answer(const QByteArray& data)
    {
        Msg_MSEX_ETHN message = ethn(2, 1, id.library, static_cast<quint8>(id.number), {});
        message.ThumbnailBuffer = data;
        Q_EMIT m_net.elementThumbnail(server, message);
    }

    FakeTransport m_net;
    Requests m_requests{m_net};
    Pictures m_pictures{m_requests};
    PictureStore m_store{m_pictures};
};
} // namespace

// The results of decoding wait for the event loop, which does not run between the two answers.
TEST_F(PictureStoreTest, APictureThatComesWhileTheFormerIsDecodedTakesItsPlace)
{
    m_store.setServerUp(true);
    m_store.setWanted(PictureStore::Priority::Visible, {id});
    m_net.run(0);
    answer("damaged");
    m_store.reload(id);
    m_net.run(0);
    ASSERT_EQ(m_net.sent.size(), 2u);
    answer(jpeg());
    EXPECT_TRUE(waitFor([this] { return m_store.state(id) == PictureStore::State::Ready; }));
}

TEST_F(PictureStoreTest, ARetriedPictureIsNotTakenForTheFormer)
{
    m_store.setServerUp(true);
    m_store.setWanted(PictureStore::Priority::Visible, {id});
    m_net.run(0);
    answer("damaged");
    ASSERT_TRUE(waitFor([this] { return m_store.state(id) == PictureStore::State::Failed; }));
    m_store.retry();
    m_net.run(0);
    answer(jpeg());
    EXPECT_TRUE(waitFor([this] { return m_store.state(id) == PictureStore::State::Ready; }));
}
