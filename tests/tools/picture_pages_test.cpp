// The pages of pictures: whole or not at all, through no link, and without a way for a server's texts to become markup.
// SPDX-License-Identifier: Apache-2.0
#include "picture_pages.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

using Tools::PicturePages;

namespace {
std::string listing(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot).join(' ').toStdString();
}

QString contentOf(const QString& path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    return QString::fromUtf8(file.readAll());
}

std::vector<Tools::PageLibrary> oneLibrary(const QString& label, const QString& file)
{
    return {{"1,2,0,0", "Films", {{label, "JPEG  160 x 120", file}, {"1  Sea", "no answer", {}}}}};
}
} // namespace

TEST(PicturePages, AppearAtTheEndAlone)
{
    const QTemporaryDir folder;
    const QString target = folder.filePath("pages");
    PicturePages pages(target + '/', "Stage 1");
    ASSERT_TRUE(pages.open());
    const QString file = pages.write("1,2,0,0", 7, "picture", "jpg");
    EXPECT_EQ(file.toStdString(), "1.2.0.0-007.jpg");
    EXPECT_FALSE(QFile::exists(target));
    ASSERT_TRUE(pages.commit(oneLibrary("7  Sky", file))) << pages.problem().toStdString();
    EXPECT_EQ(listing(folder.path()), "pages");
    EXPECT_EQ(listing(target), "1.2.0.0-007.jpg index.html library-1.2.0.0.html");
    EXPECT_EQ(contentOf(target + "/1.2.0.0-007.jpg").toStdString(), "picture");
    const QString index = contentOf(target + "/index.html");
    EXPECT_TRUE(
        index.contains("<a href=\"library-1.2.0.0.html\"><bdi>Library 1,2,0,0  Films</bdi></a> <small>2</small>"))
        << index.toStdString();
    const QString page = contentOf(target + "/library-1.2.0.0.html");
    EXPECT_TRUE(page.contains("<img src=\"1.2.0.0-007.jpg\" alt=\"\"><bdi>7  Sky</bdi>")) << page.toStdString();
    EXPECT_TRUE(
        page.contains("<span class=\"missing\"></span><bdi>1  Sea</bdi><br><small><bdi>no answer</bdi></small>"))
        << page.toStdString();
    // Readable by whom the umask lets.
    EXPECT_TRUE(QFile::permissions(target).testFlag(QFile::ReadOther));
}

TEST(PicturePages, LeaveNothingBehindUnlessTheyAreComplete)
{
    const QTemporaryDir folder;
    {
        PicturePages pages(folder.filePath("pages"), "Stage");
        ASSERT_TRUE(pages.open());
        EXPECT_NE(listing(folder.path()), "");
        pages.write("1", 1, "picture", "png");
    }
    EXPECT_EQ(listing(folder.path()), "");
    PicturePages nowhere(folder.filePath("not/there"), "Stage");
    EXPECT_FALSE(nowhere.open());
    EXPECT_EQ(nowhere.problem().toStdString(), "No such file or directory");
}

TEST(PicturePages, ReplaceNothingAndGoThroughNoLink)
{
    const QTemporaryDir folder;
    QDir(folder.path()).mkdir("full");
    QDir(folder.path()).mkdir("empty");
    QFile kept(folder.filePath("full/.kept"));
    ASSERT_TRUE(kept.open(QIODevice::WriteOnly));
    ASSERT_TRUE(QFile::link(folder.filePath("empty"), folder.filePath("link")));
    const std::pair<const char*, const char*> refused[] = {{"full", "it is not empty"},
                                                           {"full/.kept", "it is not a folder"},
                                                           {"link", "it is a link"},
                                                           {"link/", "it is a link"}};
    for (const auto& [name, problem] : refused) {
        PicturePages pages(folder.filePath(name), "Stage");
        EXPECT_FALSE(pages.open()) << name;
        EXPECT_EQ(pages.problem().toStdString(), problem) << name;
    }
    PicturePages pages(folder.filePath("empty"), "Stage");
    ASSERT_TRUE(pages.open());
    // What appears meanwhile is kept.
    QFile late(folder.filePath("empty/late"));
    ASSERT_TRUE(late.open(QIODevice::WriteOnly));
    EXPECT_FALSE(pages.commit(oneLibrary("7  Sky", {})));
    EXPECT_EQ(listing(folder.filePath("empty")), "late");
    ASSERT_TRUE(late.remove());
    EXPECT_TRUE(pages.commit(oneLibrary("7  Sky", {}))) << pages.problem().toStdString();
    EXPECT_EQ(listing(folder.filePath("empty")), "index.html library-1.2.0.0.html");
}

