#include "model/info_unit.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <system_error>

#include "base/debug_log.h"
#include "base/error_report.h"
#include "base/error_reporter.h"
#include "model/info_unit_types.h"
#include "model/unit_time.h"
#include "platform/computer_name.h"

namespace vt {
namespace {

// The computer name is read once; a failed read is retried by the next unit. Null until read.
const std::u16string* computerName() {
    static std::mutex mutex;
    static std::u16string name;
    static std::atomic<bool> known{false};
    if (!known.load(std::memory_order_acquire)) {
        std::lock_guard guard(mutex);
        if (!known.load(std::memory_order_relaxed)) {
            std::u16string n;
            if (!localComputerName(n)) return nullptr;
            name = std::move(n);
            known.store(true, std::memory_order_release);
        }
    }
    return &name;
}
}  // namespace
}  // namespace vt

CInfoUnit::CInfoUnit() : CInfoUnit(vt::IUT_NONE, 128) {}

CInfoUnit::CInfoUnit(int32_t type, int32_t facility) {
    // The store is empty, so every name is appended without a look-up; the order is the one
    // the XML form of a unit shows. "importance" ends as 5 although 128 was its first value.
    using vt::StdProperty;
    CNameValueTree& p = *m_properties;
    p.useEntryStorage(m_entryStorage, kEntrySlots);
    auto add = [&p](StdProperty id) { return p.addEntry(vt::sharedPropertyName(id)); };
    add(StdProperty::Iut)->setInt(type);
    const int64_t now = vt::currentTime();
    add(StdProperty::TimeGenerated)->setTime(now);
    add(StdProperty::TimeReported)->setTime(now);
    add(StdProperty::Importance)->setInt(5);
    add(StdProperty::SyslogPriority)->setInt(5);
    add(StdProperty::SyslogFacility)->setInt(facility);
    add(StdProperty::Resource);
    add(StdProperty::SyslogTag)->setValue(std::u16string_view(u"Vantor"));
    add(StdProperty::IuVers)->setInt(2);
    if (const std::u16string* source = vt::computerName())
        add(StdProperty::Source)->setValue(std::u16string_view(*source));
    else
        vt::debugWrite(vt::DBG_ERROR, "GetComputerName failed!\r\n");
    add(StdProperty::CustomerId)->setInt(vt::kDefaultCustomerId);
    add(StdProperty::SystemId)->setInt(vt::kDefaultSystemId);
}

CInfoUnit::~CInfoUnit() = default;

void CInfoUnit::setMsgA(std::string_view narrow) {
    setPropertyStringA(vt::StdProperty::Msg, narrow);
}

void CInfoUnit::setMsg(std::u16string_view wide) {
    setPropertyString(vt::StdProperty::Msg, wide);
}

void CInfoUnit::setMsgString(const CQuilletString& text) {
    setPropertyString(vt::StdProperty::Msg, text);
}

int32_t CInfoUnit::getSyslogPriority() const {
    if (const CNameValueTreeEntry* e = findProperty(vt::StdProperty::SyslogPriority))
        return e->getInt();
    return m_properties->getInt(u"syslogpriority", true);  // logs and throws
}

int32_t CInfoUnit::getSyslogFacility() const {
    if (const CNameValueTreeEntry* e = findProperty(vt::StdProperty::SyslogFacility))
        return e->getInt();
    return m_properties->getInt(u"syslogfacility", true);  // logs and throws
}

void CInfoUnit::setSyslogPriority(int32_t priority) {
    setPropertyInt(vt::StdProperty::SyslogPriority, priority);
    setPropertyInt(vt::StdProperty::Importance, priority);
}

void CInfoUnit::setSyslogFacility(int32_t facility) {
    setPropertyInt(vt::StdProperty::SyslogFacility, facility);
}

int32_t CInfoUnit::getImportance() const {
    const int32_t v = getPropertyInt(vt::StdProperty::Importance);
    return v < 0 ? 0 : v;
}

void CInfoUnit::setImportance(int32_t importance) {
    setPropertyInt(vt::StdProperty::Importance, importance);
}

uint32_t CInfoUnit::getMsgLength() const {
    const CQuilletString* msg = getMsgString();
    return msg ? msg->getLength() : 0;
}

uint32_t CInfoUnit::getMsgLengthA() const {
    const CQuilletString* msg = getMsgString();
    return msg ? msg->getLengthA() : 0;
}

const char16_t* CInfoUnit::getMsgText() const {
    const CQuilletString* msg = getMsgString();
    return msg ? msg->getString() : u"";
}

const char* CInfoUnit::getMsgInCharset(uint32_t charsetId) const {
    const CQuilletString* msg = getMsgString();
    return msg ? msg->getStringInCharset(charsetId) : "";
}

const char* CInfoUnit::getMsgA() const {
    const CQuilletString* msg = getMsgString();
    return msg ? msg->getStringA() : "";
}

