#include "write_file_test_helper.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>

#include "engine/timer_queue.h"
#include "model/info_unit_types.h"
#include "model/unit_time.h"
#include "platform/registry.h"
#include "platform/utf_codec.h"

namespace vt::test {
namespace {
std::atomic<int64_t> g_fakeNow{0};
int64_t fakeNow() {
    return g_fakeNow.load();
}

void putEnv(const char* name, const char* value) {
#ifdef _WIN32
    _putenv_s(name, value ? value : "");
    _tzset();
#else
    if (value)
        setenv(name, value, 1);
    else
        unsetenv(name);
    tzset();
#endif
}
}  // namespace

ScopedFakeTime::ScopedFakeTime(int64_t now) {
    g_fakeNow = now;
    setTimeSource(&fakeNow);
}
ScopedFakeTime::~ScopedFakeTime() {
    setTimeSource(nullptr);
}
void ScopedFakeTime::set(int64_t now) {
    g_fakeNow = now;
}

ScopedEnv::ScopedEnv(const char* name, const std::string& value) : m_name(name) {
    if (const char* old = std::getenv(name)) {
        m_had = true;
        m_previous = old;
    }
    putEnv(name, value.c_str());
}
ScopedEnv::~ScopedEnv() {
    putEnv(m_name.c_str(), m_had ? m_previous.c_str() : nullptr);
}

ScopedTimeZone::ScopedTimeZone(const char* tz) {
    if (const char* old = std::getenv("TZ")) {
        m_had = true;
        m_previous = old;
    }
    putEnv("TZ", tz);
}
ScopedTimeZone::~ScopedTimeZone() {
    putEnv("TZ", m_had ? m_previous.c_str() : nullptr);
}

std::string readFileBytes(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

std::u16string u16(const std::string& ascii) {
    return utf8ToUtf16(ascii);
}
std::u16string u16(const std::filesystem::path& path) {
    const std::u8string s = path.u8string();
    return utf8ToUtf16(std::string(s.begin(), s.end()));
}

WriteFileRig::WriteFileRig() : m_key(m_registry.base() + u"\\RS1\\R1\\A1") {}

void WriteFileRig::setDword(std::u16string_view name, uint32_t value) {
    RegKey k;
    ASSERT_EQ(k.create(RegRoot::LocalMachine, m_key), 0u);
    const auto bytes = regDwordBytes(value);
    ASSERT_EQ(k.setValue(name, kRegDword, bytes.data(), bytes.size()), 0u);
}

void WriteFileRig::setString(std::u16string_view name, std::u16string_view value) {
    if (name == u"szFilePath") m_pathSet = true;
    RegKey k;
    ASSERT_EQ(k.create(RegRoot::LocalMachine, m_key), 0u);
    const auto bytes = regStringBytes(value);
    ASSERT_EQ(k.setValue(name, kRegSz, bytes.data(), bytes.size()), 0u);
}

void WriteFileRig::load() {
    if (!m_pathSet) setString(u"szFilePath", u16(dir()));
    m_entry = std::make_unique<CActionListEntry>(CQuilletString(u"Write"), CQuilletString(m_key),
                                                 1003, ActionLoadContext{});
    ASSERT_NE(m_entry->getConfig(), nullptr);
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
    // A worker that has run out of units runs its due timers before it waits again.
    if (auto timers = currentTimerQueue()) timers->runDue(TimerQueue::Clock::now());
}

void WriteFileRig::writeBusy(std::u16string_view msg) {
    CInfoUnitSyslog unit;
    unit.setMsg(msg);
    writeBusy(unit);
}

void WriteFileRig::writeBusy(CInfoUnit& unit) {
    m_entry->CallAction(unit, m_settings);
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

}  // namespace vt::test
