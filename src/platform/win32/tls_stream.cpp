#include "platform/tls_stream.h"

// The Windows build has no TLS library yet: contexts refuse to start, so a TLS listener or a
// TLS forward reports that at load time.
namespace vt::net {

struct CTlsContext::Impl {};
struct CTlsStream::Impl {};

CTlsContext::CTlsContext() : m_impl(std::make_unique<Impl>()) {}
CTlsContext::~CTlsContext() = default;

bool CTlsContext::available() noexcept {
    return false;
}

bool CTlsContext::init(const TlsEndpointOptions& options, std::string& error) {
    return build(options, error);
}

bool CTlsContext::build(const TlsEndpointOptions& options, std::string& error) {
    m_options = options;
    m_error = error = "TLS is not available in this build";
    return false;
}

CTlsStream::CTlsStream(const CTlsContext& context)
    : m_impl(std::make_unique<Impl>()), m_options(&context.options()) {}
CTlsStream::~CTlsStream() = default;

bool CTlsStream::start() {
    return fail("TLS is not available in this build");
}
bool CTlsStream::receive(std::string_view, std::string&) {
    return fail("TLS is not available in this build");
}
bool CTlsStream::send(std::string_view) {
    return fail("TLS is not available in this build");
}
std::string CTlsStream::takeOutgoing() {
    return {};
}
bool CTlsStream::handshakeDone() const noexcept {
    return false;
}
bool CTlsStream::checkFingerprint() {
    return false;
}
bool CTlsStream::fail(std::string text) {
    m_error = std::move(text);
    return false;
}

}  // namespace vt::net
