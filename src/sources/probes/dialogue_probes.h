#pragma once
#include <cstdint>
#include <memory>
#include <string>

#include "sources/probes/network_probe.h"

class CRegAccess;

// What tells one greeting protocol from another: its setting names, port, unit, property
// names, how it says goodbye, and which greetings mean "service not available".
struct GreetingProtocol {
    const char* name;             // "NNTP", in the log lines
    const char16_t* serverValue;  // "szNntpServer"
    const char16_t* portValue;    // "nNNTPPort"
    uint32_t defaultPort;
    const char16_t* statusProperty;  // "responsestatus"
    const char16_t* responseProperty;
    const char* quitCommand;
    int refusingCodes[2];        // reply codes that refuse service (0: none)
    const char* refusingPrefix;  // or a greeting start that does (status 1); null: none
    std::unique_ptr<CInfoUnit> (*newUnit)();
};

extern const GreetingProtocol kNntpGreeting;
extern const GreetingProtocol kPop3Greeting;
extern const GreetingProtocol kFtpGreeting;
extern const GreetingProtocol kSmtpGreeting;
extern const GreetingProtocol kImapGreeting;

// The probes that connect and read the server's greeting: NNTP, IMAP, POP3, FTP and SMTP. A
// greeting that means "service not available" (400/502 for news, 421 for file transfer, 421 and
// 554 for mail, "-ERR" for POP3, "* BYE" for IMAP) is a failure; its reply code is the status
// (1 for the two without a code).
class CInfoSourceGreetingProbe : public CInfoSourceNetworkProbe {
  public:
    CInfoSourceGreetingProbe(const vt::InfoSourceContext& context, const GreetingProtocol& protocol)
        : CInfoSourceNetworkProbe(context), m_protocol(protocol) {}
    // Whether a greeting refuses service, and the status to report for it.
    bool refuses(const std::string& greeting, uint32_t& status) const;

  protected:
    void loadOwn(CRegAccess& reg) override;
    ProbeResult check() override;
    const char* name() const override { return m_protocol.name; }
    std::unique_ptr<CInfoUnit> newUnit() const override;
    const char16_t* statusProperty() const override { return m_protocol.statusProperty; }
    const char16_t* responseProperty() const override { return m_protocol.responseProperty; }

  private:
    const GreetingProtocol& m_protocol;
};

class CInfoSourceNNTPProbe : public CInfoSourceGreetingProbe {
  public:
    explicit CInfoSourceNNTPProbe(const vt::InfoSourceContext& context)
        : CInfoSourceGreetingProbe(context, kNntpGreeting) {}
};
class CInfoSourcePOP3Probe : public CInfoSourceGreetingProbe {
  public:
    explicit CInfoSourcePOP3Probe(const vt::InfoSourceContext& context)
        : CInfoSourceGreetingProbe(context, kPop3Greeting) {}
};
class CInfoSourceFTPProbe : public CInfoSourceGreetingProbe {
  public:
    explicit CInfoSourceFTPProbe(const vt::InfoSourceContext& context)
        : CInfoSourceGreetingProbe(context, kFtpGreeting) {}
};
class CInfoSourceSMTPProbe : public CInfoSourceGreetingProbe {
  public:
    explicit CInfoSourceSMTPProbe(const vt::InfoSourceContext& context)
        : CInfoSourceGreetingProbe(context, kSmtpGreeting) {}
};
class CInfoSourceIMAPProbe : public CInfoSourceGreetingProbe {
  public:
    explicit CInfoSourceIMAPProbe(const vt::InfoSourceContext& context)
        : CInfoSourceGreetingProbe(context, kImapGreeting) {}
};

// The HTTP probe: a real HTTP/1.1 request; a 2xx or 3xx status line is success, 4xx and 5xx
// fail with the HTTP status as the probe's status.
class CInfoSourceHTTPProbe : public CInfoSourceNetworkProbe {
  public:
    using CInfoSourceNetworkProbe::CInfoSourceNetworkProbe;
    std::string request() const;

    uint32_t m_nUseSSL = 0;
    CQuilletString m_szRequestType{u"GET"};
    CQuilletString m_szUrl{u"/"};
    CQuilletString m_szReferer;
    CQuilletString m_szUserAgent{u"Mozilla/4.0"};
    uint32_t m_nSSLVerify = 1;  // 0: accept any certificate (self-signed servers)
    CQuilletString m_szCAFile;

  protected:
    void loadOwn(CRegAccess& reg) override;
    ProbeResult check() override;
    const char* name() const override { return "HTTP"; }
    std::unique_ptr<CInfoUnit> newUnit() const override;
    const char16_t* statusProperty() const override { return u"httpstatus"; }
    const char16_t* responseProperty() const override { return u"httprespmsg"; }
    void fill(CInfoUnit& unit, const ProbeResult& result) const override;
};
