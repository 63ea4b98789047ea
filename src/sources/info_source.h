#pragma once
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "base/clock.h"
#include "base/quillet_string.h"
#include "platform/registry.h"

class CConfigSettings;
class CDNSCacheList;
class CInfoUnit;
class CQueManList;
class CRegAccess;
class CRuleList;
class CRuleSetListEntry;
class CWaitableInfoUnit;

namespace vt {
struct SourceCounters;

inline constexpr char16_t kServicesKeyPath[] = u"SOFTWARE\\Quillet\\Vantor\\Agent\\Services";
inline constexpr char16_t kAgentDataKeyPath[] = u"SOFTWARE\\Quillet\\Vantor\\AgentData";

// What the service manager hands every input it creates. The queue, the settings and the host
// name cache are borrowed and outlive every source (and every thread a source runs on).
struct InfoSourceContext {
    CQuilletString serviceName;  // "szISName%d"
    uint32_t serviceId = 0;      // the configured type id
    CQueManList* queue = nullptr;
    vt::RegRoot root = vt::RegRoot::LocalMachine;
    CQuilletString servicesKeyPath = kServicesKeyPath;
    const CConfigSettings* settings = nullptr;
    CQuilletString dataKeyPath = kAgentDataKeyPath;
    CDNSCacheList* dnsCache = nullptr;      // null: names are not resolved
    vt::Clock* clock = &vt::systemClock();  // what the source stamps and waits with
    bool runOnce = false;                   // the agent was started with "-r -o"
    std::function<void()> stopAgent;        // ends the agent (as a stop control would)
};

}  // namespace vt

// The base of every input. The service manager creates one per configured service, gives it
// its number, lets it load its settings (LoadConfig), binds it to its rule set, prepares its
// registry keys (setRegPathes) and runs Run() on a thread of its own until Run returns.
//
// Threads: the settings are read and written by the source's own thread, and by the service
// manager while the source does not run. The run flag is the one field another thread writes
// (the shutdown clears it, then calls wake()); Run polls it with keepRunning() or sleeps in
// waitWhileRunning(), which wake() interrupts.
class CInfoSource {
  public:
    CInfoSource(const CQuilletString& serviceName, uint32_t serviceId, CQueManList* queue,
                vt::RegRoot root, const CQuilletString& servicesKeyPath, uint32_t flag = 1);
    // The form the type table uses; also keeps the settings and the AgentData path.
    explicit CInfoSource(const vt::InfoSourceContext& context, uint32_t flag = 1);
    virtual ~CInfoSource();
    CInfoSource(const CInfoSource&) = delete;
    CInfoSource& operator=(const CInfoSource&) = delete;

    // The work routine: does the source's work until the run flag is cleared (or it has
    // nothing left to do) and returns. An exception escaping it makes the service manager
    // restart it after the back-off.
    virtual void Run() = 0;
    // Reads the common settings; true when "bServiceEnabled" is exactly 1. A concrete source
    // calls OpenConfig itself, reads its own values only when the version changed, and returns
    // isEnabled().
    virtual bool LoadConfig();
    // Called on the source's thread before every start of Run (also after a fault): a place to
    // reset what a faulted Run left behind. Nothing in the base.
    virtual void OnBeforeRun() {}
    // Called from the shutdown thread after the run flag is cleared: must make a blocking Run
    // return soon (close its sockets, set its events). The base wakes waitWhileRunning();
    // overrides call the base too. Must be safe while Run is inside a blocking call.
    virtual void wake();
    // Prepares the source's registry keys: creates AgentData, gives the key a GUID and a
    // version the first time, and computes the state path.
    virtual void setRegPathes();

    // Opens "<services key>\IS<n>" with `access` into `reg`, reads "nConfigVersion" and
    // "szRuleSetName" and returns the version read (0 when missing). `reg` stays open.
    int32_t OpenConfig(CRegAccess& reg, uint32_t access);

    // Sets facility and priority from the defaults, "resource" and "syslogtag" from the
    // settings.
    void setCommonInfoUnitSettings(CInfoUnit& unit) const;
    // Binds the unit to this source's rule set and hands it to the queue, which owns it then;
    // false when it was dropped (no queue, or the queue is shut down).
    bool Enqueue(std::unique_ptr<CInfoUnit> unit);
    // The same, but blocks until the rule engine is done with the unit; the caller keeps it.
    // False when the queue refused or ended the wait without processing.
    bool EnqueueAndWait(CWaitableInfoUnit& unit);

    // The run flag: set at construction, cleared by the shutdown (or a disabled start).
    bool keepRunning() const noexcept { return m_bRun.load(std::memory_order_acquire); }
    void setRun(bool run) noexcept;
    // Sleeps up to `timeout` or until wake() / setRun(false); returns keepRunning().
    bool waitWhileRunning(std::chrono::milliseconds timeout);

