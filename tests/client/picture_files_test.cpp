// The folder of pictures: processes that are killed while they write, a full disk, several processes, many files.
// SPDX-License-Identifier: Apache-2.0
#include "picture_files_p.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>

#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <functional>

using namespace CITP;

namespace {
constexpr int skipped = 77;

Picture pictureOf(int key, int generation, int size)
{
    Picture picture;
    picture.format = QStringLiteral("JPEG");
    picture.size = QSize(key, generation);
    picture.data = QByteArray(size, static_cast<char>(key + generation));
    return picture;
}

QByteArray keyOf(int key)
{
    return "key " + QByteArray::number(key);
}

/// Whether @p picture is one that pictureOf() made for @p key.
bool isWhole(const Picture& picture, int key, int size)
{
    return picture.data == pictureOf(key, picture.size.height(), size).data && picture.size.width() == key;
}

pid_t inChild(const std::function<int()>& work)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(work());
    return child;
}

/// Writes to a file of this process in /proc.
bool put(const char* name, const QByteArray& text)
{
    QFile file(QStringLiteral("/proc/self/") + QLatin1String(name));
    return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && file.write(text) == text.size();
}

/// In memory, if possible: on a busy disk a hundred thousand files take minutes.
QString folderTemplate()
{
    const QString memory = QStringLiteral("/dev/shm");
    return (QFileInfo(memory).isWritable() ? memory : QDir::tempPath()) + QStringLiteral("/citp-pictures-XXXXXX");
}

int statusOf(pid_t child)
{
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}
} // namespace

class PictureFilesTest : public testing::Test
{
protected:
    PictureFilesTest() { m_files.setLimit(1 << 30); }

    int countFiles(const char* pattern) const
    {
        int count = 0;
        QDirIterator entries(m_folder.path(), {QLatin1String(pattern)}, QDir::Files, QDirIterator::Subdirectories);
        for (; entries.hasNext(); entries.next())
            ++count;
        return count;
    }

    QStringList fileNames() const
    {
        QStringList names;
        QDirIterator entries(m_folder.path(), QDir::Files, QDirIterator::Subdirectories);
        while (entries.hasNext())
            names << entries.next();
        return names;
    }
    /// Makes a file of @p size bytes, without blocks on the disk.
    void plant(const QString& name, qint64 size, const QDateTime& used) const
    {
        QFile file(m_folder.filePath(name));
        QDir().mkpath(QFileInfo(file).path());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << name.toStdString();
        ASSERT_TRUE(file.resize(size));
        ASSERT_TRUE(file.setFileTime(used, QFileDevice::FileModificationTime));
    }

    QTemporaryDir m_folder{folderTemplate()};
    PictureFiles m_files{m_folder.path()};
};

class PictureFilesSlowTest : public PictureFilesTest
{
};

// The limit of a file's size ends the process in the write that exceeds it.
TEST_F(PictureFilesTest, AProcessKilledAtAnyByteLeavesTheOldPicture)
{
    constexpr int size = 100;
    ASSERT_EQ(m_files.write(keyOf(1), pictureOf(1, 1, size)), QString());
    int killed = 0;
    bool isWritten = false;
    for (rlim_t limit = 0; !isWritten && limit < 1000; ++limit) {
        const int status = statusOf(inChild([&] {
            const rlimit bytes{limit, limit};
            setrlimit(RLIMIT_FSIZE, &bytes);
            std::signal(SIGXFSZ, SIG_DFL);
            const rlimit none{0, 0};
            setrlimit(RLIMIT_CORE, &none);
            return m_files.write(keyOf(1), pictureOf(1, 2, size)).isEmpty() ? 0 : 1;
        }));
        isWritten = WIFEXITED(status);
        killed += WIFSIGNALED(status) ? 1 : 0;
        const Picture picture = m_files.read(keyOf(1));
        ASSERT_TRUE(isWhole(picture, 1, size)) << limit;
        EXPECT_EQ(picture.size.height(), isWritten ? 2 : 1) << limit;
    }
    EXPECT_TRUE(isWritten);
    EXPECT_GT(killed, size);
}

