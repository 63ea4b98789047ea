#include "sources/alive_monitor/alive_request.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>
#include <vector>

#include "base/debug_log.h"
#include "base/error_report.h"
#include "base/net/ip_client.h"
#include "base/reg_access.h"
#include "model/info_unit_types.h"
#include "sources/alive_monitor/alive_protocol.h"

using namespace vt::net;

CInfoSourceAliveMonRequest::CInfoSourceAliveMonRequest(const vt::InfoSourceContext& context)
    : CInfoSource(context),
      // A random start keeps an echo meant for an earlier run of the agent from counting.
      m_sequence(std::random_device{}()) {}
CInfoSourceAliveMonRequest::~CInfoSourceAliveMonRequest() = default;

bool CInfoSourceAliveMonRequest::LoadConfig() {
    vt::debugWrite(vt::DBG_INFO, "CInfoSourceAliveMonRequest|LoadConfig: Loading settings\r\n");
    CRegAccess reg;
    if (!beginLoadConfig(reg)) return isEnabled();
    reg.ReadStringValue(u"szTargetHost", m_szTargetHost, CQuilletString());
    reg.ReadDWORDValue(u"nTargetPort", m_nTargetPort, vt::alive::kDefaultPort);
    reg.ReadDWORDValue(u"nSleepTime", m_nSleepTime, 60000);
    reg.ReadDWORDValue(u"nTimeOutLimit", m_nTimeOutLimit, 5000);
    reg.ReadDWORDValue(u"nNbrOfRetries", m_nNbrOfRetries, 2);
    reg.ReadDWORDValue(u"nRepeatInterval", m_nRepeatInterval, 3600);
    reg.ReadDWORDValue(u"nReportRecovery", m_nReportRecovery, 1);
    reg.CloseKey();
    if (m_nTimeOutLimit == 0) m_nTimeOutLimit = 5000;
    if (m_nNbrOfRetries > 100) m_nNbrOfRetries = 100;
    if (m_szTargetHost.getLength() == 0)
        vt::debugWrite(vt::DBG_ERROR, "CInfoSourceAliveMonRequest|LoadConfig: no szTargetHost\r\n");
    m_watch = std::make_unique<CThresholdWatch>(m_nRepeatInterval, m_nReportRecovery == 1);
    return isEnabled();
}

void CInfoSourceAliveMonRequest::Run() {
    while (keepRunning()) {
        const Outcome outcome = ask();
        if (!keepRunning()) break;  // a round cut short by the stop is no outage
        if (!m_watch)
            m_watch = std::make_unique<CThresholdWatch>(m_nRepeatInterval, m_nReportRecovery == 1);
        const auto event = m_watch->observe(outcome.status != 0, getClock().steadyNow());
        if (auto unit = makeUnit(outcome, event)) Enqueue(std::move(unit));
        if (!waitWhileRunning(std::chrono::milliseconds(m_nSleepTime))) break;
    }
}

CInfoSourceAliveMonRequest::Outcome CInfoSourceAliveMonRequest::ask() {
    Outcome outcome;
    std::vector<CIPAddress> targets;
    int resolveError = 0;
    if (!CIPClient::resolve(m_szTargetHost.getStringA(), static_cast<uint16_t>(m_nTargetPort),
                            SOCK_DGRAM, targets, resolveError)) {
        outcome.status = SOCKERR_HOST_NOT_FOUND;
        return outcome;
    }
    CWinSock socket;
    try {
        socket = CWinSock::create(targets.front().family(), SOCK_DGRAM);
    } catch (CErrorReport* raw) {
        std::unique_ptr<CErrorReport> report(raw);
        outcome.status = static_cast<CWinSockError*>(raw)->getSystemError();
        return outcome;
    }
    outcome.status = SOCKERR_TIMEDOUT;
    for (uint32_t attempt = 0; attempt <= m_nNbrOfRetries && keepRunning(); ++attempt) {
        const uint32_t sequence = ++m_sequence;
        const std::string request = vt::alive::request(sequence);
        const auto sent = std::chrono::steady_clock::now();
        if (socket.sendTo(request.data(), static_cast<int>(request.size()), targets.front()) < 0) {
            outcome.status = socket.lastError();
            continue;
        }
        const auto deadline = sent + std::chrono::milliseconds(m_nTimeOutLimit);
        for (;;) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0 || !keepRunning()) break;
            // Short slices, so that a stop does not wait for the whole time-out.
            const int slice = static_cast<int>(std::min<int64_t>(left.count(), 200));
            if (waitSocketReady(socket.handle(), false, slice) != 1) continue;
            char buffer[512];
            CIPAddress from;
            const int n = socket.receiveFrom(buffer, sizeof buffer - 1, from);
            uint32_t answered = 0;
            // An ICMP "port unreachable" from an earlier request shows up here as an error.
            if (n < 0) continue;
            if (!vt::alive::parseEcho(std::string_view(buffer, size_t(n)), answered,
                                      outcome.responder) ||
                answered != sequence)
                continue;  // a late echo of an earlier request, or noise
            outcome.status = 0;
            outcome.roundTripMs =
                static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                          std::chrono::steady_clock::now() - sent)
                                          .count());
            return outcome;
        }
    }
    return outcome;
}

std::unique_ptr<CInfoUnit> CInfoSourceAliveMonRequest::makeUnit(
    const Outcome& outcome, CThresholdWatch::Event event) const {
    if (event == CThresholdWatch::Event::None) return nullptr;
    auto unit = std::make_unique<CInfoUnitAliveMon>();
    setCommonInfoUnitSettings(*unit);
    const std::string target = m_szTargetHost.getStringA();
    unit->setPropertyStringA(u"source", target);
    unit->setPropertyInt(u"alivestatus", static_cast<int32_t>(outcome.status));
    unit->setPropertyInt(u"roundtriptime", static_cast<int32_t>(outcome.roundTripMs));
    char text[512];
    if (event == CThresholdWatch::Event::Recovered)
        std::snprintf(text, sizeof text, "Alive monitor: %s port %u answers again (%u ms)",
                      target.c_str(), m_nTargetPort, outcome.roundTripMs);
    else
        std::snprintf(text, sizeof text,
                      "Alive monitor: no echo from %s port %u after %u request(s) - error %u",
                      target.c_str(), m_nTargetPort, m_nNbrOfRetries + 1, outcome.status);
    unit->setMsgA(text);
    return unit;
}
