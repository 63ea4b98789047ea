#include "engine/filter_list.h"

#include <string_view>

#include "base/config_settings.h"
#include "base/debug_log.h"
#include "base/reg_access.h"
#include "engine/reg_names.h"
#include "engine/status_table.h"
#include "model/info_unit.h"
#include "model/property_replacer.h"
#include "model/unit_time.h"
#include "platform/local_time.h"

namespace {

using namespace vt;

struct NamedId {
    std::u16string_view name;
    int32_t id;
};

constexpr NamedId kUnitTypes[] = {
    {u"IsSyslog", 1},
    {u"IsHeartbeat", 2},
    {u"IsEventlogMonitor", 3},
    {u"IsSnmp", 4},
    {u"IsFileMonitor", 5},
    {u"IsPingProbe", 8},
    {u"IsPortProbe", 9},
    {u"IsNTServicesMonitor", 10},
    {u"IsDiskSpaceMonitor", 11},
    {u"IsDatabase", 12},
    {u"IsSerialPort", 13},
    {u"IsCPUMon", 14},
    {u"IsSmtp", 17},
    {u"IsFtp", 18},
    {u"IsHttp", 19},
    {u"IsPop3", 20},
    {u"IsImap", 21},
    {u"IsNntp", 22},
};

// "TimeThusday" is spelled as stored configurations spell it.
constexpr NamedId kWeekdays[] = {
    {u"TimeSunday", 0},  {u"TimeMonday", 1}, {u"TimeTuesday", 2},  {u"TimeWednesday", 3},
    {u"TimeThusday", 4}, {u"TimeFriday", 5}, {u"TimeSaturday", 6},
};

int32_t lookUp(const NamedId* table, size_t size, std::u16string_view name) {
    for (size_t i = 0; i < size; ++i)
        if (table[i].name == name) return table[i].id;
    return -1;
}

// The leading decimal digits of `text`, 0 when there are none.
int32_t leadingNumber(std::u16string_view text) {
    int64_t value = 0;
    for (char16_t c : text) {
        if (c < u'0' || c > u'9') break;
        value = value * 10 + (c - u'0');
        if (value > INT32_MAX) return INT32_MAX;
    }
    return static_cast<int32_t>(value);
}

// The time stamp `name` of the unit broken down as UTC or local time.
CivilTime breakDown(int64_t seconds, bool utc) {
    CivilTime t;
    if (utc || !localTimeOf(seconds, t)) utcBreakdown(seconds, t);
    return t;
}

bool settingsSayUtc(const CConfigSettings* settings) {
    return settings && settings->timeMode != 0;
}

// Scratch buffer for expanded templates: reused per worker thread, so a template filter does
// not allocate once the buffer has grown.
std::u16string& templateScratch() {
    thread_local std::u16string scratch;
    return scratch;
}

}  // namespace

CFilterListEntry::CFilterListEntry(const FilterEntryValues& values, int32_t ignoreUnknown)
    : m_values(values), m_ignoreUnknown(ignoreUnknown) {
    if (m_values.propertyType == PT_INT || m_values.propertyType == PT_STRING) {
        for (char16_t& c : m_values.propertyName) c = toLowerChar(c);
    }
    if (m_values.propertyName == u"ntservicename") m_values.propertyName = u"sourceproc";
    switch (m_values.propertyType) {
        case PT_INT:
        case PT_TIME:
        case PT_DISKSPACE:
            m_configuredNumber = leadingNumber(m_values.propertyValue);
            break;
        case PT_BOOL:
        case PT_WDAY:
        case PT_ENUM_IUT:
            m_configuredFlag = !m_values.propertyValue.empty() && m_values.propertyValue[0] == u'1';
            break;
        default:
            break;
    }
    m_nameForLog.setString(std::u16string_view(m_values.propertyName));
    m_nameForLog.getStringA();  // built now: the workers read it concurrently
}

CFilterListEntry::~CFilterListEntry() = default;

void CFilterListEntry::setChildList(std::unique_ptr<CFilterList> child) {
    m_child = std::move(child);
}

