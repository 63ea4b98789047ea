#pragma once
// The network pop-up message of the net-send action. Windows: the messenger call to a user or
// machine name. Linux: the text written to every terminal where the user is logged in, as the
// write tool does ("*" reaches every logged-in user).
#include <cstdint>
#include <string>

namespace vt {

// False with `error` (NERR/Win32 code, or errno; ENOENT when the user has no terminal). On
// Linux `sessionsFile` replaces the system's login records (tests).
bool sendTerminalMessage(const std::string& target, const std::string& text, uint32_t& error,
                         const std::string& sessionsFile = "");

// The text as it may reach a terminal: control characters (escape sequences above all, which
// could rewrite what the user's terminal shows or does) become "?", line ends CR LF.
std::string terminalSafeText(const std::string& text);

}  // namespace vt
