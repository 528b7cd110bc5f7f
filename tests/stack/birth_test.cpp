// What the first call of Get() brings about, and the meta-object with its types. A program of its own, in which nothing
// has touched the stack before.
// SPDX-License-Identifier: Apache-2.0
#include "patch_receiver.h"
#include "stack_fixture.h"

#include <citp/citp_msg_fptc.h>

#include <QMetaMethod>
#include <QMetaType>

using CITP::citp_stack;

namespace {
bool isRegistered(const char* name)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    return QMetaType::fromName(name).isValid();
#else
    return QMetaType::type(name) != QMetaType::UnknownType;
#endif
}

const std::vector<std::string> messageTypes{"CITP::Msg_MSEX_ELTH", "CITP::Msg_MSEX_ETHN", "CITP::Msg_MSEX_ELIN",
                                            "CITP::Msg_MSEX_MEIN", "CITP::Msg_MSEX_EEIN", "CITP::Msg_MSEX_GLEI",
                                            "CITP::Msg_MSEX_LSTA", "CITP::Msg_MSEX_ELUP"};
} // namespace

// Comes first in this program: it looks at the time before the stack.
TEST(StackBirth, TheFirstGetMakesADisabledStackAndRegistersTheMessages)
{
    LogCapture& log = LogCapture::get();
    for (const std::string& type : messageTypes) {
        EXPECT_FALSE(isRegistered(type.c_str())) << type;
    }
    EXPECT_FALSE(isRegistered("CITP::citp_stack::SERV_ID"));
    EXPECT_FALSE(isRegistered("CITP::Msg_FPTC_PTCH"));
    citp_stack::Get();
    for (const std::string& type : messageTypes) {
        EXPECT_TRUE(isRegistered(type.c_str())) << type;
    }
    EXPECT_TRUE(isRegistered("CITP::citp_stack::SERV_ID"));
    EXPECT_FALSE(isRegistered("CITP::Msg_FPTC_PTCH"));
    EXPECT_EQ(log.texts(), std::vector<std::string>{"CITP processing now disabled"});
    EXPECT_EQ(log.entries().front().level, 2u);
    citp_stack::Get();
    EXPECT_EQ(log.entries().size(), 1u);
    EXPECT_TRUE(citp_stack::Get()->getServers().empty());
    EXPECT_EQ(citp_stack::Get()->getNumNotified(), 0);
}

TEST(StackMetaObject, TheMethodsHaveTheirOrderKindsAndSignatures)
{
    const std::vector<std::string> expected{"libraryThumbnail(CITP::citp_stack::SERV_ID,CITP::Msg_MSEX_ELTH)",
                                            "elementThumbnail(CITP::citp_stack::SERV_ID,CITP::Msg_MSEX_ETHN)",
                                            "libraryInfo(CITP::citp_stack::SERV_ID,CITP::Msg_MSEX_ELIN)",
                                            "mediaInfo(CITP::citp_stack::SERV_ID,CITP::Msg_MSEX_MEIN)",
                                            "effectInfo(CITP::citp_stack::SERV_ID,CITP::Msg_MSEX_EEIN)",
                                            "genericInfo(CITP::citp_stack::SERV_ID,CITP::Msg_MSEX_GLEI)",
                                            "libraryUpdated(CITP::citp_stack::SERV_ID,CITP::Msg_MSEX_ELUP)",
                                            "layerStatus(CITP::citp_stack::SERV_ID,CITP::Msg_MSEX_LSTA)",
                                            "patchMessage(CITP::citp_stack::SERV_ID,CITP::Msg_FPTC_PTCH)",
                                            "serverUp(CITP::citp_stack::SERV_ID)",
                                            "serverDown(CITP::citp_stack::SERV_ID)",
                                            "__passDown(CITP::citp_stack::SERV_ID,QByteArray)",
                                            "process()",
                                            "processPendingUDP()",
                                            "timepop()",
                                            "rxdisconnected()",
                                            "rxerror()",
                                            "rxreadyread()",
                                            "rxconnected()",
                                            "rxPassDown(CITP::citp_stack::SERV_ID,QByteArray)"};
    const QMetaObject& meta = citp_stack::staticMetaObject;
    EXPECT_STREQ(meta.className(), "CITP::citp_stack");
    EXPECT_STREQ(meta.superClass()->className(), "QObject");
    ASSERT_EQ(meta.methodCount() - meta.methodOffset(), static_cast<int>(expected.size()));
    for (int index = 0; index < static_cast<int>(expected.size()); ++index) {
        const QMetaMethod method = meta.method(meta.methodOffset() + index);
        EXPECT_EQ(method.methodSignature().toStdString(), expected[static_cast<std::size_t>(index)]);
        EXPECT_EQ(method.methodType(), index < 12 ? QMetaMethod::Signal : QMetaMethod::Slot) << index;
        EXPECT_EQ(method.access(), index < 12 ? QMetaMethod::Public : QMetaMethod::Private) << index;
    }
}

