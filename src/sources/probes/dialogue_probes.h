#pragma once
#include <cstdint>
#include <string>

#include "sources/probes/network_probe.h"

class CRegAccess;

// The probes that connect and read the server's greeting: NNTP, IMAP, POP3, FTP and SMTP. A
// greeting that means "service not available" (400/502 for news, 421 for file transfer and mail,
// "-ERR" for POP3, "* BYE" for IMAP) is a failure; its reply code is the status (1 for the two
// without a code).
class CInfoSourceGreetingProbe : public CInfoSourceNetworkProbe {
  public:
    using CInfoSourceNetworkProbe::CInfoSourceNetworkProbe;
    // Whether a greeting refuses service, and the status to report for it.
    virtual bool refuses(const std::string& greeting, uint32_t& status) const = 0;

  protected:
    void loadOwn(CRegAccess& reg) override;
    ProbeResult check() override;
    virtual const char16_t* serverValue() const = 0;
    virtual const char16_t* portValue() const = 0;
    virtual uint32_t defaultPort() const = 0;
    virtual const char* quitCommand() const { return "QUIT\r\n"; }
};

#define VT_GREETING_PROBE(Class, Name, Unit, Server, Port, DefaultPort, Status, Response) \
    class Class : public CInfoSourceGreetingProbe {                                       \
      public:                                                                             \
        using CInfoSourceGreetingProbe::CInfoSourceGreetingProbe;                         \
        bool refuses(const std::string& greeting, uint32_t& status) const override;       \
                                                                                          \
      protected:                                                                          \
        const char* name() const override { return Name; }                                \
        std::unique_ptr<CInfoUnit> newUnit() const override;                              \
        const char16_t* statusProperty() const override { return Status; }                \
        const char16_t* responseProperty() const override { return Response; }            \
        const char16_t* serverValue() const override { return Server; }                   \
        const char16_t* portValue() const override { return Port; }                       \
        uint32_t defaultPort() const override { return DefaultPort; }                     \
    };

VT_GREETING_PROBE(CInfoSourceNNTPProbe, "NNTP", CInfoUnitNNTPProbe, u"szNntpServer", u"nNNTPPort",
                  119, u"responsestatus", u"nntprespmsg")
VT_GREETING_PROBE(CInfoSourcePOP3Probe, "POP3", CInfoUnitPOP3Probe, u"szPOP3Server", u"nPOP3Port",
                  110, u"pop3status", u"pop3respmsg")
VT_GREETING_PROBE(CInfoSourceFTPProbe, "FTP", CInfoUnitFTPProbe, u"szFtpServer", u"nFTPPort", 21,
                  u"ftpstatus", u"ftprespmsg")
VT_GREETING_PROBE(CInfoSourceSMTPProbe, "SMTP", CInfoUnitSMTPProbe, u"szSmtpServer", u"nSMTPPort",
                  25, u"smtpstatus", u"smtprespmsg")
#undef VT_GREETING_PROBE

class CInfoSourceIMAPProbe : public CInfoSourceGreetingProbe {
  public:
    using CInfoSourceGreetingProbe::CInfoSourceGreetingProbe;
    bool refuses(const std::string& greeting, uint32_t& status) const override;

  protected:
    const char* name() const override { return "IMAP"; }
    std::unique_ptr<CInfoUnit> newUnit() const override;
    const char16_t* statusProperty() const override { return u"imapstatus"; }
    const char16_t* responseProperty() const override { return u"imaprespmsg"; }
    const char16_t* serverValue() const override { return u"szImapServer"; }
    const char16_t* portValue() const override { return u"nIMAPPort"; }
    uint32_t defaultPort() const override { return 143; }
    const char* quitCommand() const override { return "a1 LOGOUT\r\n"; }
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
