// Compiles the first line of the input as a post-process template and parses the rest with it;
// checks what must hold for any template and message.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "actions/post_process/parse_template.h"

namespace {
void check(bool ok) {
    if (!ok) std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const size_t newline = input.find('\n');
    const std::string_view templ = input.substr(0, newline);
    const std::string_view message =
        newline == std::string_view::npos ? std::string_view() : input.substr(newline + 1);
    CCustomParseList list;
    std::string error;
    if (!list.add(templ, error)) {
        check(!error.empty());
        return 0;
    }
    CCustomParseList::Properties found;
    if (!list.parse(message, found)) return 0;
    // Every stored piece is a piece of the message, and together they cannot be longer.
    size_t total = 0;
    for (const auto& [name, value] : found) {
        check(!name.empty() && name != "-");
        check(message.find(value) != std::string_view::npos);
        total += value.size();
    }
    check(total <= message.size());
    return 0;
}
