#include "service/service_manager.h"

#include <condition_variable>
#include <cstdlib>
#include <ctime>
#include <exception>

#include "base/config_settings.h"
#include "base/debug_log.h"
#include "base/error_report.h"
#include "base/error_reporter.h"
#include "base/net/dns_cache_list.h"
#include "base/reg_access.h"
#include "engine/memory_reserve.h"
#include "engine/que_man_list.h"
#include "engine/rule_set_list.h"
#include "service/info_source_types.h"
#include "service/nt_service.h"
#include "sources/info_source.h"

namespace {

// Addresses in debug lines are shown as the low 32 bits, as the log has always shown them.
unsigned addressForLog(const void* p) noexcept {
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(p));
}

std::string numbered(const char* prefix, uint32_t n) {
    return std::string(prefix) + std::to_string(n);
}

}  // namespace

// What the sources borrow: owned together by the manager and every source thread. The queue is
// declared last so that it goes first, its workers ending before the cache they may use.
struct CServiceManager::Resources {
    CDNSCacheList dnsCache;
    CQueManList queue;

    explicit Resources(const CConfigSettings& settings)
        : dnsCache(CDNSCacheList::Settings{settings.enableDnsCache == 1,
                                           settings.dnsCacheTimeSeconds, settings.dnsCacheLimit}),
          queue(&settings) {
        vt::setSharedDnsCache(&dnsCache);
    }
    // The queue's workers (and with them every action) have ended before the cache goes.
    ~Resources() {
        if (vt::sharedDnsCache() == &dnsCache) vt::setSharedDnsCache(nullptr);
    }
};

// A source's thread with the flag that tells the shutdown whether it has ended, so that the
// join can be bounded. Shared with the thread, which may outlive the manager when detached.
struct CServiceManager::ServiceThread {
    std::thread thread;
    std::mutex lock;
    std::condition_variable endedCondition;
    bool ended = false;  // guarded by lock
};

CServiceManager::CServiceManager() : CServiceManager(vt::ServiceManagerTiming{}, {}) {}

CServiceManager::CServiceManager(vt::ServiceManagerTiming timing, vt::ServiceManagerHooks hooks)
    : m_timing(timing), m_hooks(std::move(hooks)) {
    if (!m_hooks.endProcess) m_hooks.endProcess = [](int code) { std::_Exit(code); };
    if (!m_hooks.backOff)
        m_hooks.backOff = [](CInfoSource& source, std::chrono::milliseconds ms) {
            source.waitWhileRunning(ms);
        };
}

CServiceManager::~CServiceManager() {
    if (!m_shutDown && !m_threads.empty()) {
        // A manager that goes without a shutdown still must not leave sources under threads.
        for (auto& source : m_services)
            if (source) source->setRun(false);
        for (size_t slot = 0; slot < m_threads.size(); ++slot)
            endThread(slot, vt::ServiceHostLink{});
    }
}

CQueManList* CServiceManager::getQueue() const noexcept {
    return m_resources ? &m_resources->queue : nullptr;
}

CInfoSource* CServiceManager::getService(size_t slot) const noexcept {
    return slot < m_services.size() ? m_services[slot].get() : nullptr;
}

bool CServiceManager::hasThread(size_t slot) const noexcept {
    return slot < m_threads.size() && m_threads[slot] != nullptr;
}

void CServiceManager::StartupServices(const CConfigSettings& settings, vt::RegRoot root,
                                      const CQuilletString& servicesKeyPath,
                                      const CQuilletString& dataKeyPath, CRuleSetList* ruleSets,
                                      CNTService& host) {
    StartupServices(settings, root, servicesKeyPath, dataKeyPath, ruleSets,
                    vt::ServiceHostLink{[&host] { host.StillInShutdown(); },
                                        [&host] { host.setRunning(false); }, host.isRunOnce()});
}

