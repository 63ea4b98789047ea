#include "model/log_capture_helper.h"

#include "common/registry_fixture.h"

// The model's tests count lines in the shared debug capture.
LogCapture::LogCapture(unsigned mask) : m_capture(std::make_unique<vt::test::DebugCapture>(mask)) {}

LogCapture::~LogCapture() = default;

std::string LogCapture::text() const {
    return m_capture->text();
}

size_t LogCapture::count(const std::string& needle) const {
    const std::string t = text();
    size_t n = 0;
    for (size_t p = t.find(needle); p != std::string::npos; p = t.find(needle, p + needle.size()))
        ++n;
    return n;
}

void LogCapture::clear() {
    m_capture->clear();
}
