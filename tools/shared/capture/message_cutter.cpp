// Splitting of streams, and resynchronisation after gaps and errors.
// SPDX-License-Identifier: Apache-2.0
#include "message_cutter.h"

#include <QtEndian>
#include <algorithm>

namespace Tools {
namespace {
QString bytesText(qint64 count)
{
    return count == 1 ? QString("1 byte") : QString("%1 bytes").arg(count);
}

QString nameOf(const MessageHeader& header)
{
    return header.code.isEmpty() ? header.layer : header.layer + ' ' + header.code;
}

// The four characters at @p offset; empty if @p bytes end before @p end, where the header of the layer ends.
QString codeAt(const QByteArray& bytes, int offset, int end)
{
    return bytes.size() < end ? QString() : QString::fromLatin1(bytes.constData() + offset, 4);
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
    header.size = bytes.size() < Length ? 0 : qFromLittleEndian<quint32>(bytes.constData() + 8);
    header.layer = codeAt(bytes, 16, Length);
    // The version of the layer comes before the code, and the index of the layer after it.
    if (header.layer == QLatin1String("MSEX"))
        header.code = codeAt(bytes, 22, 26);
    else if (header.layer == QLatin1String("FPTC"))
        header.code = codeAt(bytes, 20, 28);
    else
        header.code = codeAt(bytes, 20, 24);
    header.isPlausible = header.hasCookie && bytes.at(4) == 1 && bytes.at(5) == 0 && header.size >= Length &&
                         header.size <= MaxBytes && isCode(header.layer);
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

MessageCutter::MessageCutter(std::function<void(const StreamItem&)> out, Budget& budget, bool startsAtMessage)
    : m_out(std::move(out)), m_budget(budget), m_search(startsAtMessage ? Search::None : Search::AtStart)
{
}

MessageCutter::~MessageCutter()
{
    m_budget.release(m_reserved);
}

void MessageCutter::bytes(const QByteArray& data, qint64 timeUs)
{
    m_timeUs = timeUs;
    const qint64 skipped = qMin<qint64>(m_lostBytes, data.size());
    m_lostBytes -= skipped;
    const auto added = static_cast<int>(data.size() - skipped);
    if (!m_budget.take(added)) {
        const qint64 held = unread().size();
        consume(held);
        emitItem(StreamItem::Kind::Note,
                 QString("too many bytes are buffered: %1 discarded").arg(bytesText(held + added)));
        compact();
        startSearch(Search::AfterGap);
        return;
    }
    m_reserved += added;
    m_buffer.append(data.constData() + skipped, added);
    while (cutMessage()) {
    }
    compact();
}

void MessageCutter::gap(qint64 missing, qint64 timeUs)
{
    m_timeUs = timeUs;
    const QString size =
        missing < 0 ? QString("an unknown number of bytes is") : bytesText(missing) + (missing == 1 ? " is" : " are");
    emitItem(StreamItem::Kind::Gap, QString("%1 missing from the capture%2").arg(size, lostMessage(missing)), missing);
    compact();
}

void MessageCutter::finish(bool isClosed)
{
    const StreamItem::Kind kind = isClosed ? StreamItem::Kind::Error : StreamItem::Kind::Note;
    const QByteArray left = unread();
    if (m_search != Search::None) {
        m_skippedBytes += left.size();
        endSearch();
    } else if (left.size() >= MessageHeader::Length) {
        const MessageHeader header = MessageHeader::read(left);
        emitItem(kind, QString("ends within a message, %1: %2 of %3 bytes")
                           .arg(nameOf(header), QString::number(left.size()), QString::number(header.size)));
    } else if (!left.isEmpty()) {
        emitItem(kind, QString("ends within a header: %1").arg(bytesText(left.size())));
    }
    consume(left.size());
    compact();
    m_lostBytes = 0;
    m_search = Search::AtStart;
}

// Returns false if more bytes are needed.
bool MessageCutter::cutMessage()
{
    if (m_search != Search::None && !findHeader())
        return false;
    const QByteArray left = unread();
    if (left.size() < MessageHeader::Length) {
        // Four bytes suffice to detect that no message begins here.
        if (left.size() < 4 || left.startsWith("CITP"))
            return false;
        startSearch(Search::AfterError);
        return true;
    }
    const MessageHeader header = MessageHeader::read(left.left(28));
    if (!header.hasCookie) {
        startSearch(Search::AfterError);
        return true;
    }
    if (header.size < MessageHeader::Length || header.size > MessageHeader::MaxBytes) {
        emitItem(StreamItem::Kind::Error,
                 QString("a message of layer %1 declares %2, %3: skipped")
                     .arg(header.layer, bytesText(header.size),
                          header.size < MessageHeader::Length
                              ? QString("less than a header")
                              : QString("more than the accepted %1").arg(MessageHeader::MaxBytes)));
        m_skippedBytes = 4;
        consume(4);
        startSearch(Search::AfterGap);
        return true;
    }
    if (static_cast<quint32>(left.size()) < header.size)
        return false;
    StreamItem item;
    item.timeUs = m_timeUs;
    item.message = QByteArray(left.constData(), static_cast<int>(header.size));
    consume(header.size);
    m_out(item);
    return true;
}

bool MessageCutter::findHeader()
{
    const QByteArray left = unread();
    const int at = MessageHeader::find(left);
    if (at >= 0) {
        m_skippedBytes += at;
        consume(at);
        endSearch();
        return true;
    }
    // The last bytes may be the start of a header.
    const auto skipped = qMax<qint64>(0, left.size() - (MessageHeader::Length - 1));
    m_skippedBytes += skipped;
    consume(skipped);
    return false;
}

void MessageCutter::startSearch(Search why)
{
    m_search = why;
}

void MessageCutter::endSearch()
{
    const bool isError = m_search == Search::AfterError;
    if (m_skippedBytes > 0 && isError)
        emitItem(StreamItem::Kind::Error, "skipped " + bytesText(m_skippedBytes) + " that do not begin a message");
    else if (m_skippedBytes > 0 && m_search == Search::AtStart)
        emitItem(StreamItem::Kind::Note, "starts within a message: skipped " + bytesText(m_skippedBytes));
    else if (m_skippedBytes > 0)
        emitItem(StreamItem::Kind::Note, "skipped " + bytesText(m_skippedBytes) + " up to the next message");
    m_skippedBytes = 0;
    m_search = Search::None;
}

void MessageCutter::emitItem(StreamItem::Kind kind, const QString& text, qint64 missing)
{
    StreamItem item;
    item.kind = kind;
    item.timeUs = m_timeUs;
    item.missing = missing;
    item.text = text;
    m_out(item);
}

void MessageCutter::consume(qint64 count)
{
    m_front += static_cast<int>(count);
}

// Called once for all messages of a segment, because moving the remaining bytes for each of many small messages is
// slow.
void MessageCutter::compact()
{
    m_buffer.remove(0, m_front);
    m_front = 0;
    // Removing bytes does not free memory. Without this, the memory for a long message would never be freed.
    if (m_buffer.capacity() > 4 * m_buffer.size())
        m_buffer.squeeze();
    m_budget.release(m_reserved - m_buffer.size());
    m_reserved = m_buffer.size();
}

QByteArray MessageCutter::unread() const
{
    return QByteArray::fromRawData(m_buffer.constData() + m_front, static_cast<int>(m_buffer.size()) - m_front);
}

// Finds the continuation of the stream after a gap. If the current message extends beyond the gap, the message is lost,
// but the start of the next message is known.
QString MessageCutter::lostMessage(qint64 missing)
{
    const QByteArray left = unread();
    if (m_search != Search::None) {
        m_skippedBytes += left.size();
        consume(left.size());
        return {};
    }
    qint64 expected = m_lostBytes;
    QString text;
    if (m_lostBytes == 0 && left.size() >= MessageHeader::Length) {
        const MessageHeader header = MessageHeader::read(left);
        expected = header.size - left.size();
        text = QString("; a message of %1 bytes, %2, is lost with them").arg(header.size).arg(nameOf(header));
    }
    consume(left.size());
    m_lostBytes = 0;
    if (missing >= 0 && missing <= expected)
        m_lostBytes = expected - missing;
    else
        startSearch(Search::AfterGap);
    return text;
}
} // namespace Tools
