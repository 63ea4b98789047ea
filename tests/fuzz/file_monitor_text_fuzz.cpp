// Cuts arbitrary bytes into lines in every encoding and with small and large piece sizes, and
// splits them as W3C lines, checking what must hold for any file content.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "sources/file_monitor/file_monitor_text.h"

namespace {
void check(bool ok) {
    if (!ok) std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const size_t maxBytes = 4 + data[0] % 64;
    const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    for (auto encoding :
         {vt::TextEncoding::Utf8, vt::TextEncoding::Utf16LE, vt::TextEncoding::Utf16BE}) {
        size_t pos = 0;
        vt::LineCut cut;
        while (vt::findLine(bytes.substr(pos), encoding, maxBytes, cut)) {
            // Every call moves on, stays inside the buffer and keeps pieces within the limit.
            check(cut.consumed > 0 && cut.contentBytes <= cut.consumed);
            check(pos + cut.consumed <= bytes.size());
            check(!cut.piece || (cut.contentBytes <= maxBytes && cut.contentBytes == cut.consumed));
            const std::u16string line =
                vt::decodeLine(bytes.substr(pos, cut.contentBytes), encoding);
            if (!cut.piece) check(line.find(u'\n') == std::u16string::npos);
            size_t nuls = 0;
            const std::u16string clean = vt::cleanLine(line, {true, true, true}, nuls);
            check(clean.size() + nuls <= line.size());
            check(clean.find(u'\0') == std::u16string::npos);
            const auto columns = vt::splitW3CColumns(line);
            check(!columns.empty());
            for (const auto& column : columns) check(column.size() <= vt::kMaxW3CColumn);
            pos += cut.consumed;
        }
        check(pos <= bytes.size());
    }
    return 0;
}
