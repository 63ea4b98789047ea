#include <cstring>

#include "platform/sound.h"

namespace vt {

namespace {

uint32_t le32(const char* p) {
    const auto* u = reinterpret_cast<const unsigned char*>(p);
    return u[0] | (u[1] << 8) | (u[2] << 16) | (uint32_t(u[3]) << 24);
}
uint16_t le16(const char* p) {
    const auto* u = reinterpret_cast<const unsigned char*>(p);
    return static_cast<uint16_t>(u[0] | (u[1] << 8));
}

}  // namespace

bool parseWav(std::string_view bytes, WavSound& out, std::string& error) {
    if (bytes.size() < 12 || bytes.substr(0, 4) != "RIFF" || bytes.substr(8, 4) != "WAVE") {
        error = "not a WAV file";
        return false;
    }
    bool haveFormat = false;
    // Chunks follow one another, each padded to an even length.
    for (size_t at = 12; at + 8 <= bytes.size();) {
        const std::string_view id = bytes.substr(at, 4);
        const uint32_t size = le32(bytes.data() + at + 4);
        const size_t body = at + 8;
        if (size > bytes.size() - body) {
            error = "truncated WAV file";
            return false;
        }
        if (id == "fmt " && size >= 16) {
            const uint16_t format = le16(bytes.data() + body);
            out.channels = le16(bytes.data() + body + 2);
            out.rate = le32(bytes.data() + body + 4);
            out.bits = le16(bytes.data() + body + 14);
            if (format != 1 || out.channels < 1 || out.channels > 2 || out.rate == 0 ||
                (out.bits != 8 && out.bits != 16)) {
                error = "only 8- and 16-bit PCM with one or two channels is played";
                return false;
            }
            haveFormat = true;
        } else if (id == "data") {
            if (!haveFormat) break;
            out.samples = bytes.substr(body, size);
            return true;
        }
        at = body + size + (size & 1);
    }
    error = haveFormat ? "WAV file without sound data" : "WAV file without a format";
    return false;
}

}  // namespace vt
