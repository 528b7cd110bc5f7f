// MessageCutter: splits a byte stream into CITP messages. The stream may have gaps and start within a message.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <functional>

#include "tcp_stream.h"

namespace Tools {
/// The header of a message.
struct MessageHeader
{
    static constexpr int Length = 20;
    /// Longest accepted message. Even a list of 65535 libraries has only a few MiB.
    static constexpr qint64 MaxBytes = 8 << 20;

    bool hasCookie = false;
    quint32 size = 0; ///< declared size of the whole message in bytes
    QString layer;    ///< four characters
    QString code;     ///< four characters; empty if there is none or it is not available yet

    /// Whether all checked fields have valid values, so that the bytes are very likely a header.
    bool isPlausible = false;

    /// Reads the header at the start of @p bytes, which must contain at least #Length bytes.
    static MessageHeader read(const QByteArray& bytes);
    /// Returns the offset of the first plausible header in @p bytes at or after @p start, or -1.
    static int find(const QByteArray& bytes, int start = 0);
};

/// A part of a stream.
struct StreamItem
{
    enum class Kind {
        Message, ///< a message, in #message
        Gap,     ///< bytes missing from the capture; #text describes what is lost
        Error,   ///< a protocol error of the sender, described in #text
        Note,    ///< other information, in #text
    };
    Kind kind = Kind::Message;
    qint64 timeUs = 0;
    QByteArray message;
    qint64 missing = 0; ///< size of a gap in bytes; -1 if unknown
    QString text;
};

/// Splits the stream by the sizes in the headers. Bytes that do not begin a message are skipped up to the next header.
class MessageCutter : public StreamSink
{
public:
    /// @param budget must outlive this object
    /// @param startsAtMessage true if the stream starts with a message; otherwise the cutter first searches for a
    /// header
    MessageCutter(std::function<void(const StreamItem&)> out, Budget& budget, bool startsAtMessage);
    ~MessageCutter() override;
    MessageCutter(const MessageCutter&) = delete;
    MessageCutter& operator=(const MessageCutter&) = delete;

    /// Declares that the next byte is the first byte of a message.
    void startAtMessage() { m_search = Search::None; }
    void bytes(const QByteArray& data, qint64 timeUs) override;
    void gap(qint64 missing, qint64 timeUs) override;
    /// Ends the stream: reports an incomplete message.
    /// @param isClosed the sender closed the stream, so that an incomplete message is an error of the sender
    void finish(bool isClosed);
    /// Memory of the buffer in bytes: at most four times the bytes reserved from the budget.
    qint64 capacity() const { return m_buffer.capacity(); }

private:
    /// Why the cutter searches for a header.
    enum class Search { None, AtStart, AfterGap, AfterError };

    bool cutMessage();
    bool findHeader();
    void startSearch(Search why);
    void endSearch();
    void emitItem(StreamItem::Kind kind, const QString& text, qint64 missing = 0);
    void consume(qint64 count);
    void compact();
    QByteArray unread() const;
    QString lostMessage(qint64 missing);

    const std::function<void(const StreamItem&)> m_out;
    Budget& m_budget;
    Search m_search;
    QByteArray m_buffer;
    int m_front = 0;           ///< number of consumed bytes at the front of #m_buffer
    qint64 m_reserved = 0;     ///< bytes that #m_buffer has reserved from the budget
    qint64 m_lostBytes = 0;    ///< bytes to ignore, which belong to a lost message
    qint64 m_skippedBytes = 0; ///< bytes skipped in the current search
    qint64 m_timeUs = 0;
};
} // namespace Tools