TEST_F(PictureFilesTest, ProcessesKilledAtAnyTimeLeaveWholePictures)
{
    constexpr int size = 20000;
    for (int key = 0; key < 4; ++key)
        ASSERT_EQ(m_files.write(keyOf(key), pictureOf(key, 0, size)), QString());
    for (int round = 0; round < 50; ++round) {
        const pid_t child = inChild([&] {
            for (int i = 0; i < 100000; ++i)
                m_files.write(keyOf(i % 4), pictureOf(i % 4, i, size));
            return 0;
        });
        usleep(static_cast<useconds_t>(round * 200));
        kill(child, SIGKILL);
        EXPECT_TRUE(WIFSIGNALED(statusOf(child)));
        for (int key = 0; key < 4; ++key) {
            ASSERT_TRUE(isWhole(m_files.read(keyOf(key)), key, size)) << round;
        }
    }
}

TEST_F(PictureFilesTest, AFullDiskIsTold)
{
    constexpr int size = 10000;
    const int status = statusOf(inChild([&] {
        const QByteArray folder = m_folder.path().toLocal8Bit();
        const QByteArray user = QByteArray::number(getuid());
        const QByteArray group = QByteArray::number(getgid());
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 || !put("uid_map", "0 " + user + " 1") ||
            !put("setgroups", "deny") || !put("gid_map", "0 " + group + " 1") ||
            mount("tmpfs", folder.constData(), "tmpfs", 0, "size=128k") != 0)
            return skipped;
        int written = 0;
        while (written < 100 && m_files.write(keyOf(written), pictureOf(written, 1, size)).isEmpty())
            ++written;
        if (written < 2 || written == 100 || countFiles("*.tmp") > 0)
            return 1;
        for (int key = 0; key < written; ++key) {
            if (!isWhole(m_files.read(keyOf(key)), key, size))
                return 2;
        }
        m_files.remove(keyOf(0));
        return m_files.write(keyOf(written), pictureOf(written, 1, size)).isEmpty() ? 0 : 3;
    }));
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == skipped)
        GTEST_SKIP() << "no namespace to be had for a small file system";
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(PictureFilesTest, ProcessesAtOnceReadWholePicturesWhileTheyPurge)
{
    constexpr int size = 3000;
    const auto work = [&](int generation) {
        m_files.setLimit(20 * size); // of 50 pictures
        for (int i = 0; i < 1000; ++i) {
            const int key = i * (generation + 6) % 50;
            if (!m_files.write(keyOf(key), pictureOf(key, generation, size)).isEmpty())
                return 1;
            const int other = (key + 1) % 50;
            const Picture picture = m_files.read(keyOf(other));
            if (!picture.data.isEmpty() && !isWhole(picture, other, size))
                return 2;
        }
        return 0;
    };
    const pid_t one = inChild([&] { return work(1); });
    const pid_t two = inChild([&] { return work(2); });
    EXPECT_EQ(statusOf(one), 0);
    EXPECT_EQ(statusOf(two), 0);
    EXPECT_EQ(countFiles("*.tmp"), 0);
    EXPECT_GT(countFiles("*"), 10);
}

TEST_F(PictureFilesSlowTest, AHundredThousandPicturesAreBounded)
{
    constexpr int count = 100000;
    constexpr int size = 10;
    for (int key = 0; key < count; ++key)
        ASSERT_EQ(m_files.write(keyOf(key), pictureOf(key % 100, 1, size)), QString()) << key;
    EXPECT_EQ(countFiles("*"), count);
    EXPECT_TRUE(isWhole(m_files.read(keyOf(54321)), 21, size));
    // A part of this limit is more than one look at the folder.
    m_files.setLimit(1 << 19);
    for (int key = count; key < count + 2000; ++key)
        ASSERT_EQ(m_files.write(keyOf(key), pictureOf(key % 100, 1, size)), QString()) << key;
    EXPECT_LT(countFiles("*"), count / 8);
    EXPECT_TRUE(isWhole(m_files.read(keyOf(count + 1999)), 99, size));
}

TEST_F(PictureFilesTest, FilesOfOthersStay)
{
    const QDateTime longAgo = QDateTime::currentDateTimeUtc().addDays(-100);
    const QString own(38, QLatin1Char('a'));
    const QStringList others{"photo.jpg",          "old.tmp",      "holiday/photo.jpg", "holiday/old.tmp",
                             "ab/photo.jpg",       "ab/old.tmp",   "ab/" + own + "a",   "ab/" + own + ".1-2.tmp.tmp",
                             "ab/" + own + ".tmp", "ab/bc/" + own, "holiday/" + own,    own};
    const QStringList ours{"ab/" + own, "cd/" + own, "ab/" + own + ".12-34.tmp"};
    for (const QString& name : others + ours)
        plant(name, 100, longAgo);
    plant("cd/" + own + ".12-34.tmp", 100, QDateTime::currentDateTimeUtc());
    m_files.setLimit(1);
    EXPECT_EQ(m_files.write(keyOf(1), pictureOf(1, 1, 10)), QString());
    for (const QString& name : others)
        EXPECT_TRUE(QFile::exists(m_folder.filePath(name))) << name.toStdString();
    for (const QString& name : ours)
        EXPECT_FALSE(QFile::exists(m_folder.filePath(name))) << name.toStdString();
    // Somebody may be writing it.
    EXPECT_TRUE(QFile::exists(m_folder.filePath("cd/" + own + ".12-34.tmp")));
}

