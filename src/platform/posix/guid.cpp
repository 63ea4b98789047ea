#include "platform/guid.h"

#include <sys/random.h>

#include <cerrno>

namespace vt {

std::optional<Guid> createGuid() {
    uint8_t bytes[16];
    size_t have = 0;
    while (have < sizeof bytes) {
        const ssize_t got = ::getrandom(bytes + have, sizeof bytes - have, 0);
        if (got < 0) {
            if (errno == EINTR) continue;
            return std::nullopt;
        }
        have += static_cast<size_t>(got);
    }
    // Version 4 (random) and the RFC 4122 variant, as a generated Windows GUID has them.
    bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3F) | 0x80);
    Guid guid;
    guid.data1 = (uint32_t{bytes[0]} << 24) | (uint32_t{bytes[1]} << 16) |
                 (uint32_t{bytes[2]} << 8) | bytes[3];
    guid.data2 = static_cast<uint16_t>((bytes[4] << 8) | bytes[5]);
    guid.data3 = static_cast<uint16_t>((bytes[6] << 8) | bytes[7]);
    for (int i = 0; i < 8; ++i) guid.data4[i] = bytes[8 + i];
    return guid;
}

}  // namespace vt

namespace vt {

std::optional<std::u16string> createGuidText() {
    const std::optional<Guid> guid = createGuid();
    if (!guid) return std::nullopt;
    return guidToText(*guid);
}

}  // namespace vt
