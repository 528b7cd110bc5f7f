// Net::Socket: a UDP or TCP socket that owns its descriptor.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/net_address.h>
#include <citp_system/system_export.h>

#include <cstdint>
#include <mutex>

/// IPv4 sockets and addresses.
namespace Net {
/// An IPv4 socket. The object alone owns its descriptor and closes it, in Close() or in the destructor. A library that
/// takes over the connection is given a duplicate (dup) of GetDescriptor().
///
/// Not thread-safe, except Cancel(). A function that returns false leaves the reason in errno.
class CITP_SYSTEM_EXPORT Socket
{
public:
    /// The transport protocol.
    enum Protocol {
        UDP = 0, ///< datagrams
        TCP = 1  ///< a stream
    };

    Socket() noexcept = default; ///< a socket without a descriptor
    ~Socket();
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    /// Opens a new descriptor and closes the previous one. Child programs do not inherit it (SOCK_CLOEXEC).
    /// @return false if the system cannot provide a descriptor; the socket is then not valid
    bool Open(Protocol protocol);
    /// Whether a descriptor is open.
    bool IsValid() const noexcept { return m_descriptor >= 0; }
    /// The descriptor, still owned by this object; -1 if not open.
    int GetDescriptor() const noexcept { return m_descriptor; }

    bool SetBlocking(bool blocking);          ///< whether operations block; a new socket does
    bool SetAddressReuse(bool reuse);         ///< SO_REUSEADDR; takes effect if set before Bind()
    bool SetReceiveBufferCapacity(int bytes); ///< SO_RCVBUF in bytes; the kernel may set another size
    bool Bind(std::uint16_t port);            ///< binds to @p port on every adapter
    bool Bind(const Address& address);        ///< binds to the address of one adapter; port 0 for any port
    /// Joins a multicast group on one adapter. Both addresses are IPv4 in host byte order.
    /// @param groupIp the address of the group
    /// @param adapterIp the address of the adapter; 0 fails with ENODEV, because the kernel would select any adapter
    bool JoinMulticastGroup(std::uint32_t groupIp, std::uint32_t adapterIp);
    bool SetMulticastTtl(int hops);           ///< 0 to 255; negative values fail with EINVAL
    bool SetMulticastLoopback(bool loopback); ///< whether this machine receives what it sends to a group

    /// Ends pending operations of other threads on this socket. They return with an error or with end of stream. The
    /// socket stays open, but can no longer be used for data. Thread-safe.
    void Cancel();
    /// Closes the descriptor. Does nothing if none is open.
    void Close();

private:
    // Guards changes of the descriptor and its use in Cancel(): Cancel() on another thread must not reach a descriptor
    // number that has been closed and reused. The owning thread reads without the lock.
    std::mutex m_mutex;
    int m_descriptor = -1;
};
} // namespace Net
