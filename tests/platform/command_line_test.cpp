#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/spawn_process.h"

namespace {

using Args = std::vector<std::string>;

// The splitting rules of Windows programs, case by case, and joins that split back into the
// same arguments whatever they hold (blanks, quotes, trailing backslashes, nothing at all).
TEST(CommandLine, SplitsByWindowsRulesAndJoinsBack) {
    const std::pair<const char*, Args> splits[] = {
        {R"(prog a  b	c)", {"prog", "a", "b", "c"}},
        {R"("C:\Program Files\x.exe" "two words")", {R"(C:\Program Files\x.exe)", "two words"}},
        {R"(a\\\"b c\\"d e" f)", {R"(a\"b)", R"(c\d e)", "f"}},
        {R"(a\\b "c\\" "say ""hi""")", {R"(a\\b)", R"(c\)", R"(say "hi")"}},
        {R"("" x)", {"", "x"}},
        {"  ", {}},
    };
    for (const auto& [line, args] : splits) EXPECT_EQ(vt::splitCommandLine(line), args) << line;
    const Args hostile = {"prog",       "; rm -rf /", "$(touch x)", "`id`",
                          R"(a "b" \)", "",           R"(\\)",      "tab\there"};
    EXPECT_EQ(vt::splitCommandLine(vt::joinCommandLine(hostile)), hostile);
}

#ifdef _WIN32
// The Windows side of starting a program: the joined command line reaches the program, and a
// waited-for program's exit code comes back.
TEST(SpawnProgram, WaitsForTheExitCode) {
    vt::SpawnOptions options;
    options.wait = true;
    vt::SpawnResult result;
    ASSERT_TRUE(vt::spawnProgram({"cmd.exe", "/c", "exit 3"}, options, result)) << result.error;
    EXPECT_TRUE(result.finished);
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_FALSE(vt::spawnProgram({"no-such-program-here.exe"}, options, result));
}
#endif

}  // namespace
