// Tests of Os::Log: nesting, masks, sinks, and the way to Qt's message logging.
// SPDX-License-Identifier: Apache-2.0
#include "child_process.h"

#include <citp_system/os_log.h>

#include <gtest/gtest.h>
#include <QString>
#include <QtGlobal>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace Os::Log;

void write(const Context& context, unsigned level, std::string_view text)
{
    context.Write(level, text_base(text), "void function()", "file.cpp", 12, Os::Thread::GetCallStack());
}

// Installs itself for as long as it lives and keeps the lines.
class RecordingSink : public Sink
{
public:
    RecordingSink() : m_previous(SetSink(this)) {}
    ~RecordingSink() override { SetSink(m_previous); }
    void Write(const Line& line) override
    {
        const std::lock_guard lock(m_mutex);
        m_lines.push_back(line.context.GetName() + ' ' + std::to_string(line.level) + ' ' + line.text.c_str() + ' ' +
                          line.function + ' ' + line.file + ' ' + std::to_string(line.line));
        m_depth = line.callStack.GetDepth();
    }
    std::vector<std::string> lines() const
    {
        const std::lock_guard lock(m_mutex);
        return m_lines;
    }
    int callStackDepth() const { return m_depth; }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_lines;
    int m_depth = 0;
    Sink* m_previous;
};

struct QtMessage
{
    QtMsgType type;
    std::string text;
    std::string category;
    std::string file;
    std::string function;
    int line;
};
std::vector<QtMessage>* qtMessages = nullptr;

// Collects what reaches Qt's message logging for as long as it lives.
class QtMessages
{
public:
    QtMessages() : m_previous(qInstallMessageHandler(&take)) { qtMessages = &all; }
    ~QtMessages()
    {
        qInstallMessageHandler(m_previous);
        qtMessages = nullptr;
    }
    std::vector<QtMessage> all;

private:
    static void take(QtMsgType type, const QMessageLogContext& context, const QString& text)
    {
        const QByteArray bytes = text.toUtf8();
        qtMessages->push_back({type, std::string(bytes.constData(), static_cast<std::size_t>(bytes.size())),
                               context.category, context.file, context.function, context.line});
    }
    QtMessageHandler m_previous;
};

TEST(Log, NamesContextsFromTheRootDown)
{
    Context root("Names");
    Context child("Child", &root);
    const Context leaf("Leaf", &child);
    EXPECT_EQ(root.GetName(), "Names");
    EXPECT_EQ(leaf.GetName(), "Names.Child.Leaf");
}

TEST(Log, LeavesTrafficOutUnlessAskedFor)
{
    Context context("Defaults");
    EXPECT_EQ(context.GetMask(), 30U);
    EXPECT_FALSE(context.IsEnabled(Traffic));
    for (const unsigned level : {State, Warning, Failure, Critical})
        EXPECT_TRUE(context.IsEnabled(level)) << level;
    context.SetMask(Traffic);
    EXPECT_TRUE(context.IsEnabled(Traffic));
    EXPECT_FALSE(context.IsEnabled(State));
}

TEST(Log, WritesOnlyWhatTheContextAndAllItsAncestorsEnable)
{
    Context root("Nesting");
    Context child("Child", &root);
    Context leaf("Leaf", &child);
    RecordingSink sink;
    write(leaf, Failure, "one");
    child.SetMask(DefaultMask & ~Failure);
    write(leaf, Failure, "two");
    write(leaf, State, "three");
    child.SetMask(DefaultMask);
    root.SetMask(0);
    write(leaf, State, "four");
    EXPECT_EQ(sink.lines(), (std::vector<std::string>{"Nesting.Child.Leaf 8 one void function() file.cpp 12",
                                                      "Nesting.Child.Leaf 2 three void function() file.cpp 12"}));
}

TEST(Log, CarriesTheCallStackToTheSink)
{
    const Context context("Stacks");
    RecordingSink sink;
    write(context, Failure, "one");
    EXPECT_GT(sink.callStackDepth(), 2);
}

TEST(Log, SetMaskByNameReachesThatContextAlone)
{
    Context root("ByName");
    Context child("Child", &root);
    Context similar("ByNameAndMore");
    SetMask("ByName", 31);
    EXPECT_EQ(root.GetMask(), 31U);
    EXPECT_EQ(child.GetMask(), 30U);
    EXPECT_EQ(similar.GetMask(), 30U);
}

