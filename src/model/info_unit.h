#pragma once
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "base/quillet_string.h"
#include "model/name_value_tree.h"
#include "model/property_names.h"

// The event record. All data are named text values in the property store; typed getters and
// setters convert on access. A unit is used by one thread at a time: the source that fills it,
// then the one worker that runs it through its rule set.

namespace vt {
// Type ids ("iut").
enum InfoUnitType : int32_t {
    IUT_NONE = 0,
    IUT_SYSLOG = 1,
    IUT_HEARTBEAT = 2,
    IUT_NTEVENTREPORT = 3,
    IUT_SNMPTRAP = 4,
    IUT_FILEMONITOR = 5,
    IUT_PINGPROBE = 8,
    IUT_PORTPROBE = 9,
    IUT_NTSERVICEMONITOR = 10,
    IUT_DISKSPACEMONITOR = 11,
    IUT_DBMONITOR = 12,
    IUT_SERIALMONITOR = 13,
    IUT_CPUMONITOR = 14,
    IUT_ALIVEMON = 16,
    IUT_SMTPPROBE = 17,
    IUT_FTPPROBE = 18,
    IUT_HTTPPROBE = 19,
    IUT_POP3PROBE = 20,
    IUT_IMAPPROBE = 21,
    IUT_NNTPPROBE = 22,
    IUT_WEVTMONITOR = 23,
};

// The customer and system ids of a unit that no input has stamped yet: the defaults of
// "nCustomerID" and "nSystemID". Each input stamps the configured values onto its units.
inline constexpr int32_t kDefaultCustomerId = 3;
inline constexpr int32_t kDefaultSystemId = 3;
}  // namespace vt

class CInfoUnit {
  public:
    CInfoUnit();
    CInfoUnit(const CInfoUnit&) = delete;
    CInfoUnit& operator=(const CInfoUnit&) = delete;
    virtual ~CInfoUnit();

    // --- virtual operations ---
    virtual void setMsgA(std::string_view narrow);
    virtual void setMsg(std::u16string_view wide);
    virtual void setMsgString(const CQuilletString& text);
    virtual int32_t getSyslogPriority() const;         // must exist: throws CErrorReport* 1100
    virtual int32_t getSyslogFacility() const;         // must exist: throws CErrorReport* 1100
    virtual void setSyslogPriority(int32_t priority);  // also sets "importance"
    virtual void setSyslogFacility(int32_t facility);
    virtual int32_t getPropertyKind() const { return 4; }
    virtual int32_t getImportance() const;  // absent or not numeric: 0
    virtual void setImportance(int32_t importance);
    virtual const char16_t* getDescription() const { return u"unknown"; }
    virtual bool isNotSyslog() const { return true; }
    virtual uint32_t getMsgLength() const;
    virtual uint32_t getMsgLengthA() const;
    virtual const char16_t* getMsgText() const;  // "" when absent
    // "msg" in the character set `charsetId` (0: the default narrow form), cached per id.
    virtual const char* getMsgInCharset(uint32_t charsetId) const;
    virtual const char* getMsgA() const;                 // "" when absent
    virtual const CQuilletString* getMsgString() const;  // null when absent
    virtual const char16_t* getPlainMsgText() const { return getMsgText(); }
    virtual const char16_t* getRawMsgText() const { return getMsgText(); }
    virtual const char* getRawMsgA() const { return getMsgA(); }
    virtual uint32_t getRawMsgLength() const { return getMsgLength(); }
    virtual uint32_t getRawMsgLengthA() const { return getMsgLengthA(); }
    // Called by the worker when rule processing of the unit has ended.
    virtual void signalProcessed() {}
    // True for a unit whose producer waits for the end of its processing.
    virtual bool awaitsProcessing() const { return false; }
    virtual void setIUVersion(int32_t version);
    virtual int32_t getIUVersion() const;  // -1 when absent

    // --- typed properties by name ---
    void setPropertyInt(std::u16string_view name, int32_t value);
    void setPropertyTime(std::u16string_view name, int64_t seconds);
    void setPropertyString(std::u16string_view name, std::u16string_view value);
    void setPropertyString(std::u16string_view name, const CQuilletString& value);
    void setPropertyString(std::u16string_view name, const char16_t* value) {
        setPropertyString(name, std::u16string_view(value ? value : u""));
    }
    // Moves the text in (no copy of a long message).
    void takePropertyString(std::u16string_view name, std::u16string&& value);
    void setPropertyStringA(std::u16string_view name, std::string_view narrow);
    void setPropertyFormatted(std::u16string_view name, const char* format, ...)
        __attribute__((format(printf, 3, 4)));

