#include "sources/snmp_trap/info_source_snmp_trap.h"

#include "base/config_settings.h"
#include "base/debug_log.h"
#include "base/error_reporter.h"
#include "base/reg_access.h"
#include "model/info_unit_types.h"
#include "sources/snmp_trap/snmp_trap_message.h"

namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(250);
constexpr auto kReopenInterval = std::chrono::seconds(30);
constexpr char16_t kUsersKey[] = u"SNMPv3Users";

std::string readString(CRegAccess& reg, const char16_t* name) {
    CQuilletString value;
    reg.ReadStringValue(name, value, CQuilletString());
    return std::string(value.narrowView());
}

}  // namespace

CInfoSourceSNMPTrap::CInfoSourceSNMPTrap(const vt::InfoSourceContext& context)
    : CInfoSource(context) {}

bool CInfoSourceSNMPTrap::LoadConfig() {
    vt::debugWrite(vt::DBG_INFO, "CInfoSourceSNMPTrap|LoadConfig: Loading settings\r\n");
    CRegAccess reg;
    if (!beginLoadConfig(reg)) return isEnabled();
    reg.ReadDWORDValue(u"nListenPort", m_nListenPort, 162);
    reg.ReadDWORDValue(u"nResolveLongMibNames", m_nResolveLongMibNames, 0);
    uint32_t snmpVersion = 0xFFFFFFFFu;
    reg.ReadDWORDValue(u"nSnmpVersion", snmpVersion, 0xFFFFFFFFu);
    m_nSnmpVersion = static_cast<int32_t>(snmpVersion);
    reg.ReadStringValue(u"szMyIPAddress", m_szMyIPAddress, CQuilletString(u"0.0.0.0"));
    if (m_nListenPort == 0 || m_nListenPort > 65535) {
        vt::debugPrintf(vt::DBG_ERROR,
                        "CInfoSourceSNMPTrap|LoadConfig: nListenPort %u is not a port - using "
                        "162\r\n",
                        m_nListenPort);
        m_nListenPort = 162;
    }
    readUsers(reg);
    reg.CloseKey();
    return isEnabled();
}

// Version 3 users live in "SNMPv3Users\<user name>", one subkey each.
void CInfoSourceSNMPTrap::readUsers(CRegAccess& reg) {
    m_users.clear();
    CRegAccess users;
    const std::u16string usersPath = std::u16string(reg.GetKeyPath().view()) + u"\\" + kUsersKey;
    if (!users.OpenKey(m_root, CQuilletString(usersPath), vt::kKeyRead)) return;
    std::vector<std::u16string> names;
    users.EnumSubKeys(names);
    for (const std::u16string& name : names) {
        CRegAccess key;
        if (!key.OpenKey(m_root, CQuilletString(usersPath + u"\\" + name), vt::kKeyRead)) continue;
        vt::SnmpUsmUser user;
        user.name = std::string(CQuilletString(name).narrowView());
        user.engineId = readString(key, u"szEngineID");
        user.authProtocol = readString(key, u"szAuthProtocol");
        user.authPassphrase = readString(key, u"szAuthPassphrase");
        user.privProtocol = readString(key, u"szPrivProtocol");
        user.privPassphrase = readString(key, u"szPrivPassphrase");
        m_users.push_back(std::move(user));
    }
}

vt::SnmpListenerOptions CInfoSourceSNMPTrap::listenerOptions() const {
    vt::SnmpListenerOptions options;
    const std::string port = std::to_string(m_nListenPort);
    const std::string address(m_szMyIPAddress.narrowView());
    const bool anyAddress = address.empty() || address == "0.0.0.0" || address == "::";
    if (address.find(':') == std::string::npos)
        options.transports.push_back(anyAddress ? "udp:" + port : "udp:" + address + ":" + port);
    else
        options.transports.push_back("udp:" + port);
    // An IPv6 address (or "::") asks for the IPv6 wildcard as well.
    if (address.find(':') != std::string::npos) options.transports.push_back("udp6:" + port);
    options.longNames = m_nResolveLongMibNames == 1;
    options.acceptVersion = m_nSnmpVersion;
    if (m_pSettings) options.mibDirs = std::string(m_pSettings->mibsPath.narrowView());
    options.users = m_users;
    return options;
}

std::unique_ptr<CInfoUnitSNMPTrap> CInfoSourceSNMPTrap::buildUnit(const vt::SnmpTrap& trap) const {
    auto unit = std::make_unique<CInfoUnitSNMPTrap>();
    setCommonInfoUnitSettings(*unit);
    unit->setPropertyStringA(vt::StdProperty::Source, trap.source);
    unit->setPropertyStringA(u"snmp_community", trap.community);
    unit->setPropertyInt(u"snmp_version", static_cast<int32_t>(trap.version));
    if (trap.version == 3) unit->setPropertyStringA(u"snmp_securityname", trap.securityName);
    if (trap.kind == vt::SnmpPduKind::TrapV1) {
        unit->setPropertyStringA(u"snmp_enterprise", trap.enterprise);
        unit->setPropertyStringA(u"snmp_generic_name", vt::snmpGenericTrapName(trap.genericType));
        unit->setPropertyInt(u"snmp_specifictype", static_cast<int32_t>(trap.specificType));
    }
    unit->setPropertyStringA(u"snmp_uptime", std::to_string(trap.uptime));
    for (size_t i = 0; i < trap.bindings.size(); ++i) {
        const std::string name = vt::snmpVarPropertyName(i + 1);
        unit->setPropertyStringA(std::u16string(name.begin(), name.end()),
                                 vt::snmpVarPropertyText(trap.bindings[i]));
    }
    unit->setMsgA(vt::snmpTrapMessage(trap));
    return unit;
}

void CInfoSourceSNMPTrap::Run() {
    if (!vt::snmpAvailable()) {
        vt::reportError(114, "CInfoSourceSNMPTrap",
                        "The SNMP trap receiver is not available in this build - it does not "
                        "run.");
        return;
    }
    const vt::SnmpListenerOptions options = listenerOptions();
    vt::CSnmpTrapListener listener(
        options, [this](const vt::SnmpTrap& trap) { Enqueue(buildUnit(trap)); },
        [](vt::SnmpLogLevel level, const std::string& text) {
            vt::debugWrite(level == vt::SnmpLogLevel::Error    ? vt::DBG_ERROR
                           : level == vt::SnmpLogLevel::Notice ? vt::DBG_MINIMUM
                                                               : vt::DBG_INFO,
                           text);
        });
    while (keepRunning()) {
        if (listener.open()) {
            for (const std::string& transport : options.transports)
                vt::debugPrintf(vt::DBG_MINIMUM, "CInfoSourceSNMPTrap| listening on %s\r\n",
                                transport.c_str());
            listen(listener);
            break;
        }
        // The port may be held by another receiver that goes away; keep trying.
        waitWhileRunning(kReopenInterval);
    }
    vt::debugWrite(vt::DBG_INFO, "CInfoSourceSNMPTrap| Shuting down SNMP Stuff\r\n");
    listener.close();
}

void CInfoSourceSNMPTrap::listen(vt::CSnmpTrapListener& listener) {
    while (keepRunning()) {
        if (!listener.poll(kPollInterval)) waitWhileRunning(kPollInterval);
    }
}
