#pragma once
#include <memory>

#include "service/nt_service.h"

class CConfigSettings;

// The agent's own service: its start-up reads the general settings, sets the debug log and the
// process priority up and starts the engine (rule sets, then the inputs and workers); its
// shutdown stops them again.
class CKestrelSrvc : public CNTService {
  public:
    CKestrelSrvc();
    ~CKestrelSrvc() override;

    bool OnInstall() override;
    bool OnInit() override;
    void OnStop() override;
    void OnShutdown() override;
    // 128 (SIGHUP on Linux): log files are reopened by name before their next line.
    // 129 (SIGUSR1): the counters line goes to the debug log.
    bool OnUserControl(uint32_t control) override;
    // "-c" checks the configuration ("-c -q": the exit status alone); "-s" shows the counters.
    std::vector<const char*> ExtraHelpLines() const override;
    bool OnExtraSwitch(int argc, char** argv, int& exitCode) override;
    // "-s": the running agent's counters, one part a line; 1 when no agent runs.
    static int showCounters();

  private:
    void startEngine(const CConfigSettings& general);
};

namespace vt {
// The process-wide general settings: null until the service's start-up has read them.
CConfigSettings* processSettings() noexcept;
// Constructs them on first use (once per process).
CConfigSettings& ensureProcessSettings();
}  // namespace vt
