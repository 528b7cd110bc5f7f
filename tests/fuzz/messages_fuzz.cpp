// Fuzz target: every parsing constructor with its debug text. The input is one message, as a peer would send it.
// SPDX-License-Identifier: Apache-2.0
#include "fuzz_input.h"
#include "reference_parser.h"

#include <citp/citp_codecs.h>
#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_sinf.h>
#include <citp/citp_msg_msex_thumbnails.h>
#include <citp/citp_msg_peer.h>
#include <citp_system/os_log.h>

#include <QString>

using namespace CITP;

namespace {
template <typename Message>
QString textOf(const Message& message)
{
    QString text;
    text >> message;
    return text;
}

/// The promises that hold for all messages: parsing depends on the bytes alone, a message keeps nothing of the buffer
/// it was read from, copies print the same, and an assignment never makes a message valid or invalid.
template <typename Message>
Message check(const QByteArray& bytes)
{
    const auto buffer = std::make_unique<fuzz::ExactBytes>(bytes);
    const Message message(buffer->view());
    const QString text = textOf(message);
    Message again{QByteArray(bytes)};
    FUZZ_REQUIRE(textOf(again) == text);
    FUZZ_REQUIRE(again.valid == message.valid);

    const Message copy(message);
    FUZZ_REQUIRE(textOf(copy) == text);
    FUZZ_REQUIRE(copy.valid == message.valid);
    again = message;
    FUZZ_REQUIRE(textOf(again) == text);
    Message target;
    target = message;
    FUZZ_REQUIRE(target.valid);

    const bool frame = bytes.size() >= 20 && bytes.startsWith(QByteArray("CITP\1\0", 6)) &&
                       static_cast<quint32>(Msg_Header::messageSize(bytes)) == static_cast<quint32>(bytes.size());
    FUZZ_REQUIRE(frame || !message.valid);
    return message;
}

/// The same, and the message held against the second reader of the answers.
template <typename Message>
void checkAnswer(const QByteArray& bytes)
{
    const Message message = check<Message>(bytes);
    Message expected;
    reference::parse(bytes, expected);
    FUZZ_REQUIRE(reference::same(message, expected));
}

/// Keeps an MSEX 1.2 count at @p offset below 256. More is allowed and holds no surprise, but 65535 records take so
/// long that a fuzzer which finds them goes through little else.
void limitCount(QByteArray& bytes, int offset)
{
    if (bytes.size() > offset + 1 && bytes.at(21) == 2)
        bytes[offset + 1] = '\0';
}

void parse(const QByteArray& bytes)
{
    const QString layer = Msg_Header::contentType(bytes);
    const Msg_Header header = check<Msg_Header>(bytes);
    FUZZ_REQUIRE(header.valid == (textOf(header).startsWith(QLatin1String("( rindex="))));
    if (layer == QLatin1String("PINF")) {
        check<Msg_PEER>(bytes);
        check<Msg_PEER_PNAM>(bytes);
        check<Msg_PEER_PLOC>(bytes);
    } else if (layer == QLatin1String("FPTC")) {
        check<Msg_FPTC>(bytes);
        check<Msg_FPTC_PTCH>(bytes);
    } else {
        check<Msg_MSEX>(bytes);
        const QString code = Msg_MSEX::GetCookie(bytes);
        if (code == QLatin1String("SInf"))
            checkAnswer<Msg_MSEX_SINF>(bytes);
        else if (code == QLatin1String("ELIn"))
            checkAnswer<Msg_MSEX_ELIN>(bytes);
        else if (code == QLatin1String("ELUp"))
            checkAnswer<Msg_MSEX_ELUP>(bytes);
        else if (code == QLatin1String("MEIn"))
            checkAnswer<Msg_MSEX_MEIN>(bytes);
        else if (code == QLatin1String("EEIn"))
            checkAnswer<Msg_MSEX_EEIN>(bytes);
        else if (code == QLatin1String("GLEI"))
            checkAnswer<Msg_MSEX_GLEI>(bytes);
        else if (code == QLatin1String("LSta"))
            checkAnswer<Msg_MSEX_LSTA>(bytes);
        else if (code == QLatin1String("ELTh"))
            checkAnswer<Msg_MSEX_ELTH>(bytes);
        else if (code == QLatin1String("EThn"))
            checkAnswer<Msg_MSEX_ETHN>(bytes);
    }
}

/// For an input that is no message at all: every class must take anything.
void parseAsEverything(const QByteArray& bytes)
{
    check<Msg_PEER>(bytes);
    check<Msg_PEER_PNAM>(bytes);
    check<Msg_PEER_PLOC>(bytes);
    check<Msg_FPTC>(bytes);
    check<Msg_FPTC_PTCH>(bytes);
    check<Msg_MSEX>(bytes);
    checkAnswer<Msg_MSEX_SINF>(bytes);
    checkAnswer<Msg_MSEX_ELIN>(bytes);
    checkAnswer<Msg_MSEX_ELUP>(bytes);
    checkAnswer<Msg_MSEX_MEIN>(bytes);
    checkAnswer<Msg_MSEX_EEIN>(bytes);
    checkAnswer<Msg_MSEX_GLEI>(bytes);
    checkAnswer<Msg_MSEX_LSTA>(bytes);
    checkAnswer<Msg_MSEX_ELTH>(bytes);
    checkAnswer<Msg_MSEX_ETHN>(bytes);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // The one line that parsing writes is the same text each time, and its call stack is dear.
    static const bool quiet = [] {
        Os::Log::SetMask("CITP.Message", 0);
        return true;
    }();
    (void)quiet;

    QByteArray bytes = fuzz::Input(data, size).rest();
    const bool message = bytes.startsWith("CITP");
    const QString code = Msg_MSEX::GetCookie(bytes);
    if (!message || code == QLatin1String("ELIn"))
        limitCount(bytes, 27);
    if (!message || code == QLatin1String("MEIn") || code == QLatin1String("EEIn"))
        limitCount(bytes, 30);
    if (!message || code == QLatin1String("GLEI"))
        limitCount(bytes, 31);

    // As it came, and with a size field that fits: few mutations would hit that by themselves.
    parse(bytes);
    if (!message)
        parseAsEverything(bytes);
    Msg_Header::setSize(bytes);
    parse(bytes);
    return 0;
}
