#include <winsock2.h>
#include <ws2tcpip.h>
// The helper headers need the socket types first, and the echo calls the helper types.
#include <iphlpapi.h>
// (kept apart so that the order stays)
#include <icmpapi.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/icmp_echo.h"
#include "platform/socket_api.h"

namespace vt {

namespace {
// The IPv6 echo reply as the helper library returns it (its header is missing here).
#pragma pack(push, 1)
struct Ipv6AddressEx {
    USHORT port;
    ULONG flowInfo;
    USHORT address[8];
    ULONG scopeId;
};
#pragma pack(pop)
struct Icmpv6EchoReply {
    Ipv6AddressEx address;
    ULONG status;
    unsigned int roundTripTime;
};
// No reply: a time-out, or the system could not send (error 120: not implemented).
uint32_t failed(DWORD code, std::string& error) {
    if (code == IP_REQ_TIMED_OUT) return kEchoTimedOut;
    error = code == ERROR_CALL_NOT_IMPLEMENTED
                ? "no ICMP socket: the echo call is not implemented here"
                : "the echo call failed - error " + std::to_string(code);
    return code;
}
}  // namespace

uint32_t icmpEcho(const std::string& host, uint32_t timeoutMs, uint32_t& roundTripMs,
                  std::string& error) {
    net::socketStartup();
    addrinfo hints{}, *found = nullptr;
    hints.ai_socktype = SOCK_DGRAM;
    if (::getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || !found) {
        error = "the name does not resolve";
        return kEchoBadDestination;
    }
    const int family = found->ai_family;
    sockaddr_storage target{};
    std::memcpy(&target, found->ai_addr, found->ai_addrlen);
    ::freeaddrinfo(found);
    char payload[] = "vtagent ping probe";
    std::vector<char> reply(sizeof(Icmpv6EchoReply) + sizeof(ICMP_ECHO_REPLY) + sizeof payload +
                            64);
    if (family == AF_INET6) {
        HANDLE h = Icmp6CreateFile();
        if (h == INVALID_HANDLE_VALUE) return failed(GetLastError(), error);
        sockaddr_in6 source{};
        source.sin6_family = AF_INET6;
        const DWORD n =
            Icmp6SendEcho2(h, nullptr, nullptr, nullptr, &source,
                           reinterpret_cast<sockaddr_in6*>(&target), payload, sizeof payload,
                           nullptr, reply.data(), static_cast<DWORD>(reply.size()), timeoutMs);
        const DWORD failure = GetLastError();
        IcmpCloseHandle(h);
        if (n == 0) return failed(failure, error);
        const auto* r = reinterpret_cast<Icmpv6EchoReply*>(reply.data());
        roundTripMs = r->roundTripTime;
        return r->status;
    }
    HANDLE h = IcmpCreateFile();
    if (h == INVALID_HANDLE_VALUE) return failed(GetLastError(), error);
    const IPAddr to = reinterpret_cast<sockaddr_in*>(&target)->sin_addr.s_addr;
    const DWORD n = IcmpSendEcho(h, to, payload, sizeof payload, nullptr, reply.data(),
                                 static_cast<DWORD>(reply.size()), timeoutMs);
    const DWORD failure = GetLastError();
    IcmpCloseHandle(h);
    if (n == 0) return failed(failure, error);
    const auto* r = reinterpret_cast<ICMP_ECHO_REPLY*>(reply.data());
    roundTripMs = r->RoundTripTime;
    return r->Status;
}

}  // namespace vt
