#pragma once
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/socket_api.h"

// One socket address, IPv4 or IPv6, as the system calls take it.
class CIPAddress {
  public:
    CIPAddress() = default;

    // Parses a numeric address ("0.0.0.0", "127.0.0.1", "::", "::1", "fe80::1%eth0", "[::1]"),
    // falling back to a name look-up. An empty text means every IPv4 interface. False when
    // nothing could be made of the text.
    static bool fromText(std::string_view text, uint16_t port, CIPAddress& out);

    // The numeric text of the address without the port. An IPv4 address that reached an IPv6
    // socket as "::ffff:a.b.c.d" is written in its dotted IPv4 form.
    std::string toText() const;
    uint16_t port() const noexcept;
    void setPort(uint16_t port) noexcept;
    int family() const noexcept { return m_storage.ss_family; }
    bool isIPv6() const noexcept { return family() == AF_INET6; }
    bool isAnyIPv6() const noexcept;

    sockaddr* data() noexcept { return reinterpret_cast<sockaddr*>(&m_storage); }
    const sockaddr* data() const noexcept { return reinterpret_cast<const sockaddr*>(&m_storage); }
    socklen_t size() const noexcept { return m_length; }
    socklen_t capacity() const noexcept { return sizeof m_storage; }
    void setSize(socklen_t length) noexcept { m_length = length; }

  private:
    sockaddr_storage m_storage{};
    socklen_t m_length = 0;
};

// Owner of one socket handle. Set-up failures (create, bind, listen) throw a CWinSockError
// pointer that the catcher owns; transfers return a count and leave the reason in lastError(),
// in Winsock numbering on both systems. Move-only.
class CWinSock {
  public:
    CWinSock() = default;
    explicit CWinSock(vt::net::SocketHandle handle) noexcept : m_handle(handle) {}
    ~CWinSock() { close(); }
    CWinSock(const CWinSock&) = delete;
    CWinSock& operator=(const CWinSock&) = delete;
    CWinSock(CWinSock&& other) noexcept;
    CWinSock& operator=(CWinSock&& other) noexcept;

    // type: SOCK_DGRAM or SOCK_STREAM. Throws CWinSockError*.
    static CWinSock create(int family, int type);

    bool valid() const noexcept { return m_handle != vt::net::kInvalidSocket; }
    vt::net::SocketHandle handle() const noexcept { return m_handle; }
    uint32_t lastError() const noexcept { return m_lastError; }

    void close() noexcept;
    // Ends both directions so that a receive blocked on another thread returns; the handle
    // stays open until close().
    void interrupt() noexcept;

    bool setSocketTimeOut(uint32_t milliseconds) noexcept;
    // SO_REUSEADDR and "don't linger"; failures are only logged.
    void setReUseSocket() noexcept;
    bool setNonBlocking(bool on) noexcept;
    // IPv6 sockets also take IPv4 peers (as mapped addresses) unless only is true.
    bool setIPv6Only(bool only) noexcept;

    void bind(const CIPAddress& address);  // throws CWinSockError*
    void listen(int backlog);              // throws CWinSockError*
    bool connect(const CIPAddress& address) noexcept;
    // An invalid socket when nothing was accepted (lastError() tells why).
    CWinSock accept(CIPAddress* peer) noexcept;
    CIPAddress localAddress() const noexcept;

    // > 0 bytes, 0 the peer closed, < 0 failure. A time-out set with setSocketTimeOut is
    // reported as 10060; "nothing yet" on a non-blocking socket as 10035.
    int receive(char* buffer, int length) noexcept;
    int receiveFrom(char* buffer, int length, CIPAddress& from) noexcept;
    int send(const char* data, int length) noexcept;
    int sendTo(const char* data, int length, const CIPAddress& to) noexcept;
    // Sends everything (looping over partial sends); false on failure.
    bool sendAll(std::string_view data) noexcept;

  private:
    uint32_t takeError() noexcept;

    vt::net::SocketHandle m_handle = vt::net::kInvalidSocket;
    uint32_t m_lastError = 0;
    bool m_nonBlocking = false;
};
