#pragma once
#include <cstdint>
#include <ctime>
#include <string>

// Process-wide facilities that differ between Windows and Linux.
namespace vt {

// Full path of the running executable ("" when it cannot be found).
std::string executablePath();
// The short (8.3) form of a path on Windows; the path itself on Linux.
std::string shortPathName(const std::string& path);

// Process priority by the configuration's code: 1 idle, 2 below normal, 4 above normal.
// Other codes leave the priority alone and return true. False on failure (system error set).
bool setProcessPriority(uint32_t code);

// The value of an environment variable; false when it is not set.
bool environmentVariable(const char* name, std::string& value);

// The name of the user the process runs as: the environment variable USERNAME (Linux: else
// USER, else the password entry), at most 255 characters. False with the system error set
// (203, "environment variable not found", on both builds) when there is none.
bool currentUserName(std::string& name);

// Local clock time of the given seconds since 1970 ("%a %b %d %H:%M:%S %Y").
std::string localTimeText(int64_t seconds);

// Called first thing in main: on Linux blocks SIGINT and SIGTERM in every thread the process
// will create, so that only the threads that wait for them see them. A blocked mask is
// inherited across exec: whoever starts a program resets it in the child
// (POSIX_SPAWN_SETSIGMASK with an empty set).
void prepareProcessSignals();

// The process's resident memory and thread count, for the agent's counters.
bool queryProcessUsage(uint64_t& residentKb, uint32_t& threads) noexcept;

// Where a running agent keeps its counters for "vtagent -s": next to the hive on Linux
// ("<hive>.counters"), next to the program on Windows ("vtagent.counters").
std::string agentCountersPath();
// Replaces `path` with `text` in one rename; on Linux readable and writable by the owner only.
bool writePrivateFile(const std::string& path, const std::string& text) noexcept;

}  // namespace vt
