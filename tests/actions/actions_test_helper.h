#pragma once
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "actions/write_file/write_file_config.h"
#include "base/config_settings.h"
#include "base/net/win_sock.h"
#include "common/engine_test_helper.h"
#include "common/registry_fixture.h"
#include "engine/action_list.h"
#include "model/info_unit_types.h"
#include "model/unit_time.h"
#include "platform/utf_codec.h"

namespace vt::test {

inline std::u16string u16(const std::string& utf8) {
    return utf8ToUtf16(utf8);
}
inline std::u16string u16(const std::filesystem::path& path) {
    const std::u8string s = path.u8string();
    return utf8ToUtf16(std::string(s.begin(), s.end()));
}

// Makes vt::currentTime() return a time the test sets, for the scope's lifetime. Units made
// meanwhile carry it as their generated and reported time.
class ScopedFakeTime {
  public:
    explicit ScopedFakeTime(int64_t now) : m_clock(now) { setUnitClock(&m_clock); }
    ~ScopedFakeTime() { setUnitClock(nullptr); }
    void set(int64_t now) { m_clock.set(now); }

  private:
    FakeClock m_clock;
};

// Builds the entry of an action of the agent's own type `typeId` from `key` the way a rule does.
std::unique_ptr<CActionListEntry> loadAction(const std::u16string& key, int32_t typeId);

// A unit as a syslog source would make it.
std::unique_ptr<CInfoUnit> makeForwardUnit(std::u16string_view msg, int32_t facility = 1,
                                           int32_t severity = 5);

// A write-file action on a fresh key and a fresh directory ("szFilePath" defaults to dir()).
class WriteFileRig {
  public:
    WriteFileRig() : m_key(m_registry.base() + u"\\A1") { set(u"szFilePath", u16(dir())); }
    void set(std::u16string_view name, uint32_t value) { regSetDword(m_key, name, value); }
    void set(std::u16string_view name, std::u16string_view value) {
        regSetString(m_key, name, value);
    }
    // Each unit becomes its message and "\r\n", nothing else.
    void messageLines();
    void load();
    // Runs the entry for a syslog unit as a worker does that finds no further unit queued (the
    // timer routines due then run too); returns the unit's action-failed flag.
    uint8_t write(std::u16string_view msg, std::u16string_view source = u"host1");
    void write(CInfoUnit& unit);
    // The same as a worker does that has more units to go.
    void writeBusy(std::u16string_view msg);
    void writeBusy(CInfoUnit& unit) { m_entry->CallAction(unit, m_settings); }

    CActionConfigWriteFile& config();
    const std::filesystem::path& dir() const { return m_files.path(); }
    std::string file(const std::string& name) const { return readFileBytes(dir() / name); }
    uint32_t storedDword(std::u16string_view name);

  private:
    ScopedRegistry m_registry;
    TempDir m_files;
    std::u16string m_key;
    CConfigSettings m_settings;
    std::unique_ptr<CActionListEntry> m_entry;
};

// A syslog peer on loopback, TCP or UDP. The agent's connections wait in the listen queue
// until the test takes them, and what the agent sent lies in the socket buffers when its call
// returns, so the test reads it without threads of its own.
class SyslogPeer {
  public:
    explicit SyslogPeer(int type = SOCK_STREAM, const char* address = "127.0.0.1");
    uint16_t port() const { return m_port; }
    // UDP: the next datagram; empty when none comes within 5 s.
    std::string datagram();
    // TCP: takes the next connection; false when none comes within 5 s.
    bool accept();
    // True when a connection waits to be taken now.
    bool pending();
    // `count` bytes of connection `i`; fewer when it ends or 5 s pass.
    std::string read(size_t i, size_t count);
    // True when the agent has closed connection `i` (all it sent having been read).
    bool closedByAgent(size_t i);
    // Closes every connection taken, as a restarting server would.
    void dropConnections() { m_connections.clear(); }

  private:
    CWinSock m_socket;
    uint16_t m_port = 0;
    std::vector<CWinSock> m_connections;
};

// zlib inflation of a "z" payload (without the marker); empty on failure.
std::string inflateStream(std::string_view stream);

}  // namespace vt::test
