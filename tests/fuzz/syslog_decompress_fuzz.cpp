// The datagram path before splitting: "z" inflation with its size limit, then escaping.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "base/net/syslog_inflate.h"
#include "base/net/tcp_framer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    // Most inputs get the marker so that the fuzzer spends its time inside the inflater.
    const std::string datagram =
        (size > 0 && data[0] == 'p') ? std::string(input.substr(1)) : "z" + std::string(input);
    std::string inflated;
    const vt::InflateResult r = vt::inflateSyslogDatagram(datagram, inflated);
    if (r == vt::InflateResult::Inflated) {
        if (inflated.size() > 128 * datagram.size()) std::abort();
        std::string escaped;
        vt::appendSyslogEscaped(inflated, true, escaped);
        if (escaped.size() < inflated.size() || escaped.size() > 5 * inflated.size()) std::abort();
        if (escaped.find('\0') != std::string::npos) std::abort();
    } else if (r != vt::InflateResult::NotCompressed && !inflated.empty()) {
        std::abort();
    }
    return 0;
}