std::unique_ptr<CFilterListEntry> CFilterListEntry::load(const CQuilletString& keyPath,
                                                         int32_t ignoreUnknown) {
    CRegAccess reg;
    if (!reg.OpenKey(RegRoot::LocalMachine, keyPath, kKeyRead)) return nullptr;
    FilterEntryValues v;
    CQuilletString text;
    auto readString = [&](std::u16string_view name, std::u16string& out) {
        reg.ReadStringValue(name, text, u"");
        out = text.wide();
    };
    auto readInt = [&](std::u16string_view name, int32_t& out) {
        uint32_t value = 0;
        reg.ReadDWORDValue(name, value, 0);
        out = static_cast<int32_t>(value);
    };
    readString(u"PropertyName", v.propertyName);
    readString(u"PropertyValue", v.propertyValue);
    readInt(u"nOperationType", v.operationType);
    readInt(u"PropertyType", v.propertyType);
    readInt(u"PropertyValueType", v.propertyValueType);
    readInt(u"CompareOperation", v.compareOperation);
    readInt(u"nRangeStart", v.rangeStart);
    readInt(u"nRangeEnd", v.rangeEnd);
    readInt(u"nHasChildFilterList", v.hasChildFilterList);
    readInt(u"nOptionalValue", v.optionalValue);
    readInt(u"nSaveIntoProperty", v.saveIntoProperty);
    readString(u"szSaveIntoPropertyName", v.saveIntoPropertyName);
    reg.CloseKey();

    auto entry = std::make_unique<CFilterListEntry>(v, ignoreUnknown);
    if (v.operationType != FOP_LEAF && v.hasChildFilterList == 1) {
        auto child = std::make_unique<CFilterList>(v.operationType, ignoreUnknown);
        child->load(keyPath);
        entry->setChildList(std::move(child));
    }
    return entry;
}

int32_t CFilterListEntry::evaluate(CInfoUnit& unit, const CConfigSettings* settings) const {
    if (m_values.operationType != FOP_LEAF)
        return m_child ? m_child->evaluate(unit, settings) : FILTER_EMPTY;
    return evaluateCondition(unit, settings);
}

int32_t CFilterListEntry::evaluateCondition(CInfoUnit& unit,
                                            const CConfigSettings* settings) const {
    int32_t result;
    switch (m_values.propertyType) {
        case PT_INT:
            return evaluateInt(unit);
        case PT_STRING:
        case PT_STRING_CASED:
            result = evaluateString(unit);
            saveIntoProperty(unit, result);
            return result;
        case PT_BOOL:
            return evaluateBool(unit);
        case PT_TIME:
            return evaluateTime(unit, settings);
        case PT_WDAY:
            return evaluateWeekday(unit, settings);
        case PT_ENUM_IUT:
            return evaluateUnitType(unit);
        case PT_DISKSPACE:
            return evaluateDiskSpace(unit);
        case PT_STATUS:
            result = evaluateStatus(unit);
            saveIntoProperty(unit, result);
            return result;
        default:
            debugPrintf(DBG_RULEENG,
                        "FilterListEntry|EvaluateFilter| ERROR UNKNOWN PROPERTY TYPE FOUND: %d, "
                        "PropertyName %s\r\n",
                        m_values.propertyType, m_nameForLog.getStringA());
            return FILTER_UNDETERMINED;
    }
}

void CFilterListEntry::saveIntoProperty(CInfoUnit& unit, int32_t result) const {
    if (result == FILTER_TRUE && m_values.saveIntoProperty == 1)
        unit.setPropertyString(m_values.saveIntoPropertyName, m_values.propertyValue);
}

int32_t CFilterListEntry::evaluateInt(CInfoUnit& unit) const {
    const CNameValueTreeEntry* property = unit.findProperty(m_values.propertyName);
    if (!property) return FILTER_UNDETERMINED;
    const int32_t value = property->getInt();
    debugPrintf(DBG_RULEENG,
                "FilterListEntry|EvaluateFilter| Type PT_INT, PropertyName %s, ConfiguredINT: %d, "
                "compared to: %d\r\n",
                m_nameForLog.getStringA(), m_configuredNumber, value);
    switch (m_values.compareOperation) {
        case 0:
            return value == m_configuredNumber;
        case 1:
            return value != m_configuredNumber;
        case 2:
            return value > m_configuredNumber;
        case 3:
            return value < m_configuredNumber;
        default:
            return FILTER_UNSUPPORTED;
    }
}

