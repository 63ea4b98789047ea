#pragma once
#include <cstdint>
#include <functional>
#include <string>

#include "sources/probes/network_probe.h"

class CRegAccess;

// Any TCP port: success when it accepts; with "nSendExpect" 1 the probe sends "szSendText"
// (backslash-r and backslash-n stand for CR and LF) and expects "szExpectText" in the first
// answer, a mismatch being a failure with status 1.
class CInfoSourcePortProbe : public CInfoSourceNetworkProbe {
  public:
    using CInfoSourceNetworkProbe::CInfoSourceNetworkProbe;

    uint32_t m_nSendExpect = 0;
    CQuilletString m_szSendText;
    CQuilletString m_szExpectText;

  protected:
    void loadOwn(CRegAccess& reg) override;
    ProbeResult check() override;
    const char* name() const override { return "Port"; }
    std::unique_ptr<CInfoUnit> newUnit() const override;
    const char16_t* statusProperty() const override { return u"portstatus"; }
    const char16_t* responseProperty() const override { return u"portrespmsg"; }
};

// ICMP echo: up to "nNbrOfRetries" requests "nRetryInterval" apart, each waiting
// "nTimeOutLimit"; the first reply is success with its round trip time. The status is the echo
// status ("echostatus": 0, 11010 timed out, 11018 bad destination) or a socket error when no
// ICMP socket may be opened.
class CInfoSourcePingProbe : public CInfoSourceNetworkProbe {
  public:
    using Echo = std::function<uint32_t(const std::string&, uint32_t, uint32_t&, std::string&)>;
    using CInfoSourceNetworkProbe::CInfoSourceNetworkProbe;

    uint32_t m_nRetryInterval = 5000;
    uint32_t m_nNbrOfRetries = 3;
    Echo m_echo;  // the system's echo when empty; tests put in their own

  protected:
    void loadOwn(CRegAccess& reg) override;
    ProbeResult check() override;
    const char* name() const override { return "Ping"; }
    std::unique_ptr<CInfoUnit> newUnit() const override;
    const char16_t* statusProperty() const override { return u"echostatus"; }
    const char16_t* responseProperty() const override { return u"pingrespmsg"; }
    void fill(CInfoUnit& unit, const ProbeResult& result) const override;

  private:
    uint32_t m_roundTrip = 0;
};
