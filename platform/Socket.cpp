#include "platform/Socket.h"

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#endif

#include <array>
#include <bit>
#include <cstdio>

namespace kest {
namespace {

// The few words in which the systems differ.
#ifdef _WIN32
using Socket = SOCKET;
using Size = int;
constexpr int kCloseOnExec = 0;
constexpr int kInterrupted = WSAEINTR;

int GetSocketError() { return WSAGetLastError(); }
int Poll(pollfd& entry, int nTimeoutMs) { return WSAPoll(&entry, 1, nTimeoutMs); }
void CloseSocket(Socket hSocket) { closesocket(hSocket); }
#else
using Socket = int;
using Size = std::size_t;
constexpr int kCloseOnExec = SOCK_CLOEXEC;
constexpr int kInterrupted = EINTR;

int GetSocketError() { return errno; }
int Poll(pollfd& entry, int nTimeoutMs) { return poll(&entry, 1, nTimeoutMs); }
void CloseSocket(Socket hSocket) { close(hSocket); }
#endif

sockaddr_in ToSystem(const SocketAddress& address) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(address.nPort);
    result.sin_addr.s_addr = address.dwAddr;
    return result;
}

}  // namespace

void FormatAddress(std::uint32_t dwAddr, std::span<char, 16> text) {
    const auto bytes = std::bit_cast<std::array<std::uint8_t, 4>>(dwAddr);
    std::snprintf(text.data(), text.size(), "%u.%u.%u.%u", bytes[0], bytes[1], bytes[2], bytes[3]);
}

std::uint32_t ParseAddress(const char* pszText) { return inet_addr(pszText); }

#ifdef _WIN32
bool StartSockets() {
    WSADATA data;
    return WSAStartup(MAKEWORD(1, 1), &data) == 0;
}
void StopSockets() { WSACleanup(); }
void SetLastErrorValue(int nError) { SetLastError(static_cast<DWORD>(nError)); }
#else
bool StartSockets() { return true; }
void StopSockets() {}
void SetLastErrorValue(int nError) { errno = nError; }
#endif

int CDatagramSocket::Open() {
    Close();
    m_hSocket = static_cast<std::uintptr_t>(socket(AF_INET, SOCK_DGRAM | kCloseOnExec, 0));
    return m_hSocket == kNone ? GetSocketError() : 0;
}

void CDatagramSocket::Close() {
    if (m_hSocket != kNone) CloseSocket(static_cast<Socket>(m_hSocket));
    m_hSocket = kNone;
}

int CDatagramSocket::SendTo(std::span<const std::uint8_t> data, const SocketAddress& address) {
    const sockaddr_in to = ToSystem(address);
    for (;;) {
        const auto nSent =
            sendto(static_cast<Socket>(m_hSocket), reinterpret_cast<const char*>(data.data()),
                   static_cast<Size>(data.size()), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
        if (nSent >= 0) return 0;
        if (const int nError = GetSocketError(); nError != kInterrupted) return nError;
    }
}

int CDatagramSocket::Bind(const SocketAddress& address) {
    const int nBuffer = 1 << 20;
    const auto hSocket = static_cast<Socket>(m_hSocket);
    setsockopt(hSocket, SOL_SOCKET, SO_RCVBUF, reinterpret_cast<const char*>(&nBuffer), sizeof nBuffer);
    const sockaddr_in own = ToSystem(address);
    return bind(hSocket, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0 ? 0 : GetSocketError();
}

std::uint16_t CDatagramSocket::GetPort() const {
    sockaddr_in own{};
    socklen_t nLength = sizeof own;
    const int nResult =
        getsockname(static_cast<Socket>(m_hSocket), reinterpret_cast<sockaddr*>(&own), &nLength);
    return nResult == 0 ? ntohs(own.sin_port) : std::uint16_t{0};
}

int CDatagramSocket::Receive(std::span<std::uint8_t> dest, std::uint32_t nTimeoutMs) {
    const auto hSocket = static_cast<Socket>(m_hSocket);
    pollfd entry{};
    entry.fd = hSocket;
    entry.events = POLLIN;
    if (Poll(entry, static_cast<int>(nTimeoutMs)) != 1) return -1;
    return static_cast<int>(
        recv(hSocket, reinterpret_cast<char*>(dest.data()), static_cast<Size>(dest.size()), 0));
}

}  // namespace kest
