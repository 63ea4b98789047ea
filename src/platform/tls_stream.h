#pragma once
// TLS as a transformation of bytes, not of a socket: the caller moves ciphertext between the
// session and whatever connection it has (a non-blocking listener's event loop, or a blocking
// client), so one implementation serves both sides. OpenSSL on Linux; the Windows build has
// no TLS yet and says so.
#include <memory>
#include <string>
#include <string_view>

namespace vt::net {

struct TlsEndpointOptions {
    bool server = false;
    std::string certFile;  // own certificate chain (PEM); required for a server
    std::string keyFile;   // its private key (PEM)
    std::string caFile;    // certificates trusted for the peer (PEM); "" none but the system's
    // Server: ask for a client certificate and refuse a connection without a trusted one.
    // Client: refuse a server whose certificate is not trusted or does not name peerName.
    bool verifyPeer = true;
    std::string peerName;  // client: the name sent and checked; "" checks no name
    // "SHA256:AB:CD:..." (case and colons optional): the peer's certificate must have this
    // fingerprint; it then needs no CA.
    std::string fingerprint;
};

// The shared settings of all sessions of one listener or one action: certificates loaded once.
class CTlsContext {
  public:
    CTlsContext();
    ~CTlsContext();
    CTlsContext(const CTlsContext&) = delete;
    CTlsContext& operator=(const CTlsContext&) = delete;

    static bool available() noexcept;
    // False with `error` saying which file or setting was refused.
    bool init(const TlsEndpointOptions& options, std::string& error);
    const TlsEndpointOptions& options() const noexcept { return m_options; }
    // False until init() succeeded; sessions of a context that is not ready fail with its error.
    bool ready() const noexcept { return m_ready; }
    const std::string& error() const noexcept { return m_error; }

  private:
    friend class CTlsStream;
    bool build(const TlsEndpointOptions& options, std::string& error);
    struct Impl;
    std::unique_ptr<Impl> m_impl;
    TlsEndpointOptions m_options;
    bool m_ready = false;
    std::string m_error;
};

// One session. Feed what the peer sent with receive(); send whatever takeOutgoing() returns
// (handshake records, encrypted data, alerts) to the peer.
class CTlsStream {
  public:
    explicit CTlsStream(const CTlsContext& context);
    ~CTlsStream();
    CTlsStream(const CTlsStream&) = delete;
    CTlsStream& operator=(const CTlsStream&) = delete;

    // Starts a client handshake (a server waits for the peer); false on failure.
    bool start();
    // Bytes from the peer; the plaintext they complete is appended to `plain`. False when the
    // session failed (errorText() says why) or the peer closed it (closed() is then true).
    bool receive(std::string_view cipher, std::string& plain);
    // Encrypts `plain` for the peer (after the handshake); false on failure.
    bool send(std::string_view plain);
    // Ciphertext waiting for the peer, handed out once.
    std::string takeOutgoing();
    bool handshakeDone() const noexcept;
    bool closed() const noexcept { return m_closed; }
    const std::string& errorText() const noexcept { return m_error; }

  private:
    bool fail(std::string text);
    bool checkFingerprint();

    struct Impl;
    std::unique_ptr<Impl> m_impl;
    const TlsEndpointOptions* m_options;
    bool m_closed = false;
    bool m_checked = false;
    std::string m_error;
};

}  // namespace vt::net
