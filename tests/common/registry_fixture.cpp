#include "common/registry_fixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <random>
#include <sstream>

#ifndef _WIN32
#include <unistd.h>
#endif

#include "platform/registry.h"
#include "platform/utf_codec.h"

namespace vt::test {
namespace {
#ifndef _WIN32
// No test may reach the machine's /dev/log: unless a test sets up a sink, events go to a socket
// path where nobody listens (the reporter then takes its "cannot register" path).
const bool g_noSystemEventLog = [] {
    const std::string nowhere = (std::filesystem::temp_directory_path() /
                                 ("vtagent-no-eventlog-" + std::to_string(::getpid()) + ".sock"))
                                    .string();
    ::setenv("VTAGENT_EVENTLOG_SOCKET", nowhere.c_str(), 1);
    return true;
}();
#endif

std::string uniqueName() {
    static std::atomic<unsigned> counter{0};
    std::random_device rd;
    return "vtagent-test-" + std::to_string(rd()) + "-" + std::to_string(counter++);
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

DebugCapture::DebugCapture(uint32_t mask)
    : m_previous(debugSettings()), m_file((m_dir.path() / "debug.txt").string()) {
    DebugLogSettings s;
    s.enabled = true;
    s.mask = mask;
    s.fileName = m_file;
    s.circular = false;  // a circular log writes to "<name>_<index>"
    debugConfigure(s);
}

DebugCapture::~DebugCapture() {
    debugConfigure(m_previous);
}

// The lines as their writers gave them: each line's "<thread>\t| <time> | <level>\t| " prefix
// is cut off, so tests compare the texts alone.
std::string DebugCapture::text() const {
    const std::string raw = readFileBytes(m_file);
    std::string bodies;
    size_t start = 0;
    while (start < raw.size()) {
        size_t end = raw.find('\n', start);
        end = end == std::string::npos ? raw.size() : end + 1;
        size_t body = start;
        for (int bar = 0; bar < 2; ++bar) {
            const size_t at = raw.find("\t| ", body);
            if (at == std::string::npos || at >= end) break;
            body = at + 3;
        }
        bodies.append(raw, body, end - body);
        start = end;
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
    RegKey k;
    ASSERT_EQ(k.create(RegRoot::LocalMachine, key), kRegOk);
    const auto bytes = regDwordBytes(value);
    ASSERT_EQ(k.setValue(name, kRegDword, bytes.data(), bytes.size()), kRegOk);
}

void regSetString(const std::u16string& key, std::u16string_view name, std::u16string_view value) {
    RegKey k;
    ASSERT_EQ(k.create(RegRoot::LocalMachine, key), kRegOk);
    const auto bytes = regStringBytes(value);
    ASSERT_EQ(k.setValue(name, kRegSz, bytes.data(), bytes.size()), kRegOk);
}

namespace {
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
    for (char16_t c : text) {
        out.push_back(static_cast<char>(c & 0xFF));
        out.push_back(static_cast<char>(c >> 8));
    }
    return out;
}

size_t countOf(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

}  // namespace vt::test