TEST(Log, SetMaskWithAsteriskReachesTheSubtree)
{
    Context root("Subtree");
    Context child("Child", &root);
    Context leaf("Leaf", &child);
    Context similar("SubtreeAndMore");
    SetMask("Subtree.Child.*", 1);
    EXPECT_EQ(root.GetMask(), 30U);
    EXPECT_EQ(child.GetMask(), 1U);
    EXPECT_EQ(leaf.GetMask(), 1U);
    SetMask("Subtree.*", 3);
    EXPECT_EQ(root.GetMask(), 3U);
    EXPECT_EQ(leaf.GetMask(), 3U);
    EXPECT_EQ(similar.GetMask(), 30U);
}

TEST(Log, ContextsMadeLaterTakeTheMasksSetBefore)
{
    SetMask("Later.*", 5);
    SetMask("Later.Child", 6);
    Context root("Later");
    Context child("Child", &root, 2);
    EXPECT_EQ(root.GetMask(), 5U);
    EXPECT_EQ(child.GetMask(), 6U);
    SetMask("Later.*", 7);
    Context again("Child", &root);
    EXPECT_EQ(again.GetMask(), 7U);
}

TEST(Log, ReadsMasksFromText)
{
    Context one("TextOne");
    Context two("TextTwo");
    EXPECT_EQ(SetMasks("TextOne=31,TextTwo.*=0"), "");
    EXPECT_EQ(one.GetMask(), 31U);
    EXPECT_EQ(two.GetMask(), 0U);
    EXPECT_EQ(SetMasks(""), "");
}

TEST(Log, NamesTheWrongEntryOfATextAndKeepsThoseBefore)
{
    Context one("WrongOne");
    Context two("WrongTwo");
    for (const char* entry :
         {"WrongTwo", "WrongTwo=", "WrongTwo=32", "WrongTwo=-1", "WrongTwo=1x", "=1", "WrongTwo= 1"}) {
        one.SetMask(30);
        const std::string error = SetMasks(std::string("WrongOne=1,") + entry + ",WrongTwo=2");
        EXPECT_NE(error.find("'" + std::string(entry) + "'"), std::string::npos) << error;
        EXPECT_EQ(error.find('\n'), std::string::npos);
        EXPECT_EQ(one.GetMask(), 1U);
        EXPECT_EQ(two.GetMask(), 30U);
    }
    EXPECT_NE(SetMasks("WrongOne=1,,WrongTwo=2"), "");
}

TEST(Log, HandsLinesToQtUnderTheContextsCategory)
{
    Context root("Qt");
    const Context child("Child", &root);
    QtMessages messages;
    write(child, Failure, "UDP socket started ");
    ASSERT_EQ(messages.all.size(), 1U);
    const QtMessage& message = messages.all.front();
    EXPECT_EQ(message.text, "UDP socket started ");
    EXPECT_EQ(message.category, "Qt.Child");
    EXPECT_EQ(message.file, "file.cpp");
    EXPECT_EQ(message.function, "void function()");
    EXPECT_EQ(message.line, 12);
}

TEST(Log, MapsLevelsToQtMessageTypes)
{
    const Context context("Types", nullptr, 31);
    QtMessages messages;
    for (const unsigned level : {Traffic, State, Warning, Failure, Critical})
        write(context, level, "x");
    std::vector<QtMsgType> types;
    for (const QtMessage& message : messages.all)
        types.push_back(message.type);
    EXPECT_EQ(types, (std::vector<QtMsgType>{QtDebugMsg, QtInfoMsg, QtWarningMsg, QtWarningMsg, QtCriticalMsg}));
}

TEST(Log, HandsTextToQtAsItIs)
{
    const Context context("Verbatim");
    QtMessages messages;
    write(context, State, "100%s %1 \"quoted\" \xC3\xA9");
    write(context, State, std::string_view("a\0b", 3));
    ASSERT_EQ(messages.all.size(), 2U);
    EXPECT_EQ(messages.all[0].text, "100%s %1 \"quoted\" \xC3\xA9");
    EXPECT_EQ(messages.all[1].text, std::string("a\0b", 3));
}

