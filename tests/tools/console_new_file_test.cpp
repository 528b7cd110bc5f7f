// Files of citp-console: whole or not there, and never written through a link.
// SPDX-License-Identifier: Apache-2.0
#include "new_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

using Console::NewFile;

namespace {
class NewFiles : public ::testing::Test
{
protected:
    QString path(const char* name) const { return m_folder.filePath(name); }
    std::string names() const
    {
        return QDir(m_folder.path()).entryList(QDir::Files | QDir::System | QDir::Hidden).join(' ').toStdString();
    }
    std::string content(const char* name) const
    {
        QFile file(path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll().toStdString() : "not there";
    }
    void create(const char* name, const char* content) const
    {
        QFile file(path(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(content) >= 0);
    }

private:
    const QTemporaryDir m_folder;
};
} // namespace

TEST_F(NewFiles, AppearWhenTheyAreCommitted)
{
    NewFile file(path("a"));
    ASSERT_TRUE(file.open() && file.write("new"));
    EXPECT_EQ(content("a"), "not there");
    ASSERT_TRUE(file.commit());
    EXPECT_EQ(content("a"), "new");
    EXPECT_EQ(names(), "a");
}

TEST_F(NewFiles, ReplaceAFileAndKeepItsPermissions)
{
    create("a", "old");
    ASSERT_TRUE(QFile::setPermissions(path("a"), QFile::ReadOwner | QFile::WriteOwner));
    {
        NewFile abandoned(path("a"));
        ASSERT_TRUE(abandoned.open() && abandoned.write("half"));
        EXPECT_EQ(content("a"), "old");
    }
    EXPECT_EQ(names(), "a");
    NewFile file(path("a"));
    ASSERT_TRUE(file.open() && file.write("new") && file.commit());
    EXPECT_EQ(content("a"), "new");
    EXPECT_FALSE(QFile::permissions(path("a")).testFlag(QFile::ReadOther));
}

TEST_F(NewFiles, AreNotWrittenThroughALink)
{
    create("target", "old");
    ASSERT_TRUE(QFile::link(path("target"), path("link")));
    ASSERT_TRUE(QFile::link(path("nowhere"), path("dangling")));
    for (const char* const name : {"link", "dangling"}) {
        NewFile file(path(name));
        EXPECT_FALSE(file.open()) << name;
        EXPECT_EQ(file.problem().toStdString(), "it is a link");
    }
    EXPECT_EQ(content("target"), "old");
    EXPECT_EQ(names(), "dangling link target");
}

// Whoever may write to the folder can put a link there while the file is being written.
TEST_F(NewFiles, ReplaceALinkThatAppearsMeanwhile)
{
    create("target", "old");
    NewFile file(path("a"));
    ASSERT_TRUE(file.open());
    ASSERT_TRUE(QFile::link(path("target"), path("a")));
    ASSERT_TRUE(file.write("new") && file.commit());
    EXPECT_EQ(content("target"), "old");
    EXPECT_EQ(content("a"), "new");
    EXPECT_FALSE(QFileInfo(path("a")).isSymLink());
}

TEST_F(NewFiles, DoNotReplaceWhatIsNoFile)
{
    ASSERT_EQ(::mkfifo(QFile::encodeName(path("pipe")).constData(), 0600), 0);
    for (const QString& target : {path("pipe"), path("."), QString("/dev/null")}) {
        NewFile file(target);
        EXPECT_FALSE(file.open()) << target.toStdString();
        EXPECT_EQ(file.problem().toStdString(), "it is not a regular file");
    }
    NewFile file(path("no/such/folder"));
    EXPECT_FALSE(file.open());
    EXPECT_EQ(file.problem().toStdString(), "No such file or directory");
}