TEST(PicturePages, KeepThePermissionsOfTheEmptyFolderThatTheyReplace)
{
    const QTemporaryDir folder;
    const QString target = folder.filePath("pages");
    QDir(folder.path()).mkdir("pages");
    const QFile::Permissions own = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;
    ASSERT_TRUE(QFile::setPermissions(target, own));
    PicturePages pages(target, "Stage");
    ASSERT_TRUE(pages.open());
    ASSERT_TRUE(pages.commit(oneLibrary("7  Sky", {}))) << pages.problem().toStdString();
    EXPECT_EQ(QFile::permissions(target) & (QFile::ReadOther | QFile::ReadGroup | QFile::ExeOther), 0);
    EXPECT_EQ(QFile::permissions(target) & own, own);
}

TEST(PicturePages, OfTwoTypesStandBesideEachOther)
{
    const QTemporaryDir folder;
    PicturePages pages(folder.filePath("pages"), "Stage");
    ASSERT_TRUE(pages.open());
    EXPECT_EQ(pages.write("1,1,0,0", 7, "film", "jpg").toStdString(), "1.1.0.0-007.jpg");
    EXPECT_EQ(pages.write("1,1,0,0", 7, "effect", "jpg", 2).toStdString(), "2-1.1.0.0-007.jpg");
    ASSERT_TRUE(pages.commit({{"1,1,0,0", "Films", {{}}}, {"1,1,0,0", "Blur", {{}}, 2}}));
    EXPECT_EQ(listing(folder.filePath("pages")),
              "1.1.0.0-007.jpg 2-1.1.0.0-007.jpg index.html library-1.1.0.0.html library-2-1.1.0.0.html");
    EXPECT_TRUE(contentOf(folder.filePath("pages/index.html"))
                    .contains("<a href=\"library-2-1.1.0.0.html\"><bdi>Library 1,1,0,0 of type 2  Blur</bdi>"));
}

TEST(PicturePages, ShowTheTextsOfAServerAsTexts)
{
    const QTemporaryDir folder;
    const QString hostile = "<script>alert(1)</script>\"'&amp;<!--\x1b[2J" + QString(QChar(0x202e)) + "</title>";
    PicturePages pages(folder.filePath("pages"), hostile);
    ASSERT_TRUE(pages.open());
    EXPECT_EQ(pages.write("../../x", 1, "picture", "png").toStdString(), ".......-001.png");
    ASSERT_TRUE(pages.commit({{"../\"><b>", hostile, {{hostile, hostile, {}}}}}));
    const QStringList names = QDir(folder.filePath("pages")).entryList({"*.html"}, QDir::Files | QDir::Hidden);
    ASSERT_EQ(names.size(), 2);
    for (const QString& name : names) {
        const QString page = contentOf(folder.filePath("pages/" + name));
        for (const char* const part : {"<script", "<b>", "<!--", "\x1b", "&amp;<"})
            EXPECT_FALSE(page.contains(part)) << part << page.toStdString();
        EXPECT_FALSE(page.contains(QChar(0x202e)));
        EXPECT_TRUE(page.contains("&lt;script&gt;alert(1)&lt;/script&gt;&quot;")) << page.toStdString();
        // The elements that the pages consist of, and none besides.
        static const QRegularExpression tag("</?([A-Za-z0-9]+)");
        const QStringList known{"html", "head", "meta", "title", "style", "body", "h1",  "p",
                                "a",    "bdi",  "ul",   "li",    "small", "br",   "img", "span"};
        for (auto match = tag.globalMatch(page); match.hasNext();)
            EXPECT_TRUE(known.contains(match.next().captured(1))) << page.toStdString();
    }
}
