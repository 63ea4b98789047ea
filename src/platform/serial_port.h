#pragma once
// A serial port, for the serial monitor and the send-to-serial action: termios on Linux
// ("/dev/ttyS0", "/dev/ttyUSB0", a pseudo-terminal), COMn on Windows.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vt {

struct SerialSettings {
    uint32_t bps = 57600;
    uint32_t dataBits = 8;    // 5-8
    uint32_t parity = 0;      // 0 none, 1 odd, 2 even, 3 mark, 4 space
    uint32_t stopBits = 0;    // 0 one, 1 one and a half (two on Linux), 2 two
    uint32_t dtrControl = 0;  // 0 off, 1 on, 2 handshake (Windows; on on Linux)
    uint32_t rtsControl = 0;  // 0 off, 1 on, 2 handshake, 3 toggle (Windows; handshake on Linux)
};

// The port a serial monitor opens when none is configured: "/dev/ttyS0" or "COM1".
const char* defaultSerialPortName() noexcept;

class CSerialPort {
  public:
    CSerialPort() = default;
    ~CSerialPort() { close(); }
    CSerialPort(const CSerialPort&) = delete;
    CSerialPort& operator=(const CSerialPort&) = delete;

    // False with `error` (errno or GetLastError; EINVAL/87 for settings the port refuses).
    bool open(const std::string& name, const SerialSettings& settings, uint32_t& error);
    // Waits up to timeoutMs for bytes: > 0 bytes read, 0 none in time, < 0 the port failed.
    int read(char* buffer, size_t length, uint32_t timeoutMs) noexcept;
    // Everything, or false when the port fails or takes longer than timeoutMs.
    bool write(std::string_view bytes, uint32_t timeoutMs = 5000) noexcept;
    void close() noexcept;
    bool isOpen() const noexcept { return m_handle != kClosed; }

  private:
    static constexpr intptr_t kClosed = -1;
    intptr_t m_handle = kClosed;
};

}  // namespace vt
