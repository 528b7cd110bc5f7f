// An application on the installed library: messages, type information in both directions, the stack at rest.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_peer.h>
#include <citp/citp_stack.h>
#include <citp_system/os_log.h>

#include <QByteArray>
#include <QCoreApplication>

#include <cstdio>
#include <cstring>
#include <string>
#include <typeinfo>

namespace {
int failures = 0;

void check(bool good, const char* what)
{
    if (!good) {
        std::printf("FAILED: %s\n", what);
        ++failures;
    }
}

/// Keeps the last line, so that the reason of a refusal can be looked at.
class LastLine : public Os::Log::Sink
{
public:
    void Write(const Os::Log::Line& line) override { text.assign(line.text.c_str(), line.text.length()); }
    std::string text;
};

class ForeignMessage : public CITP::Msg_Header
{
};

std::string refusal(const CITP::Msg_Header& message)
{
    LastLine lastLine;
    Os::Log::SetSink(&lastLine);
    check(!CITP::citp_stack::Get()->sendMsg(QStringLiteral("2.0.0.1:4811"), message), "there is no such server");
    Os::Log::SetSink(nullptr);
    return lastLine.text;
}
} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    // The first line is for the tests to read: the Qt that this runs with.
    std::printf("Qt %s\n", qVersion());

    const CITP::Msg_PEER_PNAM name(QStringLiteral("Console"));
    QByteArray bytes;
    bytes >> name;
    std::printf("%s\n", bytes.toHex().constData());
    check(bytes.startsWith("CITP") && bytes.endsWith(QByteArray("PINFPNamConsole\0", 16)), "the bytes of a PNam");

    // The library recognises a message that was made here ...
    check(refusal(name).find("server not found") != std::string::npos, "the library knows the message's type");
    check(refusal(ForeignMessage()).find("cannot send this message type") != std::string::npos,
          "the library does not know the application's own type");
    // ... and here is recognised what the library made.
    QObject* const object = CITP::citp_stack::Get();
    check(dynamic_cast<CITP::citp_stack*>(object) == CITP::citp_stack::Get(), "dynamic_cast to the library's class");
    check(typeid(*object) == typeid(CITP::citp_stack), "typeid of the library's object");
    try {
        throw CITP::Msg_PEER_PLOC();
    } catch (const CITP::Msg_PEER&) {
    } catch (...) {
        check(false, "catch by the library's base class");
    }

    check(CITP::citp_stack::Get()->getServers().empty(), "no server while the stack is disabled");
    check(CITP::citp_stack::Get()->getNumNotified() == 0, "no server is counted");
    if (failures == 0) {
        std::printf("good\n");
    }
    return failures;
}
