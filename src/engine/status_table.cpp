#include "engine/status_table.h"

#include <mutex>

void CStatusTable::setValue(std::u16string_view name, std::u16string_view value) {
    std::lock_guard lock(m_lock);
    auto it = m_values.find(name);
    if (it == m_values.end())
        m_values.emplace(std::u16string(name), std::u16string(value));
    else
        it->second.assign(value);
}

bool CStatusTable::getValue(std::u16string_view name, std::u16string& value) const {
    std::lock_guard lock(m_lock);
    auto it = m_values.find(name);
    if (it == m_values.end()) return false;
    value = it->second;
    return true;
}

bool CStatusTable::readValue(std::u16string_view name,
                             const std::function<void(std::u16string_view)>& reader) const {
    std::lock_guard lock(m_lock);
    auto it = m_values.find(name);
    if (it == m_values.end()) return false;
    reader(it->second);
    return true;
}

void CStatusTable::modifyValue(
    std::u16string_view name,
    const std::function<bool(std::u16string& value, bool existed)>& change) {
    std::lock_guard lock(m_lock);
    auto it = m_values.find(name);
    if (it != m_values.end()) {
        std::u16string value = it->second;
        if (change(value, true)) it->second = std::move(value);
        return;
    }
    std::u16string value;
    if (change(value, false)) m_values.emplace(std::u16string(name), std::move(value));
}

bool CStatusTable::removeValue(std::u16string_view name) {
    std::lock_guard lock(m_lock);
    auto it = m_values.find(name);
    if (it == m_values.end()) return false;
    m_values.erase(it);
    return true;
}

void CStatusTable::clear() {
    std::lock_guard lock(m_lock);
    m_values.clear();
}

size_t CStatusTable::size() const {
    std::lock_guard lock(m_lock);
    return m_values.size();
}

namespace vt {
CStatusTable& statusTable() noexcept {
    static CStatusTable table;
    return table;
}
}  // namespace vt
