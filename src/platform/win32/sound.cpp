#include <windows.h>
// The multimedia header needs the Windows types first.
#include <mmsystem.h>

#include "platform/sound.h"
#include "platform/utf_codec.h"

namespace vt {

bool playSoundFile(const std::string& path, std::string& error) {
    const std::u16string wide = utf8ToUtf16(path);
    if (PlaySoundW(reinterpret_cast<LPCWSTR>(wide.c_str()), nullptr,
                   SND_FILENAME | SND_SYNC | SND_NODEFAULT))
        return true;
    error = "the file could not be played (no sound device, or not a playable file)";
    return false;
}

}  // namespace vt
