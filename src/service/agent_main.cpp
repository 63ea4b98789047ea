#include "service/agent_main.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "base/debug_log.h"
#include "platform/process.h"
#include "service/engine_hooks.h"
#include "service/kestrel_srvc.h"

namespace vt {

int agentMain(int argc, char** argv) {
    // Before any thread exists, so that only the threads waiting for them see stop signals.
    prepareProcessSignals();
    auto service = std::make_unique<CKestrelSrvc>();
    const int exitCode = service->ProcessCommandLine(argc, argv);
    if (!engineClearProcessState()) {
        // A source thread that would not stop still uses the rule sets and the log: ending
        // here, without the static destructors, never frees them under it.
        debugClose();
        std::fflush(nullptr);
        std::_Exit(exitCode);
    }
    service.reset();
    debugClose();
    return exitCode;
}

}  // namespace vt