const CQuilletString* CInfoUnit::getMsgString() const {
    return getPropertyStringObject(vt::StdProperty::Msg);
}

void CInfoUnit::setIUVersion(int32_t version) {
    setPropertyInt(vt::StdProperty::IuVers, version);
}

int32_t CInfoUnit::getIUVersion() const {
    return getPropertyInt(vt::StdProperty::IuVers);
}

void CInfoUnit::setPropertyInt(std::u16string_view name, int32_t value) {
    m_properties->setInt(name, value);
}

void CInfoUnit::setPropertyTime(std::u16string_view name, int64_t seconds) {
    m_properties->setTime(name, seconds);
}

void CInfoUnit::setPropertyString(std::u16string_view name, std::u16string_view value) {
    m_properties->setString(name, value);
}

void CInfoUnit::setPropertyString(std::u16string_view name, const CQuilletString& value) {
    m_properties->setString(name, value);
}

void CInfoUnit::takePropertyString(std::u16string_view name, std::u16string&& value) {
    m_properties->takeString(name, std::move(value));
}

void CInfoUnit::setPropertyStringA(std::u16string_view name, std::string_view narrow) {
    m_properties->setStringA(name, narrow);
}

void CInfoUnit::setPropertyFormatted(std::u16string_view name, const char* format, ...) {
    char buffer[4096];
    va_list args;
    va_start(args, format);
    const int n = std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    const size_t len = n < 0 ? 0 : std::min<size_t>(static_cast<size_t>(n), sizeof buffer - 1);
    m_properties->setStringA(name, std::string_view(buffer, len));
}

CQuilletString CInfoUnit::toXML() const {
    return m_properties->toXML(u"event");
}

void CInfoUnit::appendXML(std::u16string& out) const {
    m_properties->appendXML(out, u"event");
}

void CInfoUnit::installProperties(std::unique_ptr<CNameValueTree> properties) noexcept {
    if (!properties) return;
    m_installed = std::move(properties);
    m_properties = m_installed.get();
    m_ownProperties.clear();
}

std::unique_ptr<CInfoUnit> CInfoUnit::createInfoUnitOfType(int32_t type) {
    switch (type) {
        case vt::IUT_NONE:
            return std::make_unique<CInfoUnit>();
        case vt::IUT_SYSLOG:
            return std::make_unique<CInfoUnitSyslog>();
        case vt::IUT_HEARTBEAT:
            return std::make_unique<CInfoUnitHeartbeat>();
        case vt::IUT_NTEVENTREPORT:
            return std::make_unique<CInfoUnitNTEventReport>();
        case vt::IUT_SNMPTRAP:
            return std::make_unique<CInfoUnitSNMPTrap>();
        case vt::IUT_FILEMONITOR:
            return std::make_unique<CInfoUnitFileMonitor>();
        case vt::IUT_PINGPROBE:
            return std::make_unique<CInfoUnitPingProbe>();
        case vt::IUT_PORTPROBE:
            return std::make_unique<CInfoUnitPortProbe>();
        case vt::IUT_NTSERVICEMONITOR:
            return std::make_unique<CInfoUnitNTServiceMonitor>();
        case vt::IUT_DISKSPACEMONITOR:
            return std::make_unique<CInfoUnitDiskSpaceMonitor>();
        case vt::IUT_DBMONITOR:
            return std::make_unique<CInfoUnitDBMonitor>();
        case vt::IUT_SERIALMONITOR:
            return std::make_unique<CInfoUnitSerialMonitor>();
        case vt::IUT_CPUMONITOR:
            return std::make_unique<CInfoUnitCPUMonitor>();
        case vt::IUT_ALIVEMON:
            return std::make_unique<CInfoUnitAliveMon>();
        case vt::IUT_SMTPPROBE:
            return std::make_unique<CInfoUnitSMTPProbe>();
        case vt::IUT_FTPPROBE:
            return std::make_unique<CInfoUnitFTPProbe>();
        case vt::IUT_HTTPPROBE:
            return std::make_unique<CInfoUnitHTTPProbe>();
        case vt::IUT_POP3PROBE:
            return std::make_unique<CInfoUnitPOP3Probe>();
        case vt::IUT_IMAPPROBE:
            return std::make_unique<CInfoUnitIMAPProbe>();
        case vt::IUT_NNTPPROBE:
            return std::make_unique<CInfoUnitNNTPProbe>();
        case vt::IUT_WEVTMONITOR:
            return std::make_unique<CInfoUnitWevtMonitor>();
        default:
            return nullptr;
    }
}

std::unique_ptr<CInfoUnit> CInfoUnit::createInfoUnitFromXML(std::u16string_view xml) {
    CNameValueTree tree;
    tree.parse(xml);
    return createInfoUnitFromTree(&tree);
}

