#include "base/net/win_sock.h"

#include <cstring>
#include <string>

#include "base/debug_log.h"
#include "base/error_report.h"

using namespace vt::net;

namespace {
[[noreturn]] void throwSocketError(const char* what, uint32_t error) {
    std::string text = what;
    text += " (error ";
    text += std::to_string(error);
    text += ")";
    throw new CWinSockError(error, CQuilletString(std::string_view(text)), error);
}
}  // namespace

bool CIPAddress::fromText(std::string_view text, uint16_t port, CIPAddress& out) {
    socketStartup();
    std::string host(text);
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    if (host.empty()) host = "0.0.0.0";
    const std::string service = std::to_string(port);
    for (int flags : {AI_NUMERICHOST | AI_PASSIVE, AI_PASSIVE}) {
        addrinfo hints{};
        hints.ai_family = AF_UNSPEC;
        hints.ai_flags = flags;
        addrinfo* result = nullptr;
        if (::getaddrinfo(host.c_str(), service.c_str(), &hints, &result) != 0 || !result) continue;
        std::memcpy(&out.m_storage, result->ai_addr, result->ai_addrlen);
        out.m_length = static_cast<socklen_t>(result->ai_addrlen);
        ::freeaddrinfo(result);
        return true;
    }
    return false;
}

std::string CIPAddress::toText() const {
    char text[INET6_ADDRSTRLEN + 1] = {};
    if (family() == AF_INET) {
        auto* in = reinterpret_cast<const sockaddr_in*>(&m_storage);
        ::inet_ntop(AF_INET, const_cast<in_addr*>(&in->sin_addr), text, sizeof text);
    } else if (family() == AF_INET6) {
        auto* in6 = reinterpret_cast<const sockaddr_in6*>(&m_storage);
        const auto* b = reinterpret_cast<const unsigned char*>(&in6->sin6_addr);
        static const unsigned char mappedPrefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
        if (std::memcmp(b, mappedPrefix, 12) == 0)
            return std::to_string(b[12]) + "." + std::to_string(b[13]) + "." +
                   std::to_string(b[14]) + "." + std::to_string(b[15]);
        ::inet_ntop(AF_INET6, const_cast<in6_addr*>(&in6->sin6_addr), text, sizeof text);
    }
    return text;
}

uint16_t CIPAddress::port() const noexcept {
    if (family() == AF_INET)
        return ntohs(reinterpret_cast<const sockaddr_in*>(&m_storage)->sin_port);
    if (family() == AF_INET6)
        return ntohs(reinterpret_cast<const sockaddr_in6*>(&m_storage)->sin6_port);
    return 0;
}

void CIPAddress::setPort(uint16_t port) noexcept {
    if (family() == AF_INET) reinterpret_cast<sockaddr_in*>(&m_storage)->sin_port = htons(port);
    if (family() == AF_INET6) reinterpret_cast<sockaddr_in6*>(&m_storage)->sin6_port = htons(port);
}

bool CIPAddress::isAnyIPv6() const noexcept {
    if (!isIPv6()) return false;
    static const unsigned char zero[16] = {};
    return std::memcmp(&reinterpret_cast<const sockaddr_in6*>(&m_storage)->sin6_addr, zero, 16) ==
           0;
}

CWinSock::CWinSock(CWinSock&& other) noexcept
    : m_handle(other.m_handle), m_lastError(other.m_lastError), m_nonBlocking(other.m_nonBlocking) {
    other.m_handle = kInvalidSocket;
}

CWinSock& CWinSock::operator=(CWinSock&& other) noexcept {
    if (this != &other) {
        close();
        m_handle = other.m_handle;
        m_lastError = other.m_lastError;
        m_nonBlocking = other.m_nonBlocking;
        other.m_handle = kInvalidSocket;
    }
    return *this;
}

CWinSock CWinSock::create(int family, int type) {
    if (!socketStartup())
        throwSocketError("CWinSock: socket library unavailable", socketLastError());
    const int protocol = type == SOCK_DGRAM ? IPPROTO_UDP : IPPROTO_TCP;
    SocketHandle h = ::socket(family, type, protocol);
    if (h == kInvalidSocket) throwSocketError("CWinSock: can't create socket", socketLastError());
    return CWinSock(h);
}

uint32_t CWinSock::takeError() noexcept {
    uint32_t e = socketLastError();
    // A blocking POSIX socket whose SO_RCVTIMEO expired says EAGAIN; Winsock says 10060.
    if (e == SOCKERR_WOULDBLOCK && !m_nonBlocking) e = SOCKERR_TIMEDOUT;
    m_lastError = e;
    return e;
}

