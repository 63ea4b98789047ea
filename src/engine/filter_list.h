#pragma once
#include <cstdint>
#include <memory>
#include <string>

#include "base/quillet_string.h"
#include "base/setting_text.h"
#include "model/linked_list.h"

class CInfoUnit;
class CConfigSettings;

namespace vt {

// Results of a filter evaluation.
enum FilterResult : int32_t {
    FILTER_UNSUPPORTED = -1,  // a comparison code the property type does not support
    FILTER_FALSE = 0,
    FILTER_TRUE = 1,
    FILTER_UNDETERMINED = 2,  // the property is absent or the test does not apply
    FILTER_EMPTY = 3,         // a group without entries, or a group entry without a child list
};

// Group operations ("nOperationType" of a group entry, the operation of a CFilterList).
enum FilterOperation : int32_t {
    FOP_AND = 0,
    FOP_OR = 1,
    FOP_NOT = 2,
    FOP_XOR = 3,
    FOP_LEAF = 4,  // not a group: the entry is a condition
    FOP_TRUE = 5,
    FOP_FALSE = 6,
};

// Property types of a condition ("PropertyType").
enum FilterPropertyType : int32_t {
    PT_INT = 0,
    PT_STRING = 1,
    PT_BOOL = 2,
    PT_TIME = 3,
    PT_WDAY = 4,
    PT_ENUM_IUT = 5,
    PT_DISKSPACE = 6,
    PT_STATUS = 7,
    PT_STRING_CASED = 8,  // as PT_STRING, the property name keeps its case
};

// The values of one filter entry's registry key.
struct FilterEntryValues {
    std::u16string propertyName;          // "PropertyName"
    std::u16string propertyValue;         // "PropertyValue"
    int32_t operationType = 0;            // "nOperationType"
    int32_t propertyType = 0;             // "PropertyType"
    int32_t propertyValueType = 0;        // "PropertyValueType"
    int32_t compareOperation = 0;         // "CompareOperation"
    int32_t rangeStart = 0;               // "nRangeStart"
    int32_t rangeEnd = 0;                 // "nRangeEnd"
    int32_t hasChildFilterList = 0;       // "nHasChildFilterList"
    int32_t optionalValue = 0;            // "nOptionalValue"
    int32_t saveIntoProperty = 0;         // "nSaveIntoProperty"
    std::u16string saveIntoPropertyName;  // "szSaveIntoPropertyName"
};

}  // namespace vt

class CFilterList;

// One node of a filter tree: a condition on one property, or a nested group. Read-only after
// loading, so several workers evaluate it at once without a lock; it writes only into the unit
// under evaluation (save-into-property), which belongs to the evaluating worker.
class CFilterListEntry : public CLinkedListEntry {
  public:
    // Applies the load-time rules (lower-cased names, "ntservicename", the derived number and
    // flag). A group entry gets no child list here; see setChildList.
    CFilterListEntry(const vt::FilterEntryValues& values, int32_t ignoreUnknown);
    ~CFilterListEntry() override;

    // Reads the entry from its key; a group entry with "nHasChildFilterList" 1 loads its child
    // list from the same key. Null when the key cannot be opened.
    static std::unique_ptr<CFilterListEntry> load(const CQuilletString& keyPath,
                                                  int32_t ignoreUnknown);

    int32_t evaluate(CInfoUnit& unit, const CConfigSettings* settings) const;

    void setChildList(std::unique_ptr<CFilterList> child);
    const CFilterList* getChildList() const noexcept { return m_child.get(); }
    const vt::FilterEntryValues& getValues() const noexcept { return m_values; }
    int32_t getConfiguredNumber() const noexcept { return m_configuredNumber; }
    bool getConfiguredFlag() const noexcept { return m_configuredFlag; }

  private:
    int32_t evaluateCondition(CInfoUnit& unit, const CConfigSettings* settings) const;
    int32_t evaluateInt(CInfoUnit& unit) const;
    int32_t evaluateString(CInfoUnit& unit) const;
    int32_t evaluateStatus(CInfoUnit& unit) const;
    int32_t evaluateBool(CInfoUnit& unit) const;
    int32_t evaluateTime(CInfoUnit& unit, const CConfigSettings* settings) const;
    int32_t evaluateWeekday(CInfoUnit& unit, const CConfigSettings* settings) const;
    int32_t evaluateUnitType(CInfoUnit& unit) const;
    int32_t evaluateDiskSpace(CInfoUnit& unit) const;
    int32_t compareText(std::u16string_view text) const;
    void saveIntoProperty(CInfoUnit& unit, int32_t result) const;

    vt::FilterEntryValues m_values;
    CQuilletString m_nameForLog;  // narrow form built at load, for debug lines
    int32_t m_ignoreUnknown;
    int32_t m_configuredNumber = 0;
    bool m_configuredFlag = false;
    std::unique_ptr<CFilterList> m_child;
};

// A group of filter entries with one logical operation, in registry order.
class CFilterList : public CLinkedList {
  public:
    CFilterList(int32_t operation, int32_t ignoreUnknown);

    // Loads "nFilterCount" (default 0) and the entries F1 ... Fn of `keyPath`; a missing
    // subkey is skipped with a debug line.
    void load(const CQuilletString& keyPath);
    void add(std::unique_ptr<CFilterListEntry> entry);

    int32_t evaluate(CInfoUnit& unit, const CConfigSettings* settings) const;

    int32_t getCount() const noexcept { return m_count; }
    int32_t getOperation() const noexcept { return m_operation; }
    int32_t getIgnoreUnknown() const noexcept { return m_ignoreUnknown; }
    const CQuilletString& getKeyPath() const noexcept { return m_keyPath; }

  private:
    int32_t evaluateAnd(CInfoUnit& unit, const CConfigSettings* settings) const;
    int32_t evaluateOr(CInfoUnit& unit, const CConfigSettings* settings) const;
    int32_t evaluateNot(CInfoUnit& unit, const CConfigSettings* settings) const;
    int32_t evaluateXor(CInfoUnit& unit, const CConfigSettings* settings) const;

    int32_t m_count = 0;
    int32_t m_operation;
    int32_t m_ignoreUnknown;
    CSettingText m_keyPath;
};
