#include "actions/send_mail/mail_rcpt_list.h"

#include "base/debug_log.h"

bool CMailRcptList::isPlainAddress(const std::string& address) {
    const size_t at = address.find('@');
    if (at == std::string::npos || at == 0 || at + 1 == address.size() ||
        address.find('@', at + 1) != std::string::npos)
        return false;
    for (const char c : address) {
        const auto u = static_cast<unsigned char>(c);
        if (u < 33 || u == 127 || c == '<' || c == '>' || c == '"' || c == ',' || c == ';')
            return false;
    }
    return true;
}

void CMailRcptList::setRecipients(const std::string& addresses) {
    m_recipients.clear();
    std::string current;
    auto flush = [&] {
        if (current.empty()) return;
        if (isPlainAddress(current))
            m_recipients.push_back(current);
        else
            vt::debugPrintf(vt::DBG_ERROR, "Address in question: '%s', given addresses: '%s'\r\n",
                            current.c_str(), addresses.c_str());
        current.clear();
    };
    for (const char c : addresses) {
        if (c == ',' || c == ';' || c == ' ' || c == '\t' || c == '\r' || c == '\n')
            flush();
        else
            current.push_back(c);
    }
    flush();
}
