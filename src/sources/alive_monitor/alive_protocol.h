#pragma once
#include <cstdint>
#include <string>
#include <string_view>

// The alive monitor's exchange: one datagram asks, one answers. Both carry the request's
// sequence number so that a late echo of an earlier request is not taken for the current one.
//   request: "VTALIVE REQUEST <seq>"
//   echo:    "VTALIVE ECHO <seq> <responder's computer name>"
namespace vt::alive {

inline constexpr uint16_t kDefaultPort = 13514;

std::string request(uint32_t sequence);
std::string echo(uint32_t sequence, std::string_view responder);
// The sequence number of a well-formed request or echo; false for anything else.
bool parseRequest(std::string_view datagram, uint32_t& sequence);
bool parseEcho(std::string_view datagram, uint32_t& sequence, std::string& responder);

}  // namespace vt::alive
