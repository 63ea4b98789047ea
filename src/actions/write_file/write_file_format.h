#pragma once
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/local_time.h"

class CInfoUnit;

// The pure parts of the write-file action: the text of one line for each line format, and the
// file names. Nothing here touches a file, so every format is testable on its own.
namespace vt {

// What a line of format 0 holds. The values are the action's settings as read ("equals 1" and
// "non-zero" are kept apart the way the settings define them).
struct RelaylogLineFields {
    int32_t dateTime = 1;          // "nFileDateTime": 1 = generated time
    int32_t dateTimeReported = 1;  // "nFileDateTimeReported": non-zero = reported time
    int32_t source = 1;            // "nFileSource"
    int32_t facility = 1;          // "nFileFacility"
    int32_t priority = 1;          // "nFilePriority"
    int32_t useXml = 0;            // "nUseXMLtoReport"
    int32_t message = 1;           // "nIncludeMessage"
    int32_t rawMessage = 0;        // "nIncludeRAWMessage"
    bool utc = false;              // "nUseUTCForTimestamps"
};

// A unit's time in UTC or in local time.
CivilTime breakDownTime(int64_t seconds, bool utc) noexcept;

// Format 0: the comma-joined fields, then CR LF (UTF-16, converted when written).
void formatRelaylogLine(const CInfoUnit& unit, const RelaylogLineFields& fields,
                        std::u16string& out);
// Format 1: reported time, source, the unit's description and its message, then CR LF.
void formatTextFormsLine(const CInfoUnit& unit, bool utc, std::u16string& out);
// Format 2: "VTsyslog[date time ip=source pri=severity] <facility*8+severity>message" CR LF,
// as narrow text.
void formatSyslogLine(const CInfoUnit& unit, bool utc, std::string& out);
// Format 3: the template expanded for the unit; the template brings its own line end.
void formatTemplateLine(const CInfoUnit& unit, std::u16string_view lineTemplate,
                        std::u16string& out);

// Makes text that came from a unit safe as part of a file name: "..", "/", "\", ":" and NUL
// become "_", so the name cannot leave the configured directory or name a stream.
void sanitizeNamePart(std::u16string& text, size_t from = 0);
// A path or base-name template expanded for the unit, each expanded value sanitised while the
// template's own text stays as written.
std::u16string expandNameTemplate(std::u16string_view nameTemplate, const CInfoUnit& unit);

// The file names. `sep` is the path separator; `source` is part of the daily names only when
// `withSource` is set (an empty source then still gets its "-").
std::u16string makeDailyStem(std::u16string_view path, std::u16string_view base, bool withSource,
                             std::u16string_view source, const CivilTime& day, char16_t sep);
std::u16string makeDailyName(std::u16string_view path, std::u16string_view base, bool withSource,
                             std::u16string_view source, const CivilTime& day,
                             std::u16string_view extension, char16_t sep);
std::u16string makeCircularName(std::u16string_view path, std::u16string_view base, int32_t number,
                                std::u16string_view extension, char16_t sep);
std::u16string makePlainName(std::u16string_view path, std::u16string_view base,
                             std::u16string_view extension, char16_t sep);
std::u16string makeSegmentName(std::u16string_view stem, int32_t segment,
                               std::u16string_view extension);

// The first second after the day that holds `now` (UTC or local midnight).
int64_t endOfDay(int64_t now, bool utc) noexcept;

}  // namespace vt
