#include "sources/event_log/event_log_text.h"

#include <cstdio>

namespace {

bool isControl(char c) {
    const auto u = static_cast<unsigned char>(c);
    return u < 32 || u == 127;
}

std::string withoutControl(const std::string& text) {
    std::string out;
    for (const char c : text)
        if (!isControl(c)) out.push_back(c);
    return out;
}

// Every run of control characters (line ends, tabs) becomes one blank.
std::string compressed(const std::string& text) {
    std::string out;
    bool inRun = false;
    for (const char c : text) {
        if (isControl(c)) {
            if (!inRun) out.push_back(' ');
            inRun = true;
        } else {
            out.push_back(c);
            inRun = false;
        }
    }
    return out;
}

std::string body(const vt::EventRecord& r, const EventTextOptions& o) {
    if (!r.message.empty()) return r.message;
    char head[512];
    std::snprintf(head, sizeof head,
                  "The description for Event ID ( %u ) in Source ( %s ) could not be found. It "
                  "contains the following insertion string(s):",
                  r.eventId & 0xffffu, r.source.c_str());
    std::string text = head;
    for (const std::string& s : r.strings)
        text += " " + (o.removeControlFromParams ? withoutControl(s) : s);
    return text;
}

}  // namespace

const char* severityTag(uint16_t type) noexcept {
    switch (type) {
        case 1:
            return "[ERR]";
        case 2:
            return "[WRN]";
        case 4:
            return "[INF]";
        case 8:
            return "[AUS]";
        case 16:
            return "[AUF]";
        default:
            return "[NON]";
    }
}

uint32_t eventFilterBit(uint16_t type) noexcept {
    return type == 0 ? 1u : uint32_t(type) * 2u;
}

std::string eventText(const vt::EventRecord& r, const std::string& logName,
                      const EventTextOptions& o) {
    std::string text = body(r, o);
    if (o.compressControl) text = compressed(text);
    const std::string id = std::to_string(r.eventId & 0xffffu);
    if (o.legacy) return r.source + ": " + id + ": " + text;
    std::string out = std::string(severityTag(r.type)) + " ";
    if (o.addLogType) out += "[" + logName + "] ";
    if (o.addFacility) out += r.source + ": ";
    out += id + ": ";
    if (o.addUser && !r.user.empty()) out += r.user + ": ";
    return out + text;
}
