#pragma once
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/clock.h"
#include "common/registry_fixture.h"
#include "engine/action_config.h"
#include "engine/action_list.h"
#include "engine/action_types.h"
#include "engine/rule_set_list.h"
#include "model/info_unit.h"

class CConfigSettings;

namespace vt::test {

// A clock the test moves by hand. Sleeps return at once; each one is counted and may run a
// hook (for instance to let a blocked producer see the queue shrink).
class FakeClock final : public Clock {
  public:
    explicit FakeClock(int64_t start = 1700000000) : m_now(start) {}
    int64_t nowSeconds() override { return m_now.load(); }
    void sleepMs(uint32_t milliseconds) override;
    void advance(int64_t seconds) { m_now += seconds; }
    void set(int64_t seconds) { m_now = seconds; }
    int sleepCount() const { return m_sleeps.load(); }
    std::vector<uint32_t> sleepDurations() const;
    void onSleep(std::function<void(uint32_t)> hook);

  private:
    std::atomic<int64_t> m_now;
    std::atomic<int> m_sleeps{0};
    mutable std::mutex m_lock;
    std::vector<uint32_t> m_durations;
    std::function<void(uint32_t)> m_hook;
};

// A test action whose outcome the test chooses ("nMode", a ProbeMode). With "szTag" it appends
// the tag to the unit's "trace" property, so that tests see which actions ran, in which order.
inline constexpr int32_t kProbeActionType = 9001;

enum class ProbeMode : int { Succeed, SetFailedFlag, ThrowReport, ThrowUnknown };

class CActionConfigProbe : public CActionConfig {
  public:
    explicit CActionConfigProbe(const CQuilletString& keyPath) : CActionConfig(keyPath) {}
    void LoadConfig() override;

    std::atomic<int> mode{static_cast<int>(ProbeMode::Succeed)};
    std::atomic<int> calls{0};
    std::u16string tag;
    std::function<void(CInfoUnit&)> hook;  // set before use; runs under the action's lock
};

class CActionProbe : public CAction {
  public:
    explicit CActionProbe(CActionConfigProbe& config) : m_config(config) {}
    void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                  CActionListEntry& entry) override;

  private:
    CActionConfigProbe& m_config;
};

// Registers the probe type while it lives.
class ProbeActionType {
  public:
    ProbeActionType();

  private:
    ScopedActionType m_scope;
};

CActionConfigProbe& probeConfig(CActionListEntry& entry);

// A rule without filters whose one action, loaded from `ruleKey`, is the probe (a
// ProbeActionType must be alive); `probe` is set to that action's settings.
std::unique_ptr<CRuleListEntry> probeRule(const std::u16string& ruleKey,
                                          CActionConfigProbe*& probe);

std::string traceOf(const CInfoUnit& unit);
std::unique_ptr<CConfigSettings> makeSettings();
std::unique_ptr<CInfoUnit> makeSyslogUnit(std::u16string_view msg);

}  // namespace vt::test
