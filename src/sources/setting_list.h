#pragma once
#include <string>
#include <vector>

namespace vt {

// The entries of a ";"-separated setting ("C:\; D:\", "Spooler;W32Time"), each without its
// surrounding blanks; empty entries are left out.
std::vector<std::string> splitSettingList(const std::string& list);

}  // namespace vt
