#include "service/metrics_endpoint.h"

#include <memory>

#include "base/debug_log.h"
#include "base/error_report.h"

namespace {
constexpr int kPollMs = 250;
constexpr uint32_t kClientTimeoutMs = 2000;
constexpr size_t kMaxRequest = 8192;
}  // namespace

CMetricsEndpoint::CMetricsEndpoint(std::function<std::string()> metrics)
    : m_metrics(std::move(metrics)) {}

CMetricsEndpoint::~CMetricsEndpoint() {
    m_stop = true;
    if (m_thread.joinable()) m_thread.join();
}

bool CMetricsEndpoint::start(const std::string& address, uint16_t port) {
    try {
        bindSocket(address, port, SOCK_STREAM);
        m_socket.listen(16);
    } catch (CErrorReport* raw) {
        std::unique_ptr<CErrorReport> report(raw);
        vt::debugPrintf(
            vt::DBG_ERROR, "CMetricsEndpoint| cannot listen on %s port %u: %s - no metrics\r\n",
            address.c_str(), static_cast<unsigned>(port), report->getMessage().getStringA());
        return false;
    }
    vt::debugPrintf(vt::DBG_MINIMUM, "CMetricsEndpoint| metrics on http://%s:%u/metrics\r\n",
                    address.c_str(), static_cast<unsigned>(localPort()));
    m_thread = std::thread([this] { serve(); });
    return true;
}

void CMetricsEndpoint::serve() {
    while (!m_stop.load()) {
        if (vt::net::waitSocketReady(m_socket.handle(), false, kPollMs) <= 0) continue;
        CIPAddress peer;
        CWinSock client = m_socket.accept(&peer);
        if (client.valid()) answer(client);
    }
}

void CMetricsEndpoint::answer(CWinSock& client) {
    client.setSocketTimeOut(kClientTimeoutMs);
    std::string request;
    char buffer[1024];
    while (request.find("\r\n\r\n") == std::string::npos && request.size() < kMaxRequest) {
        const int n = client.receive(buffer, sizeof buffer);
        if (n <= 0) return;
        request.append(buffer, static_cast<size_t>(n));
    }
    const bool metrics =
        request.rfind("GET /metrics ", 0) == 0 || request.rfind("GET /metrics?", 0) == 0;
    const std::string body = metrics ? m_metrics() : "not found\n";
    const std::string head =
        std::string(metrics ? "HTTP/1.0 200 OK\r\n" : "HTTP/1.0 404 Not Found\r\n") +
        "Content-Type: text/plain; version=0.0.4\r\nContent-Length: " +
        std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n";
    client.sendAll(head + body);
}
