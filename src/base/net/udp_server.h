#pragma once
#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/net/ip.h"
#include "platform/socket_api.h"

// Receives syslog datagrams: one datagram is one message. Decompresses datagrams marked "z"
// and escapes NUL (always) and control characters (when asked) as TCP does, so no datagram
// is cut at an embedded NUL. Reception runs on one thread; stop() may be called from any
// other and ends a wait at once.
class CUDPServer : public CIP {
  public:
    static constexpr size_t kBufferSize = 32768;  // one byte stays free for the terminator
    // The socket's receive buffer in the system: about a second of 100,000 small datagrams.
    static constexpr int kReceiveBufferBytes = 64 * 1024 * 1024;

    enum class Result {
        Message,  // `message` and `sender` are filled
        Dropped,  // a datagram arrived but was unusable (logged); go on
        Error,    // receive error (lastError()); the buffer was emptied, go on
        TimedOut,
        Stopped,  // stop() was called, or the server is not open
    };

    CUDPServer();

    // Binds; throws CWinSockError* when the address cannot be bound.
    void open(std::string_view address, uint16_t port);
    void close() noexcept;
    void setEscapeControlCharacters(bool on) noexcept { m_escapeControl = on; }

    // Waits for the next datagram up to timeoutMs (-1: until one comes or stop()).
    Result receiveMessage(std::string& message, CIPAddress& sender, int timeoutMs = -1);
    // Answers a sender from the bound socket; false with lastError() on failure.
    bool sendTo(std::string_view bytes, const CIPAddress& to) noexcept;
    // A stop() that comes before a wait (even before open()) still ends it at once.
    void stop() noexcept;
    // Only for an owner that deliberately receives again after a stop.
    void clearStop() noexcept { m_stop.store(false, std::memory_order_release); }
    bool stopRequested() const noexcept { return m_stop.load(std::memory_order_acquire); }
    uint32_t lastError() const noexcept { return m_lastError; }

  private:
    Result finishDatagram(size_t length, std::string& message);

    vt::net::CSocketPoller m_poller;
    std::vector<char> m_buffer;
    std::string m_inflated;
    std::atomic<bool> m_stop{false};
    bool m_escapeControl = false;
    uint32_t m_lastError = 0;
};