    void setServiceNumber(uint32_t number) noexcept { m_nServiceNumber = number; }
    uint32_t getServiceNumber() const noexcept { return m_nServiceNumber; }
    uint32_t getServiceId() const noexcept { return m_nServiceId; }
    const CQuilletString& getServiceName() const noexcept { return m_szServiceName; }
    const CQuilletString& getRuleSetName() const noexcept { return m_szRuleSetName; }
    void setRuleSet(CRuleSetListEntry* ruleSet) noexcept { m_pRuleSet = ruleSet; }
    CRuleSetListEntry* getRuleSet() const noexcept { return m_pRuleSet; }
    // The rule list the units of this source are queued with; null without a rule set.
    CRuleList* ruleList() const noexcept;
    void setQueue(CQueManList* queue) noexcept { m_pQueue = queue; }
    CQueManList* getQueue() const noexcept { return m_pQueue; }
    bool isEnabled() const noexcept { return m_bServiceEnabled == 1; }

    int32_t getLoadedConfigVersion() const noexcept { return m_nLoadedConfigVersion; }
    int32_t getInfoSourceVersion() const noexcept { return m_nInfoSourceVersion; }
    const CQuilletString& getGuid() const noexcept { return m_szGuid; }
    // "<AgentData>\Services\IS<n>", or "<AgentData>\Services\<GUID>" from key version 2 on.
    const CQuilletString& getStatePath() const noexcept { return m_szStatePath; }
    // "<services key>\IS<n>".
    const CQuilletString& getConfigPath() const noexcept { return m_szConfigPath; }
    uint32_t getDefaultFacility() const noexcept { return m_nDefaultFacility; }
    uint32_t getDefaultPriority() const noexcept { return m_nDefaultPriority; }
    const CQuilletString& getResource() const noexcept { return m_szResource; }
    const CQuilletString& getSyslogTag() const noexcept { return m_szSyslogTag; }
    const CConfigSettings* getSettings() const noexcept { return m_pSettings; }
    CDNSCacheList* getDnsCache() const noexcept { return m_pDnsCache; }
    vt::Clock& getClock() const noexcept { return *m_pClock; }
    bool isRunOnce() const noexcept { return m_bRunOnce; }
    // Ends the whole agent, for a source whose one run was the agent's work.
    void stopAgent() const {
        if (m_stopAgent) m_stopAgent();
    }

  protected:
    // The start of every LoadConfig: opens the source's key into `reg`; when "nConfigVersion"
    // changed, reads the common values and returns true (the caller reads its own next);
    // otherwise re-reads only "bServiceEnabled" and returns false.
    bool beginLoadConfig(CRegAccess& reg, const CQuilletString& tagDefault = CQuilletString());
    // Reads the common values of the open key `reg` (all but the two OpenConfig reads);
    // `tagDefault` is the default of "szSyslogTagValue" (a source may pass its own).
    void readCommonValues(CRegAccess& reg, const CQuilletString& tagDefault = CQuilletString());
    // The configuration key path "<services key>\IS<n>".
    CQuilletString configKeyPath() const;

    int32_t m_nLoadedConfigVersion = -1;
    uint32_t m_nServiceNumber = 0;
    uint32_t m_bServiceEnabled = 1;
    CQuilletString m_szServicesKeyPath;
    CQuilletString m_szStatePath;
    CQuilletString m_szConfigPath;
    int32_t m_nInfoSourceVersion = 0;
    CQuilletString m_szReserved;  // free for the concrete source
    CQuilletString m_szRuleSetName;
    uint32_t m_nServiceId = 0;
    CQueManList* m_pQueue = nullptr;
    CQuilletString m_szServiceName;
    vt::RegRoot m_root = vt::RegRoot::LocalMachine;
    uint32_t m_nReservedFlag1 = 0;  // free for the concrete source
    uint32_t m_nReservedFlag2 = 1;  // free for the concrete source
    uint32_t m_nDefaultFacility = 128;
    uint32_t m_nDefaultPriority = 5;
    CQuilletString m_szResource;
    CQuilletString m_szSyslogTag;

    CQuilletString m_szGuid;
    CQuilletString m_szDataKeyPath = vt::kAgentDataKeyPath;
    const CConfigSettings* m_pSettings = nullptr;
    CDNSCacheList* m_pDnsCache = nullptr;
    vt::Clock* m_pClock = &vt::systemClock();
    CRuleSetListEntry* m_pRuleSet = nullptr;
    bool m_bRunOnce = false;
    std::function<void()> m_stopAgent;

  public:
    // Polled by Run, cleared by the shutdown from another thread.
    std::atomic<bool> m_bRun{true};

  private:
    void notifyWaiters();

    std::shared_ptr<vt::SourceCounters> m_counters;  // units handed over and refused

    std::mutex m_wakeLock;
    std::condition_variable m_wakeCondition;
    bool m_wakeSignalled = false;  // guarded by m_wakeLock
};
