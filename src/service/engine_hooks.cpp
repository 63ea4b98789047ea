#include "service/engine_hooks.h"

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

}  // namespace

void engineLoadRuleSets(const CConfigSettings&) {
    const size_t loaded = loadAgentRuleSets(agentRuleSets());
    debugPrintf(DBG_MINIMUM, "CKestrelSrvc|OnInit: %u rule set(s) loaded\r\n",
                static_cast<unsigned>(loaded));
}

void engineStartServices(const CConfigSettings& settings, CNTService& host) {
    CServiceManager& manager = createProcessServiceManager();
    manager.StartupServices(settings, RegRoot::LocalMachine, CQuilletString(kServicesKeyPath),
                            CQuilletString(kAgentDataKeyPath), &agentRuleSets(), host);
}

void engineShutdownServices(CNTService& host) {
    CServiceManager* manager = processServiceManager();
    if (!manager) {
        debugWrite(DBG_MINIMUM, "CKestrelSrvc|OnShutdown: no service manager was started\r\n");
        return;
    }
    manager->ShutdownServices(host);
}

void engineClearProcessState() {
    // The sources and the queue go before the rule sets their units are bound to.
    clearProcessServiceState();
    agentRuleSets().unload();
}

}  // namespace vt