TEST_F(PictureFilesTest, TheSizesOfFilesOfOthersDoNotCount)
{
    plant("ab/video.mov", 1 << 30, QDateTime::currentDateTimeUtc());
    m_files.setLimit(1 << 20);
    EXPECT_EQ(m_files.write(keyOf(1), pictureOf(1, 1, 10)), QString());
    EXPECT_TRUE(isWhole(m_files.read(keyOf(1)), 1, 10));
}

TEST_F(PictureFilesTest, ShortRunsKeepTheLimitToo)
{
    constexpr int size = 1000;
    for (int key = 0; key < 200; ++key) {
        PictureFiles files(m_folder.path());
        files.setLimit(20 * size);
        ASSERT_EQ(files.write(keyOf(key), pictureOf(key, 1, size)), QString());
        ASSERT_LE(countFiles("*"), 20);
    }
    EXPECT_GE(countFiles("*"), 10);
    EXPECT_TRUE(isWhole(m_files.read(keyOf(199)), 199, size));
}

TEST_F(PictureFilesTest, AWriteLooksAtOnePartOfTheFolder)
{
    constexpr int folders = 256;
    const QString own(38, QLatin1Char('a'));
    for (int folder = 0; folder < folders; ++folder)
        plant(QStringLiteral("%1/").arg(folder, 2, 16, QLatin1Char('0')) + own, 2 << 20,
              QDateTime::currentDateTimeUtc().addDays(-1));
    int expected = folders + 1;
    // Parts of 1, 4 and 256 folders.
    for (const int limit : {256 << 20, 64 << 20, 1 << 20}) {
        m_files.setLimit(limit);
        ASSERT_EQ(m_files.write(keyOf(1), pictureOf(1, 1, 10)), QString());
        expected -= limit == 256 << 20 ? 1 : limit == 64 << 20 ? 3 : 252;
        EXPECT_EQ(countFiles("*"), expected) << limit;
        EXPECT_TRUE(isWhole(m_files.read(keyOf(1)), 1, 10));
    }
}

// The name under which a file is first written is known, and left behind by a crash.
TEST_F(PictureFilesTest, ALinkIsNotWrittenThrough)
{
    ASSERT_EQ(m_files.write(keyOf(1), pictureOf(1, 1, 10)), QString());
    const QString name = fileNames().front();
    const QString temporary =
        QStringLiteral("%1.%2-%3.tmp").arg(name).arg(getpid()).arg(reinterpret_cast<quintptr>(&m_files));
    plant("precious", 5, QDateTime::currentDateTimeUtc());
    ASSERT_TRUE(QFile::link(m_folder.filePath("precious"), temporary));
    EXPECT_EQ(m_files.write(keyOf(1), pictureOf(1, 2, 10)), QString());
    EXPECT_EQ(QFile(m_folder.filePath("precious")).size(), 5);
    EXPECT_FALSE(QFileInfo(name).isSymLink());
    EXPECT_EQ(m_files.read(keyOf(1)).size.height(), 2);
}

TEST_F(PictureFilesTest, OnlySmallRegularFilesAreRead)
{
    ASSERT_EQ(m_files.write(keyOf(1), pictureOf(1, 1, 65535)), QString());
    EXPECT_TRUE(isWhole(m_files.read(keyOf(1)), 1, 65535));
    const QString name = fileNames().front();
    // Whole, but for its size.
    ASSERT_EQ(m_files.write(keyOf(1), pictureOf(1, 1, 128 << 10)), QString());
    EXPECT_TRUE(m_files.read(keyOf(1)).data.isEmpty());
    ASSERT_TRUE(QFile::remove(name));
    ASSERT_EQ(mkfifo(QFile::encodeName(name).constData(), 0600), 0);
    EXPECT_TRUE(m_files.read(keyOf(1)).data.isEmpty());
    ASSERT_EQ(m_files.write(keyOf(1), pictureOf(1, 1, 10)), QString());
    EXPECT_TRUE(isWhole(m_files.read(keyOf(1)), 1, 10));
}