void CServiceManager::StartupServices(const CConfigSettings& settings, vt::RegRoot root,
                                      const CQuilletString& servicesKeyPath,
                                      const CQuilletString& dataKeyPath, CRuleSetList* ruleSets,
                                      const vt::ServiceHostLink& host) {
    m_pRuleSets = ruleSets;
    m_protectAgainstShutdown = settings.protectAgainstShutdown;
    m_hostStop = host.stop;
    m_runOnce = host.runOnce;

    if (!vt::allocateReserveMemory()) {
        vt::debugWrite(vt::DBG_MINIMUM, "Could not allocate reserve memory\r\n");
        vt::reportWarning(1044, "CServiceManager::StartupServices",
                          "Could not allocate reserve memory");
    }
    vt::installOutOfMemoryHandler();

    m_resources = std::make_shared<Resources>(settings);
    vt::setEngineRunning(true);

    CRegAccess services;
    services.OpenKey(root, servicesKeyPath, vt::kKeyRead);
    uint32_t configVersion = 0;
    uint32_t count = 0;
    services.ReadDWORDValue(u"nConfigVersion", configVersion, 0);
    services.ReadDWORDValue(u"nInfoSourceCount", count, 0);
    m_nConfigVersion = static_cast<int32_t>(configVersion);
    // A count beyond what a configuration can hold is a damaged value, not a request for a
    // billion slots.
    constexpr uint32_t kMaxServices = 65535;
    if (count > kMaxServices) {
        vt::debugPrintf(vt::DBG_ERROR,
                        "CServiceManager|StartupServices: nInfoSourceCount %u is beyond %u - "
                        "only the first %u are read\r\n",
                        count, kMaxServices, kMaxServices);
        count = kMaxServices;
    }
    m_nServiceCount = static_cast<int32_t>(count);

    if (count == 0) {
        vt::reportError(114, "CServiceManager::StartupServices",
                        "No InfoSource service configured at all - the NT service runs but does "
                        "not perform any useful work!");
        return;
    }

    m_threads.assign(count, nullptr);
    m_services.clear();
    m_services.resize(count);
    int32_t started = 0;
    for (uint32_t n = 1; n <= count; ++n)
        startOne(n, services, settings, root, servicesKeyPath, dataKeyPath, ruleSets, started);

    if (started == 0) {
        vt::reportError(114, "CServiceManager::StartupServices",
                        "No InfoSource service could successfully be started - the service will "
                        "now be stopped!");
        if (host.stop) host.stop();
    }
}

void CServiceManager::startOne(uint32_t n, CRegAccess& services, const CConfigSettings& settings,
                               vt::RegRoot root, const CQuilletString& servicesKeyPath,
                               const CQuilletString& dataKeyPath, CRuleSetList* ruleSets,
                               int32_t& started) {
    uint32_t type = 0;
    services.ReadDWORDValue(CQuilletString(numbered("nISType", n)), type, 0);
    CQuilletString name;
    if (!services.ReadStringValue(CQuilletString(numbered("szISName", n)), name))
        vt::debugWrite(vt::DBG_ERROR, "~~~~~~~~~~~~~ERROR  ESTUP000089\r\n");
    vt::debugPrintf(vt::DBG_ULTRA,
                    "CServiceManager| StartupServices: is processing service %s \r\n",
                    name.getStringA());

    const vt::InfoSourceType* kind = vt::findInfoSourceType(type);
    if (!kind) {
        char text[96];
        std::snprintf(text, sizeof text, "Unknown Service ID %d found - ignored!",
                      static_cast<int>(type));
        vt::reportError(114, "ServiceManager - unkonwn service type", text);
        return;
    }
    if (!kind->create) {
        char text[192];
        std::snprintf(text, sizeof text,
                      "Service type %d (%s) is not available in this build - ignored!",
                      static_cast<int>(type), kind->className);
        vt::reportError(114, "ServiceManager - unkonwn service type", text);
        return;
    }

    vt::InfoSourceContext context;
    context.serviceName = name;
    context.serviceId = type;
    context.queue = &m_resources->queue;
    context.dnsCache = &m_resources->dnsCache;
    context.clock = m_hooks.clock;
    context.root = root;
    context.servicesKeyPath = servicesKeyPath;
    context.settings = &settings;
    context.dataKeyPath = dataKeyPath;
    context.runOnce = m_runOnce;
    context.stopAgent = m_hostStop;
    std::shared_ptr<CInfoSource> source;
    try {
        source = kind->create(context);
    } catch (CErrorReport* raw) {
        std::unique_ptr<CErrorReport> report(raw);
        vt::debugPrintf(vt::DBG_ERROR,
                        "CServiceManager|StartupServices: service '%s' could not be created: "
                        "'%s'\r\n",
                        name.getStringA(), report->getMessage().getStringA());
    } catch (const std::exception& error) {
        vt::debugPrintf(vt::DBG_ERROR,
                        "CServiceManager|StartupServices: service '%s' could not be created: "
                        "'%s'\r\n",
                        name.getStringA(), error.what());
    }
    if (!source) {
        vt::debugWrite(vt::DBG_ERROR, "Extra Check: FATAL E 007677 pNewInfoSource == NULL!\r\n");
        return;
    }

    source->setServiceNumber(n);
    if (!source->LoadConfig()) {
        source->setRun(false);
        m_services[n - 1] = std::move(source);
        vt::debugWrite(vt::DBG_MINIMUM, "InfoSource Disabled\r\n");
        return;
    }

    CRuleSetListEntry* ruleSet =
        ruleSets ? ruleSets->findRuleSet(source->getRuleSetName().wide()) : nullptr;
    if (!ruleSet) {
        char text[1024];
        std::snprintf(text, sizeof text,
                      "No Rulebase found for service '%s' - rule base requested was '%s'. This "
                      "service NOT started.\r\n",
                      name.getStringA(), source->getRuleSetName().getStringA());
        vt::reportError(114, "ServiceManager - no rule base", text);
        return;
    }

    source->setRuleSet(ruleSet);
    source->setRegPathes();
    m_services[n - 1] = source;
    auto thread = std::make_shared<ServiceThread>();
    // The thread keeps its own copies of the timing and hooks, and its share of the source and
    // the resources: a thread detached at shutdown may still be running when the manager is
    // gone.
    thread->thread =
        std::thread([source, resources = m_resources, thread, timing = m_timing, hooks = m_hooks] {
            runSource(source.get(), timing, hooks);
            {
                std::lock_guard lock(thread->lock);
                thread->ended = true;
            }
            thread->endedCondition.notify_all();
        });
    m_threads[n - 1] = std::move(thread);
    vt::debugWrite(vt::DBG_MINIMUM, "New InfoSource started!\r\n");
    ++started;
    std::this_thread::yield();
}

