#include "service/engine_hooks.h"

#include <memory>

#include "base/config_settings.h"
#include "base/debug_log.h"
#include "engine/rule_set_list.h"
#include "service/action_type_table.h"
#include "service/service_manager.h"
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

}  // namespace

void engineLoadRuleSets(const CConfigSettings&) {
    const size_t loaded = loadAgentRuleSets(agentRuleSets());
    debugPrintf(DBG_MINIMUM, "CKestrelSrvc|OnInit: %u rule set(s) loaded\r\n",
                static_cast<unsigned>(loaded));
}

void engineStartServices(const CConfigSettings& settings, CNTService& host) {
    std::unique_ptr<CServiceManager>& manager = agentServiceManager();
    manager = std::make_unique<CServiceManager>();
    manager->StartupServices(settings, RegRoot::LocalMachine, CQuilletString(kServicesKeyPath),
                             CQuilletString(kAgentDataKeyPath), &agentRuleSets(), host);
}

void engineShutdownServices(CNTService& host) {
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
    manager.reset();
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
