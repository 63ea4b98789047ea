#pragma once
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/local_time.h"

class CInfoUnit;

// The parts of a forwarded syslog message that depend on nothing but their inputs: the
// header, the choice of host, tag and time for a unit, the encoding, compression and framing.
// No socket is involved, so each step can be tested by itself.
namespace vt {

enum class SyslogTransport : int32_t { Udp = 0, Tcp = 1, Rfc3195 = 2 };

struct SyslogHeaderFields {
    int32_t facility = 0;
    int32_t severity = 0;
    CivilTime time;  // local time
    std::u16string_view host;
    std::u16string_view tag;  // empty: no tag and no colon
    bool insertRealSource = false;
    std::u16string_view realSource;
};

// "<PRI>Mmm dd hh:mm:ss host tag: " with PRI = (facility * 8 | severity) & 255, two spaces
// before a one-digit day, and 'RealSource:"source" ' after it when asked for.
std::u16string formatSyslogHeader(const SyslogHeaderFields& fields);

// The tag to write in front of `text`: the unit's tag, or nothing when it is empty or the
// text already begins with it (a received message keeps its tag in its text).
std::u16string_view syslogTagFor(std::u16string_view tag, std::u16string_view text) noexcept;

// The time a unit's header shows (seconds since 1970 UTC): a received syslog message keeps
// its sender's time in "timereported"; every other unit has its event's time in
// "timegenerated".
int64_t syslogTimeOf(const CInfoUnit& unit);

// The whole text for a unit: header (when processDuringRelay) and `text`. The host is the
// unit's "source", the tag its "syslogtag" (see syslogTagFor). Throws CErrorReport* 1100 when
// the unit has no facility or severity.
std::u16string buildSyslogText(const CInfoUnit& unit, std::u16string_view text,
                               bool processDuringRelay, bool insertRealSource);

// The same with an RFC 5424 header: "<PRI>1 TIMESTAMP HOST APP-NAME PROCID MSGID SD ".
// A unit whose raw message has such a header gives that header's fields back as they came, so
// a message relayed this way arrives unchanged;
// any other unit has its time in UTC, APP-NAME and PROCID from its tag, no MSGID and no
// structured data.
std::u16string buildRfc5424Text(const CInfoUnit& unit, std::u16string_view text,
                                bool processDuringRelay);

// The text as bytes in the output encoding: 0 is the agent's narrow form, any other value a
// character set id. An id that cannot be used falls back to the narrow form, with a debug
// line, so the message still goes out.
std::string encodeSyslogText(std::u16string_view text, uint32_t encoding);

// Messages of at most this many bytes are never compressed.
inline constexpr size_t kMinCompressLength = 60;

enum class CompressResult { Plain, Compressed, Failed };

// Compresses `bytes` with zlib at `level` into "z" + stream, when the message is longer than
// kMinCompressLength and the stream is shorter than the message by more than its overhead
// (1 byte on UDP, 5 on TCP). `out` is filled only for Compressed; Failed carries the zlib
// error in zlibError (the caller reports it and sends the message plain).
CompressResult compressSyslogMessage(std::string_view bytes, int level, SyslogTransport transport,
                                     std::string& out, int& zlibError);

// TCP framing: "<count> " in front of a compressed message or with `octetCounting` (RFC
// 6587), a line feed after any other.
std::string frameSyslogTcp(std::string_view payload, bool compressed, bool octetCounting = false);

}  // namespace vt
