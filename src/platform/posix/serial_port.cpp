#include "platform/serial_port.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>

namespace vt {

namespace {

speed_t speedOf(uint32_t bps) {
    switch (bps) {
        case 1200:
            return B1200;
        case 2400:
            return B2400;
        case 4800:
            return B4800;
        case 9600:
            return B9600;
        case 19200:
            return B19200;
        case 38400:
            return B38400;
        case 57600:
            return B57600;
        case 115200:
            return B115200;
        case 230400:
            return B230400;
        default:
            return B0;
    }
}

bool applySettings(int fd, const SerialSettings& s) {
    termios t{};
    const speed_t speed = speedOf(s.bps);
    if (tcgetattr(fd, &t) != 0 || speed == B0 || s.dataBits < 5 || s.dataBits > 8 || s.parity > 4)
        return false;
    cfmakeraw(&t);
    cfsetispeed(&t, speed);
    cfsetospeed(&t, speed);
    t.c_cflag &= ~(CSIZE | PARENB | PARODD | CMSPAR | CSTOPB);
    t.c_cflag |= CLOCAL | CREAD;
    t.c_cflag |= s.dataBits == 5 ? CS5 : s.dataBits == 6 ? CS6 : s.dataBits == 7 ? CS7 : CS8;
    if (s.parity != 0) t.c_cflag |= PARENB;
    if (s.parity == 1 || s.parity == 3) t.c_cflag |= PARODD;
    if (s.parity >= 3) t.c_cflag |= CMSPAR;
    if (s.stopBits != 0) t.c_cflag |= CSTOPB;  // termios has no one and a half
    if (s.rtsControl >= 2) t.c_cflag |= CRTSCTS;
    t.c_cc[VMIN] = 0;
    t.c_cc[VTIME] = 0;
    return tcsetattr(fd, TCSANOW, &t) == 0;
}

}  // namespace

const char* defaultSerialPortName() noexcept {
    return "/dev/ttyS0";
}

bool CSerialPort::open(const std::string& name, const SerialSettings& settings, uint32_t& error) {
    close();
    const int fd = ::open(name.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        error = static_cast<uint32_t>(errno);
        return false;
    }
    if (!applySettings(fd, settings)) {
        error = errno != 0 ? static_cast<uint32_t>(errno) : EINVAL;
        ::close(fd);
        return false;
    }
    // The modem lines as configured; a pseudo-terminal has none, which is no reason to fail.
    int dtr = TIOCM_DTR, rts = TIOCM_RTS;
    ::ioctl(fd, settings.dtrControl ? TIOCMBIS : TIOCMBIC, &dtr);
    if (settings.rtsControl < 2) ::ioctl(fd, settings.rtsControl ? TIOCMBIS : TIOCMBIC, &rts);
    m_handle = fd;
    return true;
}

int CSerialPort::read(char* buffer, size_t length, uint32_t timeoutMs) noexcept {
    if (!isOpen()) return -1;
    pollfd p{static_cast<int>(m_handle), POLLIN, 0};
    const int ready = ::poll(&p, 1, static_cast<int>(timeoutMs));
    if (ready == 0 || (ready < 0 && errno == EINTR)) return 0;
    if (ready < 0) return -1;
    const ssize_t n = ::read(static_cast<int>(m_handle), buffer, length);
    if (n > 0) return static_cast<int>(n);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return 0;
    return -1;  // hang-up (the other end of a pseudo-terminal closed, a USB adapter pulled)
}

bool CSerialPort::write(std::string_view bytes, uint32_t timeoutMs) noexcept {
    if (!isOpen()) return false;
    while (!bytes.empty()) {
        const ssize_t n = ::write(static_cast<int>(m_handle), bytes.data(), bytes.size());
        if (n < 0 && errno == EAGAIN) {
            pollfd p{static_cast<int>(m_handle), POLLOUT, 0};
            if (::poll(&p, 1, static_cast<int>(timeoutMs)) != 1) return false;
            continue;
        }
        if (n <= 0) return false;
        bytes.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

void CSerialPort::close() noexcept {
    if (isOpen()) ::close(static_cast<int>(m_handle));
    m_handle = kClosed;
}

}  // namespace vt
