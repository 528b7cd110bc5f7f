// Escaping, and output in pieces for which there is room.
// SPDX-License-Identifier: Apache-2.0
#include "printing.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QChar>
#include <QJsonDocument>
#include <algorithm>
#include <cerrno>
#include <climits>
#include <mutex>

#include "shutdown.h"
#include "terminal.h"

namespace Console {
namespace {
// Interval at which a blocked output checks for signals.
constexpr int OutputPollMs = 50;
// A reader that is merely slow reads within this time. No thread waits longer for standard error.
constexpr int ErrorPatienceMs = 100;

// The same form as in JSON, so that it can be used in text and in JSON.
QString escape(QChar unit)
{
    return QString("\\u%1").arg(static_cast<uint>(unit.unicode()), 4, 16, QLatin1Char('0'));
}

bool needsEscape(uint codePoint)
{
    switch (QChar::category(codePoint)) {
        case QChar::Other_Control:
        case QChar::Other_Format:
        case QChar::Other_Surrogate:
        case QChar::Separator_Line:
        case QChar::Separator_Paragraph:
            return true;
        default:
            return false;
    }
}

// Writes the start of @p bytes. A pipe that poll() reports as writable takes PIPE_BUF bytes without blocking.
// @return the number of bytes written, 0 if there was no room for @p milliseconds, -1 on an error
qint64 writePiece(int descriptor, const char* bytes, qint64 size, int milliseconds)
{
    pollfd output{descriptor, POLLOUT, 0};
    if (poll(&output, 1, milliseconds) <= 0)
        return 0;
    const ssize_t written = write(descriptor, bytes, static_cast<std::size_t>(std::min<qint64>(size, PIPE_BUF)));
    return written < 0 && (errno == EAGAIN || errno == EINTR) ? 0 : written;
}

// Standard error and its state; the lock keeps the lines of several threads apart.
class ErrorOutput
{
public:
    void write(const QByteArray& text)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        erase();
        if (m_leftOut > 0 &&
            !tryWrite(QByteArray(m_isPartial ? "\n" : "") + "citp-console: " + QByteArray::number(m_leftOut) +
                      " lines were left out, because standard error was not read\n")) {
            ++m_leftOut;
            show();
            return;
        }
        m_leftOut = tryWrite(text) ? 0 : 1;
        show();
    }

    /// @param line empty to remove it
    void setWaitLine(const QString& line)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        erase();
        m_waitLine = line.toUtf8();
        m_waitColumns = columnsOf(line);
        show();
    }
    void hideWaitLine()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        erase();
        m_isHidden = true;
    }
    void showWaitLine()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isHidden = false;
        show();
    }

private:
    void erase()
    {
        if (!m_waitLine.isEmpty() && !m_isHidden)
            tryWrite('\r' + QByteArray(m_waitColumns, ' ') + '\r');
    }
    void show()
    {
        if (!m_waitLine.isEmpty() && !m_isHidden)
            tryWrite(m_waitLine);
    }

    bool tryWrite(const QByteArray& text)
    {
        for (qint64 at = 0; at < text.size();) {
            const qint64 written =
                writePiece(STDERR_FILENO, text.constData() + at, text.size() - at, m_leftOut > 0 ? 0 : ErrorPatienceMs);
            if (written <= 0) {
                m_isPartial = m_isPartial || at > 0;
                return false;
            }
            at += written;
        }
        m_isPartial = false;
        return true;
    }

    std::mutex m_mutex;
    qint64 m_leftOut = 0;     ///< texts since the last one that was written
    bool m_isPartial = false; ///< the last text was cut off
    QByteArray m_waitLine;    ///< shown now, unless other output is being written
    int m_waitColumns = 0;    ///< of #m_waitLine on the terminal
    bool m_isHidden = false;  ///< while standard output is written; another thread may write here meanwhile
};

ErrorOutput& errorOutput()
{
    // Never destroyed: the stack's thread may still log while the process ends.
    static auto* const output = new ErrorOutput;
    return *output;
}
} // namespace

QString escapeControls(const QString& text)
{
    QString out;
    out.reserve(text.size());
    for (int i = 0; i < text.size(); ++i) {
        const QChar unit = text.at(i);
        const bool isPair = unit.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate();
        const uint codePoint = isPair ? QChar::surrogateToUcs4(unit, text.at(i + 1)) : unit.unicode();
        if (needsEscape(codePoint)) {
            out += escape(unit);
            out += isPair ? escape(text.at(++i)) : QString();
        } else {
            out += unit;
            if (isPair)
                out += text.at(++i);
        }
    }
    return out;
}

void print(const QString& text)
{
    const QByteArray bytes = text.toUtf8();
    errorOutput().hideWaitLine();
    for (qint64 at = 0; at < bytes.size();) {
        const qint64 written = writePiece(STDOUT_FILENO, bytes.constData() + at, bytes.size() - at, OutputPollMs);
        if (written < 0)
            throw OutputFailure{errno == EPIPE};
        if (written == 0 && isInterrupted())
            throw Interrupted{};
        at += written;
    }
    errorOutput().showWaitLine();
}

void printLine(const QString& line)
{
    print(line + '\n');
}

void printLines(const QStringList& lines)
{
    for (const QString& line : lines)
        printLine(line);
}

void printJson(const QJsonObject& object)
{
    printLine(escapeControls(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact))));
}

void checkOutput()
{
    struct stat status
    {
    };
    pollfd output{STDOUT_FILENO, 0, 0};
    if (fstat(STDOUT_FILENO, &status) == 0 && S_ISFIFO(status.st_mode) && poll(&output, 1, 0) > 0 &&
        (output.revents & POLLERR) != 0)
        throw OutputFailure{true};
}

void printError(const QString& text)
{
    errorOutput().write(text.toUtf8());
}

void warn(const QString& line)
{
    printError("citp-console: " + line + '\n');
}

void WaitLine::show(const QString& text)
{
    const int columns = terminalSize(STDERR_FILENO).width();
    if (columns > 1)
        errorOutput().setWaitLine(clipped(text, columns - 1));
}

WaitLine::~WaitLine()
{
    errorOutput().setWaitLine({});
}

QString secondsText(qint64 milliseconds)
{
    return QString("%1 s").arg(static_cast<double>(milliseconds) / 1000.0);
}

QString timeOfDay()
{
    return QDateTime::currentDateTime().toString("HH:mm:ss.zzz");
}

QString isoTime(qint64 msSince1970)
{
    return QDateTime::fromMSecsSinceEpoch(msSince1970).toUTC().toString(Qt::ISODateWithMs);
}
} // namespace Console
