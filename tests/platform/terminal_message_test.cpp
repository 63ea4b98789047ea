#include "platform/terminal_message.h"

#include <gtest/gtest.h>

#include <string>

#ifndef _WIN32
#include <poll.h>
#include <pty.h>
#include <unistd.h>
#include <utmpx.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "common/registry_fixture.h"

namespace {

// A login record of the test's own places "alice" on a pseudo-terminal: the message reaches
// it with escape sequences disarmed; a user without a terminal is an error, not a hang.
TEST(TerminalMessage, ReachesTheUsersTerminalsOnly) {
    int device = -1, terminal = -1;
    char name[128];
    ASSERT_EQ(::openpty(&device, &terminal, name, nullptr, nullptr), 0);
    vt::test::TempDir dir;
    const std::string records = (dir.path() / "utmp").string();
    std::ofstream(records).close();
    utmpxname(records.c_str());
    utmpx entry{};
    entry.ut_type = USER_PROCESS;
    entry.ut_pid = ::getpid();
    std::strncpy(entry.ut_user, "alice", sizeof entry.ut_user);
    std::strncpy(entry.ut_line, name + 5, sizeof entry.ut_line);  // without "/dev/"
    setutxent();
    ASSERT_NE(pututxline(&entry), nullptr);
    endutxent();
    utmpxname(_PATH_UTMPX);

    uint32_t error = 0;
    ASSERT_TRUE(vt::sendTerminalMessage("alice", "disk \x1b[2J full\n", error, records));
    std::string got;
    char buffer[256];
    pollfd p{device, POLLIN, 0};
    while (got.find("full") == std::string::npos && ::poll(&p, 1, 5000) == 1) {
        const ssize_t n = ::read(device, buffer, sizeof buffer);
        if (n <= 0) break;
        got.append(buffer, static_cast<size_t>(n));
    }
    std::erase(got, '\r');  // the terminal's own output processing adds some
    EXPECT_NE(got.find("Message from vtagent:\ndisk ?[2J full\n"), std::string::npos) << got;
    EXPECT_FALSE(vt::sendTerminalMessage("bob", "x", error, records));
    EXPECT_EQ(error, uint32_t(ENOENT));
    ::close(device);
    ::close(terminal);
}

}  // namespace
#endif
