#pragma once
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "base/clock.h"
#include "base/quillet_string.h"
#include "platform/registry.h"

class CConfigSettings;
class CDNSCacheList;
class CInfoSource;
class CNTService;
class CQueManList;
class CRegAccess;
class CRuleSetList;

namespace vt {

// The pauses of the service manager. The defaults are the agent's; tests shorten them.
struct ServiceManagerTiming {
    std::chrono::milliseconds stopGrace{2000};        // at most, for sources to end on their own
    std::chrono::milliseconds joinLimit{1000};        // per source thread, after its wake
    std::chrono::milliseconds workerSettle{200};      // workers notice the shutdown event
    std::chrono::milliseconds workerStep{1000};       // one pass of the worker pool wait
    int workerPasses = 46;                            // unless "nProtectAgainstShutdown"
    std::chrono::milliseconds killDelay{5000};        // stop-processing before the process ends
    int64_t restartWindowSeconds = 30;                // a restart sooner than this ...
    std::chrono::milliseconds restartBackOff{10000};  // ... first waits this long
};

// What the service manager uses of the world: the clock (restart windows and the pauses of the
// shutdown), the end of the process, and the back-off. Tests replace them.
struct ServiceManagerHooks {
    Clock* clock = &systemClock();
    std::function<void(int exitCode)> endProcess;
    // The back-off before a quick restart; by default a sleep that the shutdown cuts short.
    std::function<void(CInfoSource&, std::chrono::milliseconds)> backOff;
};

struct ServiceHostLink {
    std::function<void()> checkpoint;  // the host's StillInShutdown
    std::function<void()> stop;        // clears the host's running flag
    bool runOnce = false;              // "-r -o": the event log monitors run once, then stop
};

}  // namespace vt

// Turns the configured services into running inputs, one thread each, and stops them again.
// Also creates the engine's process-wide objects at start: the reserve block, the queue with
// its workers, and the host name cache.
//
// Threads: StartupServices and ShutdownServices run on the service thread; each source runs
// RunInfoSource on its own thread. Shutdown signals the sources through their run flags and
// wake(), then joins each thread for a bounded time; a thread that does not end is detached.
// Every source thread shares the ownership of its source and of the queue and the cache, so a
// detached thread keeps what it uses alive and frees it when it ends; the queue refuses its
// units after the shutdown.
class CServiceManager {
  public:
    CServiceManager();
    CServiceManager(vt::ServiceManagerTiming timing, vt::ServiceManagerHooks hooks);
    // Shuts down if that has not happened yet (without ending the process).
    ~CServiceManager();
    CServiceManager(const CServiceManager&) = delete;
    CServiceManager& operator=(const CServiceManager&) = delete;

    void StartupServices(const CConfigSettings& settings, vt::RegRoot root,
                         const CQuilletString& servicesKeyPath, const CQuilletString& dataKeyPath,
                         CRuleSetList* ruleSets, const vt::ServiceHostLink& host);
    void StartupServices(const CConfigSettings& settings, vt::RegRoot root,
                         const CQuilletString& servicesKeyPath, const CQuilletString& dataKeyPath,
                         CRuleSetList* ruleSets, CNTService& host);

    // True when the worker pool finished. Without "nProtectAgainstShutdown" it never waits
    // longer than its limits; when the pool does not finish, the process ends (hooks).
    bool ShutdownServices(const vt::ServiceHostLink& host);
    bool ShutdownServices(CNTService& host);

    // The thread routine of one source: runs its Run, restarting it after a fault.
    void RunInfoSource(CInfoSource* source);

    int32_t getServiceCount() const noexcept { return m_nServiceCount; }
    int32_t getConfigVersion() const noexcept { return m_nConfigVersion; }
    // The source in slot n (0-based), null for an empty slot.
    CInfoSource* getService(size_t slot) const noexcept;
    bool hasThread(size_t slot) const noexcept;
    CQueManList* getQueue() const noexcept;
    // Threads that did not end within the join limit at shutdown (they own their sources).
    int32_t getDetachedThreads() const noexcept { return m_nDetached; }

  private:
    struct ServiceThread;
    struct Resources;

    void startOne(uint32_t n, CRegAccess& services, const CConfigSettings& settings,
                  vt::RegRoot root, const CQuilletString& servicesKeyPath,
                  const CQuilletString& dataKeyPath, CRuleSetList* ruleSets, int32_t& started);
    void waitForSourcesToEnd();
    std::function<void()> m_hostStop;  // handed to the sources that may end the agent
    bool m_runOnce = false;
    void endThread(size_t slot, const vt::ServiceHostLink& host);
    static void runSource(CInfoSource* source, const vt::ServiceManagerTiming& timing,
                          const vt::ServiceManagerHooks& hooks);

    std::vector<std::shared_ptr<ServiceThread>> m_threads;  // one per service, null: none
    std::vector<std::shared_ptr<CInfoSource>> m_services;   // one per service, null: none
    int32_t m_nServiceCount = 0;
    std::shared_ptr<Resources> m_resources;
    CRuleSetList* m_pRuleSets = nullptr;
    int32_t m_nConfigVersion = 0;
    uint32_t m_protectAgainstShutdown = 0;
    int32_t m_nDetached = 0;
    bool m_shutDown = false;

    vt::ServiceManagerTiming m_timing;
    vt::ServiceManagerHooks m_hooks;
};
