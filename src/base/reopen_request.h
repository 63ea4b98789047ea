#pragma once
#include <cstdint>

namespace vt {

// Log rotation: after a request, every log file the agent keeps open (the debug log, the files
// of write-file actions) is closed and opened again by name before its next line, so that a
// rotation tool that renamed the file finds the agent writing to a new one. One atomic read
// per line is the whole cost.
void requestReopen() noexcept;
uint64_t reopenGeneration() noexcept;

}  // namespace vt
