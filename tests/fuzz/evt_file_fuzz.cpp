// Feeds arbitrary bytes to the event log monitor's reader of .evt backup files: it must read
// whatever records it can find (corrupted ones become one "corrupted" answer each) and end.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/event_log_reader.h"

namespace {
void check(bool ok) {
    if (!ok) std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string path = "/tmp/vt_evt_fuzz_" + std::to_string(::getpid()) + ".evt";
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return 0;
    std::fwrite(data, 1, size, f);
    std::fclose(f);
    vt::EventLogSource source;
    source.backupFile = true;
    source.fileName = path;
    auto reader = vt::makeEventLogReader(source);
    if (reader->open() != 0) return 0;
    std::vector<vt::EventRecord> records;
    uint32_t status = reader->readFirst({}, records);
    size_t reads = 0, seen = 0;
    // A record needs more than 56 bytes, so a file this size cannot hold more reads than this.
    const size_t bound = size / 56 * 2 + 4;
    while (status == 0 || status == vt::kEventLogCorrupt) {
        check(++reads <= bound);
        seen += records.size();
        status = reader->readNext(records);
    }
    check(status == vt::kEventLogEnd);
    check(seen <= size / 56 + 1);
    return 0;
}
