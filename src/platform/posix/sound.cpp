#include "platform/sound.h"

#include <alsa/asoundlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace vt {

bool playSoundFile(const std::string& path, std::string& error) {
    std::error_code ec;
    if (!std::filesystem::exists("/dev/snd", ec)) {
        error = "no sound device";
        return false;
    }
    std::ifstream in(path, std::ios::binary);
    std::stringstream data;
    data << in.rdbuf();
    if (!in) {
        error = "cannot read the file";
        return false;
    }
    const std::string bytes = data.str();
    WavSound wav;
    if (!parseWav(bytes, wav, error)) return false;
    snd_pcm_t* pcm = nullptr;
    int r = snd_pcm_open(&pcm, "default", SND_PCM_STREAM_PLAYBACK, 0);
    if (r < 0) {
        error = std::string("no sound device: ") + snd_strerror(r);
        return false;
    }
    r = snd_pcm_set_params(pcm, wav.bits == 16 ? SND_PCM_FORMAT_S16_LE : SND_PCM_FORMAT_U8,
                           SND_PCM_ACCESS_RW_INTERLEAVED, wav.channels, wav.rate, 1, 500000);
    const size_t frameBytes = size_t(wav.channels) * (wav.bits / 8);
    for (size_t at = 0; r >= 0 && at + frameBytes <= wav.samples.size();) {
        const snd_pcm_sframes_t frames = (wav.samples.size() - at) / frameBytes;
        const snd_pcm_sframes_t written = snd_pcm_writei(pcm, wav.samples.data() + at, frames);
        if (written < 0)
            r = snd_pcm_recover(pcm, static_cast<int>(written), 1);
        else
            at += static_cast<size_t>(written) * frameBytes;
    }
    if (r >= 0) snd_pcm_drain(pcm);
    snd_pcm_close(pcm);
    if (r < 0) error = std::string("the sound device refused it: ") + snd_strerror(r);
    return r >= 0;
}

}  // namespace vt
