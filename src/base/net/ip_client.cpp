#include "base/net/ip_client.h"

#include <cstring>

#include "base/debug_log.h"
#include "base/error_report.h"

using namespace vt::net;

bool CIPClient::resolve(std::string_view host, uint16_t port, int socketType,
                        std::vector<CIPAddress>& out, int& error) {
    socketStartup();
    out.clear();
    std::string name(host);
    if (name.size() >= 2 && name.front() == '[' && name.back() == ']')
        name = name.substr(1, name.size() - 2);
    const std::string service = std::to_string(port);
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = socketType;
    hints.ai_flags = AI_NUMERICSERV;
    addrinfo* result = nullptr;
    error = ::getaddrinfo(name.c_str(), service.c_str(), &hints, &result);
    if (error != 0) return false;
    for (const addrinfo* ai = result; ai; ai = ai->ai_next) {
        if (ai->ai_family != AF_INET && ai->ai_family != AF_INET6) continue;
        if (static_cast<size_t>(ai->ai_addrlen) > sizeof(sockaddr_storage)) continue;
        CIPAddress address;
        std::memcpy(address.data(), ai->ai_addr, ai->ai_addrlen);
        address.setSize(static_cast<socklen_t>(ai->ai_addrlen));
        out.push_back(address);
    }
    ::freeaddrinfo(result);
    return !out.empty();
}

size_t CIPClient::maxDatagramPayload(int family) noexcept {
    // 65,535 less the IP header (IPv4 only; IPv6 counts its payload) and the UDP header.
    return family == AF_INET6 ? 65535 - 8 : 65535 - 20 - 8;
}

bool CIPClient::connectStream(const std::vector<CIPAddress>& targets, uint32_t timeoutMs,
                              uint32_t sendTimeoutMs) {
    closeSocket();
    m_lastError = SOCKERR_ADDRNOTAVAIL;
    for (const CIPAddress& target : targets) {
        CWinSock s;
        try {
            s = CWinSock::create(target.family(), SOCK_STREAM);
        } catch (CErrorReport* report) {
            m_lastError = static_cast<CWinSockError*>(report)->getSystemError();
            delete report;
            continue;
        }
        // Connecting without blocking bounds the wait for a host that does not answer, which
        // would otherwise hold a worker for minutes.
        s.setNonBlocking(true);
        bool connected = s.connect(target);
        if (!connected) {
            const uint32_t error = s.lastError();
            if (error == SOCKERR_WOULDBLOCK || error == SOCKERR_INPROGRESS) {
                const int ready = waitSocketReady(s.handle(), true, static_cast<int>(timeoutMs));
                const uint32_t pending = ready == 1   ? socketPendingError(s.handle())
                                         : ready == 0 ? uint32_t(SOCKERR_TIMEDOUT)
                                                      : socketLastError();
                connected = ready == 1 && pending == 0;
                m_lastError = pending;
            } else {
                m_lastError = error;
            }
        }
        if (vt::debugOn(vt::DBG_INFO))
            vt::debugPrintf(vt::DBG_INFO, "CIPClient::connectStream: %s port %u %s (error %u)\r\n",
                            target.toText().c_str(), static_cast<unsigned>(target.port()),
                            connected ? "connected" : "failed",
                            static_cast<unsigned>(connected ? 0 : m_lastError));
        if (!connected) continue;
        s.setNonBlocking(false);
        s.setSocketTimeOut(sendTimeoutMs);
        m_socket = std::move(s);
        m_target = target;
        m_lastError = 0;
        return true;
    }
    return false;
}

void CIPClient::openDatagram(const CIPAddress& target) {
    closeSocket();
    m_socket = CWinSock::create(target.family(), SOCK_DGRAM);
    m_target = target;
}

bool CIPClient::sendDatagram(std::string_view bytes) noexcept {
    const int n = m_socket.sendTo(bytes.data(), static_cast<int>(bytes.size()), m_target);
    if (n == static_cast<int>(bytes.size())) return true;
    m_lastError = n < 0 ? m_socket.lastError() : uint32_t(SOCKERR_MSGSIZE);
    return false;
}

bool CIPClient::sendStream(std::string_view bytes) noexcept {
    if (!m_socket.valid()) {
        m_lastError = SOCKERR_NOTCONN;
        return false;
    }
    if (m_socket.sendAll(bytes)) return true;
    m_lastError = m_socket.lastError();
    return false;
}

bool CIPClient::streamIsDead() noexcept {
    if (!m_socket.valid()) return true;
    const int ready = waitSocketReady(m_socket.handle(), false, 0);
    if (ready == 0) return false;
    if (ready < 0) {
        m_lastError = socketLastError();
        return true;
    }
    // Readable: either the end of the stream, an error, or bytes the server sent (a syslog
    // server sends none, but they are no reason to give the connection up).
    char byte = 0;
    const int n = static_cast<int>(::recv(m_socket.handle(), &byte, 1, MSG_PEEK));
    if (n > 0) return false;
    m_lastError = n == 0 ? uint32_t(SOCKERR_CONNRESET) : socketLastError();
    return true;
}
