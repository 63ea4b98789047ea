#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/net/win_sock.h"

// The client side of the socket wrappers: resolves a server through the system resolver
// (names, IPv4 and IPv6 addresses alike), and keeps one socket to it: a datagram socket that
// sends to the resolved address, or a stream connected to the first address that accepts.
// Used by one thread at a time (an action under its lock).
class CIPClient {
  public:
    CIPClient() = default;
    virtual ~CIPClient() = default;
    CIPClient(const CIPClient&) = delete;
    CIPClient& operator=(const CIPClient&) = delete;

    // Every address of `host` for the socket type, in the resolver's order. "[::1]" is taken
    // as "::1". False (with a getaddrinfo error code in `error`) when nothing was found.
    static bool resolve(std::string_view host, uint16_t port, int socketType,
                        std::vector<CIPAddress>& out, int& error);

    // The largest payload of one datagram to an address of this family.
    static size_t maxDatagramPayload(int family) noexcept;

    // Connects a stream to the first of `targets` that accepts within timeoutMs each; sends
    // then wait at most sendTimeoutMs. False with lastError() when none accepted.
    bool connectStream(const std::vector<CIPAddress>& targets, uint32_t timeoutMs,
                       uint32_t sendTimeoutMs);
    // A datagram socket of the target's family; throws CWinSockError* when it can't be made.
    void openDatagram(const CIPAddress& target);

    bool isOpen() const noexcept { return m_socket.valid(); }
    void closeSocket() noexcept { m_socket.close(); }
    const CIPAddress& target() const noexcept { return m_target; }
    uint32_t lastError() const noexcept { return m_lastError; }

    // One datagram to the target; false with lastError() on failure.
    bool sendDatagram(std::string_view bytes) noexcept;
    // Everything on the stream; false with lastError() on failure.
    bool sendStream(std::string_view bytes) noexcept;
    // True when the stream's server has closed it or it failed: a look without waiting, so a
    // server that went away between two messages is noticed before the next one is lost.
    bool streamIsDead() noexcept;

  protected:
    CWinSock m_socket;
    CIPAddress m_target;
    uint32_t m_lastError = 0;
};
