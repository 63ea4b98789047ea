#include "sources/info_source.h"

#include "base/config_settings.h"
#include "base/debug_log.h"
#include "base/reg_access.h"
#include "engine/que_man_list.h"
#include "engine/rule_set_list.h"
#include "engine/stats.h"
#include "model/info_unit.h"
#include "platform/guid.h"

namespace {

// "%s\\IS%d": the key of service n below the services key.
CQuilletString numberedKey(const CQuilletString& parent, const char16_t* middle, uint32_t n) {
    std::u16string path(parent.getString());
    path += middle;
    path += u"IS";
    for (char c : std::to_string(n)) path.push_back(static_cast<char16_t>(c));
    return CQuilletString(std::move(path));
}

}  // namespace

CInfoSource::CInfoSource(const CQuilletString& serviceName, uint32_t serviceId, CQueManList* queue,
                         vt::RegRoot root, const CQuilletString& servicesKeyPath, uint32_t flag)
    : m_szServicesKeyPath(servicesKeyPath),
      m_nServiceId(serviceId),
      m_pQueue(queue),
      m_szServiceName(serviceName),
      m_root(root),
      m_counters(vt::CStatsRegistry::instance().addSource(std::string(serviceName.narrowView()))) {
    if (flag == 0) m_nReservedFlag1 = 0;
}

CInfoSource::CInfoSource(const vt::InfoSourceContext& context, uint32_t flag)
    : CInfoSource(context.serviceName, context.serviceId, context.queue, context.root,
                  context.servicesKeyPath, flag) {
    m_szDataKeyPath = context.dataKeyPath;
    m_pSettings = context.settings;
    m_pDnsCache = context.dnsCache;
    m_pClock = context.clock;
    m_bRunOnce = context.runOnce;
    m_stopAgent = context.stopAgent;
}

CInfoSource::~CInfoSource() = default;

CQuilletString CInfoSource::configKeyPath() const {
    return numberedKey(m_szServicesKeyPath, u"\\", m_nServiceNumber);
}

int32_t CInfoSource::OpenConfig(CRegAccess& reg, uint32_t access) {
    const CQuilletString path = configKeyPath();
    vt::debugPrintf(vt::DBG_INFO, "CInfoSource| OpenConfig: RegKey %s \r\n", path.getStringA());
    reg.OpenKey(m_root, path, access);
    uint32_t version = 0;
    reg.ReadDWORDValue(u"nConfigVersion", version, 0);
    reg.ReadStringValue(u"szRuleSetName", m_szRuleSetName, CQuilletString());
    return static_cast<int32_t>(version);
}

void CInfoSource::readCommonValues(CRegAccess& reg, const CQuilletString& tagDefault) {
    reg.ReadDWORDValue(u"nSyslogFacility", m_nDefaultFacility, 128);
    reg.ReadDWORDValue(u"nSyslogPriority", m_nDefaultPriority, 5);
    reg.ReadStringValue(u"szResource", m_szResource, CQuilletString());
    reg.ReadStringValue(u"szSyslogTagValue", m_szSyslogTag, tagDefault);
    reg.ReadDWORDValue(u"bServiceEnabled", m_bServiceEnabled, 1);
}

bool CInfoSource::LoadConfig() {
    vt::debugWrite(vt::DBG_INFO, "CInfoSource|LoadConfig: Loading common config settings!\r\n");
    CRegAccess reg;
    m_nLoadedConfigVersion = OpenConfig(reg, vt::kKeyRead);
    readCommonValues(reg);
    reg.CloseKey();
    return isEnabled();
}

void CInfoSource::setRegPathes() {
    CRegAccess data;
    if (data.CreateKey(m_root, m_szDataKeyPath))
        vt::debugWrite(vt::DBG_INFO, "CInfoSource| Successfully created AgentData key\r\n");
    else
        vt::debugWrite(vt::DBG_INFO, "CInfoSource| Failed to create AgentData key\r\n");
    data.CloseKey();

    m_szConfigPath = configKeyPath();
    CRegAccess reg;
    reg.OpenKey(m_root, m_szConfigPath, vt::kKeyRead);
    uint32_t version = static_cast<uint32_t>(m_nInfoSourceVersion);
    reg.ReadDWORDValue(u"nInfoSourceVersion", version, version);
    m_nInfoSourceVersion = static_cast<int32_t>(version);
    reg.ReadStringValue(u"szMyGuid", m_szGuid, CQuilletString());

    if (m_nInfoSourceVersion == 0 || m_szGuid.getLength() == 0) {
        // A GUID that cannot be made (or stored) leaves the key as it was; the source then
        // keeps the number-based state path.
        reg.OpenKey(m_root, m_szConfigPath, vt::kKeyAllAccess);
        if (const auto text = vt::createGuidText(); text && reg.IsOpen()) {
            CQuilletString guid(text->substr(0, 40));
            vt::debugPrintf(vt::DBG_MINIMUM,
                            "CInfoSource|setRegPathes: Created new Guid '%s' for InfoSource "
                            "number '%d'\r\n",
                            guid.getStringA(), static_cast<int>(m_nServiceNumber));
            const int32_t newVersion = m_nInfoSourceVersion <= 0 ? 1 : m_nInfoSourceVersion;
            if (reg.SetDWORDValue(u"nInfoSourceVersion", static_cast<uint32_t>(newVersion)) &&
                reg.SetStringValue(u"szMyGuid", guid)) {
                m_nInfoSourceVersion = newVersion;
                m_szGuid = std::move(guid);
            } else {
                vt::debugPrintf(vt::DBG_ERROR,
                                "CInfoSource|setRegPathes: could not store the Guid of "
                                "InfoSource number '%d' (error %u)\r\n",
                                static_cast<int>(m_nServiceNumber), reg.GetLastError());
            }
        }
    }
    reg.CloseKey();

    if (m_nInfoSourceVersion > 1 && m_szGuid.getLength() != 0) {
        std::u16string path(m_szDataKeyPath.getString());
        path += u"\\Services\\";
        path += m_szGuid.getString();
        m_szStatePath = CQuilletString(std::move(path));
    } else {
        m_szStatePath = numberedKey(m_szDataKeyPath, u"\\Services\\", m_nServiceNumber);
    }
}

