#include "service/engine_hooks.h"

#include "engine/rule_set_list.h"
#include "service/config_settings.h"
#include "service/debug_log.h"
#include "service/service_manager.h"
#include "sources/info_source.h"

namespace vt {

void engineLoadRuleSets(const CConfigSettings&) {
    const size_t loaded = loadAgentRuleSets();
    debugPrintf(DBG_MINIMUM, "CKestrelSrvc|OnInit: %lu rule set(s) loaded\r\n",
                static_cast<unsigned long>(loaded));
}

void engineStartServices(const CConfigSettings& settings, CNTService& host) {
    CServiceManager& manager = createProcessServiceManager();
    manager.StartupServices(settings, RegRoot::LocalMachine, CQuilletString(kServicesKeyPath),
                            CQuilletString(kAgentDataKeyPath), &processRuleSetList(), host);
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
    processRuleSetList().unload();
}

}  // namespace vt
