#pragma once
#include <string>
#include <vector>

// The recipients of the send-mail action. The setting may separate addresses with ",", ";" or
// blanks; an address is kept when it has one "@" with text on both sides and nothing a mail
// command could be tricked with (control characters, "<", ">", quotes).
class CMailRcptList {
  public:
    // Replaces the list; each refused address is logged with the whole setting.
    void setRecipients(const std::string& addresses);
    const std::vector<std::string>& recipients() const noexcept { return m_recipients; }
    bool empty() const noexcept { return m_recipients.empty(); }

    static bool isPlainAddress(const std::string& address);

  private:
    std::vector<std::string> m_recipients;
};
