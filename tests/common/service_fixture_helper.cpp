#include "common/service_fixture_helper.h"

#include <atomic>
#include <utility>

#ifndef _WIN32
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#endif

namespace vt::test {

DebugLogScope::DebugLogScope(const DebugLogSettings& settings) : m_previous(debugSettings()) {
    debugConfigure(settings);
}

DebugLogScope::~DebugLogScope() {
    debugConfigure(m_previous);
}

#ifndef _WIN32
SyslogSink::SyslogSink(const std::string& socketPath) : m_path(socketPath) {
    if (const char* previous = std::getenv("VTAGENT_EVENTLOG_SOCKET")) m_previousSocket = previous;
    m_fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath.c_str(), sizeof address.sun_path - 1);
    ::bind(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    timeval tick{0, 50 * 1000};
    ::setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &tick, sizeof tick);
    ::setenv("VTAGENT_EVENTLOG_SOCKET", socketPath.c_str(), 1);
    m_receiver = std::thread([this] {
        char buffer[65536];
        while (!m_stop) {
            const ssize_t n = ::recv(m_fd, buffer, sizeof buffer, 0);
            if (n < 0) continue;
            std::lock_guard lock(m_mutex);
            m_datagrams.emplace_back(buffer, static_cast<size_t>(n));
            m_arrived.notify_all();
        }
    });
}

SyslogSink::~SyslogSink() {
    ::setenv("VTAGENT_EVENTLOG_SOCKET", m_previousSocket.c_str(), 1);
    m_stop = true;
    m_receiver.join();
    ::close(m_fd);
    ::unlink(m_path.c_str());
}

std::vector<std::string> SyslogSink::take(size_t count) {
    std::unique_lock lock(m_mutex);
    m_arrived.wait_for(lock, std::chrono::seconds(5), [&] { return m_datagrams.size() >= count; });
    return std::exchange(m_datagrams, {});
}
#else
SyslogSink::SyslogSink(const std::string& socketPath) : m_path(socketPath) {}
SyslogSink::~SyslogSink() = default;
std::vector<std::string> SyslogSink::take(size_t) {
    return {};
}
#endif

}  // namespace vt::test
