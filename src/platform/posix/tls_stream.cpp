#include "platform/tls_stream.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <cctype>

namespace vt::net {
namespace {

std::string openSslReason(const char* fallback) {
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    if (code == 0) return fallback;
    char text[256];
    ERR_error_string_n(code, text, sizeof text);
    return text;
}

// "SHA256:ab:CD..." and "abcd..." compare equal: only the hex digits count, in upper case.
std::string normalisedFingerprint(std::string_view text) {
    if (text.size() > 7 && (text.substr(0, 7) == "SHA256:" || text.substr(0, 7) == "sha256:"))
        text.remove_prefix(7);
    std::string out;
    for (char c : text)
        if (std::isxdigit(static_cast<unsigned char>(c)))
            out.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(c))));
    return out;
}

bool isNumericAddress(const std::string& name) {
    in6_addr any{};
    return inet_pton(AF_INET, name.c_str(), &any) == 1 ||
           inet_pton(AF_INET6, name.c_str(), &any) == 1;
}

// With a pinned fingerprint the chain is not judged by CAs; the fingerprint is checked once
// the handshake is done.
int acceptAnyChain(int, X509_STORE_CTX*) {
    return 1;
}

}  // namespace

struct CTlsContext::Impl {
    SSL_CTX* context = nullptr;
    ~Impl() {
        if (context) SSL_CTX_free(context);
    }
};

CTlsContext::CTlsContext() : m_impl(std::make_unique<Impl>()) {}
CTlsContext::~CTlsContext() = default;

bool CTlsContext::available() noexcept {
    return true;
}

bool CTlsContext::init(const TlsEndpointOptions& options, std::string& error) {
    m_ready = build(options, error);
    m_error = m_ready ? std::string() : error;
    return m_ready;
}

bool CTlsContext::build(const TlsEndpointOptions& options, std::string& error) {
    ERR_clear_error();
    m_options = options;
    m_impl = std::make_unique<Impl>();
    SSL_CTX* ctx = m_impl->context =
        SSL_CTX_new(options.server ? TLS_server_method() : TLS_client_method());
    if (!ctx) return error = openSslReason("cannot create a TLS context"), false;
    SSL_CTX_set_min_proto_version(ctx, TLS1_2_VERSION);
    if (!options.certFile.empty() &&
        (SSL_CTX_use_certificate_chain_file(ctx, options.certFile.c_str()) != 1 ||
         SSL_CTX_use_PrivateKey_file(
             ctx, options.keyFile.empty() ? options.certFile.c_str() : options.keyFile.c_str(),
             SSL_FILETYPE_PEM) != 1 ||
         SSL_CTX_check_private_key(ctx) != 1))
        return error = "certificate \"" + options.certFile + "\" or key \"" + options.keyFile +
                       "\" refused: " + openSslReason("unreadable"),
               false;
    if (options.server && options.certFile.empty())
        return error = "a TLS listener needs a certificate file", false;
    if (!options.caFile.empty() &&
        SSL_CTX_load_verify_locations(ctx, options.caFile.c_str(), nullptr) != 1)
        return error = "cannot read the CA file \"" + options.caFile +
                       "\": " + openSslReason("unreadable"),
               false;
    if (!options.server) SSL_CTX_set_default_verify_paths(ctx);
    const bool pinned = !options.fingerprint.empty();
    if (options.verifyPeer || pinned) {
        int mode = SSL_VERIFY_PEER;
        if (options.server) mode |= SSL_VERIFY_FAIL_IF_NO_PEER_CERT;
        SSL_CTX_set_verify(ctx, mode, pinned ? acceptAnyChain : nullptr);
    } else {
        SSL_CTX_set_verify(ctx, SSL_VERIFY_NONE, nullptr);
    }
    return true;
}

struct CTlsStream::Impl {
    SSL* session = nullptr;
    BIO* incoming = nullptr;  // owned by the session
    BIO* outgoing = nullptr;  // owned by the session
    ~Impl() {
        if (session) SSL_free(session);
    }
};

