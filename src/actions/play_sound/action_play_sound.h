#pragma once
#include <cstdint>
#include <functional>
#include <string>

#include "engine/action_config.h"
#include "engine/action_types.h"

// Settings of the play-sound action: the WAV file ("szFileName", as configured), how often
// ("nCount") and the pause between two plays ("nDelay", milliseconds).
class CActionConfigPlaySound : public CActionConfig {
  public:
    CActionConfigPlaySound(const CQuilletString& keyPath, const vt::ActionLoadContext& context)
        : CActionConfig(keyPath), m_clock(context.clock) {}
    void LoadConfig() override;

    CQuilletString m_szFileName;
    uint32_t m_nCount = 1;
    uint32_t m_nDelay = 2000;
    vt::Clock* m_clock;  // what the pauses wait with
};

// Plays the sound. A machine without a sound device (a server, a container) gets one debug
// line per action, and the action does not fail: there is nothing a retry could change.
class CActionPlaySound : public CAction {
  public:
    using Player = std::function<bool(const std::string&, std::string&)>;

    explicit CActionPlaySound(CActionConfigPlaySound& config);
    void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                  CActionListEntry& entry) override;

    Player m_play;  // the system's player; tests put in their own

  private:
    CActionConfigPlaySound& m_config;
};