void CWinSock::close() noexcept {
    if (m_handle != kInvalidSocket) {
        closeSocketHandle(m_handle);
        m_handle = kInvalidSocket;
    }
}

void CWinSock::interrupt() noexcept {
    if (m_handle != kInvalidSocket) shutdownSocket(m_handle);
}

bool CWinSock::setSocketTimeOut(uint32_t milliseconds) noexcept {
    if (setSocketTimeouts(m_handle, milliseconds)) return true;
    takeError();
    return false;
}

void CWinSock::setReUseSocket() noexcept {
    const int on = 1;
    if (::setsockopt(m_handle, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&on),
                     sizeof on) != 0)
        vt::debugPrintf(
            vt::DBG_MINIMUM,
            "CWinSock::setReUseSocket| Error setting option SO_REUSEADDR - code: %d\r\n",
            static_cast<int>(takeError()));
    if (!setSocketDontLinger(m_handle))
        vt::debugPrintf(
            vt::DBG_MINIMUM,
            "CWinSock::setReUseSocket| Error setting option SO_DONTLINGER - code: %d\r\n",
            static_cast<int>(takeError()));
}

bool CWinSock::setNonBlocking(bool on) noexcept {
    if (!setSocketNonBlocking(m_handle, on)) {
        takeError();
        return false;
    }
    m_nonBlocking = on;
    return true;
}

bool CWinSock::setIPv6Only(bool only) noexcept {
    const int value = only ? 1 : 0;
    if (::setsockopt(m_handle, IPPROTO_IPV6, IPV6_V6ONLY, reinterpret_cast<const char*>(&value),
                     sizeof value) == 0)
        return true;
    takeError();
    return false;
}

void CWinSock::bind(const CIPAddress& address) {
    if (::bind(m_handle, address.data(), address.size()) != 0)
        throwSocketError("CWinSock: bind failed", takeError());
}

void CWinSock::listen(int backlog) {
    if (::listen(m_handle, backlog) != 0) throwSocketError("CWinSock: listen failed", takeError());
}

bool CWinSock::connect(const CIPAddress& address) noexcept {
    if (::connect(m_handle, address.data(), address.size()) == 0) return true;
    takeError();
    return false;
}

CWinSock CWinSock::accept(CIPAddress* peer) noexcept {
    CIPAddress from;
    socklen_t length = from.capacity();
    SocketHandle h = ::accept(m_handle, from.data(), &length);
    if (h == kInvalidSocket) {
        takeError();
        return CWinSock();
    }
    from.setSize(length);
    if (vt::debugOn(vt::DBG_ULTRA))
        vt::debugPrintf(vt::DBG_ULTRA, "CWinSock|Accept: Connection from %s\r\n",
                        from.toText().c_str());
    if (peer) *peer = from;
    return CWinSock(h);
}

CIPAddress CWinSock::localAddress() const noexcept {
    CIPAddress local;
    socklen_t length = local.capacity();
    if (::getsockname(m_handle, local.data(), &length) == 0) local.setSize(length);
    return local;
}

int CWinSock::receive(char* buffer, int length) noexcept {
    const int n = static_cast<int>(::recv(m_handle, buffer, length, 0));
    if (n < 0) takeError();
    return n;
}

int CWinSock::receiveFrom(char* buffer, int length, CIPAddress& from) noexcept {
    socklen_t fromLength = from.capacity();
    int n = static_cast<int>(::recvfrom(m_handle, buffer, length, 0, from.data(), &fromLength));
    if (n < 0) {
        // Winsock reports a datagram longer than the buffer as an error although it filled
        // the buffer; POSIX silently cuts it. Both become the cut datagram.
        if (takeError() == SOCKERR_MSGSIZE) n = length;
    }
    if (n >= 0) from.setSize(fromLength);
    return n;
}

int CWinSock::send(const char* data, int length) noexcept {
    const int n = static_cast<int>(::send(m_handle, data, length, kSendFlags));
    if (n < 0) takeError();
    return n;
}

int CWinSock::sendTo(const char* data, int length, const CIPAddress& to) noexcept {
    const int n =
        static_cast<int>(::sendto(m_handle, data, length, kSendFlags, to.data(), to.size()));
    if (n < 0) takeError();
    return n;
}

bool CWinSock::sendAll(std::string_view data) noexcept {
    while (!data.empty()) {
        const int chunk = static_cast<int>(std::min<size_t>(data.size(), 1 << 30));
        const int n = send(data.data(), chunk);
        if (n <= 0) return false;
        data.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}
