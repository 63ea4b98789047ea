#include "actions/http_request/action_http_request.h"

#include <cstdio>

#include "base/debug_log.h"
#include "base/net/stream_client.h"
#include "model/info_unit.h"
#include "model/property_replacer.h"
#include "platform/utf_codec.h"

namespace {

// Everything but the unreserved characters of a URL, in the UTF-8 of the text.
std::u16string percentEncoded(std::u16string_view text) {
    static const char kHex[] = "0123456789ABCDEF";
    std::u16string out;
    for (const unsigned char c : vt::utf16ToUtf8(text)) {
        const bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                           (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.' || c == '~';
        if (plain) {
            out.push_back(c);
        } else {
            out.push_back(u'%');
            out.push_back(static_cast<char16_t>(kHex[c >> 4]));
            out.push_back(static_cast<char16_t>(kHex[c & 15]));
        }
    }
    return out;
}

std::string renderUrl(const CQuilletString& templ, const CInfoUnit& unit) {
    std::u16string out;
    vt::replaceProperties(templ.view(), &unit, out, [](std::u16string& text, size_t start) {
        const std::u16string encoded = percentEncoded(std::u16string_view(text).substr(start));
        text.resize(start);
        text += encoded;
    });
    std::string url = vt::utf16ToUtf8(out);
    if (url.empty() || url.front() != '/') url = "/" + url;
    return url;
}

// A header value: the rendered text with its control characters (CR and LF above all) made
// blanks.
std::string renderHeader(const CQuilletString& templ, const CInfoUnit& unit) {
    std::string value = vt::utf16ToUtf8(vt::replaceProperties(templ.view(), &unit));
    for (char& c : value)
        if (static_cast<unsigned char>(c) < 32 || c == 127) c = ' ';
    return value;
}

}  // namespace

void CActionConfigHttpRequest::LoadConfig() {
    if (!loadEnabled()) return;
    m_regAccess.ReadStringValue(u"szHost", m_szHost, u"");
    m_regAccess.ReadStringValue(u"szUrl", m_szUrl, u"/");
    m_regAccess.ReadStringValue(u"szReferer", m_szReferer, u"");
    m_regAccess.ReadStringValue(u"szUserAgent", m_szUserAgent, u"vtagent");
    m_regAccess.ReadDWORDValue(u"nPort", m_nPort, 80);
    m_regAccess.CloseKey();
}

std::string CActionHttpRequest::request(const CInfoUnit& unit) const {
    std::string host = m_config.m_szHost.getStringA();
    if (host.find(':') != std::string::npos && host.front() != '[') host = "[" + host + "]";
    if (m_config.m_nPort != 80) host.append(":").append(std::to_string(m_config.m_nPort));
    std::string text =
        "GET " + renderUrl(m_config.m_szUrl, unit) + " HTTP/1.1\r\nHost: " + host + "\r\n";
    const std::string referer = renderHeader(m_config.m_szReferer, unit);
    if (!referer.empty()) text += "Referer: " + referer + "\r\n";
    const std::string agent = renderHeader(m_config.m_szUserAgent, unit);
    if (!agent.empty()) text += "User-Agent: " + agent + "\r\n";
    return text + "Connection: close\r\n\r\n";
}

void CActionHttpRequest::doAction(CInfoUnit& unit, const CConfigSettings&, CActionListEntry&) {
    const std::string host = m_config.m_szHost.getStringA();
    const std::string bytes = request(unit);
    CStreamClient client;
    std::string status;
    if (!client.open(host, static_cast<uint16_t>(m_config.m_nPort), kTimeoutMs) ||
        !client.send(bytes) || !client.readLine(status, 1024)) {
        vt::debugPrintf(
            vt::DBG_ERROR, "CActionHttpRequest| request to %s port %u failed: %s (error %u)\r\n",
            host.c_str(), m_config.m_nPort, client.lastErrorText().c_str(), client.lastError());
        unit.setActionFailed(1);
        return;
    }
    int code = 0;
    if (std::sscanf(status.c_str(), "HTTP/%*d.%*d %d", &code) != 1) {
        vt::debugPrintf(vt::DBG_ERROR,
                        "CActionHttpRequest| %s answered no HTTP status: '%.80s'\r\n", host.c_str(),
                        status.c_str());
        unit.setActionFailed(1);
        return;
    }
    vt::debugPrintf(code >= 400 ? vt::DBG_ERROR : vt::DBG_INFO,
                    "CActionHttpRequest| GET %s from %s: %s\r\n",
                    bytes.substr(4, bytes.find(' ', 4) - 4).c_str(), host.c_str(), status.c_str());
}
