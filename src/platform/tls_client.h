#pragma once
// TLS for the client connections (mail, probes): OpenSSL on Linux; the Windows build has no
// TLS yet and says so when asked for it.
#include <cstdint>
#include <memory>
#include <string>

#include "platform/socket_api.h"

namespace vt::net {

struct TlsClientOptions {
    std::string serverName;  // sent as SNI and checked against the certificate
    bool verifyPeer = true;  // false: accept any certificate (self-signed test servers)
    std::string caFile;      // PEM file trusted in addition to the system's store; "" none
};

// One client-side TLS session over a connected blocking stream socket that the caller owns;
// the socket's send and receive time-outs bound every call.
class CTlsClient {
  public:
    CTlsClient();
    ~CTlsClient();
    CTlsClient(const CTlsClient&) = delete;
    CTlsClient& operator=(const CTlsClient&) = delete;

    static bool available() noexcept;

    // False with errorText() saying why (handshake failure, the verification result).
    bool handshake(SocketHandle socket, const TlsClientOptions& options);
    // > 0 bytes, 0 the peer closed the session, < 0 failure (lastError(): 10060 on time-out).
    int send(const char* data, int length) noexcept;
    int receive(char* buffer, int length) noexcept;
    // Sends the closing alert; the socket stays the caller's.
    void shutdown() noexcept;

    uint32_t lastError() const noexcept { return m_error; }
    const std::string& errorText() const noexcept { return m_errorText; }

  private:
    void setPeerName(const TlsClientOptions& options);
    bool failHandshake(const TlsClientOptions& options);
    int result(int returned) noexcept;  // 0 or -1 with m_error set
    bool fail(uint32_t error, std::string text);

    struct Impl;
    std::unique_ptr<Impl> m_impl;
    uint32_t m_error = 0;
    std::string m_errorText;
};

}  // namespace vt::net
