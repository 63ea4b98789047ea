#pragma once
#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/debug_log.h"
#include "common/registry_fixture.h"

namespace vt::test {

// A file name inside a test's temporary directory.
inline std::string fileIn(const TempDir& dir, const std::string& name) {
    return (dir.path() / name).string();
}

// Points the debug log at a file and restores the previous settings when it goes.
class DebugLogScope {
  public:
    explicit DebugLogScope(const DebugLogSettings& settings);
    ~DebugLogScope();
    DebugLogScope(const DebugLogScope&) = delete;
    DebugLogScope& operator=(const DebugLogScope&) = delete;

  private:
    DebugLogSettings m_previous;
};

// A local datagram socket that collects what the event reporter sends (Linux only); it sets
// $VTAGENT_EVENTLOG_SOCKET while it lives. A thread receives, so a sender never blocks on a
// full socket queue.
class SyslogSink {
  public:
    explicit SyslogSink(const std::string& socketPath);
    ~SyslogSink();
    SyslogSink(const SyslogSink&) = delete;
    SyslogSink& operator=(const SyslogSink&) = delete;
    // Waits (up to 5 s) until at least `count` datagrams have arrived, then returns all of them
    // and forgets them. The sender has finished before this is called, so the datagrams are
    // already queued; the wait only covers the hand-over to the receiving thread.
    std::vector<std::string> take(size_t count);

  private:
    int m_fd = -1;
    std::string m_path;
    std::string m_previousSocket;
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::vector<std::string> m_datagrams;
    std::atomic<bool> m_stop{false};
    std::thread m_receiver;
};

}  // namespace vt::test
