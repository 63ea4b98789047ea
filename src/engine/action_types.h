#pragma once
#include <cstdint>
#include <memory>
#include <span>

#include "base/clock.h"
#include "base/quillet_string.h"

class CActionConfig;
class CAction;
class CRuleSetList;

namespace vt {

struct ActionType;

// What an action needs at load time besides its key: the rule base it belongs to (the
// call-rule-set action looks its target up there) and the table of the types it can be.
struct ActionLoadContext {
    CRuleSetList* ruleSets = nullptr;
    std::span<const ActionType> types;
    // What the rules measure their windows and the actions their retry pauses with.
    Clock* clock = &systemClock();
};

inline constexpr int32_t kActionNop = 0;
inline constexpr int32_t kActionDiscard = 1;

// One action type: how its settings object and its behaviour object are made. createConfig
// builds the settings from the action's key path; the entry then calls LoadConfig() and
// createAction, which may choose the behaviour class from the loaded settings.
struct ActionType {
    int32_t id;
    const char* name;
    std::unique_ptr<CActionConfig> (*createConfig)(const CQuilletString& keyPath,
                                                   const ActionLoadContext& context);
    std::unique_ptr<CAction> (*createAction)(CActionConfig& config);
};

// The type with this id in `types` (a scoped type first), or null for an id that no
// implemented action has (0 and 1 included: they have no objects).
const ActionType* findActionType(std::span<const ActionType> types, int32_t id) noexcept;

// Makes an extra type known while the object lives: for test and benchmark actions, which do
// not belong in the agent's own table. Not for use while rule sets are being loaded elsewhere.
class ScopedActionType {
  public:
    explicit ScopedActionType(const ActionType& type);
    ~ScopedActionType();
    ScopedActionType(const ScopedActionType&) = delete;
    ScopedActionType& operator=(const ScopedActionType&) = delete;

  private:
    int32_t m_id;
};

// Helpers for table rows.
template <class Config>
std::unique_ptr<CActionConfig> makeActionConfig(const CQuilletString& keyPath,
                                                const ActionLoadContext& context) {
    if constexpr (requires { Config(keyPath, context); })
        return std::make_unique<Config>(keyPath, context);
    else
        return std::make_unique<Config>(keyPath);
}

template <class Config, class Action>
std::unique_ptr<CAction> makeAction(CActionConfig& config) {
    return std::make_unique<Action>(static_cast<Config&>(config));
}

}  // namespace vt
