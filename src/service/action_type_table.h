#pragma once
#include <span>

#include "engine/action_types.h"

namespace vt {

// The agent's action types: every action built into this program, by configured type id.
std::span<const ActionType> agentActionTypes() noexcept;

}  // namespace vt
