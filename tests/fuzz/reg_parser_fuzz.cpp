// Feeds arbitrary bytes to the .reg reader. Parsing only: nothing reaches the registry. A file
// that parses must also survive formatting each of its values and parsing the result.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "vtreg/reg_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vtreg::RegFile file;
    vtreg::RegParseError error;
    if (!vtreg::parseRegFile(std::string_view(reinterpret_cast<const char*>(data), size), file,
                             error)) {
        if (error.reason.empty()) __builtin_trap();  // every failure must say why
        return 0;
    }
    for (const auto& key : file.keys) {
        for (const auto& value : key.values) {
            if (value.remove) continue;
            // UTF-16 as regedit writes it: any name survives, lone surrogates included.
            const std::u16string line =
                u"Windows Registry Editor Version 5.00\r\n[HKLM\\K]\r\n" +
                vtreg::formatRegValue({value.name, value.type, value.data}) + u"\r\n";
            std::string text = "\xFF\xFE";
            for (char16_t c : line) {
                text.push_back(static_cast<char>(c & 0xFF));
                text.push_back(static_cast<char>(c >> 8));
            }
            vtreg::RegFile again;
            if (!vtreg::parseRegFile(text, again, error) || again.keys.size() != 1 ||
                again.keys[0].values.size() != 1 || again.keys[0].values[0].data != value.data ||
                again.keys[0].values[0].type != value.type ||
                again.keys[0].values[0].name != value.name)
                __builtin_trap();  // the writer must give back exactly what the reader read
        }
    }
    return 0;
}
