#include "base/net/udp_server.h"

#include "base/debug_log.h"
#include "base/net/syslog_inflate.h"
#include "base/net/tcp_framer.h"

CUDPServer::CUDPServer() : m_buffer(kBufferSize) {}

void CUDPServer::open(std::string_view address, uint16_t port) {
    bindSocket(address, port, SOCK_DGRAM);
    m_socket.setNonBlocking(true);
    // Bursts arrive faster than one thread turns datagrams into units for a few
    // milliseconds at a time; the system's default buffer holds only a few hundred of them.
    const int granted = vt::net::setSocketReceiveBuffer(m_socket.handle(), kReceiveBufferBytes);
    vt::debugPrintf(vt::DBG_INFO, "CUDPServer|open: receive buffer %d bytes\r\n", granted);
    if (!m_poller.add(m_socket.handle(), this))
        vt::debugPrintf(vt::DBG_ERROR, "CUDPServer|open: can't watch the socket, error %u\r\n",
                        static_cast<unsigned>(vt::net::socketLastError()));
}

void CUDPServer::close() noexcept {
    if (m_socket.valid()) m_poller.remove(m_socket.handle());
    m_socket.close();
}

void CUDPServer::stop() noexcept {
    m_stop.store(true, std::memory_order_release);
    m_poller.wake();
}

CUDPServer::Result CUDPServer::receiveMessage(std::string& message, CIPAddress& sender,
                                              int timeoutMs) {
    message.clear();
    for (;;) {
        // A closed server has nothing more to receive; errors would only repeat.
        if (stopRequested() || !m_socket.valid()) return Result::Stopped;
        const int n =
            m_socket.receiveFrom(m_buffer.data(), static_cast<int>(kBufferSize - 1), sender);
        if (n >= 0) return finishDatagram(static_cast<size_t>(n), message);
        m_lastError = m_socket.lastError();
        if (!vt::net::isWouldBlock(m_lastError)) return Result::Error;
        vt::net::CSocketPoller::Event events[2];
        const int ready = m_poller.wait(events, timeoutMs);
        if (ready == 0) return Result::TimedOut;
        if (ready < 0) {
            m_lastError = vt::net::socketLastError();
            return Result::Error;
        }
    }
}

CUDPServer::Result CUDPServer::finishDatagram(size_t length, std::string& message) {
    const std::string_view datagram(m_buffer.data(), length);
    std::string_view text = datagram;
    switch (vt::inflateSyslogDatagram(datagram, m_inflated)) {
        case vt::InflateResult::NotCompressed:
            break;
        case vt::InflateResult::Inflated:
            text = m_inflated;
            break;
        default:
            return Result::Dropped;
    }
    if (text.empty()) {
        vt::debugWrite(vt::DBG_ULTRA, "CUDPServer|ReceiveMessage: empty datagram ignored\r\n");
        return Result::Dropped;
    }
    vt::appendSyslogEscaped(text, m_escapeControl, message);
    return Result::Message;
}

bool CUDPServer::sendTo(std::string_view bytes, const CIPAddress& to) noexcept {
    const int n = m_socket.sendTo(bytes.data(), static_cast<int>(bytes.size()), to);
    if (n == static_cast<int>(bytes.size())) return true;
    m_lastError = n < 0 ? m_socket.lastError() : uint32_t(vt::net::SOCKERR_MSGSIZE);
    return false;
}
