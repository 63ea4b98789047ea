#include "service/engine_hooks.h"

#include "engine/rule_set_list.h"
#include "service/debug_log.h"

// The service manager replaces the start and shutdown bodies; until then their lines say so in
// the debug log rather than pretend a start.
namespace vt {

void engineLoadRuleSets(const CConfigSettings&) {
    const size_t loaded = loadAgentRuleSets();
    debugPrintf(DBG_MINIMUM, "CKestrelSrvc|OnInit: %lu rule set(s) loaded\r\n",
                static_cast<unsigned long>(loaded));
}

void engineStartServices(const CConfigSettings&, CNTService&) {
    debugWrite(DBG_MINIMUM,
               "CKestrelSrvc|OnInit: no services started - this build has no service manager "
               "yet\r\n");
}

void engineShutdownServices(CNTService&) {
    debugWrite(DBG_MINIMUM,
               "CKestrelSrvc|OnShutdown: no services to shut down - this build has no service "
               "manager yet\r\n");
}

void engineClearProcessState() {
    processRuleSetList().unload();
}

}  // namespace vt
