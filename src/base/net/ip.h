#pragma once
#include <cstdint>
#include <string_view>

#include "base/net/win_sock.h"

// Base of the listening servers: owns the bound socket and knows its address.
class CIP {
  public:
    CIP() = default;
    virtual ~CIP() = default;
    CIP(const CIP&) = delete;
    CIP& operator=(const CIP&) = delete;

    // The port of a service from the system's services database, or `fallback`.
    static uint16_t servicePort(const char* service, const char* protocol, uint16_t fallback);

    // The port actually bound (useful after binding port 0).
    uint16_t localPort() const noexcept { return m_localAddress.port(); }
    const CIPAddress& localAddress() const noexcept { return m_localAddress; }

  protected:
    // Creates the socket of the address's family and binds it. "::" also takes IPv4 peers.
    // Throws CWinSockError* with the text the event log shows when the port is taken.
    void bindSocket(std::string_view address, uint16_t port, int type);

    CWinSock m_socket;
    CIPAddress m_localAddress;
};
