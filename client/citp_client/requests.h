// Requests: asks media servers for libraries, elements and pictures, and ends every request exactly once.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/transport.h>
#include <citp_client/values.h>

#include <QObject>
#include <QSize>
#include <QString>

#include <memory>
#include <vector>

namespace CITP {
/// What is asked.
struct CITP_EXPORT Request
{
    /// Each has a message of its own.
    enum Kind {
        Libraries,      ///< the libraries below #library, or those of #numbers
        Elements,       ///< the elements of #library, or those of #numbers
        LibraryPicture, ///< the picture of #library
        ElementPicture  ///< the picture of the one element of #numbers
    };

    QString server;                 ///< key, e.g. "2.0.0.10:4811"
    Kind kind{Libraries};           ///< what of it
    quint8 type{1};                 ///< MSEX library type: 1 media, 2 effects, others generic elements
    QString library{rootLibrary()}; ///< in any form that libraryId() takes
    std::vector<quint8> numbers{};  ///< empty for all; before MSEX 1.2 at most 255
    QSize size{320, 240};           ///< of a picture, in pixels; made smaller for RGB8, whose data has a limit
    QString format{};               ///< of a picture: "JPEG", "PNG" or "RGB8"; empty for the server's best
    bool isByHand{false};           ///< the user waits for it: goes before others, and also in quiet mode

    /// Whether both ask for the same. #isByHand does not matter.
    bool operator==(const Request& other) const;
};

class Requests;

/// The future answer to one Request, owned by Requests. It deletes itself after finished(), when control returns to the
/// event loop; take what you need before. To delete it earlier is to cancel the request without a signal.
class CITP_EXPORT Reply : public QObject
{
    Q_OBJECT

public:
    /// How the request has ended.
    enum Status {
        Pending,  ///< it has not
        Answered, ///< as asked
        TimedOut, ///< no answer to any attempt
        Refused, ///< not sendable, see Requests, or the server answered that it has none, or in an unknown MSEX version
        ServerLost, ///< the server is down, or was not up
        Cancelled   ///< by cancel()
    };
    Q_ENUM(Status)

    ~Reply() override;

    /// As it is sent: with the identifier in the server's form, and with size and format.
    const Request& request() const { return m_request; }
    /// How the request has ended.
    Status status() const { return m_status; }
    /// Whether it has.
    bool isFinished() const { return m_status != Pending; }
    /// One sentence for the user with the server's name in it; empty while Pending and if Answered.
    QString errorString() const { return m_errorString; }
    /// How often the request has been sent: 0 while it waits, at most Requests::maxAttempts.
    int attempts() const { return m_attempts; }

    /// Of Request::Libraries: each library once, only those asked for.
    const std::vector<Library>& libraries() const { return m_libraries; }
    /// Of Request::Elements: each number once, only those asked for.
    const std::vector<Element>& elements() const { return m_elements; }
    /// Of the two kinds of pictures: never without data if Answered.
    const Picture& picture() const { return m_picture; }
    /// The number of entries of the answer that were left out: doubles, strangers and empty ones. A server that sends
    /// such is odd or its answer was truncated.
    int dropped() const { return m_dropped; }

    /// Has the request go before others and out in quiet mode from now on, as if Request::isByHand had been set.
    void setByHand();
    /// Ends the request as Cancelled. Without effect if it has ended. Emits finished(). If it has been sent, it takes
    /// its place in the window until it is answered or times out: the server is working on it.
    void cancel();

Q_SIGNALS:
    /// Exactly once, and never before the function that made the request has returned.
    void finished();

private:
    friend class Catalogue;
    friend class Requests;
    Reply(Requests* requests, Request request);

