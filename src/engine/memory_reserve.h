#pragma once
#include <cstddef>

// The out-of-memory reserve: a block held back so that, when an allocation fails, freeing it
// lets the agent go on while the queue throttles its producers. The low-memory flag stays set
// until the reserve can be allocated again.
namespace vt {

inline constexpr size_t kReserveMemorySize = 524288;

// Allocates the reserve block if none is held; true when a block is held afterwards. An
// allocation failure inside this call is not handled by the out-of-memory handler.
bool allocateReserveMemory();
void freeReserveMemory() noexcept;
bool holdsReserveMemory() noexcept;

bool lowMemory() noexcept;
void setLowMemory(bool on) noexcept;

// The allocator's failure handler (std::set_new_handler): frees the reserve and lets the
// allocation retry, or lets it fail when there is no reserve left.
void outOfMemoryHandler();
void installOutOfMemoryHandler();

}  // namespace vt
