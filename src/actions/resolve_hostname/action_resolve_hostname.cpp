#include "actions/resolve_hostname/action_resolve_hostname.h"

#include <vector>

#include "base/debug_log.h"
#include "base/net/dns_cache_list.h"
#include "base/net/ip_client.h"
#include "model/info_unit.h"
#include "model/property_replacer.h"
#include "platform/utf_codec.h"

namespace {

bool isNumericAddress(const std::string& text) {
    in6_addr any{};
    std::string bare = text;
    if (bare.size() > 2 && bare.front() == '[' && bare.back() == ']')
        bare = bare.substr(1, bare.size() - 2);
    return inet_pton(AF_INET, bare.c_str(), &any) == 1 ||
           inet_pton(AF_INET6, bare.c_str(), &any) == 1;
}

}  // namespace

void CActionConfigResolveHostname::LoadConfig() {
    if (!loadEnabled()) return;
    m_regAccess.ReadStringValue(u"szDestinationPropertyName", m_szDestinationPropertyName,
                                u"resolvedname");
    m_regAccess.ReadStringValue(u"szSourcePropertyName", m_szSourcePropertyName, u"source");
    m_regAccess.ReadDWORDValue(u"nCacheNameEntry", m_nCacheNameEntry, 1);
    m_regAccess.ReadDWORDValue(u"nResolveIfName", m_nResolveIfName, 1);
    m_regAccess.CloseKey();
}

std::string CActionResolveHostname::nameOf(const CIPAddress& address) const {
    CDNSCacheList* cache = vt::sharedDnsCache();
    if (m_config.m_nCacheNameEntry == 1 && cache) return cache->hostName(address);
    std::string name;
    return CDNSCacheList::reverseLookup(address, name) ? name : address.toText();
}

std::string CActionResolveHostname::resolve(const std::string& text) const {
    if (text.empty()) return text;
    const bool numeric = isNumericAddress(text);
    if (!numeric && m_config.m_nResolveIfName != 1) return text;
    std::vector<CIPAddress> addresses;
    int error = 0;
    // A name is resolved forward first, so its canonical name comes back.
    if (!CIPClient::resolve(text, 0, SOCK_STREAM, addresses, error)) return text;
    return nameOf(addresses.front());
}

void CActionResolveHostname::doAction(CInfoUnit& unit, const CConfigSettings&, CActionListEntry&) {
    const std::u16string& source = m_config.m_szSourcePropertyName.getString();
    const std::u16string templ =
        source.find(u'%') == std::u16string::npos ? u"%" + source + u"%" : source;
    const std::string text = vt::utf16ToUtf8(vt::replaceProperties(templ, &unit));
    const std::string name = resolve(text);
    vt::debugPrintf(vt::DBG_INFO, "CActionResolveHostname|doAction: '%s' is '%s'\r\n", text.c_str(),
                    name.c_str());
    unit.setPropertyStringA(m_config.m_szDestinationPropertyName.view(), name);
}
