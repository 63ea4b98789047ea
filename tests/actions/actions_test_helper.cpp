#include "actions/actions_test_helper.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include "engine/timer_queue.h"
#include "model/info_unit_types.h"
#include "service/action_type_table.h"

namespace vt::test {
std::unique_ptr<CActionListEntry> loadAction(const std::u16string& key, int32_t typeId) {
    return std::make_unique<CActionListEntry>(CQuilletString(u"Action"), CQuilletString(key),
                                              typeId,
                                              ActionLoadContext{nullptr, vt::agentActionTypes()});
}

std::unique_ptr<CInfoUnit> makeForwardUnit(std::u16string_view msg, int32_t facility,
                                           int32_t severity) {
    auto unit = CInfoUnit::createInfoUnitOfType(IUT_SYSLOG);
    unit->setMsg(msg);
    unit->setSyslogFacility(facility);
    unit->setSyslogPriority(severity);
    unit->setPropertyString(u"source", u"host1");
    unit->setPropertyString(u"syslogtag", u"app");
    return unit;
}

void WriteFileRig::messageLines() {
    set(u"nFileFormat", 3);
    set(u"szLineFormat", u"%msg%%$CRLF%");
}

void WriteFileRig::load() {
    m_entry = loadAction(m_key, 1003);
    ASSERT_NE(m_entry->getAction(), nullptr);
}

uint8_t WriteFileRig::write(std::u16string_view msg, std::u16string_view source) {
    CInfoUnitSyslog unit;
    unit.setMsg(msg);
    unit.setPropertyString(u"source", source);
    write(unit);
    return unit.getActionFailed();
}

void WriteFileRig::write(CInfoUnit& unit) {
    m_entry->CallAction(unit, m_settings);
    if (auto timers = currentTimerQueue()) timers->runDue(TimerQueue::Clock::now());
}

void WriteFileRig::writeBusy(std::u16string_view msg) {
    CInfoUnitSyslog unit;
    unit.setMsg(msg);
    writeBusy(unit);
}

CActionConfigWriteFile& WriteFileRig::config() {
    return static_cast<CActionConfigWriteFile&>(*m_entry->getConfig());
}

uint32_t WriteFileRig::storedDword(std::u16string_view name) {
    CRegAccess reg;
    uint32_t value = 0xFFFFFFFFu;
    if (reg.OpenKey(RegRoot::LocalMachine, CQuilletString(m_key))) reg.ReadDWORDValue(name, value);
    return value;
}

SyslogPeer::SyslogPeer(int type, const char* address) {
    CIPAddress local;
    CIPAddress::fromText(address, 0, local);
    m_socket = CWinSock::create(local.family(), type);
    m_socket.bind(local);
    if (type == SOCK_STREAM) m_socket.listen(16);
    m_port = m_socket.localAddress().port();
}

std::string SyslogPeer::datagram() {
    if (net::waitSocketReady(m_socket.handle(), false, 5000) != 1) return {};
    std::vector<char> buffer(70000);
    CIPAddress from;
    const int n = m_socket.receiveFrom(buffer.data(), int(buffer.size()), from);
    return std::string(buffer.data(), size_t(std::max(n, 0)));
}

bool SyslogPeer::accept() {
    if (net::waitSocketReady(m_socket.handle(), false, 5000) != 1) return false;
    m_connections.push_back(m_socket.accept(nullptr));
    return m_connections.back().valid();
}

bool SyslogPeer::pending() {
    return net::waitSocketReady(m_socket.handle(), false, 0) == 1;
}

std::string SyslogPeer::read(size_t i, size_t count) {
    std::string out;
    std::vector<char> buffer(65536);
    while (out.size() < count &&
           net::waitSocketReady(m_connections.at(i).handle(), false, 5000) == 1) {
        const int n = m_connections[i].receive(buffer.data(),
                                               int(std::min(buffer.size(), count - out.size())));
        if (n <= 0) break;
        out.append(buffer.data(), size_t(n));
    }
    return out;
}

bool SyslogPeer::closedByAgent(size_t i) {
    char c = 0;
    return net::waitSocketReady(m_connections.at(i).handle(), false, 5000) == 1 &&
           m_connections[i].receive(&c, 1) == 0;
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
