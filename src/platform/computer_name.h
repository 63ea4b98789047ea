#pragma once
#include <string>

namespace vt {
// The local computer name: GetComputerNameW on Windows, the host name up to its first dot on
// Linux. False when the system cannot tell.
bool localComputerName(std::u16string& name);
}  // namespace vt