CTlsStream::CTlsStream(const CTlsContext& context)
    : m_impl(std::make_unique<Impl>()), m_options(&context.options()) {
    if (!context.ready()) {
        m_error = context.error().empty() ? "TLS is not set up" : context.error();
        return;
    }
    SSL* session = m_impl->session = SSL_new(context.m_impl->context);
    if (!session) return;
    m_impl->incoming = BIO_new(BIO_s_mem());
    m_impl->outgoing = BIO_new(BIO_s_mem());
    SSL_set_bio(session, m_impl->incoming, m_impl->outgoing);
    if (m_options->server) {
        SSL_set_accept_state(session);
        return;
    }
    SSL_set_connect_state(session);
    const std::string& name = m_options->peerName;
    if (name.empty()) return;
    if (isNumericAddress(name)) {
        if (m_options->verifyPeer && m_options->fingerprint.empty())
            X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(session), name.c_str());
        return;
    }
    SSL_set_tlsext_host_name(session, name.c_str());
    if (m_options->verifyPeer && m_options->fingerprint.empty())
        SSL_set1_host(session, name.c_str());
}

CTlsStream::~CTlsStream() = default;

bool CTlsStream::start() {
    if (!m_error.empty()) return false;
    if (!m_impl->session) return fail("cannot create a TLS session");
    std::string none;
    return receive({}, none);
}

bool CTlsStream::receive(std::string_view cipher, std::string& plain) {
    SSL* session = m_impl->session;
    if (!session) return fail("cannot create a TLS session");
    if (m_closed || !m_error.empty()) return false;
    ERR_clear_error();
    if (!cipher.empty())
        BIO_write(m_impl->incoming, cipher.data(), static_cast<int>(cipher.size()));
    if (!SSL_is_init_finished(session)) {
        const int r = SSL_do_handshake(session);
        if (r <= 0) {
            const int code = SSL_get_error(session, r);
            if (code == SSL_ERROR_WANT_READ || code == SSL_ERROR_WANT_WRITE) return true;
            const long verdict = SSL_get_verify_result(session);
            if (verdict != X509_V_OK)
                return fail(std::string("certificate verification failed: ") +
                            X509_verify_cert_error_string(verdict));
            return fail("TLS handshake failed: " + openSslReason("connection error"));
        }
    }
    if (!m_checked && !checkFingerprint()) return false;
    char buffer[16384];
    for (;;) {
        const int n = SSL_read(session, buffer, sizeof buffer);
        if (n > 0) {
            plain.append(buffer, static_cast<size_t>(n));
            continue;
        }
        const int code = SSL_get_error(session, n);
        if (code == SSL_ERROR_WANT_READ || code == SSL_ERROR_WANT_WRITE) return true;
        if (code == SSL_ERROR_ZERO_RETURN) {
            m_closed = true;
            return false;
        }
        return fail("TLS failure: " + openSslReason("connection error"));
    }
}

bool CTlsStream::checkFingerprint() {
    m_checked = true;
    if (m_options->fingerprint.empty()) return true;
    X509* certificate = SSL_get1_peer_certificate(m_impl->session);
    if (!certificate) return fail("the peer sent no certificate to compare the fingerprint with");
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    X509_digest(certificate, EVP_sha256(), digest, &length);
    X509_free(certificate);
    static const char kHex[] = "0123456789ABCDEF";
    std::string got;
    for (unsigned int i = 0; i < length; ++i) {
        got.push_back(kHex[digest[i] >> 4]);
        got.push_back(kHex[digest[i] & 15]);
    }
    if (got == normalisedFingerprint(m_options->fingerprint)) return true;
    return fail("the peer's certificate fingerprint SHA256:" + got + " is not the configured one");
}

bool CTlsStream::send(std::string_view plain) {
    SSL* session = m_impl->session;
    if (!session || !m_error.empty() || !SSL_is_init_finished(session))
        return fail(m_error.empty() ? "TLS session not established" : m_error);
    ERR_clear_error();
    while (!plain.empty()) {
        const int n = SSL_write(session, plain.data(), static_cast<int>(plain.size()));
        if (n <= 0) return fail("TLS failure: " + openSslReason("cannot encrypt"));
        plain.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

std::string CTlsStream::takeOutgoing() {
    std::string out;
    if (!m_impl->outgoing) return out;
    const size_t pending = BIO_ctrl_pending(m_impl->outgoing);
    out.resize(pending);
    if (pending > 0) BIO_read(m_impl->outgoing, out.data(), static_cast<int>(pending));
    return out;
}

bool CTlsStream::handshakeDone() const noexcept {
    return m_impl->session && SSL_is_init_finished(m_impl->session) && m_error.empty();
}

bool CTlsStream::fail(std::string text) {
    m_error = std::move(text);
    return false;
}

}  // namespace vt::net
