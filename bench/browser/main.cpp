// Scrolls a library of 255 elements while a simulated server sends their pictures. Prints
// how long events blocked the GUI thread: the distribution for each method of scrolling, and how many events took
// longer than a frame. citp_bench_browser [MILLISECONDS]: the duration of each method's phase, default 8000.
//
// citp_bench_browser MILLISECONDS FAULT [FOLDER]: instead, with a server that has a fault of citp-mediaserver and
// serves a folder whose whole tree is loaded, the longest turn of the event loop, and the memory used.
// SPDX-License-Identifier: Apache-2.0
#include <QAbstractEventDispatcher>
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QKeyEvent>
#include <QPainter>
#include <QProcess>
#include <QScrollBar>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <QWheelEvent>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "models/session.h"
#include "window/main_window.h"

namespace {
// What the simulated server takes from a folder; a library can have one more.
constexpr int Elements = 255;
constexpr int FrameNs = 1000000000 / 60;
constexpr int DefaultPhaseMs = 8000;
constexpr int TimeoutMs = 30000;
// Room for about half of the images, so that images are evicted and decoded again.
constexpr int PicturesKiB = 24 * 1024;

// Durations of events in nanoseconds: wall clock time, and processor time, on which other programs have no effect.
struct Times
{
    std::vector<qint64> clock;
    std::vector<qint64> processor;
};

qint64 processorNs()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return qint64(now.tv_sec) * 1000000000 + now.tv_nsec;
}

// Measures how long the GUI thread takes to handle each event.
class TimedApplication : public QApplication
{
public:
    using QApplication::QApplication;

    bool notify(QObject* receiver, QEvent* event) override
    {
        // notify() is called in every thread, and recursively.
        if (QThread::currentThread() != thread() || m_depth > 0)
            return QApplication::notify(receiver, event);
        ++m_depth;
        QElapsedTimer timer;
        timer.start();
        const qint64 before = processorNs();
        const bool result = QApplication::notify(receiver, event);
        m_times.processor.push_back(processorNs() - before);
        m_times.clock.push_back(timer.nsecsElapsed());
        --m_depth;
        return result;
    }
    Times take() { return std::exchange(m_times, {}); }

private:
    int m_depth = 0;
    Times m_times;
};

void waitFor(const char* what, const std::function<bool()>& isDone)
{
    QElapsedTimer timer;
    timer.start();
    while (!isDone()) {
        if (timer.elapsed() > TimeoutMs)
            throw std::runtime_error(std::string("timeout: waited for ") + what);
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
}

void printHeader()
{
    std::printf("%-22s %-10s %7s %9s %8s %8s %8s %8s %8s\n", "milliseconds", "", "events", "median", "90 %", "99 %",
                "99.9 %", "longest", "> 16.7");
}

void print(const char* name, const char* by, std::vector<qint64> times)
{
    if (times.empty())
        throw std::runtime_error("no events");
    std::sort(times.begin(), times.end());
    const auto at = [&](double share) {
        return double(times[static_cast<std::size_t>(share * double(times.size() - 1))]) / 1e6;
    };
    const auto longer = times.end() - std::upper_bound(times.begin(), times.end(), qint64(FrameNs));
    std::printf("%-22s %-10s %7zu %9.3f %8.3f %8.3f %8.3f %8.3f %8td\n", name, by, times.size(), at(0.5), at(0.9),
                at(0.99), at(0.999), at(1), longer);
}

void print(const char* name, const Times& times)
{
    print(name, "clock", times.clock);
    print("", "processor", times.processor);
}

// Calls @p step 60 times a second for the duration of a phase.
void run(TimedApplication& application, const char* name, const std::function<void(int)>& step)
{
    application.take();
    QEventLoop loop;
    QTimer ticks;
    ticks.setTimerType(Qt::PreciseTimer);
    int tick = 0;
    QObject::connect(&ticks, &QTimer::timeout, &loop, [&] { step(tick++); });
    ticks.start(1000 / 60);
    const int phaseMs = QCoreApplication::arguments().value(1).toInt();
    QTimer::singleShot(phaseMs > 0 ? phaseMs : DefaultPhaseMs, &loop, &QEventLoop::quit);
    loop.exec();
    print(name, application.take());
}

void writePictures(const QString& folder)
{
    QDir().mkpath(folder);
    for (int i = 0; i < Elements; ++i) {
        QImage image(640, 360, QImage::Format_RGB32);
        QPainter painter(&image);
        QLinearGradient ground(0, 0, image.width(), image.height());
        ground.setColorAt(0, QColor::fromHsv(i * 37 % 360, 180, 220));
        ground.setColorAt(1, QColor::fromHsv((i * 37 + 90) % 360, 160, 60));
        painter.fillRect(image.rect(), ground);
        painter.end();
        if (!image.save(QDir(folder).filePath(QString("Picture %1.jpg").arg(i))))
            throw std::runtime_error("cannot write a picture");
    }
}

void post(QWidget* widget, int key)
{
    for (const QEvent::Type type : {QEvent::KeyPress, QEvent::KeyRelease})
        QCoreApplication::postEvent(widget, new QKeyEvent(type, key, Qt::NoModifier));
}

void scroll(TimedApplication& application, Browser::Session& session, Browser::MainWindow& window)
{
    auto* const grid = window.findChild<Browser::ElementGrid*>("elements");
    QScrollBar* const bar = grid->verticalScrollBar();
    grid->setFocus();
    printHeader();
    application.take();
    session.chooseLibrary(1, "1,1,0,0");
    waitFor("255 elements", [&] { return session.elements().rowCount() == Elements; });
    QCoreApplication::processEvents();
    print("taking the list", application.take());
    run(application, "wheel", [&](int) {
        const QPointF place(grid->viewport()->rect().center());
        QCoreApplication::postEvent(
            grid->viewport(), new QWheelEvent(place, grid->viewport()->mapToGlobal(place.toPoint()), {}, {0, -120},
                                              Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false));
    });
    run(application, "bar dragged", [&](int tick) {
        const int there = tick % 480 < 240 ? tick % 240 : 240 - tick % 240;
        bar->setSliderPosition(static_cast<int>(qint64(bar->maximum()) * there / 240));
    });
    run(application, "page down", [&](int tick) {
        if (tick % 6 == 0)
            post(grid, Qt::Key_PageDown);
    });
    run(application, "next element chosen", [&](int tick) {
        if (tick % 2 == 0)
            post(grid, Qt::Key_Right);
    });
}

// The longest turn of the event loop, in processor time, and the longest event.
class Turns : public QObject
{
public:
    explicit Turns(TimedApplication& application)
    {
        connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::awake, this, [this, &application] {
            for (const qint64 event : application.take().clock)
                m_longestEvent = qMax(m_longestEvent, event);
            const qint64 now = processorNs();
            m_longest = qMax(m_longest, now - m_last);
            m_last = now;
            ++m_count;
        });
    }
    double longestMs() const { return double(m_longest) / 1e6; }
    double longestEventMs() const { return double(m_longestEvent) / 1e6; }
    int count() const { return m_count; }

private:
    qint64 m_last = processorNs();
    qint64 m_longest = 0;
    qint64 m_longestEvent = 0;
    int m_count = 0;
};

