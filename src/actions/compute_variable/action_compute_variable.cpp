#include "actions/compute_variable/action_compute_variable.h"

#include <charconv>
#include <cstdint>
#include <string>

#include "base/debug_log.h"
#include "engine/status_table.h"
#include "model/property_replacer.h"
#include "platform/utf_codec.h"

namespace {

enum class Outcome { Changed, NotANumber, AlreadyZero, UnknownCalcType };

bool parseNumber(const std::u16string& text, int64_t& number) {
    const std::string narrow = vt::utf16ToUtf8(text);
    const char* end = narrow.data() + narrow.size();
    auto [next, ec] = std::from_chars(narrow.data(), end, number);
    return ec == std::errc() && next == end && !narrow.empty();
}

}  // namespace

void CActionConfigComputeVar::LoadConfig() {
    if (!loadEnabled()) return;
    // DWORD values that the configuration may set to -1.
    auto readSigned = [this](const char16_t* name, int32_t fallback) {
        uint32_t value = 0;
        m_regAccess.ReadDWORDValue(name, value, static_cast<uint32_t>(fallback));
        return static_cast<int32_t>(value);
    };
    m_regAccess.ReadStringValue(u"szStatusVar", m_szStatusVar, u"");
    m_nCalcType = readSigned(u"nCalcType", 1);
    m_nChangeVal = readSigned(u"nChangeVal", 1);
    m_regAccess.CloseKey();
}

void CActionComputeVar::doAction(CInfoUnit& unit, const CConfigSettings&, CActionListEntry&) {
    vt::debugWrite(vt::DBG_INFO, "in CActionComputeVar::doAction()\r\n");
    const std::u16string name = vt::replaceProperties(m_config.m_szStatusVar.view(), &unit);
    const std::string nameText = vt::utf16ToUtf8(name);
    if (name.empty()) {
        vt::debugPrintf(vt::DBG_ERROR,
                        "CActionComputeVar|doAction: Error, Variable: '%s' could not be "
                        "INITIALIZED!!!\r\n",
                        nameText.c_str());
        return;
    }
    const int32_t calc = m_config.m_nCalcType;
    const int64_t change = m_config.m_nChangeVal;
    int64_t before = 0, after = 0;
    Outcome outcome = Outcome::Changed;
    vt::statusTable().modifyValue(name, [&](std::u16string& value, bool existed) {
        if (!existed) value = u"0";
        if (!parseNumber(value, before)) {
            outcome = Outcome::NotANumber;
            return false;
        }
        if (calc != 1 && calc != 2) {
            outcome = Outcome::UnknownCalcType;
            return !existed;  // the variable exists from now on, at 0
        }
        if (calc == 2 && before <= 0) {
            outcome = Outcome::AlreadyZero;
            return !existed;
        }
        // A decrement by more than the count stops at 0, as a count cannot be negative.
        after = calc == 1 ? before + change : std::max<int64_t>(before - change, 0);
        after = std::min<int64_t>(after, INT32_MAX);
        const std::string text = std::to_string(after);
        value.assign(text.begin(), text.end());
        return true;
    });
    switch (outcome) {
        case Outcome::NotANumber:
            vt::debugPrintf(vt::DBG_ERROR,
                            "CActionComputeVar|doAction: Error, Variable: '%s' was not a NUMBER "
                            "Type value! Could not compute value\r\n",
                            nameText.c_str());
            break;
        case Outcome::AlreadyZero:
            vt::debugPrintf(vt::DBG_ERROR,
                            "CActionComputeVar|doAction: Error, Variable: '%s' is already 0, can "
                            "not DECREMENT the value lower then 0.\r\n",
                            nameText.c_str());
            break;
        case Outcome::UnknownCalcType:
            vt::debugPrintf(vt::DBG_ERROR,
                            "CActionComputeVar|doAction: Error, nCalcType %d unknown - Variable "
                            "'%s' not changed\r\n",
                            calc, nameText.c_str());
            break;
        case Outcome::Changed:
            vt::debugPrintf(vt::DBG_MINIMUM,
                            calc == 1 ? "CActionComputeVar|doAction: Variable: '%s' has been "
                                        "Incremented from '%d' to '%d'\r\n"
                                      : "CActionComputeVar|doAction: Variable: '%s' has been "
                                        "Decremented from '%d' to '%d'\r\n",
                            nameText.c_str(), static_cast<int>(before), static_cast<int>(after));
            break;
    }
    // The closing line is the set-status action's own text.
    vt::debugWrite(vt::DBG_INFO, "out CActionSetStatus::doAction()\r\n");
}
