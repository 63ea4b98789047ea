#pragma once
#include <ostream>
#include <string>
#include <vector>

// The vtreg command line, callable in-process (tests) as well as from main().
namespace vtreg {

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

// Runs one command line (without the program name); messages go to `err`, results to `out`.
int runVtreg(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

}  // namespace vtreg
