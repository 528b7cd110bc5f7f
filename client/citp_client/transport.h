// Transport: what the client layer uses of the network and the clock, and its implementation on the stack.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_export.h>
#include <citp/citp_stack.h>

#include <QObject>
#include <QString>

#include <memory>
#include <vector>

namespace CITP {
/// Sends requests, emits answers and tells the time. All classes of the client layer get everything through this one
/// interface. Implement it to run them without a network, e.g. in tests. All calls and signals: thread of the object,
/// which is that of its users.
class CITP_EXPORT Transport : public QObject
{
    Q_OBJECT

public:
    static constexpr int maxNameLength = 256; ///< of a server

    Transport();
    ~Transport() override;

    /// A monotonic time in ms.
    virtual qint64 now() const = 0;
    /// Requests a wokenUp() at @p time of now(), or immediately afterwards from the event loop if that has passed. Only
    /// the earliest requested time counts.
    virtual void wakeUpAt(qint64 time) = 0;

    /// Sends @p request: a Msg_MSEX_GELI, Msg_MSEX_GEIN, Msg_MSEX_GELT, Msg_MSEX_GETH or Msg_FPTC_SPTC. Emits nothing
    /// before it returns.
    /// @return false if it was rejected
    virtual bool send(const QString& server, const Msg_Header& request) = 0;
    /// The servers that are up.
    virtual std::vector<QString> servers() const = 0;
    /// As citp_stack::getServerInfo().
    virtual bool serverInfo(const QString& server, Msg_MSEX_SINF* sinf, Msg_PEER_PLOC* ploc) const = 0;

Q_SIGNALS:
    /// Everybody whose time has not come requests it again.
    void wokenUp();
    /// The media server @p server has announced itself as @p name, of which at most #maxNameLength characters are told.
    /// A server named by hand has no name and is heard when it is tried.
    void serverHeard(const QString& server, const QString& name);
    /// The connection to a server has opened. If it sends its information, serverUp() follows.
    void serverConnected(const QString& server);
    /// A server cannot be connected, or its connection has ended; if it was up, serverDown() follows.
    /// @param server key
    /// @param reason for the user, e.g. "Connection refused"; empty if the stack was disabled or changed its adapter
    void serverFailed(const QString& server, const QString& reason);
    // As the signals of the stack, in its signatures, by which StackTransport finds them.
    void serverUp(const CITP::citp_stack::SERV_ID&);                                     ///< as of citp_stack
    void serverDown(const CITP::citp_stack::SERV_ID&);                                   ///< as of citp_stack
    void libraryInfo(const CITP::citp_stack::SERV_ID&, const CITP::Msg_MSEX_ELIN&);      ///< as of citp_stack
    void mediaInfo(const CITP::citp_stack::SERV_ID&, const CITP::Msg_MSEX_MEIN&);        ///< as of citp_stack
    void effectInfo(const CITP::citp_stack::SERV_ID&, const CITP::Msg_MSEX_EEIN&);       ///< as of citp_stack
    void genericInfo(const CITP::citp_stack::SERV_ID&, const CITP::Msg_MSEX_GLEI&);      ///< as of citp_stack
    void libraryThumbnail(const CITP::citp_stack::SERV_ID&, const CITP::Msg_MSEX_ELTH&); ///< as of citp_stack
    void elementThumbnail(const CITP::citp_stack::SERV_ID&, const CITP::Msg_MSEX_ETHN&); ///< as of citp_stack
    void libraryUpdated(const CITP::citp_stack::SERV_ID&, const CITP::Msg_MSEX_ELUP&);   ///< as of citp_stack
    void layerStatus(const CITP::citp_stack::SERV_ID&, const CITP::Msg_MSEX_LSTA&);      ///< as of citp_stack
    void patchMessage(const CITP::citp_stack::SERV_ID&, const CITP::Msg_FPTC_PTCH&);     ///< as of citp_stack
};

/// The transport of applications: citp_stack, which it does not enable. One for a thread is enough.
///
/// It relays only what somebody is connected to; fixtures, for example, cross threads only for a Patch. What it tells
/// about discovery waits for its thread in bounded memory: of each of at most 1024 servers, the last announcement and
/// the last state of the connection. So do the reports of layers, the last 16 of each server.
class CITP_EXPORT StackTransport : public Transport
{
    Q_OBJECT

public:
    StackTransport();
    ~StackTransport() override;

    qint64 now() const override;
    void wakeUpAt(qint64 time) override;
    /// As citp_stack::sendUnpaced(): the stack's own pacing would never send another request after an answer with
    /// effects or generic elements. Requests sends paced servers one at a time instead, with a timeout.
    bool send(const QString& server, const Msg_Header& request) override;
    std::vector<QString> servers() const override;
    bool serverInfo(const QString& server, Msg_MSEX_SINF* sinf, Msg_PEER_PLOC* ploc) const override;

    /// Emits what the stack has told, in its order, for some 5 ms at most; the rest follows from the event loop.
    bool event(QEvent* event) override;

protected:
    /// Connects the stack's signal of the same signature.
    void connectNotify(const QMetaMethod& signal) override;

private:
    struct CITP_HIDDEN Private;
    const std::unique_ptr<Private> d;
};
} // namespace CITP
