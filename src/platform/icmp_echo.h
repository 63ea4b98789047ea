#pragma once
// One ICMP echo for the ping probe: an ICMP datagram socket on Linux (a raw socket where the
// datagram kind is not allowed), IcmpSendEcho on Windows. IPv4 and IPv6.
#include <cstdint>
#include <string>

namespace vt {

// The echo status codes, as Windows numbers them.
inline constexpr uint32_t kEchoSuccess = 0;
inline constexpr uint32_t kEchoTimedOut = 11010;
inline constexpr uint32_t kEchoBadDestination = 11018;

// Sends one echo request to `host` (a name or an address) and waits up to timeoutMs for the
// reply. Returns the echo status (kEchoSuccess with `roundTripMs`), or a socket error number
// when no ICMP socket could be had; `error` then says why in words.
uint32_t icmpEcho(const std::string& host, uint32_t timeoutMs, uint32_t& roundTripMs,
                  std::string& error);

}  // namespace vt
