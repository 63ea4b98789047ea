#include "platform/event_log.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace vt {
namespace {
const char* socketPath() {
    const char* path = std::getenv("VTAGENT_EVENTLOG_SOCKET");
    return path && *path ? path : "/dev/log";
}
}  // namespace

EventSource::EventSource(const char* sourceName) : m_name(sourceName) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const char* path = socketPath();
    if (std::strlen(path) >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return;
    }
    std::strcpy(address.sun_path, path);
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return;
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        ::close(fd);
        errno = error;
        return;
    }
    m_handle = fd;
}

EventSource::~EventSource() {
    if (isOpen()) ::close(static_cast<int>(m_handle));
}

bool EventSource::report(EventType type, uint32_t eventId, std::string_view text,
                         std::string_view secondText, bool hasSecond) {
    if (!isOpen()) return false;
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    const std::string datagram =
        syslogEventDatagram(m_name, type, eventId, text, secondText, hasSecond, local,
                            static_cast<uint32_t>(::getpid()));
    const ssize_t sent =
        ::send(static_cast<int>(m_handle), datagram.data(), datagram.size(), MSG_NOSIGNAL);
    return sent == static_cast<ssize_t>(datagram.size());
}
bool eventMessageText(const std::string&, uint32_t, const std::vector<std::string>&, std::string&) {
    return false;
}

}  // namespace vt
