#include "service/engine_hooks.h"

#include "service/debug_log.h"

// Nothing of the engine exists in this build yet: the rule engine and the service manager
// replace these bodies. The lines say so in the debug log rather than pretend a start.
namespace vt {

void engineLoadRuleSets(const CConfigSettings&) {
    debugWrite(DBG_MINIMUM,
               "CKestrelSrvc|OnInit: rule sets are not loaded - this build has no rule engine "
               "yet\r\n");
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

void engineClearProcessState() {}

}  // namespace vt
