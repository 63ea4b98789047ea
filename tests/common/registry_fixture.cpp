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
    debugConfigure(s);
}

DebugCapture::~DebugCapture() {
    debugConfigure(m_previous);
}

std::string DebugCapture::text() const {
    std::ifstream in(m_file, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

void DebugCapture::clear() {
    std::ofstream(m_file, std::ios::binary | std::ios::trunc);
}

}  // namespace vt::test
