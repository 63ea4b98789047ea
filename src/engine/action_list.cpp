#include "engine/action_list.h"

#include <cstdio>
#include <string>

#include "base/config_settings.h"
#include "base/debug_log.h"
#include "base/error_report.h"
#include "base/error_reporter.h"
#include "engine/reg_names.h"
#include "engine/stats.h"
#include "model/info_unit.h"

namespace {

constexpr char kActionsTag[] = "RuleEngine - Actions";

}  // namespace

CActionListEntry::CActionListEntry(const CQuilletString& name, const CQuilletString& keyPath,
                                   int32_t typeId, const vt::ActionLoadContext& context)
    : m_typeId(typeId), m_clock(context.clock), m_keyPath(keyPath), m_name(name) {
    if (typeId == vt::kActionNop) {
        vt::reportError(1025, "CActionListEntry::CActionListEntry",
                        "We have a NOP action in our rule set - is the config invalid?");
        return;
    }
    if (typeId == vt::kActionDiscard) return;
    const vt::ActionType* type = vt::findActionType(context.types, typeId);
    if (!type) {
        vt::reportError(1004, "CActionListEntry::CActionListEntry", "Invalid Action Type");
        return;
    }
    m_config = type->createConfig(m_keyPath, context);
    m_config->LoadConfig();
    m_action = type->createAction(*m_config);
    m_counters = vt::CStatsRegistry::instance().addAction(m_name.getStringA(), type->name);
}

CActionListEntry::~CActionListEntry() {
    m_action.reset();  // the behaviour goes before the settings it refers to
    m_config.reset();
}

bool CActionListEntry::CallAction(CInfoUnit& unit, const CConfigSettings& settings) {
    vt::debugPrintf(vt::DBG_RULEENG, "CActionListEntry::CallAction, ID %d\r\n", m_typeId);
    if (m_typeId >= 2) {
        // An id that no implemented action has: nothing to run, the list goes on.
        if (!m_config) return true;
        if (!m_config->isEnabled()) {
            vt::debugPrintf(vt::DBG_RULEENG, "Action (regkey %s) is not enabled\r\n",
                            m_keyPath.getStringA());
            return true;
        }
    }
    if (m_typeId == vt::kActionDiscard) return false;
    const bool failed = m_action ? runWithRetries(unit, settings) : false;
    const bool abort = settings.abortRuleOnFailure != 0 && failed;
    if (m_counters) {
        (failed ? m_counters->failed : m_counters->done).fetch_add(1, std::memory_order_relaxed);
        if (abort) m_counters->aborted.fetch_add(1, std::memory_order_relaxed);
    }
    return !abort;
}

// Returns whether the action failed on its last try.
bool CActionListEntry::runWithRetries(CInfoUnit& unit, const CConfigSettings& settings) {
    const uint32_t enableRetry = settings.enableRetry;
    const uint32_t retryCount = settings.retryCount;
    bool failed = false;
    uint32_t k = 0;
    do {
        if (k > 0) m_clock->sleepMs(settings.retryPeriod);
        try {
            m_action->callAction(unit, settings, *this);
            failed = unit.getActionFailed() != 0;
        } catch (CErrorReport* raw) {
            std::unique_ptr<CErrorReport> report(raw);
            failed = true;
            char text[1024];
            if (enableRetry != 0 && retryCount > k + 1) {
                vt::debugPrintf(vt::DBG_ERROR,
                                "Error while applying an action '%s' - Try number '%d'. Error is "
                                "'%s'.",
                                m_name.getStringA(), static_cast<int>(k + 1),
                                report->getMessage().getStringA());
            } else {
                std::snprintf(text, sizeof text,
                              "Error while applying an action - skipping action '%s'. Error is "
                              "'%s'.",
                              m_name.getStringA(), report->getMessage().getStringA());
                vt::debugWrite(vt::DBG_ERROR, text);
                vt::reportError(114, kActionsTag, text);
            }
        } catch (...) {
            failed = true;
            // The two texts say the opposite of what happens; configurations and monitoring
            // rules match on them as they are.
            vt::reportError(114, kActionsTag,
                            retryCount > k + 1
                                ? "Unknown error while applying the actions - continuing"
                                : "Unknown error while applying the actions - retrying");
        }
        ++k;
    } while (enableRetry == 1 && failed && retryCount > k);
    if (k > 1 && m_counters) m_counters->retried.fetch_add(k - 1, std::memory_order_relaxed);
    return failed;
}

CActionList::CActionList(const CQuilletString& ruleKeyPath, const vt::ActionLoadContext& context)
    : m_keyPath(ruleKeyPath) {
    if (!m_regAccess.OpenKey(vt::RegRoot::LocalMachine, m_keyPath, vt::kKeyRead)) return;
    uint32_t count = 0;
    m_regAccess.ReadDWORDValue(u"nActionCount", count, 0);
    for (uint32_t n = 1; n <= count; ++n) {
        uint32_t type = 0;
        m_regAccess.ReadDWORDValue(vt::numberedName(u"nActionType", n), type, 0);
        CQuilletString name;
        m_regAccess.ReadStringValue(vt::numberedName(u"szActionName", n), name,
                                    u"Unknown Action Name");
        append(new CActionListEntry(name, vt::numberedSubkey(m_keyPath.view(), u"A", n),
                                    static_cast<int32_t>(type), context));
    }
    m_regAccess.CloseKey();
}

bool CActionList::execute(CInfoUnit& unit, const CConfigSettings& settings) {
    bool result = true;
    for (CLinkedListEntry* e = next(nullptr); e; e = next(e)) {
        result = static_cast<CActionListEntry*>(e)->CallAction(unit, settings);
        if (!result) break;
    }
    return result;
}
