#pragma once
#include <atomic>
#include <cstdint>

#include "base/net/udp_server.h"
#include "base/quillet_string.h"
#include "sources/info_source.h"

// The answering half of the alive monitor: echoes every well-formed request back to its
// sender, so that a peer agent's request side knows this agent is alive. Produces no units.
class CInfoSourceAliveMonEcho : public CInfoSource {
  public:
    explicit CInfoSourceAliveMonEcho(const vt::InfoSourceContext& context);

    bool LoadConfig() override;
    void Run() override;
    void wake() override;
    // The port actually bound once Run listens (0 before).
    uint16_t boundPort() const noexcept { return m_boundPort.load(std::memory_order_acquire); }

    uint32_t m_nListenPort = 13514;  // "nListenPort"
    CQuilletString m_szMyIPAddress;  // "szMyIPAddress": "" every IPv4 interface, "::" both

  private:
    CUDPServer m_udp;
    std::atomic<uint16_t> m_boundPort{0};
};
