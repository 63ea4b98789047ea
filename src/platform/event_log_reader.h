#pragma once
// Readers of event logs for the event log monitor: the Windows event logs and their backup
// files on Windows; the systemd journal and .evt backup files (through libevt) on Linux. The
// monitor's algorithm sees only this interface, so the same run reads every kind.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vt {

// Where a reader stands in a log: the record number, and for the journal the entry's cursor
// (the record number is then the low 32 bits of the entry's sequence number).
struct LogPosition {
    uint32_t record = 0;  // 0: before the oldest record
    std::string cursor;
};

struct EventRecord {
    LogPosition position;
    uint16_t type = 4;  // 0 success, 1 error, 2 warning, 4 information, 8/16 audit success/failure
    uint32_t eventId = 0;
    uint16_t category = 0;
    int64_t timeGenerated = 0;  // seconds since 1970, UTC
    int64_t timeWritten = 0;
    std::string source;  // the event source (journal: the syslog identifier)
    std::string computer;
    std::string user;  // the account name, or the SID text when it has none; "" none
    std::vector<std::string> strings;  // insertion strings, as stored
    std::string message;  // the expanded text when the reader could build it; "" otherwise
    std::string data;     // binary data
};

// The error numbers of reads and opens, as the Windows event log calls return them.
inline constexpr uint32_t kEventLogEnd = 38;        // no more records
inline constexpr uint32_t kEventLogNoRecord = 87;   // the position no longer exists
inline constexpr uint32_t kEventLogCorrupt = 1500;  // the log is corrupted at this point

class IEventLogReader {
  public:
    virtual ~IEventLogReader() = default;
    // 0, or the error number of the failed open.
    virtual uint32_t open() = 0;
    // The first read of a pass: from the oldest record when `from.record` is 0, otherwise at
    // the saved position, whose own record comes first. 0 with records, or an error number.
    virtual uint32_t readFirst(const LogPosition& from, std::vector<EventRecord>& out) = 0;
    // The next records after the last ones read: 0 with records, kEventLogEnd when none.
    virtual uint32_t readNext(std::vector<EventRecord>& out) = 0;
    // Clears the log, after backing it up to `backupFile` when that is not empty. 0 or error
    // (183: the backup file exists; 50: this kind of log cannot be cleared).
    virtual uint32_t clear(const std::string& backupFile) = 0;

    // Where the reader says what the monitor's debug log should show (a grown read buffer).
    std::function<void(const std::string&)> log = [](const std::string&) {};
};

struct EventLogSource {
    bool backupFile = false;  // read `fileName` instead of a live log
    std::string fileName;
    std::string logName;           // "Application", "System", "Security", or another log
    std::string server;            // Windows: a remote machine; "" the local one
    std::string journalDirectory;  // Linux: read the journal files there instead
};

// Whether the system's list of event logs can be read: the EventLog key of the Windows
// registry; on Linux the journal has no such list, and the answer is always yes.
bool eventLogNamesReadable();

// The reader of a log or backup file (not opened yet).
std::unique_ptr<IEventLogReader> makeEventLogReader(const EventLogSource& source);

}  // namespace vt
