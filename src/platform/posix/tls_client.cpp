#include "platform/tls_client.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <cerrno>
#include <csignal>
#include <mutex>

namespace vt::net {

namespace {

// OpenSSL writes to the socket with write(), not with send(MSG_NOSIGNAL): a server that went
// away mid-dialogue would end the whole process with SIGPIPE.
void ignoreBrokenPipe() {
    static std::once_flag once;
    std::call_once(once, [] { std::signal(SIGPIPE, SIG_IGN); });
}

bool isNumericAddress(const std::string& name) {
    in6_addr any{};
    return inet_pton(AF_INET, name.c_str(), &any) == 1 ||
           inet_pton(AF_INET6, name.c_str(), &any) == 1;
}

std::string openSslReason() {
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    if (code == 0) return "TLS failure";
    char text[256];
    ERR_error_string_n(code, text, sizeof text);
    return text;
}

}  // namespace

struct CTlsClient::Impl {
    SSL_CTX* context = nullptr;
    SSL* session = nullptr;
    ~Impl() {
        if (session) SSL_free(session);
        if (context) SSL_CTX_free(context);
    }
};

CTlsClient::CTlsClient() : m_impl(std::make_unique<Impl>()) {
    ignoreBrokenPipe();
}
CTlsClient::~CTlsClient() = default;

bool CTlsClient::available() noexcept {
    return true;
}

bool CTlsClient::handshake(SocketHandle socket, const TlsClientOptions& options) {
    ERR_clear_error();
    m_impl = std::make_unique<Impl>();
    SSL_CTX* context = m_impl->context = SSL_CTX_new(TLS_client_method());
    if (!context) return fail(0, openSslReason());
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    // Web servers commonly close without the closing alert; that is the end of the data, not
    // an error.
    SSL_CTX_set_options(context, SSL_OP_IGNORE_UNEXPECTED_EOF);
    if (options.verifyPeer) {
        SSL_CTX_set_default_verify_paths(context);
        if (!options.caFile.empty() &&
            SSL_CTX_load_verify_locations(context, options.caFile.c_str(), nullptr) != 1)
            return fail(0,
                        "cannot read the CA file \"" + options.caFile + "\": " + openSslReason());
        SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
    }
    SSL* session = m_impl->session = SSL_new(context);
    if (!session || SSL_set_fd(session, static_cast<int>(socket)) != 1)
        return fail(0, openSslReason());
    if (!options.serverName.empty()) setPeerName(options);
    if (SSL_connect(session) == 1) return true;
    return failHandshake(options);
}

void CTlsClient::setPeerName(const TlsClientOptions& options) {
    SSL* session = m_impl->session;
    const std::string& name = options.serverName;
    if (isNumericAddress(name)) {
        // No SNI for an address; the certificate must name the address itself.
        if (options.verifyPeer)
            X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(session), name.c_str());
        return;
    }
    SSL_set_tlsext_host_name(session, name.c_str());
    if (options.verifyPeer) SSL_set1_host(session, name.c_str());
}

bool CTlsClient::failHandshake(const TlsClientOptions& options) {
    const long verdict = SSL_get_verify_result(m_impl->session);
    if (options.verifyPeer && verdict != X509_V_OK)
        return fail(0, std::string("certificate verification failed: ") +
                           X509_verify_cert_error_string(verdict));
    const int saved = errno;
    const std::string reason = openSslReason();
    if (reason == "TLS failure" && saved != 0)
        return fail(mapErrnoToSocketError(saved == EAGAIN ? ETIMEDOUT : saved),
                    "TLS handshake failed: connection error");
    return fail(0, "TLS handshake failed: " + reason);
}

int CTlsClient::send(const char* data, int length) noexcept {
    if (!m_impl->session) return -1;
    ERR_clear_error();
    const int n = SSL_write(m_impl->session, data, length);
    return n > 0 ? n : result(n);
}

int CTlsClient::receive(char* buffer, int length) noexcept {
    if (!m_impl->session) return -1;
    ERR_clear_error();
    const int n = SSL_read(m_impl->session, buffer, length);
    return n > 0 ? n : result(n);
}

int CTlsClient::result(int returned) noexcept {
    const int saved = errno;
    switch (SSL_get_error(m_impl->session, returned)) {
        case SSL_ERROR_ZERO_RETURN:
            return 0;
        case SSL_ERROR_SYSCALL:
            if (saved == 0) return 0;
            // The socket's time-out shows up as EAGAIN.
            m_error = mapErrnoToSocketError(saved == EAGAIN ? ETIMEDOUT : saved);
            return -1;
        default:
            m_error = SOCKERR_CONNABORTED;
            m_errorText = openSslReason();
            return -1;
    }
}

void CTlsClient::shutdown() noexcept {
    if (m_impl->session) SSL_shutdown(m_impl->session);
}

bool CTlsClient::fail(uint32_t error, std::string text) {
    m_error = error;
    m_errorText = std::move(text);
    return false;
}

}  // namespace vt::net
