// The common test helpers: registry, files and debug log; engine probes; the test input; the
// event log sink.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <stdexcept>

#ifndef _WIN32
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#endif

#include "base/config_settings.h"
#include "base/reg_access.h"
#include "common/engine_test_helper.h"
#include "common/service_fixture_helper.h"
#include "common/test_info_source_helper.h"
#include "model/info_unit_types.h"
#include "platform/registry.h"
#include "platform/utf_codec.h"
#include "service/action_type_table.h"

namespace vt::test {
namespace {
#ifndef _WIN32
// No test may reach the machine's /dev/log: unless a test sets up a sink, events go to a socket
// path where nobody listens (the reporter then takes its "cannot register" path).
const bool g_noSystemEventLog = [] {
    const auto nowhere = std::filesystem::temp_directory_path() /
                         ("vtagent-no-eventlog-" + std::to_string(::getpid()) + ".sock");
    return ::setenv("VTAGENT_EVENTLOG_SOCKET", nowhere.string().c_str(), 1) == 0;
}();
#endif

std::string uniqueName() {
    static std::atomic<unsigned> counter{0};
    return "vtagent-test-" + std::to_string(std::random_device()()) + "-" +
           std::to_string(counter++);
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

void regSet(const std::u16string& key, std::u16string_view name, uint32_t type,
            const std::vector<uint8_t>& bytes) {
    RegKey k;
    ASSERT_EQ(k.create(RegRoot::LocalMachine, key), kRegOk);
    ASSERT_EQ(k.setValue(name, type, bytes.data(), bytes.size()), kRegOk);
}
}  // namespace

TempDir::TempDir() : m_path(std::filesystem::temp_directory_path() / uniqueName()) {
    std::filesystem::create_directories(m_path);
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(m_path, ec);
}

ScopedRegistry::ScopedRegistry() : m_base(u"SOFTWARE\\" + utf8ToUtf16(uniqueName())) {
    regSetHivePath(hiveFile().string());
}

ScopedRegistry::~ScopedRegistry() {
    regDeleteTree(RegRoot::LocalMachine, m_base);
    for (const auto& path : m_remove) regDeleteTree(RegRoot::LocalMachine, path);
    regSetHivePath({});
}

void ScopedRegistry::alsoRemove(std::u16string path) {
    regDeleteTree(RegRoot::LocalMachine, path);  // left over from an earlier, aborted run
    m_remove.push_back(std::move(path));
}

DebugLogScope::DebugLogScope(const DebugLogSettings& settings) : m_previous(debugSettings()) {
    debugConfigure(settings);
}

// A circular log would write to "<name>_<index>".
DebugCapture::DebugCapture(uint32_t mask)
    : m_file((m_dir.path() / "debug.txt").string()),
      m_scope({.enabled = true, .mask = mask, .fileName = m_file, .circular = false}) {}

// Each line's "<thread>\t| <time> | <level>\t| " prefix is cut off.
std::string DebugCapture::text() const {
    const std::string raw = readFileBytes(m_file);
    std::string bodies;
    for (size_t start = 0, end; start < raw.size(); start = end) {
        end = raw.find('\n', start);
        end = end == std::string::npos ? raw.size() : end + 1;
        size_t body = start;
        for (int bar = 0; bar < 2; ++bar) {
            const size_t at = raw.find("\t| ", body);
            if (at < end) body = at + 3;
        }
        bodies.append(raw, body, end - body);
    }
    return bodies;
}

size_t DebugCapture::count(const std::string& what) const {
    return countOf(text(), what);
}

std::string DebugCapture::raw() const {
    return readFileBytes(m_file);
}

void DebugCapture::clear() {
    std::ofstream(m_file, std::ios::binary | std::ios::trunc);
}

void regSetDword(const std::u16string& key, std::u16string_view name, uint32_t value) {
    regSet(key, name, kRegDword, regDwordBytes(value));
}

void regSetString(const std::u16string& key, std::u16string_view name, std::u16string_view value) {
    regSet(key, name, kRegSz, regStringBytes(value));
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

std::string readFileBytes(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t end; (end = text.find("\r\n", start)) != std::string::npos; start = end + 2)
        lines.push_back(text.substr(start, end - start));
    if (start < text.size()) lines.push_back(text.substr(start));
    return lines;
}

std::string utf16File(std::u16string_view text) {
    std::string out = "\xFF\xFE";
    for (char16_t c : text) out += {static_cast<char>(c & 0xFF), static_cast<char>(c >> 8)};
    return out;
}

size_t countOf(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

void FakeClock::sleepMs(uint32_t milliseconds) {
    std::function<void(uint32_t)> hook;
    {
        std::lock_guard lock(m_lock);
        m_durations.push_back(milliseconds);
        hook = m_hook;
    }
    ++m_sleeps;
    if (hook) hook(milliseconds);
}

std::vector<uint32_t> FakeClock::sleepDurations() const {
    std::lock_guard lock(m_lock);
    return m_durations;
}

void FakeClock::onSleep(std::function<void(uint32_t)> hook) {
    std::lock_guard lock(m_lock);
    m_hook = std::move(hook);
}

void CActionConfigProbe::LoadConfig() {
    if (!loadEnabled()) return;
    uint32_t value = 0;
    m_regAccess.ReadDWORDValue(u"nMode", value, 0);
    mode = static_cast<int>(value);
    CQuilletString text;
    m_regAccess.ReadStringValue(u"szTag", text, u"");
    tag = text.wide();
    m_regAccess.CloseKey();
}

void CActionProbe::doAction(CInfoUnit& unit, const CConfigSettings&, CActionListEntry&) {
    ++m_config.calls;
    if (!m_config.tag.empty()) {
        const CQuilletString* trace = unit.getPropertyStringObject(u"trace");
        const std::u16string text = trace ? trace->wide() : std::u16string();
        unit.setPropertyString(
            u"trace",
            std::u16string_view(text.empty() ? m_config.tag : text + u"," + m_config.tag));
    }
    if (m_config.hook) m_config.hook(unit);
    switch (static_cast<ProbeMode>(m_config.mode.load())) {
        case ProbeMode::Succeed:
            break;
        case ProbeMode::SetFailedFlag:
            unit.setActionFailed(1);
            break;
        case ProbeMode::ThrowReport:
            throw new CErrorReport(77, CQuilletString("probe failure"));
        case ProbeMode::ThrowUnknown:
            throw 42;
    }
}

ProbeActionType::ProbeActionType()
    : m_scope(ActionType{kProbeActionType, "Probe", &makeActionConfig<CActionConfigProbe>,
                         &makeAction<CActionConfigProbe, CActionProbe>}) {}

CActionConfigProbe& probeConfig(CActionListEntry& entry) {
    return static_cast<CActionConfigProbe&>(*entry.getConfig());
}

std::unique_ptr<CRuleListEntry> probeRule(const std::u16string& ruleKey,
                                          CActionConfigProbe*& probe) {
    regSetDword(ruleKey, u"nActionCount", 1);
    regSetDword(ruleKey, u"nActionType1", kProbeActionType);
    auto actions =
        std::make_unique<CActionList>(CQuilletString(std::u16string_view(ruleKey)),
                                      ActionLoadContext{nullptr, vt::agentActionTypes()});
    probe = &probeConfig(*static_cast<CActionListEntry*>(actions->next(nullptr)));
    return std::make_unique<CRuleListEntry>(RuleFiringSettings{}, nullptr, std::move(actions));
}

std::string traceOf(const CInfoUnit& unit) {
    const CQuilletString* trace = unit.getPropertyStringObject(u"trace");
    return trace ? std::string(trace->narrowView()) : std::string();
}

std::unique_ptr<CConfigSettings> makeSettings() {
    return std::make_unique<CConfigSettings>();
}

std::unique_ptr<CInfoUnit> makeSyslogUnit(std::u16string_view msg) {
    auto unit = CInfoUnit::createInfoUnitOfType(IUT_SYSLOG);
    unit->setMsg(msg);
    return unit;
}

namespace {
std::mutex g_scriptsLock;
std::map<std::string, std::shared_ptr<TestSourceScript>> g_scripts;

std::shared_ptr<TestSourceScript> scriptOf(const std::string& name) {
    std::lock_guard lock(g_scriptsLock);
    auto& script = g_scripts[name];
    if (!script) script = std::make_shared<TestSourceScript>();
    return script;
}
}  // namespace

void TestSourceScript::release() {
    {
        std::lock_guard guard(lock);
        released = true;
    }
    changed.notify_all();
}

bool TestSourceScript::waitForRuns(int count) {
    std::unique_lock guard(lock);
    return changed.wait_for(guard, std::chrono::seconds(20), [&] { return runs.load() >= count; });
}

bool TestSourceScript::waitForDestruction() {
    std::unique_lock guard(lock);
    return changed.wait_for(guard, std::chrono::seconds(20), [&] { return destroyed; });
}

CTestInfoSource::CTestInfoSource(const InfoSourceContext& context,
                                 std::shared_ptr<TestSourceScript> script)
    : CInfoSource(context), m_script(std::move(script)) {
    std::lock_guard guard(m_script->lock);
    m_script->hadDnsCache = getDnsCache() != nullptr;
}

CTestInfoSource::~CTestInfoSource() {
    {
        std::lock_guard guard(m_script->lock);
        m_script->destroyed = true;
    }
    m_script->changed.notify_all();
}

bool CTestInfoSource::LoadConfig() {
    CRegAccess reg;
    const int32_t version = OpenConfig(reg, vt::kKeyRead);
    if (version != m_nLoadedConfigVersion) {
        m_nLoadedConfigVersion = version;
        readCommonValues(reg);
        reg.ReadDWORDValue(u"nTestValue", testValue, 0);
        ++typeReads;
    } else {
        reg.ReadDWORDValue(u"bServiceEnabled", m_bServiceEnabled, 1);
    }
    return isEnabled();
}

void CTestInfoSource::wake() {
    CInfoSource::wake();
    ++m_script->wakes;
    {
        std::lock_guard guard(m_script->lock);
        m_script->woken = true;
    }
    m_script->changed.notify_all();
}

void CTestInfoSource::Run() {
    TestSourceScript& s = *m_script;
    {
        std::lock_guard guard(s.lock);
        ++s.runs;
        s.finished = false;
    }
    s.changed.notify_all();
    if (s.throwsLeft.load() > 0) {
        --s.throwsLeft;
        throw std::runtime_error("test source fault");
    }
    for (int i = 0; i < s.unitsPerRun.load(); ++i) {
        auto unit = std::make_unique<CInfoUnit>();
        setCommonInfoUnitSettings(*unit);
        unit->setMsgA("test unit");
        Enqueue(std::move(unit));
    }
    if (s.hang || s.blockUntilWoken) {
        {
            std::unique_lock guard(s.lock);
            s.changed.wait(guard, [&] { return s.released || (!s.hang && s.woken); });
        }
        for (int i = 0; s.hang && i < s.unitsAfterRelease.load(); ++i) {
            auto unit = std::make_unique<CInfoUnit>();
            setCommonInfoUnitSettings(*unit);
            if (Enqueue(std::move(unit))) ++s.acceptedAfterRelease;
        }
    } else if (!s.returnAtOnce) {
        while (keepRunning()) waitWhileRunning(std::chrono::seconds(5));
    }
    s.finished = true;
}

TestSourceType::TestSourceType(uint32_t typeId)
    : m_scope(InfoSourceType{typeId, "CTestInfoSource", [](const InfoSourceContext& context) {
                                 return std::unique_ptr<CInfoSource>(
                                     std::make_unique<CTestInfoSource>(
                                         context, scriptOf(context.serviceName.getStringA())));
                             }}) {}

TestSourceType::~TestSourceType() {
    std::lock_guard lock(g_scriptsLock);
    g_scripts.clear();
}

std::shared_ptr<TestSourceScript> TestSourceType::scriptFor(const std::string& serviceName) {
    return scriptOf(serviceName);
}

#ifndef _WIN32
SyslogSink::SyslogSink(const std::string& socketPath)
    : m_socket("VTAGENT_EVENTLOG_SOCKET", socketPath), m_path(socketPath) {
    m_fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath.c_str(), sizeof address.sun_path - 1);
    ::bind(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    // The receive timeout lets the thread see m_stop.
    timeval tick{0, 50 * 1000};
    ::setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &tick, sizeof tick);
    m_receiver = std::thread([this] {
        char buffer[65536];
        while (!m_stop) {
            const ssize_t n = ::recv(m_fd, buffer, sizeof buffer, 0);
            if (n < 0) continue;
            std::lock_guard lock(m_mutex);
            m_datagrams.emplace_back(buffer, static_cast<size_t>(n));
            m_arrived.notify_all();
        }
    });
}

SyslogSink::~SyslogSink() {
    m_stop = true;
    m_receiver.join();
    ::close(m_fd);
    ::unlink(m_path.c_str());
}

std::vector<std::string> SyslogSink::take(size_t count) {
    std::unique_lock lock(m_mutex);
    m_arrived.wait_for(lock, std::chrono::seconds(5), [&] { return m_datagrams.size() >= count; });
    return std::exchange(m_datagrams, {});
}
#else
SyslogSink::SyslogSink(const std::string& socketPath)
    : m_socket("VTAGENT_EVENTLOG_SOCKET", socketPath), m_path(socketPath) {}
SyslogSink::~SyslogSink() = default;
std::vector<std::string> SyslogSink::take(size_t) {
    return {};
}
#endif

}  // namespace vt::test