void CInfoSource::setCommonInfoUnitSettings(CInfoUnit& unit) const {
    vt::debugWrite(vt::DBG_ULTRA, "CInfoSource|setCommonInfoUnitSettings: Enter \r\n");
    // The setting keeps the facility as the configuration stores it (multiplied by 8); the
    // unit carries the plain facility number.
    unit.setSyslogFacility(static_cast<int32_t>(m_nDefaultFacility >> 3));
    unit.setSyslogPriority(static_cast<int32_t>(m_nDefaultPriority));
    unit.setPropertyString(vt::StdProperty::Resource, m_szResource);
    unit.setPropertyString(vt::StdProperty::SyslogTag, m_szSyslogTag);
    // A fresh unit already carries the defaults; most configurations keep them, and every
    // unit would otherwise pay two number-to-text conversions.
    if (m_pSettings && static_cast<int32_t>(m_pSettings->customerId) != vt::kDefaultCustomerId)
        unit.setPropertyInt(vt::StdProperty::CustomerId,
                            static_cast<int32_t>(m_pSettings->customerId));
    if (m_pSettings && static_cast<int32_t>(m_pSettings->systemId) != vt::kDefaultSystemId)
        unit.setPropertyInt(vt::StdProperty::SystemId, static_cast<int32_t>(m_pSettings->systemId));
    vt::debugPrintf(vt::DBG_INFO, "CInfoSource| Syslog Tag: %s \r\n", m_szSyslogTag.getStringA());
}

CRuleList* CInfoSource::ruleList() const noexcept {
    return m_pRuleSet ? &m_pRuleSet->getRuleList() : nullptr;
}

bool CInfoSource::Enqueue(std::unique_ptr<CInfoUnit> unit) {
    if (!unit) return false;
    if (!m_pQueue) {
        vt::debugPrintf(vt::DBG_ERROR,
                        "CInfoSource|Enqueue: service '%s' has no queue - unit dropped\r\n",
                        m_szServiceName.getStringA());
        return false;
    }
    const bool taken = m_pQueue->Enqueue(unit.release(), ruleList());
    (taken ? m_counters->units : m_counters->dropped).fetch_add(1, std::memory_order_relaxed);
    return taken;
}

bool CInfoSource::EnqueueAndWait(CWaitableInfoUnit& unit) {
    if (!m_pQueue) {
        vt::debugPrintf(vt::DBG_ERROR,
                        "CInfoSource|EnqueueAndWait: service '%s' has no queue - unit "
                        "dropped\r\n",
                        m_szServiceName.getStringA());
        return false;
    }
    const bool taken = m_pQueue->EnqueueAndWait(&unit, ruleList());
    (taken ? m_counters->units : m_counters->dropped).fetch_add(1, std::memory_order_relaxed);
    return taken;
}

void CInfoSource::setRun(bool run) noexcept {
    m_bRun.store(run, std::memory_order_release);
    if (!run) notifyWaiters();
}

void CInfoSource::wake() {
    notifyWaiters();
}

void CInfoSource::notifyWaiters() {
    {
        std::lock_guard lock(m_wakeLock);
        m_wakeSignalled = true;
    }
    m_wakeCondition.notify_all();
}

bool CInfoSource::waitWhileRunning(std::chrono::milliseconds timeout) {
    std::unique_lock lock(m_wakeLock);
    m_wakeCondition.wait_for(lock, timeout, [&] { return m_wakeSignalled || !keepRunning(); });
    m_wakeSignalled = false;
    return keepRunning();
}

bool CInfoSource::beginLoadConfig(CRegAccess& reg, const CQuilletString& tagDefault) {
    const int32_t version = OpenConfig(reg, vt::kKeyRead);
    if (version == m_nLoadedConfigVersion) {
        reg.ReadDWORDValue(u"bServiceEnabled", m_bServiceEnabled, 1);
        return false;
    }
    m_nLoadedConfigVersion = version;
    readCommonValues(reg, tagDefault);
    return true;
}
