#include "service/engine_hooks.h"

#include <chrono>
#include <memory>
#include <mutex>
#include <string>

#include "base/config_settings.h"
#include "base/debug_log.h"
#include "engine/rule_set_list.h"
#include "engine/stats.h"
#include "platform/process.h"
#include "service/action_type_table.h"
#include "service/metrics_endpoint.h"
#include "service/service_manager.h"
#include "service/stats_reporter.h"
#include "sources/info_source.h"

namespace vt {
namespace {

// The rule base of this process: loaded before the inputs start, handed to the service manager
// and through it to every input; destroyed after the inputs and the queue.
CRuleSetList& agentRuleSets() {
    static CRuleSetList list(agentActionTypes());
    return list;
}

std::unique_ptr<CServiceManager>& agentServiceManager() {
    static std::unique_ptr<CServiceManager> manager;
    return manager;
}

// Held while the manager is made or destroyed and while a report reads its queue: a report
// may be asked for by a signal at any moment.
std::mutex& managerLock() {
    static std::mutex lock;
    return lock;
}

std::unique_ptr<CStatsReporter>& statsReporter() {
    static std::unique_ptr<CStatsReporter> reporter;
    return reporter;
}

std::unique_ptr<CMetricsEndpoint>& metricsEndpoint() {
    static std::unique_ptr<CMetricsEndpoint> endpoint;
    return endpoint;
}

// The registry's counters in one of its formats, with the running queue (none before the
// manager is made or after it is gone).
std::string countersText(std::string (CStatsRegistry::*format)(const CQueManList*) const) {
    std::lock_guard guard(managerLock());
    CServiceManager* manager = agentServiceManager().get();
    return (CStatsRegistry::instance().*format)(manager ? manager->getQueue() : nullptr);
}

std::string engineMetricsText() {
    std::string text = countersText(&CStatsRegistry::prometheusText);
    uint64_t residentKb = 0;
    uint32_t threads = 0;
    if (queryProcessUsage(residentKb, threads)) {
        text += metric("vtagent_process_resident_bytes", "gauge", "", residentKb * 1024);
        text += metric("vtagent_process_threads", "gauge", "", threads);
    }
    return text;
}

}  // namespace

void engineLoadRuleSets(const CConfigSettings&) {
    const size_t loaded = loadAgentRuleSets(agentRuleSets());
    debugPrintf(DBG_MINIMUM, "CKestrelSrvc|OnInit: %u rule set(s) loaded\r\n",
                static_cast<unsigned>(loaded));
}

std::string engineStatsReport() {
    std::string line = countersText(&CStatsRegistry::report);
    uint64_t residentKb = 0;
    uint32_t threads = 0;
    if (queryProcessUsage(residentKb, threads))
        line += " | process rss=" + std::to_string(residentKb) +
                "KB threads=" + std::to_string(threads);
    return line;
}

void engineStartServices(const CConfigSettings& settings, CNTService& host) {
    {
        // A report asked for meanwhile waits: the manager fills in its queue while it starts.
        std::lock_guard guard(managerLock());
        std::unique_ptr<CServiceManager>& manager = agentServiceManager();
        manager = std::make_unique<CServiceManager>();
        manager->StartupServices(settings, RegRoot::LocalMachine, CQuilletString(kServicesKeyPath),
                                 CQuilletString(kAgentDataKeyPath), &agentRuleSets(), host);
    }
    statsReporter() =
        std::make_unique<CStatsReporter>(std::chrono::seconds(settings.statsIntervalSeconds),
                                         agentCountersPath(), engineStatsReport);
    if (settings.metricsPort > 0 && settings.metricsPort <= 65535) {
        auto endpoint = std::make_unique<CMetricsEndpoint>(engineMetricsText);
        if (endpoint->start(std::string(settings.metricsAddress.narrowView()),
                            static_cast<uint16_t>(settings.metricsPort)))
            metricsEndpoint() = std::move(endpoint);
    }
}

void engineShutdownServices(CNTService& host) {
    metricsEndpoint().reset();
    statsReporter().reset();
    std::lock_guard guard(managerLock());
    CServiceManager* manager = agentServiceManager().get();
    if (!manager) {
        debugWrite(DBG_MINIMUM, "CKestrelSrvc|OnShutdown: no service manager was started\r\n");
        return;
    }
    manager->ShutdownServices(host);
}

bool engineClearProcessState() {
    std::unique_ptr<CServiceManager>& manager = agentServiceManager();
    const int32_t detached = manager ? manager->getDetachedThreads() : 0;
    // The sources and the queue go before the rule sets their units are bound to.
    {
        std::lock_guard guard(managerLock());
        manager.reset();
    }
    if (detached > 0) {
        debugPrintf(DBG_MINIMUM,
                    "CKestrelSrvc|OnShutdown: %d source thread(s) still running - the rule sets "
                    "are kept until the process ends\r\n",
                    static_cast<int>(detached));
        return false;
    }
    agentRuleSets().unload();
    return true;
}

}  // namespace vt
