// MessageCutter: cuts a stream of bytes, which may have gaps and begin anywhere, into CITP messages.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <functional>

#include "tcp_stream.h"

namespace Console {
/// The first bytes of a message.
struct MessageHeader
{
    static constexpr int Length = 20;
    /// More than any message that is known: a picture has at most 64 KiB, a list of 65535 libraries a few MiB.
    static constexpr qint64 MostBytes = 8 << 20;

    bool hasCookie = false;
    quint32 size = 0; ///< bytes of the whole message, as announced
    QString layer;    ///< four characters
    QString code;     ///< four characters; empty if there is none, or if it has not come yet

    /// A header that is worth following: with this it is unlikely that it is something else.
    bool isPlausible = false;

    /// Reads the header at the front of @p bytes, of which there must be #Length.
    static MessageHeader read(const QByteArray& bytes);
    /// The offset of the first plausible header in @p bytes from @p start on; -1 if there is none.
    static int find(const QByteArray& bytes, int start = 0);
};

/// What a stream turned out to hold.
struct Cut
{
    enum class Kind {
        Message, ///< #message is one
        Gap,     ///< bytes that the capture does not have; #text says what was lost with them
        Error,   ///< the sender has broken the protocol; #text says how
        Note,    ///< neither, but worth saying
    };
    Kind kind = Kind::Message;
    qint64 timeUs = 0;
    QByteArray message;
    qint64 missing = 0; ///< of a gap: its bytes; -1 if unknown
    QString text;
};

/// Cuts by the sizes that the headers announce. What begins no message is passed over up to the next header.
class MessageCutter : public StreamSink
{
public:
    /// @p budget is used until the end of this object.
    /// @param isFromTheStart the first byte to come is the first of a message; else the next header is looked for
    MessageCutter(std::function<void(const Cut&)> out, Budget& budget, bool isFromTheStart);
    ~MessageCutter() override;
    MessageCutter(const MessageCutter&) = delete;
    MessageCutter& operator=(const MessageCutter&) = delete;

    /// The first byte to come is the first of a message.
    void startHere() { m_search = Search::None; }
    void bytes(const QByteArray& data, qint64 timeUs) override;
    void gap(qint64 missing, qint64 timeUs) override;
    /// Nothing more will come: says what is left over.
    /// @param isClosed the sender has ended the stream here, so that what is left over is its fault
    void finish(bool isClosed);
    /// Bytes of memory that what waits to be put together takes: at most four times as many as have been taken of the
    /// budget for it.
    qint64 capacity() const { return m_buffer.capacity(); }

private:
    /// Why the next header is being looked for.
    enum class Search { None, BeganInTheMiddle, AfterGap, AfterError };

    bool cutOne();
    bool findHeader();
    void lookForHeader(Search why);
    void endSearch();
    void say(Cut::Kind kind, const QString& text, qint64 missing = 0);
    void drop(qint64 count);
    void compact();
    QByteArray rest() const;
    QString lostMessage(qint64 missing);

    const std::function<void(const Cut&)> m_out;
    Budget& m_budget;
    Search m_search;
    QByteArray m_buffer;
    int m_front = 0;      ///< bytes of #m_buffer that are done with
    qint64 m_charged = 0; ///< what #m_buffer has taken of the budget
    qint64 m_skip = 0;    ///< bytes still to come of a message that is lost
    qint64 m_passed = 0;  ///< bytes passed over in this search
    qint64 m_timeUs = 0;
};
} // namespace Console
