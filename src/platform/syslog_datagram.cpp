#include <cstdio>

#include "platform/event_log.h"

namespace vt {
namespace {
constexpr int kFacilityDaemon = 3;

int severityOf(EventType type) {
    switch (type) {
        case EventType::error:
            return 3;
        case EventType::warning:
            return 4;
        default:
            return 6;
    }
}
}  // namespace

std::string syslogEventDatagram(const char* tag, EventType type, uint32_t eventId,
                                std::string_view text, std::string_view secondText, bool hasSecond,
                                const std::tm& localTime, uint32_t processId) {
    static constexpr const char* kMonths[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const int month = localTime.tm_mon >= 0 && localTime.tm_mon < 12 ? localTime.tm_mon : 0;
    char header[128];
    std::snprintf(header, sizeof header, "<%d>%s %2d %02d:%02d:%02d %s[%u]: [%u] ",
                  kFacilityDaemon * 8 + severityOf(type), kMonths[month], localTime.tm_mday,
                  localTime.tm_hour, localTime.tm_min, localTime.tm_sec, tag, processId, eventId);
    std::string datagram(header);
    datagram.append(text);
    if (hasSecond) datagram.append(" | ").append(secondText);
    return datagram;
}
}  // namespace vt
