#include "platform/icmp_echo.h"

#include <netdb.h>
#include <netinet/icmp6.h>
#include <netinet/ip_icmp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "platform/socket_api.h"

namespace vt {

namespace {

struct Socket {
    int fd = -1;
    bool raw = false;
    ~Socket() {
        if (fd >= 0) ::close(fd);
    }
};

uint16_t checksum(const uint8_t* data, size_t length) {
    uint32_t sum = 0;
    for (size_t i = 0; i + 1 < length; i += 2) sum += uint32_t(data[i] << 8 | data[i + 1]);
    if (length & 1) sum += uint32_t(data[length - 1] << 8);
    while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
    return static_cast<uint16_t>(~sum);
}

// The datagram kind needs no privilege where the system allows it; raw needs root.
bool openSocket(int family, Socket& s, std::string& error) {
    const int protocol = family == AF_INET6 ? int(IPPROTO_ICMPV6) : int(IPPROTO_ICMP);
    s.fd = ::socket(family, SOCK_DGRAM | SOCK_CLOEXEC, protocol);
    if (s.fd >= 0) return true;
    s.fd = ::socket(family, SOCK_RAW | SOCK_CLOEXEC, protocol);
    s.raw = true;
    if (s.fd >= 0) return true;
    error = std::string("no ICMP socket may be opened: ") + std::strerror(errno);
    return false;
}

}  // namespace

uint32_t icmpEcho(const std::string& host, uint32_t timeoutMs, uint32_t& roundTripMs,
                  std::string& error) {
    addrinfo hints{}, *found = nullptr;
    hints.ai_socktype = SOCK_DGRAM;
    if (::getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || !found) {
        error = "the name does not resolve";
        return kEchoBadDestination;
    }
    sockaddr_storage target{};
    std::memcpy(&target, found->ai_addr, found->ai_addrlen);
    const socklen_t targetLength = found->ai_addrlen;
    const int family = found->ai_family;
    ::freeaddrinfo(found);
    Socket s;
    if (!openSocket(family, s, error)) return net::mapErrnoToSocketError(errno);

    static std::atomic<uint16_t> sequence{1};
    const uint16_t seq = sequence++;
    const uint16_t id = static_cast<uint16_t>(::getpid());
    uint8_t packet[64] = {};
    packet[0] = family == AF_INET6 ? ICMP6_ECHO_REQUEST : ICMP_ECHO;
    packet[4] = uint8_t(id >> 8), packet[5] = uint8_t(id);
    packet[6] = uint8_t(seq >> 8), packet[7] = uint8_t(seq);
    std::memcpy(packet + 8, "vtagent ping probe", 18);
    if (family == AF_INET) {  // ICMPv6 checksums are the kernel's (they cover the addresses)
        const uint16_t sum = checksum(packet, sizeof packet);
        packet[2] = uint8_t(sum >> 8), packet[3] = uint8_t(sum);
    }
    const auto start = std::chrono::steady_clock::now();
    if (::sendto(s.fd, packet, sizeof packet, 0, reinterpret_cast<sockaddr*>(&target),
                 targetLength) < 0) {
        error = std::strerror(errno);
        return net::mapErrnoToSocketError(errno);
    }
    const auto deadline = start + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd p{s.fd, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&p, 1, int(left.count())) != 1) return kEchoTimedOut;
        uint8_t reply[1500];
        const ssize_t n = ::recv(s.fd, reply, sizeof reply, 0);
        if (n <= 0) continue;
        // A raw IPv4 socket delivers the IP header too; its length is in the first byte.
        const size_t skip = s.raw && family == AF_INET ? size_t(reply[0] & 0x0f) * 4 : 0;
        if (size_t(n) < skip + 8) continue;
        const uint8_t* icmp = reply + skip;
        const bool echoReply =
            family == AF_INET6 ? icmp[0] == ICMP6_ECHO_REPLY : icmp[0] == ICMP_ECHOREPLY;
        // The datagram kind rewrites the identifier; the sequence number is ours in both.
        const bool ours =
            (icmp[6] << 8 | icmp[7]) == seq && (!s.raw || (icmp[4] << 8 | icmp[5]) == id);
        if (!echoReply || !ours) continue;
        roundTripMs = static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                                std::chrono::steady_clock::now() - start)
                                                .count());
        return kEchoSuccess;
    }
}

}  // namespace vt
