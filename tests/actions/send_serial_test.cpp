#include <gtest/gtest.h>

#ifndef _WIN32
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include "actions/actions_test_helper.h"

namespace vt::test {
namespace {

// A pseudo-terminal stands in for the line: the device side receives exactly the rendered
// message, and the port was set raw at the configured speed. A port that
// cannot be opened fails the action, so the retry rules apply.
TEST(SendSerial, WritesTheMessageWithTheLineSettings) {
    int device = -1, port = -1;
    char name[128];
    ASSERT_EQ(::openpty(&device, &port, name, nullptr, nullptr), 0);
    ScopedRegistry registry;
    const std::u16string key = registry.base() + u"\\A1";
    regSetString(key, u"szPortName", u16(std::string(name)));
    regSetString(key, u"szMessage", u"ALERT %source%: %msg%\r\n");
    regSetDword(key, u"nBps", 9600);
    regSetDword(key, u"nDatabits", 7);
    regSetDword(key, u"nParity", 2);
    auto entry = loadAction(key, 1017);
    CConfigSettings settings;
    auto unit = makeForwardUnit(u"disk full");
    entry->CallAction(*unit, settings);
    EXPECT_EQ(unit->getActionFailed(), 0);

    termios t{};
    ASSERT_EQ(::tcgetattr(port, &t), 0);
    EXPECT_EQ(cfgetospeed(&t), B9600);
    // Raw: no echo, no line editing, no output translation of the message's bytes. (A
    // pseudo-terminal keeps eight data bits and no parity whatever is asked, so those two
    // settings cannot be seen here.)
    EXPECT_EQ(t.c_lflag & (ICANON | ECHO), tcflag_t(0));
    EXPECT_EQ(t.c_oflag & OPOST, tcflag_t(0));
    std::string got;
    char buffer[256];
    pollfd p{device, POLLIN, 0};
    while (got.size() < 23 && ::poll(&p, 1, 5000) == 1) {
        const ssize_t n = ::read(device, buffer, sizeof buffer);
        if (n <= 0) break;
        got.append(buffer, static_cast<size_t>(n));
    }
    EXPECT_EQ(got, "ALERT host1: disk full\r\n");
    ::close(device);
    ::close(port);

    regSetString(key, u"szPortName", u"/dev/no-such-serial-port");
    auto missing = loadAction(key, 1017);
    missing->CallAction(*unit, settings);
    EXPECT_EQ(unit->getActionFailed(), 1);
}

}  // namespace
}  // namespace vt::test
#endif
