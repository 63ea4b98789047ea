#pragma once
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <unordered_map>

#include "base/clock.h"
#include "base/net/win_sock.h"

// The host name cache that all sources share: maps an address to the name a reverse look-up
// gives for it. A failed look-up is cached as the address text, so a sender without a name
// does not cost one DNS query per message. Entries live for the configured time; when the
// cache is full the oldest entry goes. Look-ups run outside the lock, so one slow name server
// does not hold up other threads (two threads may then resolve the same address at once).
class CDNSCacheList {
  public:
    // Returns the name of an address, or false when it has none.
    using Resolver = std::function<bool(const CIPAddress&, std::string&)>;

    struct Settings {
        bool enabled = true;              // "nEnableDNSCache"
        uint32_t lifetimeSeconds = 7200;  // "nDNSCacheTime", already in seconds
        uint32_t limit = 1024;            // "nDNSCacheLimit"; fewer than 2 become 2
    };

    // The entries' ages are measured on `clock`'s steady time.
    explicit CDNSCacheList(Settings settings, Resolver resolver = reverseLookup,
                           vt::Clock& clock = vt::systemClock());

    // The host name of the address, or its numeric text when it has none.
    std::string hostName(const CIPAddress& address);
    size_t size() const;

    // The system's reverse look-up (getnameinfo with a name required).
    static bool reverseLookup(const CIPAddress& address, std::string& name);

  private:
    struct Entry {
        std::string name;
        std::chrono::steady_clock::time_point expires;
        std::list<std::string>::iterator age;
    };

    Settings m_settings;
    Resolver m_resolver;
    vt::Clock* m_clock;
    mutable std::mutex m_lock;
    std::unordered_map<std::string, Entry> m_entries;  // guarded by m_lock
    std::list<std::string> m_byAge;                    // oldest first; guarded by m_lock
};

namespace vt {
// The cache of the running service manager, for the actions, which are loaded before it exists
// and have no other way to it; null outside a run (an action then resolves uncached).
CDNSCacheList* sharedDnsCache() noexcept;
void setSharedDnsCache(CDNSCacheList* cache) noexcept;
}  // namespace vt