int32_t CFilterListEntry::compareText(std::u16string_view text) const {
    const std::u16string_view wanted = m_values.propertyValue;
    switch (m_values.compareOperation) {
        case 0:
            return text.find(wanted) != std::u16string_view::npos;
        case 1:
            return text.find(wanted) == std::u16string_view::npos;
        case 4: {
            const size_t start = m_values.rangeStart <= 0 ? 0 : size_t(m_values.rangeStart) - 1;
            if (start > text.size()) return FILTER_FALSE;
            const size_t at = text.find(wanted, start);
            if (at == std::u16string_view::npos) return FILTER_FALSE;
            const int64_t lastPosition = int64_t(at) + int64_t(wanted.size());  // 1-based
            return lastPosition <= m_values.rangeEnd;
        }
        case 5:
            return text == wanted;
        case 6:
            return text != wanted;
        default:
            return FILTER_UNSUPPORTED;
    }
}

int32_t CFilterListEntry::evaluateString(CInfoUnit& unit) const {
    debugPrintf(DBG_RULEENG,
                "FilterListEntry|EvaluateFilter| Type PT_STRING, PropertyName %s, CompareType: "
                "%d\r\n",
                m_nameForLog.getStringA(), m_values.compareOperation);
    if (!m_values.propertyName.empty() && m_values.propertyName[0] == u'%') {
        std::u16string& text = templateScratch();
        text.clear();
        replaceProperties(m_values.propertyName, &unit, text);
        return compareText(text);
    }
    const CQuilletString* value = unit.getPropertyStringObject(m_values.propertyName);
    if (!value) return FILTER_UNDETERMINED;
    return compareText(value->view());
}

int32_t CFilterListEntry::evaluateStatus(CInfoUnit& unit) const {
    debugPrintf(DBG_RULEENG,
                "FilterListEntry|EvaluateFilter| Type PT_STATUS, PropertyName %s, CompareType: "
                "%d\r\n",
                m_nameForLog.getStringA(), m_values.compareOperation);
    std::u16string& name = templateScratch();
    name.clear();
    replaceProperties(m_values.propertyName, &unit, name);
    int32_t result = FILTER_UNDETERMINED;
    const bool found = statusTable().readValue(
        name, [&](std::u16string_view value) { result = compareText(value); });
    if (!found) {
        debugPrintf(DBG_RULEENG,
                    "FilterListEntry|EvaluateFilter| ERROR, Status Property not found: %d, "
                    "PropertyName %s\r\n",
                    m_values.propertyType, m_nameForLog.getStringA());
        return FILTER_UNDETERMINED;
    }
    return result;
}

int32_t CFilterListEntry::evaluateBool(CInfoUnit& unit) const {
    const CNameValueTreeEntry* property = unit.findProperty(m_values.propertyName);
    if (!property) return FILTER_UNDETERMINED;
    const bool current = property->getInt() != 0;
    debugPrintf(DBG_RULEENG,
                "FilterListEntry|EvaluateFilter| Type PT_BOOL, PropertyName %s, Configured Value: "
                "%d, CurrentBool: %d\r\n",
                m_nameForLog.getStringA(), m_configuredFlag, current);
    switch (m_values.compareOperation) {
        case 0:
            return current == m_configuredFlag;
        case 1:
            return current != m_configuredFlag;
        default:
            return FILTER_UNSUPPORTED;
    }
}

int32_t CFilterListEntry::evaluateTime(CInfoUnit& unit, const CConfigSettings* settings) const {
    if (m_values.propertyName != u"IsTime") return FILTER_UNDETERMINED;
    const int32_t option = m_values.optionalValue;
    if (option < 0 || option > 5) return FILTER_UNDETERMINED;
    const int64_t stamp =
        unit.getPropertyTime(option % 2 == 0 ? u"timegenerated" : u"timereported");
    const bool utc = option >= 4 || (option < 2 && settingsSayUtc(settings));
    const CivilTime t = breakDown(stamp, utc);
    const int32_t current = t.hour * 3600 + t.minute * 60 + t.second;
    debugPrintf(DBG_RULEENG,
                "FilterListEntry|EvaluateFilter| Type PT_TIME, PropertyName %s, Comparing time: %d "
                ", Current time: %d\r\n",
                m_nameForLog.getStringA(), m_configuredNumber, current);
    switch (m_values.compareOperation) {
        case 0:
            return current == m_configuredNumber;
        case 2:
            return current > m_configuredNumber;
        case 3:
            return current < m_configuredNumber;
        default:
            return FILTER_UNSUPPORTED;
    }
}

