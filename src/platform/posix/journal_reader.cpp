#include <pwd.h>
#include <systemd/sd-journal.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/event_log_reader.h"
#include "platform/posix/evt_file_reader.h"

namespace vt {

namespace {

constexpr size_t kBatch = 256;

// Which journal entries make up a log: "Security" the auth and authpriv facilities, "System"
// the kernel and system services, "Application" everything else, any other name the entries
// of that systemd unit.
class JournalLogFilter {
  public:
    explicit JournalLogFilter(std::string name) : m_name(std::move(name)) {}
    bool accepts(sd_journal* j) const {
        const std::string facility = field(j, "SYSLOG_FACILITY");
        const bool security = facility == "4" || facility == "10";
        if (m_name == "Security") return security;
        const std::string transport = field(j, "_TRANSPORT");
        const bool system =
            !security && (transport == "kernel" || transport == "driver" || facility == "0" ||
                          facility == "3" || field(j, "_PID") == "1");
        if (m_name == "System") return system;
        if (m_name == "Application") return !security && !system;
        const std::string unit = field(j, "_SYSTEMD_UNIT");
        return unit == m_name || unit == m_name + ".service";
    }

    static std::string field(sd_journal* j, const char* name) {
        const void* data = nullptr;
        size_t length = 0;
        if (sd_journal_get_data(j, name, &data, &length) < 0) return "";
        const size_t prefix = std::strlen(name) + 1;  // "NAME="
        return length > prefix
                   ? std::string(static_cast<const char*>(data) + prefix, length - prefix)
                   : "";
    }

  private:
    std::string m_name;
};

// Priority 0-3 error, 4 warning, 5-7 information.
uint16_t typeOfPriority(const std::string& priority) {
    if (priority.empty()) return 4;
    const int p = std::atoi(priority.c_str());
    return p <= 3 ? 1 : p == 4 ? 2 : 4;
}

std::string userOf(const std::string& uid) {
    if (uid.empty()) return "";
    passwd entry{};
    passwd* found = nullptr;
    char buffer[1024];
    if (getpwuid_r(static_cast<uid_t>(std::strtoul(uid.c_str(), nullptr, 10)), &entry, buffer,
                   sizeof buffer, &found) == 0 &&
        found)
        return found->pw_name;
    return uid;
}

// The low 32 bits of the sequence number ("i=" in the cursor, in hex).
uint32_t recordOfCursor(const std::string& cursor) {
    const size_t at = cursor.find("i=");
    return at == std::string::npos
               ? 0
               : static_cast<uint32_t>(std::strtoull(cursor.c_str() + at + 2, nullptr, 16));
}

class CJournalReader final : public IEventLogReader {
  public:
    explicit CJournalReader(const EventLogSource& source)
        : m_filter(source.logName), m_directory(source.journalDirectory) {}
    ~CJournalReader() override {
        if (m_journal) sd_journal_close(m_journal);
    }

    uint32_t open() override {
        const int r = m_directory.empty()
                          ? sd_journal_open(&m_journal, SD_JOURNAL_LOCAL_ONLY)
                          : sd_journal_open_directory(&m_journal, m_directory.c_str(), 0);
        return r < 0 ? static_cast<uint32_t>(-r) : 0;
    }

    uint32_t readFirst(const LogPosition& from, std::vector<EventRecord>& out) override {
        out.clear();
        if (from.record == 0 || from.cursor.empty()) {
            sd_journal_seek_head(m_journal);
            return readNext(out);
        }
        if (sd_journal_seek_cursor(m_journal, from.cursor.c_str()) < 0 ||
            sd_journal_next(m_journal) <= 0 ||
            sd_journal_test_cursor(m_journal, from.cursor.c_str()) <= 0)
            return kEventLogNoRecord;  // vacuumed or rotated away
        out.push_back(record());
        return 0;
    }

    uint32_t readNext(std::vector<EventRecord>& out) override {
        out.clear();
        while (out.size() < kBatch) {
            const int r = sd_journal_next(m_journal);
            if (r < 0) return static_cast<uint32_t>(-r);
            if (r == 0) break;
            if (m_filter.accepts(m_journal)) out.push_back(record());
        }
        return out.empty() ? kEventLogEnd : 0;
    }

    // A reader cannot clear the journal: that is the journal daemon's business.
    uint32_t clear(const std::string&) override { return 50; }

  private:
    EventRecord record() const {
        EventRecord e;
        char* cursor = nullptr;
        if (sd_journal_get_cursor(m_journal, &cursor) >= 0) {
            e.position.cursor = cursor;
            std::free(cursor);
        }
        e.position.record = recordOfCursor(e.position.cursor);
        uint64_t usec = 0;
        if (sd_journal_get_realtime_usec(m_journal, &usec) >= 0)
            e.timeGenerated = e.timeWritten = static_cast<int64_t>(usec / 1000000);
        auto field = [this](const char* name) { return JournalLogFilter::field(m_journal, name); };
        e.type = typeOfPriority(field("PRIORITY"));
        e.source = field("SYSLOG_IDENTIFIER");
        if (e.source.empty()) e.source = field("_COMM");
        e.computer = field("_HOSTNAME");
        e.user = userOf(field("_UID"));
        e.message = field("MESSAGE");
        return e;
    }

    JournalLogFilter m_filter;
    std::string m_directory;
    sd_journal* m_journal = nullptr;
};

}  // namespace

bool eventLogNamesReadable() { return true; }

std::unique_ptr<IEventLogReader> makeEventLogReader(const EventLogSource& source) {
    if (source.backupFile) return makeEvtFileReader(source.fileName);
    return std::make_unique<CJournalReader>(source);
}

}  // namespace vt
