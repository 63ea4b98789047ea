#include "platform/terminal_message.h"

#include <windows.h>
// The network management header needs the Windows types first.
#include <lm.h>

#include "platform/utf_codec.h"

namespace vt {

bool sendTerminalMessage(const std::string& target, const std::string& text, uint32_t& error,
                         const std::string&) {
    std::u16string to = utf8ToUtf16(target);
    std::u16string body = utf8ToUtf16(terminalSafeText(text));
    const NET_API_STATUS status = NetMessageBufferSend(
        nullptr, reinterpret_cast<LPCWSTR>(to.c_str()), nullptr,
        reinterpret_cast<LPBYTE>(body.data()), static_cast<DWORD>(body.size() * sizeof(char16_t)));
    error = status;
    return status == NERR_Success;
}

}  // namespace vt
