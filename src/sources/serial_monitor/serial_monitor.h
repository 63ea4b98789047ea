#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "base/quillet_string.h"
#include "platform/serial_port.h"
#include "sources/info_source.h"

// Cuts the byte stream of a serial line into lines: CR, LF and CR LF end a line, empty lines
// are dropped (a CR LF split across two reads must not make one), and a line longer than the
// limit is handed on in pieces of the limit, so a device that never sends a line end cannot
// make us buffer without end.
class CSerialLineSplitter {
  public:
    explicit CSerialLineSplitter(size_t maxLength) : m_maxLength(maxLength ? maxLength : 1) {}
    void feed(std::string_view bytes, const std::function<void(std::string_view)>& onLine);

  private:
    size_t m_maxLength;
    std::string m_line;
};

// Every line a device sends on a serial port becomes a unit. A port that cannot be opened, or
// that fails (an adapter pulled out), is logged once and opened again every "nSleepTime".
class CInfoSourceSerialMonitor : public CInfoSource {
  public:
    explicit CInfoSourceSerialMonitor(const vt::InfoSourceContext& context);

    bool LoadConfig() override;
    void Run() override;
    // One line of the port handed to the queue.
    bool handOver(std::string_view line);

    CQuilletString m_szPortName;            // "szPortName"
    vt::SerialSettings m_port;              // "nBps", "nDatabits", "nParity", "nStopbits"
    uint32_t m_nSleepTime = 10000;          // "nSleepTime": ms before the port is opened again
    uint32_t m_nMaxBytesPerMessage = 4096;  // "nMaxBytesPerMessage"

  private:
    // Reads lines until the port fails or the run flag is cleared.
    void readPort(vt::CSerialPort& port);
};
