#pragma once
#include <string>
#include <string_view>

namespace vt {

enum class InflateResult {
    NotCompressed,  // no "z" marker: the datagram is the message
    Inflated,       // `out` holds the inflated message
    TooLarge,       // would inflate to more than 128 times its own length
    NoMemory,
    Failed,  // not a zlib stream
};

// A datagram whose first byte is "z" carries a zlib stream after it. The output buffer starts
// at four times the datagram length and doubles while inflation reports it too small, up to
// 128 times the datagram length; beyond that the datagram is dropped, which bounds what a
// small hostile datagram can make us allocate. Failures are logged.
InflateResult inflateSyslogDatagram(std::string_view datagram, std::string& out);

}  // namespace vt
