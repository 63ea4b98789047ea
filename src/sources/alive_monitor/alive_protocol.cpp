#include "sources/alive_monitor/alive_protocol.h"

#include <charconv>

namespace vt::alive {

namespace {

constexpr std::string_view kRequest = "VTALIVE REQUEST ";
constexpr std::string_view kEcho = "VTALIVE ECHO ";

// Reads the decimal number at the start of `text`; `rest` is what follows it.
bool readNumber(std::string_view text, uint32_t& number, std::string_view& rest) {
    const char* end = text.data() + text.size();
    auto [next, ec] = std::from_chars(text.data(), end, number);
    if (ec != std::errc() || next == text.data()) return false;
    rest = text.substr(static_cast<size_t>(next - text.data()));
    return true;
}

}  // namespace

std::string request(uint32_t sequence) {
    return std::string(kRequest) + std::to_string(sequence);
}

std::string echo(uint32_t sequence, std::string_view responder) {
    return std::string(kEcho) + std::to_string(sequence) + " " + std::string(responder);
}

bool parseRequest(std::string_view datagram, uint32_t& sequence) {
    if (datagram.substr(0, kRequest.size()) != kRequest) return false;
    std::string_view rest;
    return readNumber(datagram.substr(kRequest.size()), sequence, rest) && rest.empty();
}

bool parseEcho(std::string_view datagram, uint32_t& sequence, std::string& responder) {
    if (datagram.substr(0, kEcho.size()) != kEcho) return false;
    std::string_view rest;
    if (!readNumber(datagram.substr(kEcho.size()), sequence, rest)) return false;
    if (rest.empty() || rest.front() != ' ') return false;
    responder.assign(rest.substr(1));
    return true;
}

}  // namespace vt::alive
