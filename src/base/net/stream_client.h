#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "base/net/ip_client.h"
#include "platform/tls_client.h"

// The client side of a dialogue protocol (mail, news, file transfer, web): one connection to a
// server, lines read with a bounded wait, and TLS from the start or after the protocol's
// "start TLS" command. Every receive and send waits at most the time-out given to open(), so a
// server that accepts and never answers cannot hold the caller longer than that per step.
// Used by one thread at a time.
class CStreamClient : private CIPClient {
  public:
    using TlsOptions = vt::net::TlsClientOptions;

    CStreamClient();
    ~CStreamClient() override;

    // False in a build without TLS (the Windows build for now).
    static bool tlsAvailable() noexcept;

    // Resolves `host` and connects to the first of its addresses that accepts within
    // `timeoutMs`. False with lastError() (Winsock numbering; a name that does not resolve is
    // 11001) and lastErrorText().
    bool open(std::string_view host, uint16_t port, uint32_t timeoutMs);
    // The TLS client handshake over the open connection: right after open() for implicit TLS,
    // or after the server agreed to the protocol's STARTTLS. False with lastErrorText() naming
    // the reason (certificate not trusted, name mismatch, expired, no TLS in this build).
    bool startTls(const TlsOptions& options);
    bool isTls() const noexcept;

    // Everything in `bytes`; false with lastError() on failure.
    bool send(std::string_view bytes);
    // One line without its line end (CR LF or LF). A line longer than maxLength is cut there
    // and the rest of it, up to its line feed, is skipped. False on time-out (10060), when the
    // server closed the connection before a line ended (10054), or on failure.
    bool readLine(std::string& line, size_t maxLength = 8192);
    // Appends what the next receive brings (from the buffer first), at most maxBytes. False when
    // the server closed the connection (lastError() 0) or on time-out or failure.
    bool readSome(std::string& out, size_t maxBytes);

    void close() noexcept;
    bool isOpen() const noexcept { return CIPClient::isOpen(); }
    const CIPAddress& peer() const noexcept { return target(); }
    uint32_t lastError() const noexcept { return m_error; }
    const std::string& lastErrorText() const noexcept { return m_errorText; }

  private:
    bool fill();
    void fail(uint32_t error, std::string text);

    std::unique_ptr<vt::net::CTlsClient> m_tls;
    std::string m_buffer;  // received, not yet handed out
    size_t m_offset = 0;   // start of what is not handed out yet
    uint32_t m_timeoutMs = 0;
    uint32_t m_error = 0;
    std::string m_errorText;
};
