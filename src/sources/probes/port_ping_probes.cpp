#include "sources/probes/port_ping_probes.h"

#include <chrono>

#include "base/debug_log.h"
#include "base/net/stream_client.h"
#include "base/reg_access.h"
#include "model/info_unit_types.h"
#include "platform/icmp_echo.h"

namespace {

std::string unescaped(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size() && (text[i + 1] == 'r' || text[i + 1] == 'n')) {
            out.push_back(text[++i] == 'r' ? '\r' : '\n');
        } else {
            out.push_back(text[i]);
        }
    }
    return out;
}

}  // namespace

void CInfoSourcePortProbe::loadOwn(CRegAccess& reg) {
    reg.ReadStringValue(u"szPortServer", m_szServer, CQuilletString(u"127.0.0.1"));
    reg.ReadDWORDValue(u"nPortNumber", m_nPort, 0);
    reg.ReadDWORDValue(u"nSendExpect", m_nSendExpect, 0);
    reg.ReadStringValue(u"szSendText", m_szSendText, CQuilletString());
    reg.ReadStringValue(u"szExpectText", m_szExpectText, CQuilletString());
}

std::unique_ptr<CInfoUnit> CInfoSourcePortProbe::newUnit() const {
    return std::make_unique<CInfoUnitPortProbe>();
}

ProbeResult CInfoSourcePortProbe::check() {
    CStreamClient client;
    ProbeResult r;
    if (!client.open(m_szServer.getStringA(), static_cast<uint16_t>(m_nPort), m_nTimeOutLimit)) {
        r.status = client.lastError();
        r.failText = "Connect failed";
        return r;
    }
    if (m_nSendExpect != 1) return r;
    std::string answer;
    if (!client.send(unescaped(m_szSendText.getStringA())) || !client.readSome(answer, 65536)) {
        r.status = client.lastError() ? client.lastError() : 10054;
        r.failText = "Receive call failed";
        return r;
    }
    r.response = answer.substr(0, answer.find_first_of("\r\n"));
    if (answer.find(unescaped(m_szExpectText.getStringA())) == std::string::npos) {
        r.status = 1;
        r.failText = "unexpected answer: " + r.response;
    }
    return r;
}

void CInfoSourcePingProbe::loadOwn(CRegAccess& reg) {
    reg.ReadStringValue(u"szIPAddress", m_szServer, CQuilletString(u"127.0.0.1"));
    reg.ReadDWORDValue(u"nRetryInterval", m_nRetryInterval, 5000);
    reg.ReadDWORDValue(u"nNbrOfRetries", m_nNbrOfRetries, 3);
    if (m_nNbrOfRetries == 0) m_nNbrOfRetries = 1;
}

std::unique_ptr<CInfoUnit> CInfoSourcePingProbe::newUnit() const {
    return std::make_unique<CInfoUnitPingProbe>();
}

ProbeResult CInfoSourcePingProbe::check() {
    ProbeResult r;
    const std::string host = m_szServer.getStringA();
    m_roundTrip = 0;
    for (uint32_t attempt = 0; attempt < m_nNbrOfRetries && keepRunning(); ++attempt) {
        if (attempt > 0 && !waitWhileRunning(std::chrono::milliseconds(m_nRetryInterval))) break;
        std::string error;
        r.status = m_echo ? m_echo(host, m_nTimeOutLimit, m_roundTrip, error)
                          : vt::icmpEcho(host, m_nTimeOutLimit, m_roundTrip, error);
        if (r.status == vt::kEchoSuccess) {
            r.response = "Reply in " + std::to_string(m_roundTrip) + " ms";
            return r;
        }
        r.failText =
            error.empty() ? "No reply after " + std::to_string(attempt + 1) + " request(s)" : error;
        // No ICMP socket at all is not something a retry changes.
        if (r.status != vt::kEchoTimedOut && r.status != vt::kEchoBadDestination) break;
    }
    return r;
}

void CInfoSourcePingProbe::fill(CInfoUnit& unit, const ProbeResult&) const {
    unit.setPropertyInt(u"roundtriptime", static_cast<int32_t>(m_roundTrip));
}
