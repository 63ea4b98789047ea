#pragma once
#include <cstdint>
#include <memory>
#include <mutex>

#include "base/quillet_string.h"
#include "base/reg_access.h"
#include "engine/timer_queue.h"

class CInfoUnit;
class CConfigSettings;
class CActionListEntry;

// Settings of one configured action: read once from the action's registry key when the rule is
// loaded and read-only afterwards, except for the run-time state that a subclass keeps for its
// behaviour (an open file, a connection); that state is touched only under this object's lock,
// which callAction holds around every doAction.
class CActionConfig {
  public:
    explicit CActionConfig(const CQuilletString& keyPath);
    virtual ~CActionConfig();
    CActionConfig(const CActionConfig&) = delete;
    CActionConfig& operator=(const CActionConfig&) = delete;

    // Reads the action's values from its key. The base reads nothing; subclasses call
    // loadEnabled() first and then read their own values.
    virtual void LoadConfig() {}

    // The idle timer. Its routine runs on the worker that armed it, between units.
    void createTimer();
    void cancelTimer();
    // Arms the timer to run routine(context, 0, 0) once after `milliseconds`. Without a timer,
    // with 0 ms, or on a thread that has no timer queue, the routine runs at once, so the
    // resource is released straight away.
    void armTimer(vt::TimerRoutine routine, void* context, uint32_t milliseconds);
    void closeTimer();
    bool hasTimer() const noexcept { return m_timer != nullptr; }
    // True while an expiry is registered (an idle routine can tell whether a later unit has
    // armed the timer again after its own expiry was taken).
    bool isTimerPending() const { return m_timer && m_timer->isPending(); }

    void enterLock() { m_lock.lock(); }
    void leaveLock() noexcept { m_lock.unlock(); }

    const CQuilletString& getKeyPath() const noexcept { return m_keyPath; }
    bool isEnabled() const noexcept { return m_bActionEnabled != 0; }
    void setEnabled(bool enabled) noexcept { m_bActionEnabled = enabled ? 1 : 0; }

  protected:
    // Opens the action's key and reads "bActionEnabled" (default 1). False when the key cannot
    // be opened (the defaults stay).
    bool loadEnabled();

    CRegAccess m_regAccess;
    CQuilletString m_keyPath;
    int32_t m_bActionEnabled = 1;

  private:
    std::unique_ptr<vt::WaitableTimer> m_timer;
    // Recursive, as a critical section is: a call-rule-set action may reach itself again on
    // the same thread.
    std::recursive_mutex m_lock;
};

// Behaviour of one configured action: performs it for one unit. Failure is reported by
// setting the unit's action-failed flag or by throwing a CErrorReport pointer.
class CAction {
  public:
    CAction() = default;
    virtual ~CAction() = default;
    CAction(const CAction&) = delete;
    CAction& operator=(const CAction&) = delete;

    virtual void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                          CActionListEntry& entry) = 0;

    // doAction under the settings object's lock; exceptions pass through after the lock is left.
    void callAction(CInfoUnit& unit, const CConfigSettings& settings, CActionListEntry& entry);
};
