#include <gtest/gtest.h>

#ifndef _WIN32
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "actions/actions_test_helper.h"

namespace vt::test {
namespace {

class SpawnCommandTest : public testing::Test {
  protected:
    ScopedRegistry registry;
    TempDir dir;
    CConfigSettings settings;
    std::u16string key = registry.base() + u"\\A1";

    // A script the action runs directly (no shell reads our command line; the script's own
    // interpreter reads only the script).
    std::string script(const std::string& name, const std::string& body) {
        const auto path = dir.path() / name;
        std::ofstream(path) << "#!/bin/sh\n" << body;
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        return path.string();
    }
    std::unique_ptr<CActionListEntry> load(const std::string& command, const std::string& params,
                                           uint32_t procMode, uint32_t timeout = 10) {
        regSetString(key, u"szCommand", u16(command));
        regSetString(key, u"szParameters", u16(params));
        regSetDword(key, u"nProcMode", procMode);
        regSetDword(key, u"nSyncTimeout", timeout);
        regSetDword(key, u"nSetEnvVars", 1);
        return loadAction(key, 1009);
    }
};

// Message text full of shell syntax reaches the program as one literal argument, nothing of it
// runs, and the unit's properties arrive as VTAGENT_ variables.
TEST_F(SpawnCommandTest, MessageTextStaysOneLiteralArgument) {
    const std::string out = (dir.path() / "args.txt").string();
    const std::string prog =
        script("record", "for a in \"$@\"; do printf '[%s]\\n' \"$a\"; done > " + out +
                             "\necho \"$VTAGENT_MSG|$VTAGENT_SOURCE\" >> " + out + "\n");
    auto entry = load(prog, "--host %source% \"msg: %msg%\"", 1);
    const std::u16string hostile = u"; rm -rf / $(touch pwned) \"q\" `touch pwned2` 'x'";
    entry->CallAction(*makeForwardUnit(hostile), settings);
    const std::string expected = "[--host]\n[host1]\n[msg: " + utf16ToUtf8(hostile) + "]\n" +
                                 utf16ToUtf8(hostile) + "|host1\n";
    EXPECT_EQ(readFileBytes(out), expected);
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "pwned"));
    EXPECT_FALSE(std::filesystem::exists("pwned2"));
}

// A program that does not end within the time-out is killed with everything it started.
TEST_F(SpawnCommandTest, HungProgramIsKilledWithItsChildren) {
    const std::string pidFile = (dir.path() / "child.pid").string();
    const std::string prog = script("hang", "sleep 60 &\necho $! > " + pidFile + "\nwait\n");
    auto entry = load(prog, "", 1, 1);
    DebugCapture log;
    entry->CallAction(*makeForwardUnit(u"x"), settings);
    EXPECT_EQ(log.count("Spawn: we need to kill it..."), 1u);
    const pid_t child = std::stoi(readFileBytes(pidFile));
    // Killed but not reaped (its parent is gone) is a zombie: dead for this purpose. The
    // signal is delivered asynchronously, so look for a while.
    auto running = [child] {
        std::ifstream stat("/proc/" + std::to_string(child) + "/stat");
        std::string pid, name, state;
        return bool(stat >> pid >> name >> state) && state != "Z";
    };
    for (int i = 0; i < 200 && running(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_FALSE(running()) << "the program's child still runs";

    auto missing = load((dir.path() / "no-such-program").string(), "", 1);
    missing->CallAction(*makeForwardUnit(u"x"), settings);
    EXPECT_EQ(log.count("CreateProcess failed!"), 1u);
}

}  // namespace
}  // namespace vt::test
#endif
