#pragma once
#include <cstdint>
#include <memory>
#include <string>

#include "base/quillet_string.h"
#include "sources/info_source.h"

class CInfoUnit;

// What one check found.
struct ProbeResult {
    uint32_t status = 0;   // 0 success; a socket error, or the refusal's reply code (below)
    std::string response;  // what the server answered (its first line)
    std::string failText;  // the message of a failure
};

// The base of the probes: the shared settings, the check loop and the unit hand-over. Each
// probe says how it checks and how its unit and texts are named.
class CInfoSourceNetworkProbe : public CInfoSource {
  public:
    explicit CInfoSourceNetworkProbe(const vt::InfoSourceContext& context) : CInfoSource(context) {}

    bool LoadConfig() override;
    void Run() override;
    // One check, its unit handed over when it failed or when successes are asked for; returns
    // the result.
    ProbeResult checkOnce();

    uint32_t m_nSleepTime = 60000;
    uint32_t m_nTimeOutLimit = 1000;
    uint32_t m_nGenerateOnSuccess = 0;
    CQuilletString m_szServer{u"127.0.0.1"};
    uint32_t m_nPort = 0;

  protected:
    // The probe's own settings, from the open configuration key.
    virtual void loadOwn(class CRegAccess& reg) = 0;
    virtual ProbeResult check() = 0;
    // "NNTP", "IMAP" ... as the texts name the probe.
    virtual const char* name() const = 0;
    virtual std::unique_ptr<CInfoUnit> newUnit() const = 0;
    virtual const char16_t* statusProperty() const = 0;
    virtual const char16_t* responseProperty() const = 0;
    // The message text of the unit.
    virtual std::string messageText(const ProbeResult& result) const;
    // Extra properties of the unit (the HTTP probe's "usessl", the ping's round trip).
    virtual void fill(CInfoUnit&, const ProbeResult&) const {}
};
