#include "base/net/syslog_inflate.h"

#include <zlib.h>

#include <new>

#include "base/debug_log.h"

namespace vt {

namespace {
constexpr size_t kFirstFactor = 4;
constexpr size_t kMaxFactor = 128;
}  // namespace

InflateResult inflateSyslogDatagram(std::string_view datagram, std::string& out) {
    if (datagram.empty() || datagram[0] != 'z') return InflateResult::NotCompressed;
    const auto* source = reinterpret_cast<const Bytef*>(datagram.data() + 1);
    const uLong sourceLength = static_cast<uLong>(datagram.size() - 1);
    size_t size = kFirstFactor * datagram.size();
    for (;;) {
        try {
            out.resize(size);
        } catch (const std::bad_alloc&) {
            out.clear();
            debugPrintf(DBG_MINIMUM,
                        "CUDPServer::ReceiveMessage: could not alloc deflate buffer memory");
            return InflateResult::NoMemory;
        }
        uLongf produced = static_cast<uLongf>(size);
        const int rc =
            ::uncompress(reinterpret_cast<Bytef*>(out.data()), &produced, source, sourceLength);
        if (rc == Z_OK) {
            out.resize(produced);
            return InflateResult::Inflated;
        }
        if (rc != Z_BUF_ERROR) {
            out.clear();
            debugPrintf(DBG_MINIMUM,
                        "CUDPServer::ReceiveMessage: error %d decompressing message.\r\n", rc);
            return InflateResult::Failed;
        }
        size *= 2;
        if (size > kMaxFactor * datagram.size()) {
            out.clear();
            debugPrintf(DBG_MINIMUM,
                        "CUDPServer::ReceiveMessage: deflate buffer size to large - more than "
                        "128 x msg size!");
            return InflateResult::TooLarge;
        }
    }
}

}  // namespace vt
