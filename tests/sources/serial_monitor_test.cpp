#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sources/serial_monitor/serial_monitor.h"

namespace {

// Line ends of every kind, a CR LF split across two reads (no empty line between), empty lines
// dropped, and a device that never ends its line handed on in pieces of the limit.
TEST(SerialLineSplitter, CutsLinesAcrossReads) {
    struct Row {
        std::vector<std::string> reads;
        std::vector<std::string> lines;
    } rows[] = {
        {{"a\r\nb\nc\rd"}, {"a", "b", "c"}},
        {{"one\r", "\ntwo\r\n", "\r\n\n"}, {"one", "two"}},
        {{"0123456789ab", "cd\n"}, {"01234", "56789", "abcd"}},
        {{std::string("\0\xff\xfe\n", 4)}, {std::string("\0\xff\xfe", 3)}},
    };
    for (const Row& row : rows) {
        CSerialLineSplitter splitter(5);
        std::vector<std::string> got;
        for (const std::string& read : row.reads)
            splitter.feed(read, [&](std::string_view line) { got.emplace_back(line); });
        EXPECT_EQ(got, row.lines) << row.reads.front();
    }
}

}  // namespace