    Requests* m_requests;
    Request m_request;
    qint64 m_place{0}; ///< among those that wait
    Status m_status{Pending};
    QString m_errorString;
    int m_attempts{0};
    std::vector<Library> m_libraries;
    std::vector<Element> m_elements;
    Picture m_picture;
    int m_dropped{0};
};

/// The requests to all servers. Every request ends exactly once, with Reply::finished(), unless it is deleted. One
/// instance is enough; two of them on one stack, or calls of citp_stack::sendMsg() beside it, would take answers for
/// their own that are not.
///
/// **Matching.** Answers do not name their request. An answer of a server belongs to the oldest sent request that it
/// fits, whether that is still wanted or not. If not, it goes to a wanted request for the same, unless it also fits a
/// sent request for something else. It fits by its message, and
/// - libraries (ELIn): by type, and by one of them being below the asked library, or none being there at all;
/// - elements (MEIn, EEIn, GLEI): by library, and by type where the message has it;
/// - pictures (ELTh, EThn): by type, library and element number. Their size and format do not count, because servers
///   send what they have;
/// - in an unknown MSEX version, which is not read: by its message alone.
///
/// What these cannot tell apart is sent one after the other: libraries of one type, elements of one library, the same
/// picture in two sizes. Other numbers of one library and another size of one picture also wait for the late answer to
/// an earlier request that was cancelled or has timed out, until the server has answered no request at all for
/// Requests::maxAttempts timeouts, at most 60 s. A server may answer in any order otherwise. Only an answer that comes
/// still later, or that nobody has asked for, can be taken for another's.
///
/// **Time.** A request waits until it is sent, without a limit. Then the timeout counts from the server's last answer
/// of that kind, to whichever request: a server that takes 3 s for each picture answers all. What fits no request does
/// not count. A request that 64 later
/// ones have overtaken is taken for lost. It is then sent again, at most Requests::maxAttempts times in all. An answer
/// that comes late still counts. A server that has answered nothing of a kind for a whole timeout is asked for one at
/// once, and if that fails too, all requests of the kind end as TimedOut; but not if only one of them was sent, which
/// may be the one that the server cannot answer.
///
/// **Window.** To each server at most windowFor() requests of a kind are outstanding, those included that were
/// cancelled and may still be answered: 4 at first, one more for each answer within 200 ms, half for one that took more
/// than 1 s or did not come, never less than Requests::minWindow or more than Requests::maxWindow. Servers that lose
/// requests (products of "coolux" and "arkaos") get one request for a list at a time. If the transport rejects a
/// request although the server is up, that request ends as Refused, and the server is sent nothing else for a second:
/// unsent data may have reached a limit.
class CITP_EXPORT Requests : public QObject
{
    Q_OBJECT

public:
    static constexpr int minWindow = 1;   ///< the lower bound of windowFor()
    static constexpr int maxWindow = 32;  ///< the upper bound of windowFor()
    static constexpr int maxAttempts = 2; ///< how often a request is sent

    /// @param transport must outlive this object
    /// @param parent may be null
    explicit Requests(Transport& transport, QObject* parent = nullptr);
    /// Deletes all replies.
    ~Requests() override;

    /// Sends @p request, at once if nothing stands in the way. Never null, and never finished on return.
    Reply* get(const Request& request);
    /// The libraries below @p parent.
    Reply* libraries(const QString& server, quint8 type, const QString& parent = rootLibrary());
    /// The elements of @p library.
    Reply* elements(const QString& server, quint8 type, const QString& library);
    /// The picture of element @p number of @p library.
    Reply* picture(const QString& server, quint8 type, const QString& library, quint8 number);

    /// The transport given to the constructor.
    Transport& transport() const;
    /// The MSEX minor version in which @p server is asked; 0 if it is not up.
    quint8 msexMinor(const QString& server) const;

    /// @p server for the user, e.g. "Stage" (2.0.0.10:4811).
    QString nameOf(const QString& server) const;
    /// What stands for @p server beyond its connections: its UUID, or its key if it has none or is not up.
    QString identity(const QString& server) const;

    /// @param milliseconds 5000 by default; for requests that time out after this
    void setTimeout(int milliseconds);
    /// In ms.
    int timeout() const;
    /// The number of requests of @p kind that may be outstanding at @p server.
    int windowFor(const QString& server, Request::Kind kind) const;

    /// Whether all requests of @p kind have ended as TimedOut because @p server has answered nothing of the kind for
    /// maxAttempts timeouts, and has not since.
    bool isSilent(const QString& server, Request::Kind kind) const;

    /// An upper bound for all servers together, on average over a second; 0 for none, which is the default. Counts
    /// requests sent, and the bytes of their answers, which delay the next requests.
    void setRateLimit(int requestsPerSecond, int bytesPerSecond);
    /// During a show: only requests by hand are sent, others wait. False by default.
    void setQuiet(bool isQuiet);
    /// Whether only requests by hand are sent.
    bool isQuiet() const;

    /// What was sent and received since the start.
    struct Statistics
    {
        qint64 requests{0};   ///< sent, repeated ones included
        qint64 repeated{0};   ///< sent again
        qint64 answers{0};    ///< that belonged to a request that was wanted
        qint64 unexpected{0}; ///< that did not
        qint64 bytes{0};      ///< of all answers
    };
    /// What was sent and received since the start.
    Statistics statistics() const;

private:
    friend class Reply;
    struct CITP_HIDDEN Private;
    const std::unique_ptr<Private> d;
};
} // namespace CITP
