#include "common/registry_fixture.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <random>
#include <sstream>

#include "platform/registry.h"
#include "platform/utf_codec.h"

namespace vt::test {
namespace {
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
    std::ifstream in(m_file, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    const std::string raw = out.str();
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

void DebugCapture::clear() {
    std::ofstream(m_file, std::ios::binary | std::ios::trunc);
}

}  // namespace vt::test
