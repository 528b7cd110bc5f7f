// Net::Socket: a UDP or TCP socket that owns its descriptor.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/net_address.h>
#include <citp_system/system_export.h>

#include <cstdint>
#include <mutex>

/// IPv4 sockets and addresses.
namespace Net {
/// An IPv4 socket. The object is the only owner of its descriptor: it closes it once, in Close() or when it dies, and
/// nobody else may. A library that wants to adopt the connection is given a duplicate (dup) of GetDescriptor().
///
/// Used by one thread at a time; Cancel() alone may be called from another. An operation that reports failure leaves
/// the reason in errno.
class CITP_SYSTEM_EXPORT Socket
{
public:
    /// What the socket carries: datagrams or a stream.
    enum Protocol {
        UDP = 0, ///< datagrams
        TCP = 1  ///< a stream
    };

    Socket() noexcept = default; ///< not open
    ~Socket();
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    /// Opens a new descriptor, closing one that is open. It is not inherited by child programs.
    /// @return false if the system has none to give; the socket is then not valid
    bool Open(Protocol protocol);
    /// Whether a descriptor is open.
    bool IsValid() const noexcept { return m_descriptor >= 0; }
    /// The descriptor, still owned by this object; -1 when not open.
    int GetDescriptor() const noexcept { return m_descriptor; }

    bool SetBlocking(bool blocking);          ///< whether operations wait; a new socket does
    bool SetAddressReuse(bool reuse);         ///< SO_REUSEADDR; to be set before Bind
    bool SetReceiveBufferCapacity(int bytes); ///< SO_RCVBUF; the kernel may give another size
    bool Bind(std::uint16_t port);            ///< to @p port on every adapter
    bool Bind(const Address& address);        ///< to one adapter's address; port 0 for any port
    /// Joins a multicast group on the adapter with the address @p adapterIp (both IPv4, host byte order). An
    /// @p adapterIp of 0 is refused: it means that there is no adapter, and the kernel would take one at will.
    bool JoinMulticastGroup(std::uint32_t groupIp, std::uint32_t adapterIp);
    bool SetMulticastTtl(int hops);           ///< 0 to 255
    bool SetMulticastLoopback(bool loopback); ///< whether this machine hears what it sends to a group

    /// Ends pending operations of other threads on this socket; they return with an error or as at the end of a stream.
    /// The socket stays open, but is of no further use.
    void Cancel();
    /// Closes the descriptor; without effect when not open.
    void Close();

private:
    // Held while the descriptor changes and while Cancel() uses it, so that Cancel() on another thread never hits a
    // number that has been closed and given to somebody else. The owning thread reads without it.
    std::mutex m_mutex;
    int m_descriptor = -1;
};
} // namespace Net
