#include "base/net/dns_cache_list.h"

#include <algorithm>
#include <atomic>

#include "base/debug_log.h"

CDNSCacheList::CDNSCacheList(Settings settings, Resolver resolver, vt::Clock& clock)
    : m_settings(settings), m_resolver(std::move(resolver)), m_clock(&clock) {
    m_settings.limit = std::max<uint32_t>(m_settings.limit, 2);
}

bool CDNSCacheList::reverseLookup(const CIPAddress& address, std::string& name) {
    char host[NI_MAXHOST] = {};
    if (::getnameinfo(address.data(), address.size(), host, sizeof host, nullptr, 0, NI_NAMEREQD) !=
        0)
        return false;
    name = host;
    return true;
}

size_t CDNSCacheList::size() const {
    std::lock_guard lock(m_lock);
    return m_entries.size();
}

std::string CDNSCacheList::hostName(const CIPAddress& address) {
    const std::string key = address.toText();
    if (!m_settings.enabled) {
        std::string name;
        return m_resolver(address, name) ? name : key;
    }
    {
        std::lock_guard lock(m_lock);
        auto it = m_entries.find(key);
        if (it != m_entries.end() && m_clock->steadyNow() < it->second.expires)
            return it->second.name;
    }
    std::string name;
    if (!m_resolver(address, name) || name.empty()) name = key;
    if (vt::debugOn(vt::DBG_ULTRA))
        vt::debugPrintf(vt::DBG_ULTRA, "CDNSCacheList|hostName: '%s' is '%s'\r\n", key.c_str(),
                        name.c_str());

    std::lock_guard lock(m_lock);
    auto it = m_entries.find(key);
    if (it != m_entries.end()) {
        m_byAge.erase(it->second.age);
        m_entries.erase(it);
    }
    while (m_entries.size() >= m_settings.limit) {
        m_entries.erase(m_byAge.front());
        m_byAge.pop_front();
    }
    m_byAge.push_back(key);
    m_entries.emplace(
        key, Entry{name, m_clock->steadyNow() + std::chrono::seconds(m_settings.lifetimeSeconds),
                   std::prev(m_byAge.end())});
    return name;
}

namespace vt {
namespace {
std::atomic<CDNSCacheList*> g_sharedCache{nullptr};
}  // namespace

CDNSCacheList* sharedDnsCache() noexcept {
    return g_sharedCache.load(std::memory_order_acquire);
}
void setSharedDnsCache(CDNSCacheList* cache) noexcept {
    g_sharedCache.store(cache, std::memory_order_release);
}
}  // namespace vt
