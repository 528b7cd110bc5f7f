// Cutting of streams, and finding the way back into them.
// SPDX-License-Identifier: Apache-2.0
#include "message_cutter.h"

#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_header.h>
#include <citp/citp_msg_msex.h>
#include <citp/citp_msg_peer.h>

#include <algorithm>

namespace Console {
namespace {
QString bytesText(qint64 count)
{
    return count == 1 ? QString("1 byte") : QString("%1 bytes").arg(count);
}

QString nameOf(const MessageHeader& header)
{
    return header.code.isEmpty() ? header.layer : header.layer + ' ' + header.code;
}

bool isCode(const QString& text)
{
    return text.size() == 4 && std::all_of(text.begin(), text.end(), [](QChar character) {
               return character.unicode() >= 0x20 && character.unicode() < 0x7f;
           });
}
} // namespace

MessageHeader MessageHeader::read(const QByteArray& bytes)
{
    MessageHeader header;
    header.hasCookie = bytes.startsWith("CITP");
    header.size = static_cast<quint32>(CITP::Msg_Header::messageSize(bytes));
    header.layer = CITP::Msg_Header::contentType(bytes);
    if (header.layer == QLatin1String("MSEX"))
        header.code = CITP::Msg_MSEX::GetCookie(bytes);
    else if (header.layer == QLatin1String("FPTC"))
        header.code = CITP::Msg_FPTC::GetCookie(bytes);
    else
        header.code = CITP::Msg_PEER::contentType(bytes);
    header.isPlausible = header.hasCookie && bytes.at(4) == 1 && bytes.at(5) == 0 && header.size >= Length &&
                         header.size <= MostBytes && isCode(header.layer);
    return header;
}

int MessageHeader::find(const QByteArray& bytes, int start)
{
    for (;;) {
        const int at = static_cast<int>(bytes.indexOf("CITP", start));
        if (at < 0 || bytes.size() - at < Length)
            return -1;
        if (read(bytes.mid(at, 28)).isPlausible)
            return at;
        start = at + 1;
    }
}

MessageCutter::MessageCutter(std::function<void(const Cut&)> out, Budget& budget, bool isFromTheStart)
    : m_out(std::move(out)), m_budget(budget), m_search(isFromTheStart ? Search::None : Search::BeganInTheMiddle)
{
}

MessageCutter::~MessageCutter()
{
    m_budget.giveBack(m_charged);
}

void MessageCutter::bytes(const QByteArray& data, qint64 timeUs)
{
    m_timeUs = timeUs;
    const qint64 skipped = qMin<qint64>(m_skip, data.size());
    m_skip -= skipped;
    const auto fresh = static_cast<int>(data.size() - skipped);
    if (!m_budget.take(fresh)) {
        const qint64 held = rest().size();
        drop(held);
        say(Cut::Kind::Note,
            QString("too much is waiting to be put together: %1 given up").arg(bytesText(held + fresh)));
        compact();
        lookForHeader(Search::AfterGap);
        return;
    }
    m_charged += fresh;
    m_buffer.append(data.constData() + skipped, fresh);
    while (cutOne()) {
    }
    compact();
}

void MessageCutter::gap(qint64 missing, qint64 timeUs)
{
    m_timeUs = timeUs;
    const QString size =
        missing < 0 ? QString("an unknown number of bytes is") : bytesText(missing) + (missing == 1 ? " is" : " are");
    say(Cut::Kind::Gap, QString("%1 missing from the capture%2").arg(size, lostMessage(missing)), missing);
    compact();
}

void MessageCutter::finish(bool isClosed)
{
    const Cut::Kind kind = isClosed ? Cut::Kind::Error : Cut::Kind::Note;
    const QByteArray left = rest();
    if (m_search != Search::None) {
        m_passed += left.size();
        endSearch();
    } else if (left.size() >= MessageHeader::Length) {
        const MessageHeader header = MessageHeader::read(left);
        say(kind, QString("ends within a message, %1: %2 of %3 bytes")
                      .arg(nameOf(header), QString::number(left.size()), QString::number(header.size)));
    } else if (!left.isEmpty()) {
        say(kind, QString("ends within a header: %1").arg(bytesText(left.size())));
    }
    drop(left.size());
    compact();
    m_skip = 0;
    m_search = Search::BeganInTheMiddle;
}

// false: more bytes are needed.
bool MessageCutter::cutOne()
{
    if (m_search != Search::None && !findHeader())
        return false;
    const QByteArray left = rest();
    if (left.size() < MessageHeader::Length) {
        // Four bytes tell already that it goes wrong here.
        if (left.size() < 4 || left.startsWith("CITP"))
            return false;
        lookForHeader(Search::AfterError);
        return true;
    }
    const MessageHeader header = MessageHeader::read(left.left(28));
    if (!header.hasCookie) {
        lookForHeader(Search::AfterError);
        return true;
    }
    if (header.size < MessageHeader::Length || header.size > MessageHeader::MostBytes) {
        say(Cut::Kind::Error,
            QString("a message of layer %1 announces %2, %3: its bytes are passed over")
                .arg(header.layer, bytesText(header.size),
                     header.size < MessageHeader::Length
                         ? QString("less than a header")
                         : QString("more than the %1 that are followed").arg(MessageHeader::MostBytes)));
        m_passed = 4;
        drop(4);
        lookForHeader(Search::AfterGap);
        return true;
    }
    if (static_cast<quint32>(left.size()) < header.size)
        return false;
    Cut cut;
    cut.timeUs = m_timeUs;
    cut.message = QByteArray(left.constData(), static_cast<int>(header.size));
    drop(header.size);
    m_out(cut);
    return true;
}

bool MessageCutter::findHeader()
{
    const QByteArray left = rest();
    const int at = MessageHeader::find(left);
    if (at >= 0) {
        m_passed += at;
        drop(at);
        endSearch();
        return true;
    }
    // A header may have begun in the last bytes.
    const auto passed = qMax<qint64>(0, left.size() - (MessageHeader::Length - 1));
    m_passed += passed;
    drop(passed);
    return false;
}

void MessageCutter::lookForHeader(Search why)
{
    m_search = why;
}

void MessageCutter::endSearch()
{
    const bool isError = m_search == Search::AfterError;
    if (m_passed > 0 && isError)
        say(Cut::Kind::Error, bytesText(m_passed) + " that begin no message passed over");
    else if (m_passed > 0 && m_search == Search::BeganInTheMiddle)
        say(Cut::Kind::Note, "begins within a message: " + bytesText(m_passed) + " passed over");
    else if (m_passed > 0)
        say(Cut::Kind::Note, bytesText(m_passed) + " up to the next message passed over");
    m_passed = 0;
    m_search = Search::None;
}

void MessageCutter::say(Cut::Kind kind, const QString& text, qint64 missing)
{
    Cut cut;
    cut.kind = kind;
    cut.timeUs = m_timeUs;
    cut.missing = missing;
    cut.text = text;
    m_out(cut);
}

void MessageCutter::drop(qint64 count)
{
    m_front += static_cast<int>(count);
}

// Once for all messages of a segment: moving the rest to the front for each would take its time with many small ones.
void MessageCutter::compact()
{
    m_buffer.remove(0, m_front);
    m_front = 0;
    // The budget counts bytes, and removing them frees no memory: what a long message took would be kept for ever.
    if (m_buffer.capacity() > 4 * m_buffer.size())
        m_buffer.squeeze();
    m_budget.giveBack(m_charged - m_buffer.size());
    m_charged = m_buffer.size();
}

QByteArray MessageCutter::rest() const
{
    return QByteArray::fromRawData(m_buffer.constData() + m_front, static_cast<int>(m_buffer.size()) - m_front);
}

// Works out where the stream goes on behind a gap. A message whose end lies behind it is lost, but not the step.
QString MessageCutter::lostMessage(qint64 missing)
{
    const QByteArray left = rest();
    if (m_search != Search::None) {
        m_passed += left.size();
        drop(left.size());
        return {};
    }
    qint64 expected = m_skip;
    QString text;
    if (m_skip == 0 && left.size() >= MessageHeader::Length) {
        const MessageHeader header = MessageHeader::read(left);
        expected = header.size - left.size();
        text = QString("; a message of %1 bytes, %2, is lost with them").arg(header.size).arg(nameOf(header));
    }
    drop(left.size());
    m_skip = 0;
    if (missing >= 0 && missing <= expected)
        m_skip = expected - missing;
    else
        lookForHeader(Search::AfterGap);
    return text;
}
} // namespace Console