void CServiceManager::RunInfoSource(CInfoSource* source) {
    runSource(source, m_timing, m_hooks);
}

void CServiceManager::runSource(CInfoSource* source, const vt::ServiceManagerTiming& timing,
                                const vt::ServiceManagerHooks& hooks) {
    const std::string name = source->getServiceName().getStringA();
    const int number = static_cast<int>(source->getServiceNumber());
    const unsigned address = addressForLog(source);
    if (vt::debugOn(vt::DBG_MINIMUM))
        vt::debugPrintf(vt::DBG_MINIMUM,
                        "CServiceManager| Service (Number %d, Name '%s') 0x%8.8x running.\r\n",
                        number, name.c_str(), address);

    // The first restart after a fault is immediate; a restart less than the window after the
    // previous restart first waits for the back-off, so a source that keeps faulting runs at
    // most once per back-off.
    bool retry = true;
    bool restarting = false;
    bool restartedBefore = false;
    int64_t lastRestart = 0;
    while (retry) {
        if (restarting) {
            int64_t now = hooks.clock->nowSeconds();
            if (restartedBefore && now - lastRestart < timing.restartWindowSeconds) {
                hooks.backOff(*source, timing.restartBackOff);
                now = hooks.clock->nowSeconds();
                if (!source->keepRunning()) break;
            }
            lastRestart = now;
            restartedBefore = true;
        }
        restarting = true;

        bool faulted = false;
        std::string what;
        try {
            source->OnBeforeRun();
            source->Run();
        } catch (CErrorReport* raw) {
            std::unique_ptr<CErrorReport> report(raw);
            faulted = true;
            what = report->getMessage().getStringA();
        } catch (const std::exception& error) {
            faulted = true;
            what = error.what();
        } catch (...) {
            faulted = true;
        }
        if (faulted) {
            vt::reportSystemException(vt::kExceptionCppException, "CServiceManager",
                                      "RunInfoSource", vt::kNoEvent, vt::SystemExceptionDetails{});
            if (!what.empty())
                vt::debugPrintf(vt::DBG_ERROR, "CServiceManager| RunInfoSource: '%s'\r\n",
                                what.c_str());
            vt::reportWarning(1036, "ServiceManager", name);
        } else {
            retry = false;
        }
        // A source whose run flag is cleared is being shut down: a fault then ends it too.
        if (retry && !source->keepRunning()) retry = false;

        if (retry)
            vt::debugPrintf(vt::DBG_MINIMUM,
                            "Service (Number %d, Name '%s') 0x%8.8x has stopped and is being "
                            "retried.\r\n",
                            number, name.c_str(), address);
        else
            vt::debugPrintf(vt::DBG_MINIMUM,
                            "Service (Number %d, Name '%s') 0x%8.8x has ended.\r\n", number,
                            name.c_str(), address);
    }
}

