#include "platform/tls_client.h"

namespace vt::net {

// The Windows build has no TLS library yet; asking for TLS fails with a clear reason.
struct CTlsClient::Impl {};

CTlsClient::CTlsClient() = default;
CTlsClient::~CTlsClient() = default;

bool CTlsClient::available() noexcept {
    return false;
}

bool CTlsClient::handshake(SocketHandle, const TlsClientOptions&) {
    return fail(0, "TLS is not available in this build");
}

void CTlsClient::setPeerName(const TlsClientOptions&) {}
bool CTlsClient::failHandshake(const TlsClientOptions&) {
    return false;
}
int CTlsClient::send(const char*, int) noexcept {
    return -1;
}
int CTlsClient::receive(char*, int) noexcept {
    return -1;
}
int CTlsClient::result(int) noexcept {
    return -1;
}
void CTlsClient::shutdown() noexcept {}

bool CTlsClient::fail(uint32_t error, std::string text) {
    m_error = error;
    m_errorText = std::move(text);
    return false;
}

}  // namespace vt::net
