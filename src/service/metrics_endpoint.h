#pragma once
#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

#include "base/net/ip.h"

// The opt-in Prometheus endpoint: answers "GET /metrics" on one address and port with the
// agent's counters, one connection at a time, on a thread of its own. Anything else gets 404;
// a client that sends nothing is dropped after two seconds.
class CMetricsEndpoint : public CIP {
  public:
    CMetricsEndpoint(std::function<std::string()> metrics);
    ~CMetricsEndpoint() override;

    // Binds and starts serving; false (after a debug line) when the address cannot be had.
    bool start(const std::string& address, uint16_t port);

  private:
    void serve();
    void answer(CWinSock& client);

    std::function<std::string()> m_metrics;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};
