// Child processes and drawn pictures, and what the leak sanitizer is to pass over.
// SPDX-License-Identifier: Apache-2.0
#include "browser_fixture.h"

#include <citp/citp_stack.h>

#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QtMath>

#include <csignal>
#include <cstdio>

/// Asked by the leak sanitizer. The stack keeps the records of the servers that it knows until the process ends, on
/// purpose; the message bus's library keeps its memory for itself when Qt leaves it.
extern "C" Q_DECL_EXPORT const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:CITP::citp_stack::handlePLOC\nleak:libdbus-1.so\n";
}

void forgetServers()
{
    EXPECT_TRUE(waitFor([] { return CITP::citp_stack::Get()->getServers().empty(); }));
}

QPalette darkPalette()
{
    QPalette palette(QColor(53, 53, 58), QColor(42, 43, 47));
    palette.setColor(QPalette::Base, QColor(30, 31, 34));
    palette.setColor(QPalette::AlternateBase, QColor(40, 41, 45));
    palette.setColor(QPalette::Highlight, QColor(45, 110, 185));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::PlaceholderText, QColor(150, 150, 155));
    for (const QPalette::ColorRole role : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, QColor(120, 120, 125));
    return palette;
}

CITP::Msg_MSEX_MEIN mediaList(const QString& library, int count, int nameLength)
{
    CITP::Msg_MSEX_MEIN message;
    message.versionMinor = 2;
    message.LibraryId = library;
    for (int i = 0; i < count; ++i) {
        CITP::Msg_MSEX_MEIN::MediaInformation item;
        item.Number = static_cast<unsigned char>(i);
        item.Name = QString(nameLength, QChar('a' + i % 26));
        message.Media.push_back(item);
    }
    return message;
}

// One that a test which crashed has left behind ends by itself.
MediaServer::MediaServer(const QStringList& arguments)
    : m_arguments(QStringList{"--adapter", "lo", "--seconds", "600", "--interval", "100"} + arguments)
{
    restart();
}

void MediaServer::kill()
{
    m_child->kill();
    m_child->waitForEnd();
}

void MediaServer::stop()
{
    m_child->signal(SIGSTOP);
}

void MediaServer::resume()
{
    m_child->signal(SIGCONT);
}

void MediaServer::restart()
{
    m_child = std::make_unique<Child>(SERVER_PROGRAM, m_arguments);
    m_child->waitForLine("listens on");
}

int MediaServer::count(const QString& part, int expected)
{
    int count = 0;
    // Its output and its answers come on different paths.
    waitFor([&] {
        count = static_cast<int>(m_child->output().count(part));
        return count >= expected;
    });
    return count;
}

PictureFolder::PictureFolder()
{
    static const char* const skies[] = {"Dawn", "Morning",   "Noon",  "Storm front",
                                        "Dusk", "Blue hour", "Night", "Aurora"};
    static const char* const waves[] = {"Slow swell", "Chop", "Ripples", "Breakers", "Deep sea", "Glitter"};
    int seed = 0;
    for (const char* const name : skies)
        write(QString("1 Skies/%1.jpg").arg(name), ++seed);
    for (const char* const name : waves)
        write(QString("2 Water/%1.jpg").arg(name), ++seed);
    for (int i = 1; i <= 4; ++i)
        write(QString("2 Water/Rain/Drops %1.jpg").arg(i), ++seed);
}

void PictureFolder::write(const QString& file, int seed) const
{
    QImage image(640, 360, QImage::Format_RGB32);
    QPainter painter(&image);
    QLinearGradient ground(0, 0, 0, image.height());
    ground.setColorAt(0, QColor::fromHsv(seed * 37 % 360, 170, 210));
    ground.setColorAt(1, QColor::fromHsv((seed * 37 + 60) % 360, 150, 70));
    painter.fillRect(image.rect(), ground);
    painter.setRenderHint(QPainter::Antialiasing);
    for (int band = 0; band < 7; ++band) {
        QPolygonF wave;
        wave << QPointF(0, image.height());
        for (int x = 0; x <= image.width(); x += 8)
            wave << QPointF(x, 120 + band * 38 + 22 * qSin(x / (40.0 + seed % 5 * 14) + band * 1.3 + seed));
        wave << QPointF(image.width(), image.height());
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor::fromHsv((seed * 37 + band * 11) % 360, 160, 190 - band * 20, 110));
        painter.drawPolygon(wave);
    }
    painter.end();
    const QString made = m_scratch.filePath("made.jpg");
    EXPECT_TRUE(image.save(made, nullptr, 85)) << made.toStdString();
    // In one step: a server that scans the folder meanwhile would report half a picture, and the whole one afterwards
    // as another change.
    const QString path = m_folder.filePath(file);
    QDir().mkpath(QFileInfo(path).path());
    EXPECT_EQ(std::rename(QFile::encodeName(made).constData(), QFile::encodeName(path).constData()), 0)
        << path.toStdString();
}

void PictureFolder::remove(const QString& file) const
{
    EXPECT_TRUE(QFile::remove(m_folder.filePath(file))) << file.toStdString();
}
