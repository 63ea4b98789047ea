#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "engine/action_config.h"

class CInfoUnit;

// Settings of the start-a-program action.
class CActionConfigSpawnCommand : public CActionConfig {
  public:
    explicit CActionConfigSpawnCommand(const CQuilletString& keyPath) : CActionConfig(keyPath) {}
    void LoadConfig() override;

    CQuilletString m_szCommand;
    CQuilletString m_szParameters;
    uint32_t m_nProcMode = 0;             // 0 start and go on, 1 wait for the program
    uint32_t m_nSyncTimeout = 10;         // seconds to wait before it is killed
    uint32_t m_nSetEnvVars = 0;           // 1: the unit's properties as VTAGENT_ variables
    uint32_t m_nUseLegacyProcessing = 1;  // 0: "szCommand" is the program path, not split
};

// Starts a program for the unit. The command line is split into arguments before the unit's
// properties are put in, and no shell ever sees it: whatever a message contains (quotes,
// blanks, ";", "$(...)", backticks) stays inside the argument it was put in.
class CActionSpawnCommand : public CAction {
  public:
    explicit CActionSpawnCommand(CActionConfigSpawnCommand& config) : m_config(config) {}
    void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                  CActionListEntry& entry) override;

    // The program and its arguments for the unit.
    std::vector<std::string> commandLine(const CInfoUnit& unit) const;
    // "VTAGENT_<NAME>" for every property of the unit: the name upper-cased, every character
    // but A-Z, 0-9 and "_" made "_".
    static std::vector<std::pair<std::string, std::string>> environmentOf(const CInfoUnit& unit);

  private:
    CActionConfigSpawnCommand& m_config;
};