    // The same for the standard properties, without hashing their names.
    void setPropertyInt(vt::StdProperty id, int32_t value) { standardEntry(id).setInt(value); }
    void setPropertyTime(vt::StdProperty id, int64_t seconds) {
        standardEntry(id).setTime(seconds);
    }
    void setPropertyString(vt::StdProperty id, std::u16string_view value) {
        standardEntry(id).setValue(value);
    }
    void setPropertyString(vt::StdProperty id, const CQuilletString& value) {
        standardEntry(id).setValue(value);
    }
    void setPropertyStringA(vt::StdProperty id, std::string_view narrow) {
        standardEntry(id).setValueA(narrow);
    }
    void takePropertyString(vt::StdProperty id, std::u16string&& value) {
        standardEntry(id).setValue(std::move(value));
    }
    CNameValueTreeEntry* findProperty(vt::StdProperty id) const noexcept {
        return m_properties->findEntry(vt::sharedPropertyName(id));
    }
    int32_t getPropertyInt(vt::StdProperty id) const {  // -1 when absent or not numeric
        const CNameValueTreeEntry* e = findProperty(id);
        return e ? e->getInt() : -1;
    }
    const CQuilletString* getPropertyStringObject(vt::StdProperty id) const {  // null: absent
        const CNameValueTreeEntry* e = findProperty(id);
        return e ? &e->getValue() : nullptr;
    }

    int32_t getPropertyInt(std::u16string_view name, bool mustExist = false) const {
        return m_properties->getInt(name, mustExist);
    }
    int64_t getPropertyTime(std::u16string_view name) const { return m_properties->getTime(name); }
    const char16_t* getPropertyString(std::u16string_view name, bool mustExist = false) const {
        return m_properties->getString(name, mustExist);
    }
    const CQuilletString* getPropertyStringObject(std::u16string_view name,
                                                  bool mustExist = false) const {
        return m_properties->getStringObject(name, mustExist);
    }
    CNameValueTreeEntry* findProperty(std::u16string_view name) const noexcept {
        return m_properties->findEntry(name);
    }

    CNameValueTree& getProperties() noexcept { return *m_properties; }
    const CNameValueTree& getProperties() const noexcept { return *m_properties; }

    int32_t getType() const { return getPropertyInt(vt::StdProperty::Iut); }
    void setType(int32_t type) { setPropertyInt(vt::StdProperty::Iut, type); }
    void setResource(std::u16string_view resource) {
        setPropertyString(vt::StdProperty::Resource, resource);
    }
    void setTimeGenerated(int64_t seconds) {
        setPropertyTime(vt::StdProperty::TimeGenerated, seconds);
    }

    // The "event" element of the unit: no declaration, no indentation.
    CQuilletString toXML() const;
    void appendXML(std::u16string& out) const;

    // Set by an action that failed; ends the processing of the unit in its rule set.
    uint8_t getActionFailed() const noexcept { return m_actionFailed; }
    void setActionFailed(uint8_t failed) noexcept { m_actionFailed = failed; }

    // Rebuilds a unit from its XML form (or a parsed tree). Null for every refusal; the caller
    // owns the result. The tree form takes over the children of the "event" element.
    static std::unique_ptr<CInfoUnit> createInfoUnitFromXML(std::u16string_view xml);
    static std::unique_ptr<CInfoUnit> createInfoUnitFromTree(CNameValueTree* root);
    // A fresh unit of the class for `type`; null for ids that belong to no class.
    static std::unique_ptr<CInfoUnit> createInfoUnitOfType(int32_t type);

  protected:
    // A unit of `type` whose syslog facility starts as `facility` (the default constructor:
    // type 0, facility 128); every other standard property as always.
    CInfoUnit(int32_t type, int32_t facility);

    // Installs `properties` in place of the current store (used when rebuilding from XML).
    void installProperties(std::unique_ptr<CNameValueTree> properties) noexcept;

  private:
    CNameValueTreeEntry& standardEntry(vt::StdProperty id) {
        return *m_properties->entryFor(vt::sharedPropertyName(id));
    }

    // The standard properties and two of a source's own live in the unit itself: one
    // allocation per unit instead of one per property. Declared before the tree that uses
    // them, so they outlive its entries.
    static constexpr size_t kEntrySlots = vt::kStdPropertyCount + 2;
    alignas(std::max_align_t) std::byte
        m_entryStorage[kEntrySlots * CNameValueTree::kEntrySlotBytes];
    CNameValueTree m_ownProperties;
    std::unique_ptr<CNameValueTree> m_installed;  // a store rebuilt from XML
    CNameValueTree* m_properties = &m_ownProperties;
    uint8_t m_actionFailed = 0;
};

// A unit whose creator waits until rule processing has ended (auto-reset event, initially not
// signalled). The worker signals; the source waits.
class CWaitableInfoUnit : public CInfoUnit {
  public:
    CWaitableInfoUnit();  // throws CErrorReport* 1003 when the event cannot be created
    ~CWaitableInfoUnit() override;

    void signalProcessed() override;
    bool awaitsProcessing() const override { return true; }
    // True when signalled within `timeout` (the signal is consumed).
    bool waitProcessed(std::chrono::milliseconds timeout);
    // Waits without a limit.
    void waitProcessed();

  private:
    struct Event {
        std::mutex mutex;
        std::condition_variable cv;
        bool signalled = false;
    };
    std::unique_ptr<Event> m_event;
};
