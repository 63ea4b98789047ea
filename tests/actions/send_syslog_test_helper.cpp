#include "actions/send_syslog_test_helper.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include "common/registry_fixture.h"

namespace vt::test {

std::unique_ptr<CInfoUnit> makeForwardUnit(std::u16string_view msg, int32_t facility,
                                           int32_t severity, std::u16string_view source,
                                           std::u16string_view tag) {
    auto unit = CInfoUnit::createInfoUnitOfType(IUT_SYSLOG);
    unit->setMsg(msg);
    unit->setSyslogFacility(facility);
    unit->setSyslogPriority(severity);
    unit->setPropertyString(u"source", source);
    unit->setPropertyString(u"syslogtag", tag);
    return unit;
}

void writeActionKey(const std::u16string& key, const ActionValues& values) {
    for (const auto& [name, value] : values.dwords) regSetDword(key, name, value);
    for (const auto& [name, value] : values.strings) regSetString(key, name, value);
}

StreamSink::StreamSink(const char* address) {
    CIPAddress local;
    CIPAddress::fromText(address, 0, local);
    m_listener = CWinSock::create(local.family(), SOCK_STREAM);
    m_listener.bind(local);
    m_listener.listen(64);
    m_port = m_listener.localAddress().port();
    m_acceptor = std::thread([this] { acceptLoop(); });
}

StreamSink::~StreamSink() {
    m_stop = true;
    if (m_acceptor.joinable()) m_acceptor.join();
    std::vector<std::unique_ptr<Connection>> connections;
    {
        std::lock_guard lock(m_lock);
        connections.swap(m_connections);
    }
    for (auto& c : connections)
        if (c->reader.joinable()) c->reader.join();
}

void StreamSink::acceptLoop() {
    while (!m_stop) {
        if (vt::net::waitSocketReady(m_listener.handle(), false, 20) != 1) continue;
        CWinSock accepted = m_listener.accept(nullptr);
        if (!accepted.valid()) continue;
        std::lock_guard lock(m_lock);
        auto connection = std::make_unique<Connection>();
        connection->socket = std::move(accepted);
        Connection* raw = connection.get();
        m_connections.push_back(std::move(connection));
        raw->reader = std::thread([this, raw] { readLoop(raw); });
        m_changed.notify_all();
    }
}

void StreamSink::readLoop(Connection* connection) {
    std::vector<char> buffer(65536);
    while (!m_stop) {
        {
            std::lock_guard lock(m_lock);
            if (!connection->socket.valid() || connection->dropped) return;
        }
        // The socket is only closed by dropConnections under the lock after this thread has
        // been told to stop looking at it; the short wait keeps that prompt.
        const int ready = vt::net::waitSocketReady(connection->socket.handle(), false, 20);
        if (ready == 0) continue;
        const int n = connection->socket.receive(buffer.data(), int(buffer.size()));
        std::lock_guard lock(m_lock);
        if (n <= 0) {
            connection->closedByPeer = !connection->dropped;
            connection->socket.close();
            m_changed.notify_all();
            return;
        }
        connection->bytes.append(buffer.data(), size_t(n));
        m_changed.notify_all();
    }
}

void StreamSink::dropConnections() {
    std::vector<Connection*> open;
    {
        // Shut both directions first, so the reader sees the end and leaves, then close. Under
        // the lock: a reader that meets the end by itself closes its socket under it too.
        std::lock_guard lock(m_lock);
        for (auto& c : m_connections) {
            if (!c->socket.valid()) continue;
            c->dropped = true;
            c->socket.interrupt();
            open.push_back(c.get());
        }
    }
    for (Connection* c : open)
        if (c->reader.joinable()) c->reader.join();
    std::lock_guard lock(m_lock);
    for (Connection* c : open) c->socket.close();
}

std::vector<std::string> StreamSink::streams() {
    std::lock_guard lock(m_lock);
    std::vector<std::string> out;
    for (auto& c : m_connections) out.push_back(c->bytes);
    return out;
}

std::string StreamSink::allBytes() {
    std::string all;
    for (const std::string& s : streams()) all += s;
    return all;
}

size_t StreamSink::closedByPeer() {
    std::lock_guard lock(m_lock);
    size_t n = 0;
    for (auto& c : m_connections) n += c->closedByPeer ? 1 : 0;
    return n;
}

size_t StreamSink::totalLocked() const {
    size_t n = 0;
    for (auto& c : m_connections) n += c->bytes.size();
    return n;
}

bool StreamSink::waitForBytes(size_t total) {
    return waitUntil([&] { return totalLocked() >= total; });
}

bool StreamSink::waitForClosed(size_t count) {
    return waitUntil([&] {
        size_t n = 0;
        for (auto& c : m_connections) n += c->closedByPeer ? 1 : 0;
        return n >= count;
    });
}

DatagramSink::DatagramSink(const char* address) {
    CIPAddress local;
    CIPAddress::fromText(address, 0, local);
    m_socket = CWinSock::create(local.family(), SOCK_DGRAM);
    m_socket.bind(local);
    m_port = m_socket.localAddress().port();
}

bool DatagramSink::receive(std::string& datagram, int timeoutMs) {
    if (vt::net::waitSocketReady(m_socket.handle(), false, timeoutMs) != 1) return false;
    std::vector<char> buffer(70000);
    CIPAddress from;
    const int n = m_socket.receiveFrom(buffer.data(), int(buffer.size()), from);
    if (n < 0) return false;
    datagram.assign(buffer.data(), size_t(n));
    return true;
}

std::string inflateStream(std::string_view stream) {
    std::string out(1 << 20, '\0');
    uLongf length = static_cast<uLongf>(out.size());
    if (uncompress(reinterpret_cast<Bytef*>(out.data()), &length,
                   reinterpret_cast<const Bytef*>(stream.data()), uLong(stream.size())) != Z_OK)
        return {};
    out.resize(length);
    return out;
}

}  // namespace vt::test
