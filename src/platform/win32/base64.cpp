#include <windows.h>
// The crypto header needs the Windows types first.
#include <wincrypt.h>

#include "platform/base64.h"

namespace vt {

std::string base64Encode(std::string_view bytes) {
    if (bytes.empty()) return "";
    const auto* data = reinterpret_cast<const BYTE*>(bytes.data());
    const DWORD flags = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;
    DWORD size = 0;
    if (!CryptBinaryToStringA(data, static_cast<DWORD>(bytes.size()), flags, nullptr, &size))
        return "";
    std::string out(size, '\0');
    if (!CryptBinaryToStringA(data, static_cast<DWORD>(bytes.size()), flags, out.data(), &size))
        return "";
    out.resize(size);
    return out;
}

}  // namespace vt
