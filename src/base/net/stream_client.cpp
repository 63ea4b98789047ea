#include "base/net/stream_client.h"

#include <algorithm>
#include <vector>

#include "base/debug_log.h"

using namespace vt::net;

CStreamClient::CStreamClient() = default;
CStreamClient::~CStreamClient() {
    close();
}

bool CStreamClient::tlsAvailable() noexcept {
    return CTlsClient::available();
}

bool CStreamClient::open(std::string_view host, uint16_t port, uint32_t timeoutMs) {
    close();
    m_timeoutMs = timeoutMs;
    std::vector<CIPAddress> targets;
    int resolveError = 0;
    if (!resolve(host, port, SOCK_STREAM, targets, resolveError)) {
        fail(SOCKERR_HOST_NOT_FOUND, "cannot resolve \"" + std::string(host) + "\"");
        return false;
    }
    if (!connectStream(targets, timeoutMs, timeoutMs)) {
        fail(CIPClient::lastError(), "connection failed");
        return false;
    }
    m_error = 0;
    m_errorText.clear();
    return true;
}

bool CStreamClient::startTls(const TlsOptions& options) {
    if (!isOpen()) {
        fail(SOCKERR_NOTCONN, "not connected");
        return false;
    }
    auto tls = std::make_unique<CTlsClient>();
    if (!tls->handshake(m_socket.handle(), options)) {
        fail(tls->lastError(), tls->errorText());
        return false;
    }
    // Bytes that arrived in clear before the handshake must not be taken as protected ones.
    m_buffer.clear();
    m_offset = 0;
    m_tls = std::move(tls);
    return true;
}

bool CStreamClient::isTls() const noexcept {
    return m_tls != nullptr;
}

bool CStreamClient::send(std::string_view bytes) {
    if (!isOpen()) {
        fail(SOCKERR_NOTCONN, "not connected");
        return false;
    }
    if (!m_tls) {
        if (sendStream(bytes)) return true;
        fail(CIPClient::lastError(), "send failed");
        return false;
    }
    while (!bytes.empty()) {
        const int n = m_tls->send(bytes.data(), static_cast<int>(bytes.size()));
        if (n <= 0) {
            fail(n == 0 ? uint32_t(SOCKERR_CONNRESET) : m_tls->lastError(), "send failed");
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

bool CStreamClient::readLine(std::string& line, size_t maxLength) {
    line.clear();
    bool cut = false;
    for (;;) {
        const size_t end = m_buffer.find('\n', m_offset);
        const size_t stop = end == std::string::npos ? m_buffer.size() : end;
        if (!cut) {
            const size_t room = maxLength - line.size();
            line.append(m_buffer, m_offset, std::min(room, stop - m_offset));
            cut = line.size() >= maxLength;
        }
        if (end != std::string::npos) {
            m_offset = end + 1;
            if (!line.empty() && line.back() == '\r') line.pop_back();
            return true;
        }
        m_buffer.clear();
        m_offset = 0;
        if (!fill()) {
            // A server that closed mid-line left no line to hand out.
            if (m_error == 0) fail(SOCKERR_CONNRESET, "connection closed by the server");
            return false;
        }
    }
}

bool CStreamClient::readSome(std::string& out, size_t maxBytes) {
    if (m_offset == m_buffer.size() && !fill()) return false;
    const size_t n = std::min(maxBytes, m_buffer.size() - m_offset);
    out.append(m_buffer, m_offset, n);
    m_offset += n;
    return true;
}

// Receives into the empty buffer; false when nothing came: m_error 0 when the server closed.
bool CStreamClient::fill() {
    if (!isOpen()) {
        fail(SOCKERR_NOTCONN, "not connected");
        return false;
    }
    m_buffer.erase(0, m_offset);
    m_offset = 0;
    char chunk[16384];
    const int n = m_tls ? m_tls->receive(chunk, sizeof chunk)
                        : m_socket.receive(chunk, static_cast<int>(sizeof chunk));
    if (n > 0) {
        m_buffer.append(chunk, static_cast<size_t>(n));
        return true;
    }
    if (n == 0)
        fail(0, "connection closed by the server");
    else
        fail(m_tls ? m_tls->lastError() : m_socket.lastError(),
             m_tls && !m_tls->errorText().empty() ? m_tls->errorText() : "receive failed");
    return false;
}

void CStreamClient::close() noexcept {
    if (m_tls) {
        m_tls->shutdown();
        m_tls.reset();
    }
    closeSocket();
    m_buffer.clear();
    m_offset = 0;
}

void CStreamClient::fail(uint32_t error, std::string text) {
    m_error = error;
    m_errorText = std::move(text);
    if (vt::debugOn(vt::DBG_INFO))
        vt::debugPrintf(vt::DBG_INFO, "CStreamClient: %s (error %u)\r\n", m_errorText.c_str(),
                        static_cast<unsigned>(error));
}