int32_t CFilterListEntry::evaluateWeekday(CInfoUnit& unit, const CConfigSettings* settings) const {
    const int32_t day = lookUp(kWeekdays, std::size(kWeekdays), m_values.propertyName);
    int64_t stamp;
    switch (m_values.optionalValue) {
        case 0:
            stamp = unit.getPropertyTime(u"timegenerated");
            break;
        case 1:
            stamp = unit.getPropertyTime(u"timereported");
            break;
        default:
            stamp = currentTime();
            break;
    }
    const CivilTime t = breakDown(stamp, settingsSayUtc(settings));
    debugPrintf(
        DBG_RULEENG,
        "FilterListEntry|EvaluateFilter| Type PT_WDAY, PropertyName %s, Configured Day: %d, "
        "Current Day: %d\r\n",
        m_nameForLog.getStringA(), day, t.weekday);
    if (day < 0 || t.weekday != day) return FILTER_UNDETERMINED;
    if (m_configuredFlag && m_values.compareOperation == 0) return FILTER_TRUE;
    if (!m_configuredFlag && m_values.compareOperation == 1) return FILTER_TRUE;
    return FILTER_FALSE;
}

int32_t CFilterListEntry::evaluateUnitType(CInfoUnit& unit) const {
    const CNameValueTreeEntry* property = unit.findProperty(u"iut");
    if (!property) return FILTER_UNDETERMINED;
    const int32_t current = property->getInt();
    const int32_t requested = lookUp(kUnitTypes, std::size(kUnitTypes), m_values.propertyName);
    debugPrintf(DBG_RULEENG,
                "FilterListEntry|EvaluateFilter| Type PT_ENUM_IUT, PropertyName %s, Comparing "
                "current iut: %d , to requested iut type: %d\r\n",
                m_nameForLog.getStringA(), current, requested);
    if (requested < 0 || current != requested) return FILTER_FALSE;
    if (m_configuredFlag && m_values.compareOperation == 0) return FILTER_TRUE;
    if (!m_configuredFlag && m_values.compareOperation == 1) return FILTER_TRUE;
    return FILTER_FALSE;
}

int32_t CFilterListEntry::evaluateDiskSpace(CInfoUnit& unit) const {
    const CNameValueTreeEntry* usage = unit.findProperty(u"currusage");
    const CNameValueTreeEntry* maximum = unit.findProperty(u"maxavailable");
    if (!usage || !maximum) return FILTER_UNDETERMINED;
    const int64_t used = usage->getInt();
    const int64_t available = maximum->getInt();
    int64_t free;
    switch (m_values.propertyValueType) {
        case 3:
            free = available - used;
            break;
        case 4:
            free = (available - used) / 1024;
            break;
        case 5:
            // Below 100 the percentage has no base; the test cannot be decided.
            if (available / 100 == 0) return FILTER_UNDETERMINED;
            free = (available - used) / (available / 100);
            break;
        default:
            return FILTER_UNDETERMINED;
    }
    debugPrintf(DBG_RULEENG,
                "FilterListEntry|EvaluateFilter| Type PT_DISKSPACE, PropertyName %s, Configured "
                "Value: %d, FreeSpace: %d\r\n",
                m_nameForLog.getStringA(), m_configuredNumber, static_cast<int>(free));
    switch (m_values.compareOperation) {
        case 0:
            return free == m_configuredNumber;
        case 1:
            return free != m_configuredNumber;
        case 2:
            return free > m_configuredNumber;
        case 3:
            return free < m_configuredNumber;
        default:
            return FILTER_UNSUPPORTED;
    }
}

