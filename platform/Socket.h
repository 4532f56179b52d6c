// Datagram sockets over IPv4. An address is 32 bits in network byte order, a port 16 bits in host byte order.
// Errors are the system's numbers.
#pragma once

#include <cstdint>
#include <span>

namespace kest {

/// Where datagrams come from or go to.
struct SocketAddress {
    std::uint32_t dwAddr = 0;  // IPv4 address in network byte order
    std::uint16_t nPort = 0;   // UDP port in host byte order
};

/// An address as dotted text, and back. What is no such text is 255.255.255.255; as the system's own conversion,
/// it takes fewer parts and other bases too.
void FormatAddress(std::uint32_t dwAddr, std::span<char, 16> text);
std::uint32_t ParseAddress(const char* pszText);

/// Starts the system's sockets, which a process does before it makes the first one; each start wants its
/// stop.
/// @return false when there are none.
bool StartSockets();
void StopSockets();

/// Sets the last-error value of the calling thread.
void SetLastErrorValue(int nError);

/// A blocking datagram socket. One thread at a time, except that one may send while another receives.
class CDatagramSocket {
public:
    CDatagramSocket() = default;
    ~CDatagramSocket() { Close(); }
    CDatagramSocket(const CDatagramSocket&) = delete;
    CDatagramSocket& operator=(const CDatagramSocket&) = delete;

    /// Makes the socket, without options and not bound; closes an earlier one. @return 0 or the error.
    int Open();
    void Close();
    /// Sends one datagram, waiting while the system has no room for it. @return 0 or the error.
    int SendTo(std::span<const std::uint8_t> data, const SocketAddress& address);

    /// Binds the socket and gives it a receive buffer of 1 MiB, or as much as the system allows.
    /// @param address  port 0: a free one, see GetPort. @return 0 or the error.
    int Bind(const SocketAddress& address);
    /// The port that the socket is bound to; 0 when there is none.
    std::uint16_t GetPort() const;
    /// Receives one datagram, which `dest` should have room for. @return its bytes; -1 after nTimeoutMs (at
    /// most 2^31 - 1) or on an error.
    int Receive(std::span<std::uint8_t> dest, std::uint32_t nTimeoutMs);

private:
    static constexpr std::uintptr_t kNone = ~std::uintptr_t{0};

    std::uintptr_t m_hSocket = kNone;  // the system's socket
};

}  // namespace kest
