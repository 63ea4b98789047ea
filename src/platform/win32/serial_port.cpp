#include "platform/serial_port.h"

#include <windows.h>

#include "platform/utf_codec.h"

namespace vt {

namespace {

HANDLE handleOf(intptr_t h) {
    return reinterpret_cast<HANDLE>(h);
}

}  // namespace

const char* defaultSerialPortName() noexcept {
    return "COM1";
}

bool CSerialPort::open(const std::string& name, const SerialSettings& settings, uint32_t& error) {
    close();
    // "COM10" and above are only reachable through the device namespace.
    const std::string device = name.rfind("\\\\.\\", 0) == 0 ? name : "\\\\.\\" + name;
    const std::u16string wide = utf8ToUtf16(device);
    HANDLE h = CreateFileW(reinterpret_cast<LPCWSTR>(wide.c_str()), GENERIC_READ | GENERIC_WRITE, 0,
                           nullptr, OPEN_EXISTING, 0, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        error = GetLastError();
        return false;
    }
    DCB dcb{};
    dcb.DCBlength = sizeof dcb;
    const bool valid = settings.dataBits >= 5 && settings.dataBits <= 8 && settings.parity <= 4 &&
                       settings.stopBits <= 2;
    if (!valid || !GetCommState(h, &dcb)) {
        error = valid ? GetLastError() : ERROR_INVALID_PARAMETER;
        CloseHandle(h);
        return false;
    }
    dcb.BaudRate = settings.bps;
    dcb.ByteSize = static_cast<BYTE>(settings.dataBits);
    dcb.Parity = static_cast<BYTE>(settings.parity);
    dcb.StopBits = static_cast<BYTE>(settings.stopBits);
    dcb.fBinary = TRUE;
    dcb.fParity = settings.parity != 0;
    dcb.fDtrControl = settings.dtrControl <= 2 ? settings.dtrControl : DTR_CONTROL_DISABLE;
    dcb.fRtsControl = settings.rtsControl <= 3 ? settings.rtsControl : RTS_CONTROL_DISABLE;
    if (!SetCommState(h, &dcb)) {
        error = GetLastError();
        CloseHandle(h);
        return false;
    }
    m_handle = reinterpret_cast<intptr_t>(h);
    return true;
}

int CSerialPort::read(char* buffer, size_t length, uint32_t timeoutMs) noexcept {
    if (!isOpen()) return -1;
    // Return what has arrived as soon as anything has, or nothing after the time-out.
    COMMTIMEOUTS timeouts{MAXDWORD, MAXDWORD, timeoutMs ? timeoutMs : 1, 0, 5000};
    SetCommTimeouts(handleOf(m_handle), &timeouts);
    DWORD got = 0;
    if (!ReadFile(handleOf(m_handle), buffer, static_cast<DWORD>(length), &got, nullptr)) return -1;
    return static_cast<int>(got);
}

bool CSerialPort::write(std::string_view bytes, uint32_t timeoutMs) noexcept {
    if (!isOpen()) return false;
    COMMTIMEOUTS timeouts{MAXDWORD, MAXDWORD, 1, 0, timeoutMs};
    SetCommTimeouts(handleOf(m_handle), &timeouts);
    DWORD written = 0;
    return WriteFile(handleOf(m_handle), bytes.data(), static_cast<DWORD>(bytes.size()), &written,
                     nullptr) &&
           written == bytes.size();
}

void CSerialPort::close() noexcept {
    if (isOpen()) CloseHandle(handleOf(m_handle));
    m_handle = kClosed;
}

}  // namespace vt