CFilterList::CFilterList(int32_t operation, int32_t ignoreUnknown)
    : m_operation(operation), m_ignoreUnknown(ignoreUnknown) {}

void CFilterList::load(const CQuilletString& keyPath) {
    m_keyPath = keyPath;
    uint32_t count = 0;
    {
        CRegAccess reg;
        if (reg.OpenKey(RegRoot::LocalMachine, keyPath, kKeyRead)) {
            reg.ReadDWORDValue(u"nFilterCount", count, 0);
            reg.CloseKey();
        }
    }
    for (uint32_t n = 1; n <= count; ++n) {
        CQuilletString entryPath(numberedSubkey(keyPath.view(), u"F", n));
        std::unique_ptr<CFilterListEntry> entry =
            CFilterListEntry::load(entryPath, m_ignoreUnknown);
        if (!entry) {
            debugPrintf(DBG_RULEENG, "CFilterList|load: filter key '%s' is missing - skipped.\r\n",
                        entryPath.getStringA());
            continue;
        }
        add(std::move(entry));
    }
}

void CFilterList::add(std::unique_ptr<CFilterListEntry> entry) {
    append(entry.release());
    ++m_count;
}

int32_t CFilterList::evaluate(CInfoUnit& unit, const CConfigSettings* settings) const {
    if (isEmpty()) return FILTER_EMPTY;
    switch (m_operation) {
        case FOP_AND:
            return evaluateAnd(unit, settings);
        case FOP_OR:
            return evaluateOr(unit, settings);
        case FOP_NOT:
            return evaluateNot(unit, settings);
        case FOP_XOR:
            return evaluateXor(unit, settings);
        case FOP_TRUE:
            return FILTER_TRUE;
        case FOP_FALSE:
            return FILTER_FALSE;
        default:
            debugWrite(DBG_RULEENG, "ApplyFilters: INVALID Operation Code Detected\r\n");
            return FILTER_TRUE;
    }
}

// Walks the entries of a list in order.
#define FOR_EACH_FILTER(var)                                                        \
    for (const CLinkedListEntry* link_ = next(nullptr); link_; link_ = next(link_)) \
        if (const auto* var = static_cast<const CFilterListEntry*>(link_); true)

int32_t CFilterList::evaluateAnd(CInfoUnit& unit, const CConfigSettings* settings) const {
    int32_t result = FILTER_TRUE;
    FOR_EACH_FILTER(entry) {
        const int32_t child = entry->evaluate(unit, settings);
        if (child == FILTER_UNDETERMINED) {
            if (!m_ignoreUnknown) result = FILTER_FALSE;
        } else if (child < FILTER_UNDETERMINED) {
            result = child & 1;  // -1 (unsupported comparison) counts as true, as it always has
        }
        debugPrintf(DBG_RULEENG, "    --> evaluates to %d\r\n", result);
        if (result != FILTER_TRUE) break;
    }
    return result;
}

int32_t CFilterList::evaluateOr(CInfoUnit& unit, const CConfigSettings* settings) const {
    int32_t result = FILTER_FALSE;
    FOR_EACH_FILTER(entry) {
        const int32_t child = entry->evaluate(unit, settings);
        if (child < FILTER_UNDETERMINED) result |= child & 1;
        if (result == FILTER_TRUE) break;
    }
    return result;
}

int32_t CFilterList::evaluateNot(CInfoUnit& unit, const CConfigSettings* settings) const {
    const auto* first = static_cast<const CFilterListEntry*>(next(nullptr));
    switch (first->evaluate(unit, settings)) {
        case FILTER_FALSE:
            return FILTER_TRUE;
        case FILTER_TRUE:
            return FILTER_FALSE;
        case FILTER_UNDETERMINED:
            return m_ignoreUnknown ? FILTER_FALSE : FILTER_TRUE;
        default:
            return FILTER_FALSE;
    }
}

int32_t CFilterList::evaluateXor(CInfoUnit& unit, const CConfigSettings* settings) const {
    int32_t result = FILTER_FALSE;
    FOR_EACH_FILTER(entry) {
        const int32_t child = entry->evaluate(unit, settings);
        if (child < FILTER_UNDETERMINED) result ^= child & 1;
    }
    return result;
}
