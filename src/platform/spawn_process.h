#pragma once
// Starting programs for the start-a-program action: never through a shell, so text from a
// message can never become a command of its own.
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vt {

// Splits a command line into arguments by the rules Windows programs use: blanks separate
// arguments outside double quotes; 2n backslashes before a quote give n backslashes and the
// quote opens or closes a quoted part, 2n+1 give n backslashes and a literal quote; "" inside a
// quoted part is a literal quote; other backslashes are literal.
std::vector<std::string> splitCommandLine(std::string_view line);
// The inverse: one command line whose split gives `args` back.
std::string joinCommandLine(const std::vector<std::string>& args);

struct SpawnOptions {
    bool wait = false;           // wait for the program to end
    uint32_t timeoutMs = 10000;  // when waiting: then the program and its children are killed
    // Set in the program's environment in addition to (or instead of) the agent's own.
    std::vector<std::pair<std::string, std::string>> environment;
};

struct SpawnResult {
    uint32_t error = 0;     // why it could not be started (errno or GetLastError)
    bool finished = false;  // it ended while we waited
    bool killed = false;    // it was still running at the time-out and was killed
    int exitCode = -1;
};

// Starts args[0] with the rest as its arguments (a name without a path is looked up in PATH),
// in a process group of its own. False (with result.error) when it could not be started. A
// program not waited for is reaped in the background.
bool spawnProgram(const std::vector<std::string>& args, const SpawnOptions& options,
                  SpawnResult& result);

}  // namespace vt