bool CServiceManager::ShutdownServices(CNTService& host) {
    return ShutdownServices(vt::ServiceHostLink{[&host] { host.StillInShutdown(); },
                                                [&host] { host.setRunning(false); }});
}

// The grace after the run flags are cleared is an upper limit: a stop ends as soon as every
// source has returned on its own.
void CServiceManager::waitForSourcesToEnd() {
    const auto deadline = std::chrono::steady_clock::now() + m_timing.stopGrace;
    for (const std::shared_ptr<ServiceThread>& thread : m_threads) {
        if (!thread) continue;
        std::unique_lock lock(thread->lock);
        if (!thread->endedCondition.wait_until(lock, deadline, [&] { return thread->ended; }))
            return;
    }
}

void CServiceManager::endThread(size_t slot, const vt::ServiceHostLink& host) {
    std::shared_ptr<ServiceThread> thread = m_threads[slot];
    if (!thread) return;
    vt::debugPrintf(vt::DBG_INFO, "CServiceManager|ShutdownServices: Cancel thread %d...\r\n",
                    static_cast<int>(slot + 1));
    if (CInfoSource* source = m_services[slot].get()) source->wake();
    bool ended;
    {
        std::unique_lock lock(thread->lock);
        ended = thread->endedCondition.wait_for(lock, m_timing.joinLimit,
                                                [&] { return thread->ended; });
    }
    if (ended) {
        thread->thread.join();
    } else {
        // The thread still uses its source: it goes on alone, and its share frees the source
        // when it ends.
        vt::debugPrintf(vt::DBG_MINIMUM,
                        "CServiceManager|ShutdownServices: Cancel thread %d failed with error %d "
                        "\r\n",
                        static_cast<int>(slot + 1), 1460);
        thread->thread.detach();
        m_services[slot].reset();
        ++m_nDetached;
    }
    m_threads[slot] = nullptr;
    if (host.checkpoint) host.checkpoint();
}

bool CServiceManager::ShutdownServices(const vt::ServiceHostLink& host) {
    const bool first = !m_shutDown;
    m_shutDown = true;
    if (!m_services.empty()) {
        for (size_t slot = 0; slot < m_services.size(); ++slot) {
            CInfoSource* source = m_services[slot].get();
            vt::debugPrintf(vt::DBG_INFO,
                            "CServiceManager|ShutdownServices: in stop loop, service id %d, "
                            "pointer 0x%8.8x \r\n",
                            static_cast<int>(slot + 1), addressForLog(source));
            if (source) source->setRun(false);
        }
        // A source blocked in a receive sees its run flag only when woken, so all are woken at
        // once instead of each after the grace.
        for (const std::shared_ptr<CInfoSource>& source : m_services)
            if (source) source->wake();
        if (first) waitForSourcesToEnd();
    }

    vt::setEngineRunning(false);
    if (m_resources) m_resources->queue.signalShutdown();

    for (size_t slot = 0; slot < m_threads.size(); ++slot) endThread(slot, host);

    if (CQueManList* queue = getQueue()) {
        // Idle workers end as soon as they see the shutdown event; a short look first keeps an
        // ordinary stop free of passes that only measure how fast a thread wakes.
        const auto settled = std::chrono::steady_clock::now() + m_timing.workerSettle;
        while (queue->liveWorkers() > 0 && std::chrono::steady_clock::now() < settled)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        int passes = 0;
        while (queue->liveWorkers() > 0) {
            if (m_protectAgainstShutdown == 0 && passes >= m_timing.workerPasses) break;
            vt::debugWrite(vt::DBG_INFO, "Worker Thread Pool is not yet finished!\r\n");
            if (host.checkpoint) host.checkpoint();
            m_hooks.clock->sleepMs(static_cast<uint32_t>(m_timing.workerStep.count()));
            if (m_protectAgainstShutdown == 0) ++passes;
        }
        if (queue->liveWorkers() > 0) {
            queue->setStopProcessing(true);
            m_hooks.clock->sleepMs(static_cast<uint32_t>(m_timing.killDelay.count()));
            vt::debugWrite(vt::DBG_MINIMUM,
                           "\r\n\r\nWorker Thread Pool NOT FINISHED!\r\nProcess KILLED\r\n");
            m_hooks.endProcess(0);
            return false;
        }
    }
    vt::debugWrite(vt::DBG_INFO, "### Worker Thread Pool FINISHED! ###\r\n");
    return true;
}
