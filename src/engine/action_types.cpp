#include "engine/action_types.h"

#include <map>
#include <mutex>

namespace vt {
namespace {

std::mutex& extraLock() {
    static std::mutex lock;
    return lock;
}
std::map<int32_t, ActionType>& extraTypes() {
    static std::map<int32_t, ActionType> types;
    return types;
}

}  // namespace

const ActionType* findActionType(std::span<const ActionType> types, int32_t id) noexcept {
    {
        std::lock_guard lock(extraLock());
        auto it = extraTypes().find(id);
        if (it != extraTypes().end()) return &it->second;
    }
    for (const ActionType& type : types)
        if (type.id == id) return &type;
    return nullptr;
}

ScopedActionType::ScopedActionType(const ActionType& type) : m_id(type.id) {
    std::lock_guard lock(extraLock());
    extraTypes()[type.id] = type;
}

ScopedActionType::~ScopedActionType() {
    std::lock_guard lock(extraLock());
    extraTypes().erase(m_id);
}

}  // namespace vt
