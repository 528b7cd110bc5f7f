// FakeTransport: the client layer's network and clock without sockets, as fast as the processor.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_thumbnails.h>
#include <citp_client/requests.h>
#include <citp_client/transport.h>

#include <functional>
#include <map>
#include <ostream>
#include <vector>

class FakeTransport : public CITP::Transport
{
    Q_OBJECT

public:
    qint64 now() const override { return m_now; }
    void wakeUpAt(qint64 time) override { m_wakeUp = m_wakeUp < 0 || time < m_wakeUp ? time : m_wakeUp; }
    bool send(const QString& server, const CITP::Msg_Header& request) override;
    std::vector<QString> servers() const override;
    bool serverInfo(const QString& server, CITP::Msg_MSEX_SINF* sinf, CITP::Msg_PEER_PLOC* ploc) const override;

    /// Has @p server come up, with MSEX 1.@p minor.
    void setUp(const QString& server, int minor = 2, const char* product = "Product");
    void setUp(const QString& server, const CITP::Msg_MSEX_SINF& information);
    void setDown(const QString& server);
    /// Has @p server gone without the signal, as while that waits in the event queue. setDown() emits it.
    void lose(const QString& server) { m_up.erase(server); }
    /// Does @p work at @p time, after what was planned earlier for that time.
    void at(qint64 time, std::function<void()> work);
    /// Does what is due up to @p time, in order, and deletes what is to be deleted later.
    void runUntil(qint64 time);
    void run(qint64 milliseconds) { runUntil(m_now + milliseconds); }

    /// What send() was given, in the form of a request, and since the start.
    std::vector<CITP::Request> sent;
    int patchRequests = 0;
    /// Called for each of #sent. @return what send() returns
    std::function<bool(const CITP::Request&)> onSend;

private:
    struct Info
    {
        CITP::Msg_MSEX_SINF sinf;
        CITP::Msg_PEER_PLOC ploc;
    };

    qint64 m_now = 0;
    qint64 m_wakeUp = -1;
    std::map<QString, Info> m_up;
    std::multimap<qint64, std::function<void()>> m_plan;
};

/// Answers with recognisable content: every name and picture is @p mark.
CITP::Msg_MSEX_ELIN elin(int minor, quint8 type, const QStringList& ids, const QString& mark);
CITP::Msg_MSEX_MEIN mein(int minor, const QString& library, const std::vector<quint8>& numbers, const QString& mark);
CITP::Msg_MSEX_EEIN eein(int minor, const QString& library, const std::vector<quint8>& numbers, const QString& mark);
CITP::Msg_MSEX_GLEI glei(int minor, quint8 type, const QString& library, const std::vector<quint8>& numbers,
                         const QString& mark);
CITP::Msg_MSEX_ELTH elth(int minor, quint8 type, const QString& library, const QString& mark);
CITP::Msg_MSEX_ETHN ethn(int minor, quint8 type, const QString& library, quint8 number, const QString& mark);

/// The mark of what @p reply was answered with; empty if there is nothing in it.
QString markOf(const CITP::Reply& reply);

namespace CITP {
/// For test failures.
std::ostream& operator<<(std::ostream& out, const Request& request);
} // namespace CITP
