#pragma once
#include <cstdint>
#include <string>

#include "platform/event_log_reader.h"

// How an event log record becomes a unit's message text.
struct EventTextOptions {
    bool legacy = false;                   // "bUseLegacyFormat"
    bool addFacility = true;               // "bAddFacilityString": the event source
    bool addUser = true;                   // "nAddUserName"
    bool addLogType = false;               // "nAddLogType"
    bool compressControl = true;           // "nCompressControlChars"
    bool removeControlFromParams = false;  // "nRemoveControlCharsFromParams"
};

// "[ERR]", "[WRN]", "[INF]", "[AUS]", "[AUF]", "[NON]" for anything else.
const char* severityTag(uint16_t type) noexcept;
// The "nFilterEventType" bit of a type: success 1, otherwise twice the type.
uint32_t eventFilterBit(uint16_t type) noexcept;

// Standard: "[TAG] [Log] Source: ID: User: text" (the log, source and user as configured);
// legacy: "Source: ID: text". The text is the reader's expanded message, or the "could not be
// found" sentence with the insertion strings.
std::string eventText(const vt::EventRecord& record, const std::string& logName,
                      const EventTextOptions& options);
