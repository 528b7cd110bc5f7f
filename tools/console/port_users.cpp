// Matches the kernel's table of UDP sockets with the file descriptors of the processes in /proc.
// SPDX-License-Identifier: Apache-2.0
#include "port_users.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSet>
#include <QStringList>

#include "printing.h"

namespace Console {
namespace {
QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The sockets of the port, in the form of the link targets in /proc/<pid>/fd.
QSet<QString> socketsOn(quint16 port)
{
    constexpr int LocalAddress = 1;
    constexpr int Inode = 9;
    QSet<QString> sockets;
    const QString suffix = QString(":%1").arg(port, 4, 16, QLatin1Char('0')).toUpper();
    const QStringList lines = QString::fromLatin1(contentOf("/proc/self/net/udp")).split('\n').mid(1);
    for (const QString& line : lines) {
        const QStringList fields = line.simplified().split(' ');
        if (fields.size() > Inode && fields.at(LocalAddress).endsWith(suffix))
            sockets.insert("socket:[" + fields.at(Inode) + ']');
    }
    return sockets;
}
} // namespace

QString programsOnUdpPort(quint16 port)
{
    QSet<QString> unexplained = socketsOn(port);
    if (unexplained.isEmpty())
        return {};
    QStringList programs;
    const QStringList processes = QDir("/proc").entryList({"[0-9]*"}, QDir::Dirs);
    for (const QString& process : processes) {
        const QDir descriptors(QString("/proc/%1/fd").arg(process));
        QSet<QString> own;
        // The link targets are not files, so QDir lists the links as system files.
        const QStringList names = descriptors.entryList(QDir::Files | QDir::System);
        for (const QString& name : names) {
            const QString target = QFile::symLinkTarget(descriptors.filePath(name)).section('/', -1);
            if (unexplained.contains(target))
                own.insert(target);
        }
        if (own.isEmpty())
            continue;
        unexplained -= own;
        if (process.toLongLong() == QCoreApplication::applicationPid())
            continue;
        const QString name = QString::fromLocal8Bit(contentOf(QString("/proc/%1/comm").arg(process))).trimmed();
        programs << QString("%1 (process %2)").arg(escapeControls(name), process);
    }
    if (!unexplained.isEmpty())
        programs << "a program of another user";
    return programs.join(", ");
}
} // namespace Console