namespace {
int32_t legacyEventType(const char16_t* severity) {
    if (!severity) return 0;
    const std::u16string_view s(severity);
    if (s == u"[ERR]") return 1;
    if (s == u"[WRN]") return 2;
    if (s == u"[INF]") return 4;
    if (s == u"[AUS]") return 8;
    if (s == u"[AUF]") return 16;
    return 0;
}

// Event log units from senders of layout version 1 carry the severity as text and lack the
// fields added since.
void convertOldSender(CInfoUnitNTEventReport& unit) {
    unit.setEventType(legacyEventType(unit.getPropertyString(u"severity")));
    vt::debugWrite(vt::DBG_ULTRA, "CInfoUnit|createInfoUnitFromTree: Found old VTRP Sender\r\n");
    unit.setImportance(5);
    unit.setPropertyInt(u"CustomerID", 0);
    unit.setPropertyInt(u"SystemID", 0);
    unit.setPropertyString(u"bdata", std::u16string_view());
    const char16_t* typeName = unit.getPropertyString(u"NTEventLogType");
    const std::u16string copy = typeName ? typeName : u"";
    unit.setEventLogTypeName(copy);
}
}  // namespace

std::unique_ptr<CInfoUnit> CInfoUnit::createInfoUnitFromTree(CNameValueTree* root) {
    vt::debugWrite(vt::DBG_INFO, "CInfoUnit::createInfoUnitFromTree(CNameValueTree *pRoot)\r\n");
    CNameValueTreeEntry* event = root ? root->findEntry(u"event") : nullptr;
    if (!event) {
        vt::debugWrite(vt::DBG_INFO,
                       "CInfoUnit::createInfoUnitFromTree - invalid XML tree provided (no <event> "
                       "present)");
        return nullptr;
    }
    CNameValueTree* children = event->getChild();
    if (!children) {
        vt::debugWrite(vt::DBG_INFO,
                       "CInfoUnit::createInfoUnitFromTree - invalid XML tree provided (no <event> "
                       "child present)");
        return nullptr;
    }
    CNameValueTreeEntry* iut = children->findEntry(u"iut");
    if (!iut) {
        vt::debugWrite(vt::DBG_INFO,
                       "CInfoUnit::createInfoUnitFromTree - invalid XML tree provided (no <iut> "
                       "present)");
        return nullptr;
    }
    const int32_t type = iut->getInt();
    if (type == -1) {
        vt::debugWrite(vt::DBG_INFO,
                       "CInfoUnit|createInfoUnitFromTree: Non numerical IUT contained in InfoUnit "
                       "- discarded.");
        return nullptr;
    }
    vt::debugPrintf(vt::DBG_ULTRA,
                    "CInfoUnit|createInfoUnitFromTree: InfoUnit type %d detected\r\n", type);
    // Alive-monitor and newer event log units exist locally but are never accepted from a
    // sender.
    if (type < 1 || type > 22 || type == 6 || type == 7 || type == 15 || type == 16) {
        char text[160];
        std::snprintf(text, sizeof text,
                      "constructInfoUnitFrom XML detected an invalid InfoUnit type (%d) - unit "
                      "discarded.",
                      type);
        vt::reportError(114, "InfoUnit", text);
        return nullptr;
    }
    std::unique_ptr<CInfoUnit> unit = createInfoUnitOfType(type);
    if (!unit) return nullptr;
    unit->installProperties(std::unique_ptr<CNameValueTree>(event->detachChild()));
    if (type == vt::IUT_NTEVENTREPORT && unit->getIUVersion() < 2)
        convertOldSender(static_cast<CInfoUnitNTEventReport&>(*unit));
    return unit;
}

CWaitableInfoUnit::CWaitableInfoUnit() {
    try {
        m_event = std::make_unique<Event>();
    } catch (const std::system_error& e) {
        throw new CErrorReport(1003,
                               CQuilletString(std::string_view(
                                   "CWaitableInfoUnit could not allocate OS Event object.")),
                               static_cast<uint32_t>(e.code().value()));
    }
}

CWaitableInfoUnit::~CWaitableInfoUnit() = default;

void CWaitableInfoUnit::signalProcessed() {
    // Notified under the lock: the waiter may destroy the unit as soon as it sees the flag, so
    // the condition variable must not be touched after the mutex is released.
    std::lock_guard guard(m_event->mutex);
    m_event->signalled = true;
    m_event->cv.notify_one();
}

bool CWaitableInfoUnit::waitProcessed(std::chrono::milliseconds timeout) {
    std::unique_lock lock(m_event->mutex);
    if (!m_event->cv.wait_for(lock, timeout, [this] { return m_event->signalled; })) return false;
    m_event->signalled = false;
    return true;
}

void CWaitableInfoUnit::waitProcessed() {
    std::unique_lock lock(m_event->mutex);
    m_event->cv.wait(lock, [this] { return m_event->signalled; });
    m_event->signalled = false;
}
