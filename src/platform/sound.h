#pragma once
// Sounds for the play-sound action: WAV files through the system's player on Windows and
// through ALSA's default device on Linux.
#include <cstdint>
#include <string>
#include <string_view>

namespace vt {

struct WavSound {
    uint16_t channels = 0;
    uint32_t rate = 0;
    uint16_t bits = 0;         // 8 or 16
    std::string_view samples;  // into the parsed bytes
};

// The PCM data of a RIFF WAVE file (8- or 16-bit, one or two channels); false with `error` for
// anything else, truncated files included.
bool parseWav(std::string_view bytes, WavSound& out, std::string& error);

// Plays the file once, to its end. False with `error` ("no sound device", the file cannot be
// read or is no playable WAV, the device refused it).
bool playSoundFile(const std::string& path, std::string& error);

}  // namespace vt
