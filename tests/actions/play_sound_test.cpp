#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "actions/actions_test_helper.h"
#include "actions/play_sound/action_play_sound.h"
#include "platform/sound.h"
#include "service/action_type_table.h"

namespace vt::test {
namespace {

std::string le(uint32_t v, int bytes) {
    std::string s;
    for (int i = 0; i < bytes; ++i) s.push_back(static_cast<char>((v >> (8 * i)) & 0xff));
    return s;
}

std::string wav(uint16_t format, uint16_t channels, uint16_t bits, const std::string& data,
                uint32_t dataSize) {
    const std::string fmt = "fmt " + le(16, 4) + le(format, 2) + le(channels, 2) + le(8000, 4) +
                            le(8000 * channels * bits / 8, 4) + le(channels * bits / 8, 2) +
                            le(bits, 2);
    // An odd-sized chunk before the data, padded as the format asks.
    const std::string list = "LIST" + le(3, 4) + "abc" + std::string(1, '\0');
    const std::string body = "WAVE" + fmt + list + "data" + le(dataSize, 4) + data;
    return "RIFF" + le(static_cast<uint32_t>(body.size()), 4) + body;
}

// What is played and what is refused: PCM of 8 and 16 bits; other codings, truncated files and
// files without format or data are errors, never reads beyond the file.
TEST(WavFormat, ParsesPcmAndRefusesTheRest) {
    struct Row {
        std::string bytes;
        bool ok;
        size_t samples;
    } rows[] = {
        {wav(1, 2, 16, std::string(8, 'x'), 8), true, 8},
        {wav(1, 1, 8, std::string(5, 'x'), 5), true, 5},
        {wav(3, 1, 16, std::string(4, 'x'), 4), false, 0},    // floating point
        {wav(1, 1, 16, std::string(4, 'x'), 400), false, 0},  // data chunk runs past the end
        {wav(1, 1, 16, "", 0).substr(0, 30), false, 0},
        {"RIFF\x04\0\0\0WAVEdata\0\0\0\0", false, 0},
        {std::string("\0\xff garbage", 10), false, 0},
    };
    for (const Row& row : rows) {
        vt::WavSound sound;
        std::string error;
        EXPECT_EQ(vt::parseWav(row.bytes, sound, error), row.ok) << error;
        if (row.ok)
            EXPECT_EQ(sound.samples.size(), row.samples);
        else
            EXPECT_FALSE(error.empty());
    }
}

// "nCount" plays with "nDelay" between them; a machine without sound gets one line and the
// action does not fail.
TEST(PlaySound, PlaysCountTimesAndNeverFails) {
    ScopedRegistry registry;
    const std::u16string key = registry.base() + u"\\A1";
    regSetString(key, u"szFileName", u"/usr/share/sounds/alert.wav");
    regSetDword(key, u"nCount", 3);
    regSetDword(key, u"nDelay", 500);
    for (bool deviceThere : {true, false}) {
        FakeClock clock;
        CActionListEntry entry(CQuilletString(u"Action"), CQuilletString(key), 1016,
                               ActionLoadContext{nullptr, agentActionTypes(), &clock});
        auto* action = static_cast<CActionPlaySound*>(entry.getAction());
        int plays = 0;
        action->m_play = [&](const std::string& file, std::string& error) {
            ++plays;
            error = "no sound device";
            return deviceThere && file == "/usr/share/sounds/alert.wav";
        };
        DebugCapture log;
        auto unit = makeForwardUnit(u"x");
        CConfigSettings settings;
        entry.CallAction(*unit, settings);
        EXPECT_EQ(plays, deviceThere ? 3 : 1);
        const std::vector<uint32_t> pauses =
            deviceThere ? std::vector<uint32_t>{500, 500} : std::vector<uint32_t>{};
        EXPECT_EQ(clock.sleepDurations(), pauses);
        EXPECT_EQ(log.count("not played: no sound device"), deviceThere ? 0u : 1u);
        EXPECT_EQ(unit->getActionFailed(), 0);
    }
#ifndef _WIN32
    if (!std::filesystem::exists("/dev/snd")) {
        std::string error;
        EXPECT_FALSE(vt::playSoundFile("/nonexistent.wav", error));
        EXPECT_EQ(error, "no sound device");
    }
#endif
}

}  // namespace
}  // namespace vt::test