QByteArray peakMemory()
{
    QFile status(QStringLiteral("/proc/self/status"));
    status.open(QIODevice::ReadOnly);
    const QByteArray all = status.readAll();
    const int from = static_cast<int>(all.indexOf("VmHWM:")) + 6;
    return all.mid(from, static_cast<int>(all.indexOf('\n', from)) - from).simplified();
}

void storm(TimedApplication& application, Browser::Session& session, int milliseconds)
{
    application.take();
    const Turns turns(application);
    Browser::LibraryModel& libraries = session.libraries();
    int count = 0;
    const auto loadBelow = [&](const QModelIndex& parent, int first, int last) {
        for (int row = first; row <= last; ++row)
            libraries.fetchMore(libraries.index(row, 0, parent));
        count += last - first + 1;
    };
    QObject::connect(&libraries, &QAbstractItemModel::rowsInserted, &turns, loadBelow);
    loadBelow({}, 0, libraries.rowCount() - 1);
    session.chooseLibrary(1, "1,1,0,0");
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
    const auto statistics = session.requests().statistics();
    std::printf(
        "%d turns, the longest %.1f ms of processor time; longest event %.1f ms; peak memory %s; %d rows of "
        "libraries; %lld requests, %lld unexpected answers\n",
        turns.count(), turns.longestMs(), turns.longestEventMs(), peakMemory().constData(), count,
        static_cast<long long>(statistics.requests), static_cast<long long>(statistics.unexpected));
}
} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // Its event loop does not tell where a turn ends.
    qputenv("QT_NO_GLIB", "1");
    QStandardPaths::setTestModeEnabled(true);
    TimedApplication application(argc, argv);
    QCoreApplication::setOrganizationName("citp");
    QCoreApplication::setApplicationName("citp-bench-browser");
    QSettings().clear();
    const QTemporaryDir folder;
    writePictures(folder.filePath("1 Long"));
    QProcess server;
    server.setStandardOutputFile(QProcess::nullDevice());
    server.setStandardErrorFile(QProcess::nullDevice());
    const QStringList arguments = QCoreApplication::arguments();
    QStringList options{"--adapter", "lo", "--media", arguments.value(3, folder.path()), "--layer-rate", "25"};
    if (arguments.size() > 2)
        options << "--fault" << arguments.at(2);
    server.start(SERVER_PROGRAM, options);
    int status = 0;
    try {
        Browser::Session session;
        session.pictures().setLimit(PicturesKiB);
        Browser::MainWindow window(session);
        window.resize(1920, 1080);
        window.show();
        session.start();
        waitFor("a server", [&] { return session.isChosenUp(); });
        if (arguments.size() > 2)
            storm(application, session, arguments.at(1).toInt());
        else
            scroll(application, session, window);
    } catch (const std::runtime_error& error) {
        std::fprintf(stderr, "citp_bench_browser: %s\n", error.what());
        status = 1;
    }
    server.kill();
    server.waitForFinished();
    return status;
}