TEST(StackMetaObject, OnlyTheBytesThatArePassedDownHaveAName)
{
    const QMetaObject& meta = citp_stack::staticMetaObject;
    for (int index = 0; index < 20; ++index) {
        const QList<QByteArray> names = meta.method(meta.methodOffset() + index).parameterNames();
        for (int parameter = 0; parameter < static_cast<int>(names.size()); ++parameter) {
            EXPECT_EQ(names.at(parameter), index == 19 && parameter == 1 ? "b" : "") << index << " " << parameter;
        }
    }
}

TEST(StackMetaObject, ThereAreNoPropertiesEnumerationsOrClassInformation)
{
    const QMetaObject& meta = citp_stack::staticMetaObject;
    EXPECT_EQ(meta.propertyCount(), meta.propertyOffset());
    EXPECT_EQ(meta.enumeratorCount(), meta.enumeratorOffset());
    EXPECT_EQ(meta.classInfoCount(), meta.classInfoOffset());
    EXPECT_EQ(meta.constructorCount(), 0);
}

class PatchTest : public StackTest
{
protected:
    /// Sends a patch message and something behind it that has reached the application when this returns.
    void sendPatch()
    {
        QObject application;
        int layers = 0;
        QObject::connect(stack, &citp_stack::layerStatus, &application, [&layers] { ++layers; });
        m_connection->send(Wire::ptch(7) + Wire::lsta(1));
        ASSERT_TRUE(waitFor([&layers] { return layers == 1; }));
    }

    void SetUp() override
    {
        StackTest::SetUp();
        enable();
        m_connection.emplace(admit(m_server));
    }

    void TearDown() override
    {
        m_connection.reset();
        StackTest::TearDown();
    }

    FakeServer m_server;
    std::optional<Connection> m_connection;
};

TEST_F(PatchTest, AReceiverInAnotherThreadGetsPatchesOnlyOnceTheMessageIsRegistered)
{
    int called = 0;
    QObject application;
    QObject::connect(stack, &citp_stack::patchMessage, &application, [&called] { ++called; });
    PatchReceiver receiver;
    ASSERT_TRUE(QObject::connect(stack, SIGNAL(patchMessage(CITP::citp_stack::SERV_ID, CITP::Msg_FPTC_PTCH)), &receiver,
                                 SLOT(patch(CITP::citp_stack::SERV_ID, CITP::Msg_FPTC_PTCH))));
    const std::string event = "patchMessage " + m_server.key().toStdString() + " 7";
    sendPatch();
    sendPatch();
    EXPECT_EQ(recorder->count(event), 2); // a direct receiver always gets them
    EXPECT_EQ(called, 0);
    EXPECT_EQ(receiver.count, 0);
    EXPECT_FALSE(isRegistered("CITP::Msg_FPTC_PTCH"));

    qRegisterMetaType<CITP::Msg_FPTC_PTCH>("CITP::Msg_FPTC_PTCH");
    // Qt remembers of a connection that its arguments could not be queued; new ones are needed.
    int calledLater = 0;
    QObject::connect(stack, &citp_stack::patchMessage, &application, [&calledLater] { ++calledLater; });
    PatchReceiver laterReceiver;
    ASSERT_TRUE(QObject::connect(stack, SIGNAL(patchMessage(CITP::citp_stack::SERV_ID, CITP::Msg_FPTC_PTCH)),
                                 &laterReceiver, SLOT(patch(CITP::citp_stack::SERV_ID, CITP::Msg_FPTC_PTCH))));
    sendPatch();
    EXPECT_EQ(recorder->count(event), 3);
    EXPECT_EQ(calledLater, 1);
    EXPECT_EQ(laterReceiver.count, 1);
}
