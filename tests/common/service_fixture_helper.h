#pragma once
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "common/registry_fixture.h"

namespace vt::test {

inline std::string fileIn(const TempDir& dir, const std::string& name) {
    return (dir.path() / name).string();
}

// A local datagram socket that collects what the event reporter sends (Linux only) while it is
// $VTAGENT_EVENTLOG_SOCKET. A thread receives, so a sender never blocks on a full socket queue.
class SyslogSink {
  public:
    explicit SyslogSink(const std::string& socketPath);
    ~SyslogSink();
    SyslogSink(const SyslogSink&) = delete;
    SyslogSink& operator=(const SyslogSink&) = delete;
    // Waits (up to 5 s) until at least `count` datagrams have arrived, then returns all of them
    // and forgets them. The sender has finished before, so the wait only covers the hand-over
    // to the receiving thread.
    std::vector<std::string> take(size_t count);

  private:
    ScopedEnv m_socket;
    int m_fd = -1;
    std::string m_path;
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::vector<std::string> m_datagrams;
    std::atomic<bool> m_stop{false};
    std::thread m_receiver;
};

}  // namespace vt::test
