// The format of the files, and the removal of those that were not used for longest.
// SPDX-License-Identifier: Apache-2.0
#include "picture_files_p.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDataStream>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace CITP {
namespace {
const QByteArray fileMagic = QByteArrayLiteral("CITPpic1");
constexpr int checksumLength = 20;
// More than that of the largest picture.
constexpr qint64 maxFileSize = 128 << 10;
// Of the limit: how much is written between two looks at a part of the folder, and how much room each makes.
constexpr int purgeShare = 8;
// Of a part that is looked at: 16 of the largest pictures, so that what was used last stays.
constexpr qint64 minPartLimit = 1 << 20;
// Of a process that crashed while writing.
constexpr qint64 staleTime = 3600; // s
constexpr qint64 touchTime = 3600; // s

QByteArray checksumOf(const QByteArray& content)
{
    return QCryptographicHash::hash(content, QCryptographicHash::Sha1);
}
} // namespace

void PictureFiles::setLimit(qint64 bytes)
{
    m_foldersOfPart = 1;
    while (m_foldersOfPart < folderCount && bytes / folderCount * m_foldersOfPart < minPartLimit) {
        m_foldersOfPart *= 2;
    }
    m_partLimit = bytes / (folderCount / m_foldersOfPart);
    m_untilPurge.fill(0);
}

// In 256 folders, since some file systems are slow with many files in one.
QString PictureFiles::fileFor(const QByteArray& key) const
{
    const QByteArray name = QCryptographicHash::hash(key, QCryptographicHash::Sha1).toHex();
    return m_folder + QLatin1Char('/') + QString::fromLatin1(name.left(2)) + QLatin1Char('/') +
           QString::fromLatin1(name.mid(2));
}

Picture PictureFiles::read(const QByteArray& key) const
{
    const QFileInfo info(fileFor(key));
    QFile file(info.filePath());
    // To open a FIFO would wait for who writes to it.
    if (!info.isFile() || info.size() > maxFileSize || !file.open(QIODevice::ReadOnly)) {
        return {};
    }
    const QByteArray bytes = file.read(maxFileSize);
    const QByteArray content = bytes.mid(checksumLength);
    if (bytes.left(checksumLength) != checksumOf(content)) {
        return {};
    }
    QDataStream stream(content);
    stream.setVersion(QDataStream::Qt_5_15);
    QByteArray magic;
    QByteArray storedKey;
    Picture picture;
    stream >> magic >> storedKey >> picture.format >> picture.size >> picture.msexMinor >> picture.data;
    if (stream.status() != QDataStream::Ok || magic != fileMagic || storedKey != key) {
        return {};
    }
    // The time of the last use, for purge(); exact to the hour, to write less.
    const QDateTime now = QDateTime::currentDateTimeUtc();
    if (info.lastModified().secsTo(now) > touchTime) {
        file.setFileTime(now, QFileDevice::FileModificationTime);
    }
    return picture;
}

void PictureFiles::remove(const QByteArray& key)
{
    QFile::remove(fileFor(key));
}

QString PictureFiles::write(const QByteArray& key, const Picture& picture)
{
    QByteArray content;
    QDataStream stream(&content, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_5_15);
    stream << fileMagic << key << picture.format << picture.size << picture.msexMinor << picture.data;
    const QString name = fileFor(key);
    // Its own for each process and each of several in one.
    const QString temporary = QStringLiteral("%1.%2-%3.tmp")
                                  .arg(name)
                                  .arg(QCoreApplication::applicationPid())
                                  .arg(reinterpret_cast<quintptr>(this));
    QFile file(temporary);
    // Never what is there: it may be a link to another file.
    const QIODevice::OpenMode mode = QIODevice::WriteOnly | QIODevice::NewOnly;
    if (!file.open(mode)) {
        QDir().mkpath(QFileInfo(name).path());
        QFile::remove(temporary);
        if (!file.open(mode)) {
            return file.errorString();
        }
    }
    const bool isWritten = file.write(checksumOf(content) + content) == content.size() + checksumLength && file.flush();
    const QString problem = file.errorString();
    file.close();
    // QFile::rename() does not replace a file.
    if (!isWritten || std::rename(QFile::encodeName(temporary).constData(), QFile::encodeName(name).constData()) != 0) {
        file.remove();
        return isWritten ? QCoreApplication::translate("CITP::PictureFiles", "cannot be renamed") : problem;
    }
    const int folder = QFileInfo(name).dir().dirName().toInt(nullptr, 16);
    const int firstOfPart = folder - folder % m_foldersOfPart;
    qint64& untilPurge = m_untilPurge[static_cast<std::size_t>(firstOfPart)];
    untilPurge -= content.size();
    if (untilPurge <= 0) {
        untilPurge = m_partLimit / purgeShare;
        purge(firstOfPart);
    }
    return {};
}

// Only a part, since all may be tens of thousands of files, which take too long in one turn of the event loop.
void PictureFiles::purge(int firstOfPart)
{
    struct Entry
    {
        QDateTime used;
        qint64 size;
        QString path;
    };
    static const QRegularExpression ownName(QStringLiteral("^[0-9a-f]{38}(\\.[0-9]+-[0-9]+\\.tmp)?$"));
    const QDateTime now = QDateTime::currentDateTimeUtc();
    std::vector<Entry> entries;
    qint64 total = 0;
    for (int folder = firstOfPart; folder < firstOfPart + m_foldersOfPart; ++folder) {
        const QDir dir(QStringLiteral("%1/%2").arg(m_folder).arg(folder, 2, 16, QLatin1Char('0')));
        for (const QFileInfo& info : dir.entryInfoList(QDir::Files, QDir::Unsorted)) {
            // Others may keep their files here, too.
            if (!ownName.match(info.fileName()).hasMatch()) {
                continue;
            }
            if (info.suffix() != QLatin1String("tmp")) {
                entries.push_back({info.lastModified(), info.size(), info.filePath()});
                total += info.size();
            } else if (info.lastModified().secsTo(now) > staleTime) {
                QFile::remove(info.filePath());
            }
        }
    }
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.used < b.used; });
    for (const Entry& entry : entries) {
        if (total <= m_partLimit - m_partLimit / purgeShare) {
            break;
        }
        // Another process may have been faster.
        QFile::remove(entry.path);
        total -= entry.size;
    }
}
} // namespace CITP
