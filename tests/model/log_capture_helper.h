#pragma once
#include <memory>
#include <string>

namespace vt::test {
class DebugCapture;
}

// Routes the debug log into a temporary file with every level on, for tests that check what
// the model writes there. Restores the previous settings when destroyed.
class LogCapture {
  public:
    explicit LogCapture(unsigned mask = 0xFF);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::string text() const;
    // Number of times `needle` occurs in the log so far.
    size_t count(const std::string& needle) const;
    void clear();

  private:
    std::unique_ptr<vt::test::DebugCapture> m_capture;
};