TEST(Log, SetSinkReturnsThePreviousSink)
{
    const Context context("Previous");
    RecordingSink first;
    {
        RecordingSink second;
        EXPECT_EQ(SetSink(&second), &second);
        write(context, State, "one");
        EXPECT_EQ(second.lines().size(), 1U);
    }
    write(context, State, "two");
    EXPECT_EQ(first.lines().size(), 1U);
    QtMessages messages;
    EXPECT_EQ(SetSink(nullptr), &first);
    write(context, State, "three");
    EXPECT_EQ(messages.all.size(), 1U);
    EXPECT_EQ(SetSink(&first), nullptr);
}

TEST(Log, DropsALineWrittenFromInsideASink)
{
    static const Context context("Inside");
    class LoggingSink : public Sink
    {
    public:
        void Write(const Line&) override
        {
            ++lines;
            write(context, Failure, "again");
        }
        int lines = 0;
    };
    LoggingSink sink;
    SetSink(&sink);
    write(context, Failure, "one");
    write(context, Failure, "two");
    SetSink(nullptr);
    EXPECT_EQ(sink.lines, 2);
}

// Counts the lines that reach it after its death.
class MortalSink : public Sink
{
public:
    ~MortalSink() override { m_alive = false; }
    void Write(const Line&) override
    {
        std::this_thread::yield();
        if (!m_alive)
            ++late;
        ++calls;
    }
    static inline std::atomic<int> late{0};
    static inline std::atomic<int> calls{0};

private:
    std::atomic<bool> m_alive{true};
};

TEST(Log, NoThreadIsInsideASinkThatHasBeenReplaced)
{
    static const Context context("Replaced");
    alignas(MortalSink) unsigned char places[2][sizeof(MortalSink)];
    auto* sink = new (places[0]) MortalSink;
    SetSink(sink);
    std::atomic<bool> ending{false};
    std::vector<std::thread> writers;
    for (int index = 0; index < 3; ++index)
        writers.emplace_back([&ending] {
            while (!ending)
                write(context, State, "x");
        });
    // The places are used in turn, so a late writer finds a dead object and not a new one.
    for (int round = 1; round <= 300; ++round) {
        // Replaced only while lines are being written.
        for (const int before = MortalSink::calls; MortalSink::calls == before;)
            std::this_thread::yield();
        auto* next = new (places[round % 2]) MortalSink;
        SetSink(next);
        sink->~MortalSink();
        sink = next;
    }
    while (MortalSink::calls < 100)
        std::this_thread::yield();
    ending = true;
    for (std::thread& writer : writers)
        writer.join();
    SetSink(nullptr);
    sink->~MortalSink();
    EXPECT_EQ(MortalSink::late, 0);
}

ChildProcess runChild(const std::string& how, const char* masks)
{
    return ChildProcess({TEST_CHILD, "log", how},
                        {masks ? std::string("OS_LOG_MASKS=") + masks : std::string("OS_LOG_MASKS")});
}

std::string masksIn(const char* environment)
{
    ChildProcess child = runChild({}, environment);
    EXPECT_EQ(child.waitForEnd(), "exit 0");
    EXPECT_EQ(child.errors(), "");
    return child.output();
}

TEST(Log, TheProcessMayEndFromInsideASink)
{
    EXPECT_EQ(runChild("exit-in-sink", nullptr).waitForEnd(), "exit 0");
}

TEST(Log, AForkedChildEndsWhileItsParentWrites)
{
    EXPECT_EQ(runChild("exit-in-forked-child", nullptr).waitForEnd(), "exit 0");
}

TEST(Log, TakesMasksFromTheEnvironment)
{
    EXPECT_EQ(masksIn(nullptr), "30 30\n");
    EXPECT_EQ(masksIn("Root.Child=31"), "30 31\n");
    EXPECT_EQ(masksIn("Root.*=1"), "1 1\n");
}

TEST(Log, SaysWhatIsWrongWithTheEnvironmentsMasks)
{
    ChildProcess child = runChild({}, "Root=1,Root.Child=many");
    EXPECT_EQ(child.waitForEnd(), "exit 0");
    EXPECT_EQ(child.output(), "1 30\n");
    EXPECT_NE(child.errors().find("OS_LOG_MASKS: 'Root.Child=many'"), std::string::npos) << child.errors();
}

TEST(Log, ThreadsMayWriteWhileTheProcessExits)
{
    for (int round = 0; round < 10; ++round) {
        EXPECT_EQ(runChild("exit-while-writing", "Root=0").waitForEnd(), "exit 0");
        EXPECT_EQ(runChild("exit-while-writing", nullptr).waitForEnd(), "exit 0");
    }
}

} // namespace
