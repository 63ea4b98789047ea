#pragma once
// Base64 (RFC 4648) for mail: login names, passwords, encoded words and bodies. OpenSSL on
// Linux, the crypto API on Windows.
#include <string>
#include <string_view>

namespace vt {
std::string base64Encode(std::string_view bytes);
}  // namespace vt
