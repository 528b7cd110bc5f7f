// The message classes' types across the library's boundary: which class an object is of can be told from outside.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_header.h>
#include <citp/citp_msg_msex.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_msg_msex_sinf.h>
#include <citp/citp_msg_msex_thumbnails.h>
#include <citp/citp_msg_peer.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <memory>
#include <type_traits>
#include <typeinfo>

namespace {
using CITP::Msg_Header;

template <typename Class>
class MessageType : public testing::Test
{
};

using MessageTypes = testing::Types<CITP::Msg_Header, CITP::Msg_PEER, CITP::Msg_PEER_PLOC, CITP::Msg_PEER_PNAM,
                                    CITP::Msg_FPTC, CITP::Msg_FPTC_PTCH, CITP::Msg_FPTC_SPTC, CITP::Msg_MSEX,
                                    CITP::Msg_MSEX_CInf, CITP::Msg_MSEX_SINF, CITP::Msg_MSEX_GELI, CITP::Msg_MSEX_GEIN,
                                    CITP::Msg_MSEX_GELT, CITP::Msg_MSEX_GETH, CITP::Msg_MSEX_ELIN, CITP::Msg_MSEX_ELUP,
                                    CITP::Msg_MSEX_MEIN, CITP::Msg_MSEX_EEIN, CITP::Msg_MSEX_GLEI, CITP::Msg_MSEX_LSTA,
                                    CITP::Msg_MSEX_Thumbnail_Response_Base, CITP::Msg_MSEX_ELTH, CITP::Msg_MSEX_ETHN>;
TYPED_TEST_SUITE(MessageType, MessageTypes);

TYPED_TEST(MessageType, IsAValueThatCanBeDeletedThroughTheRoot)
{
    static_assert(std::is_base_of<Msg_Header, TypeParam>::value, "every message begins with the header");
    static_assert(std::is_default_constructible<TypeParam>::value, "notifications make messages from nothing");
    static_assert(std::is_copy_constructible<TypeParam>::value, "notifications copy messages");
    static_assert(std::is_copy_assignable<TypeParam>::value, "a message can be kept");
    static_assert(std::has_virtual_destructor<TypeParam>::value, "a message can be deleted through its base");
    const std::unique_ptr<Msg_Header> message = std::make_unique<TypeParam>();
    EXPECT_TRUE(message->valid);
}

TYPED_TEST(MessageType, IsFoundOutFromTheRoot)
{
    const TypeParam message;
    const Msg_Header& root = message;
    EXPECT_EQ(dynamic_cast<const TypeParam*>(&root), &message);
    EXPECT_EQ(typeid(root), typeid(TypeParam));

    const std::unique_ptr<Msg_Header> other = std::make_unique<Msg_Header>();
    const bool isRoot = std::is_same<TypeParam, Msg_Header>::value;
    EXPECT_EQ(dynamic_cast<const TypeParam*>(other.get()) != nullptr, isRoot);
}

TYPED_TEST(MessageType, HasOneTypeInformationThatTheLibraryExports)
{
    // Found by its name in the library itself and the same object that this program uses: a copy of the program's own
    // would make a dynamic_cast inside the library fail on some platforms.
    const std::string symbol = std::string("_ZTI") + typeid(TypeParam).name();
    const void* const found = dlsym(RTLD_DEFAULT, symbol.c_str());
    ASSERT_NE(found, nullptr) << symbol;
    EXPECT_EQ(found, static_cast<const void*>(&typeid(TypeParam)));
    Dl_info home;
    ASSERT_NE(dladdr(found, &home), 0);
    EXPECT_NE(std::string(home.dli_fname).find("libcitp-"), std::string::npos) << home.dli_fname;
}
} // namespace
