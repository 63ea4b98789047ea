#include "platform/terminal_message.h"

#include <fcntl.h>
#include <unistd.h>
#include <utmpx.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <vector>

namespace vt {

namespace {

// The terminals of `target`'s sessions. The login-record calls keep state of their own, so one
// thread at a time.
std::vector<std::string> terminalsOf(const std::string& target, const std::string& sessionsFile) {
    static std::mutex lock;
    std::lock_guard guard(lock);
    std::vector<std::string> lines;
    if (!sessionsFile.empty()) utmpxname(sessionsFile.c_str());
    setutxent();
    while (const utmpx* u = getutxent()) {
        if (u->ut_type != USER_PROCESS) continue;
        const std::string user(u->ut_user, strnlen(u->ut_user, sizeof u->ut_user));
        const std::string line(u->ut_line, strnlen(u->ut_line, sizeof u->ut_line));
        // A record naming a path outside /dev is not a terminal we write to.
        if ((target == "*" || user == target) && !line.empty() &&
            line.find("..") == std::string::npos)
            lines.push_back("/dev/" + line);
    }
    endutxent();
    if (!sessionsFile.empty()) utmpxname(_PATH_UTMPX);
    return lines;
}

}  // namespace

bool sendTerminalMessage(const std::string& target, const std::string& text, uint32_t& error,
                         const std::string& sessionsFile) {
    const std::string message = "\r\nMessage from vtagent:\r\n" + terminalSafeText(text) + "\r\n";
    int reached = 0;
    error = ENOENT;
    for (const std::string& terminal : terminalsOf(target, sessionsFile)) {
        // Never block on a terminal nobody reads, and never make it our controlling one.
        const int fd = ::open(terminal.c_str(), O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0) {
            error = static_cast<uint32_t>(errno);
            continue;
        }
        if (::write(fd, message.data(), message.size()) == static_cast<ssize_t>(message.size()))
            ++reached;
        else
            error = static_cast<uint32_t>(errno);
        ::close(fd);
    }
    return reached > 0;
}

}  // namespace vt
