#pragma once
#include <cstdint>
#include <string>

#include "engine/action_config.h"

class CInfoUnit;

// Settings of the HTTP request action. The host and port are taken as configured; the URL,
// referer and user agent are templates.
class CActionConfigHttpRequest : public CActionConfig {
  public:
    explicit CActionConfigHttpRequest(const CQuilletString& keyPath) : CActionConfig(keyPath) {}
    void LoadConfig() override;

    CQuilletString m_szHost;
    CQuilletString m_szUrl;
    CQuilletString m_szReferer;
    CQuilletString m_szUserAgent;
    uint32_t m_nPort = 80;
};

// Sends "GET <url> HTTP/1.1" to the configured server and logs the status it answers. Text
// from the unit is percent-encoded where it lands in the URL and loses its line ends in the
// headers, so a message can neither leave the configured path nor add a header or a request.
// A server that cannot be reached, or answers no HTTP status, fails the action (the retry rules
// apply); any status counts as done.
class CActionHttpRequest : public CAction {
  public:
    static constexpr uint32_t kTimeoutMs = 30000;

    explicit CActionHttpRequest(CActionConfigHttpRequest& config) : m_config(config) {}
    void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                  CActionListEntry& entry) override;

    // The request's bytes for the unit.
    std::string request(const CInfoUnit& unit) const;

  private:
    CActionConfigHttpRequest& m_config;
};
