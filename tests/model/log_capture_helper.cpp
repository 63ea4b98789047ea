#include "model/log_capture_helper.h"

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "service/debug_log.h"

namespace {
vt::DebugLogSettings g_saved;
std::atomic<int> g_counter{0};
}  // namespace

LogCapture::LogCapture(unsigned mask) {
    g_saved = vt::debugSettings();
    std::random_device rd;
    const auto dir = std::filesystem::temp_directory_path();
    m_path = (dir /
              ("vt_model_log_" + std::to_string(rd()) + "_" + std::to_string(g_counter++) + ".txt"))
                 .string();
    std::remove(m_path.c_str());
    vt::DebugLogSettings s;
    s.enabled = true;
    s.mask = mask;
    s.fileName = m_path;
    vt::debugConfigure(s);
}

LogCapture::~LogCapture() {
    vt::debugConfigure(g_saved);
    std::remove(m_path.c_str());
}

std::string LogCapture::text() const {
    std::ifstream in(m_path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

size_t LogCapture::count(const std::string& needle) const {
    const std::string t = text();
    size_t n = 0;
    for (size_t p = t.find(needle); p != std::string::npos; p = t.find(needle, p + needle.size()))
        ++n;
    return n;
}

void LogCapture::clear() {
    std::remove(m_path.c_str());
}
