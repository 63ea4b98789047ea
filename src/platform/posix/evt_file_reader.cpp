#include "platform/posix/evt_file_reader.h"

#include <libevt.h>

#include <algorithm>
#include <cerrno>
#include <vector>

namespace vt {

namespace {

constexpr size_t kBatch = 256;

using StringSize = int (*)(libevt_record_t*, size_t*, libevt_error_t**);
using StringGet = int (*)(libevt_record_t*, uint8_t*, size_t, libevt_error_t**);

std::string text(libevt_record_t* record, StringSize size, StringGet get) {
    size_t length = 0;
    if (size(record, &length, nullptr) != 1 || length == 0) return "";
    std::string out(length, '\0');
    if (get(record, reinterpret_cast<uint8_t*>(out.data()), length, nullptr) != 1) return "";
    out.resize(length - 1);  // the size counts the terminating NUL
    return out;
}

using RecordGetter = int (*)(libevt_file_t*, int, libevt_record_t**, libevt_error_t**);

// Reads the whole file at open: the records libevt reads in order, and, in a corrupted file,
// those it recovered behind the damage. Where record numbers jump across damage, a marker
// stands for the records lost there: reading reaches it as "corrupted", as a live log would.
class CEvtFileReader final : public IEventLogReader {
  public:
    explicit CEvtFileReader(std::string fileName) : m_fileName(std::move(fileName)) {}

    uint32_t open() override {
        libevt_file_t* file = nullptr;
        if (libevt_file_initialize(&file, nullptr) != 1) return ENOMEM;
        libevt_error_t* error = nullptr;
        if (libevt_file_open(file, m_fileName.c_str(), LIBEVT_OPEN_READ, &error) != 1) {
            libevt_error_free(&error);
            libevt_file_free(&file, nullptr);
            return ENOENT;
        }
        std::vector<EventRecord> found;
        int count = 0;
        libevt_file_get_number_of_records(file, &count, nullptr);
        collect(file, count, libevt_file_get_record_by_index, found);
        int recovered = 0;
        libevt_file_get_number_of_recovered_records(file, &recovered, nullptr);
        collect(file, recovered, libevt_file_get_recovered_record_by_index, found);
        const bool corrupted = recovered > 0 || libevt_file_is_corrupted(file, nullptr) == 1;
        libevt_file_close(file, nullptr);
        libevt_file_free(&file, nullptr);
        std::stable_sort(found.begin(), found.end(), [](const auto& a, const auto& b) {
            return a.position.record < b.position.record;
        });
        for (EventRecord& e : found) {
            const uint32_t last = m_entries.empty() ? 0 : m_entries.back().record.position.record;
            if (!m_entries.empty() && e.position.record == last) continue;  // recovered twice
            if (corrupted && !m_entries.empty() && e.position.record > last + 1)
                m_entries.push_back({true, lostMarker(last + 1)});
            m_entries.push_back({false, std::move(e)});
        }
        return 0;
    }

    uint32_t readFirst(const LogPosition& from, std::vector<EventRecord>& out) override {
        out.clear();
        m_next = 0;
        if (from.record != 0) {
            while (m_next < m_entries.size() &&
                   m_entries[m_next].record.position.record != from.record)
                ++m_next;
            if (m_next == m_entries.size()) return kEventLogNoRecord;
        }
        return readNext(out);
    }

    uint32_t readNext(std::vector<EventRecord>& out) override {
        out.clear();
        while (m_next < m_entries.size() && out.size() < kBatch) {
            if (m_entries[m_next].lost) {
                if (!out.empty()) return 0;
                ++m_next;  // reported once; the next read goes on behind the damage
                return kEventLogCorrupt;
            }
            out.push_back(m_entries[m_next++].record);
        }
        return out.empty() ? kEventLogEnd : 0;
    }

    // A backup file is read, never changed.
    uint32_t clear(const std::string&) override { return 50; }

  private:
    struct Entry {
        bool lost;
        EventRecord record;
    };

    static EventRecord lostMarker(uint32_t number) {
        EventRecord e;
        e.position.record = number;
        return e;
    }

    static void collect(libevt_file_t* file, int count, RecordGetter get,
                        std::vector<EventRecord>& out) {
        for (int i = 0; i < count; ++i) {
            libevt_record_t* record = nullptr;
            libevt_error_t* error = nullptr;
            if (get(file, i, &record, &error) != 1) {
                libevt_error_free(&error);
                continue;
            }
            out.push_back(convert(record));
            libevt_record_free(&record, nullptr);
        }
    }

    static EventRecord convert(libevt_record_t* record) {
        EventRecord e;
        uint32_t number = 0, eventId = 0, created = 0, written = 0;
        uint16_t type = 0, category = 0;
        libevt_record_get_identifier(record, &number, nullptr);
        libevt_record_get_event_identifier(record, &eventId, nullptr);
        libevt_record_get_event_type(record, &type, nullptr);
        libevt_record_get_event_category(record, &category, nullptr);
        libevt_record_get_creation_time(record, &created, nullptr);
        libevt_record_get_written_time(record, &written, nullptr);
        e.position.record = number;
        e.eventId = eventId;
        e.type = type;
        e.category = category;
        e.timeGenerated = created;
        e.timeWritten = written;
        e.source = text(record, libevt_record_get_utf8_source_name_size,
                        libevt_record_get_utf8_source_name);
        e.computer = text(record, libevt_record_get_utf8_computer_name_size,
                          libevt_record_get_utf8_computer_name);
        e.user = text(record, libevt_record_get_utf8_user_security_identifier_size,
                      libevt_record_get_utf8_user_security_identifier);
        int strings = 0;
        libevt_record_get_number_of_strings(record, &strings, nullptr);
        for (int i = 0; i < strings; ++i) {
            size_t length = 0;
            std::string s;
            if (libevt_record_get_utf8_string_size(record, i, &length, nullptr) == 1 &&
                length > 0) {
                s.assign(length, '\0');
                if (libevt_record_get_utf8_string(record, i, reinterpret_cast<uint8_t*>(s.data()),
                                                  length, nullptr) == 1)
                    s.resize(length - 1);
                else
                    s.clear();
            }
            e.strings.push_back(std::move(s));
        }
        size_t dataSize = 0;
        if (libevt_record_get_data_size(record, &dataSize, nullptr) == 1 && dataSize > 0) {
            e.data.assign(dataSize, '\0');
            if (libevt_record_get_data(record, reinterpret_cast<uint8_t*>(e.data.data()), dataSize,
                                       nullptr) != 1)
                e.data.clear();
        }
        return e;
    }

    std::string m_fileName;
    std::vector<Entry> m_entries;
    size_t m_next = 0;
};

}  // namespace

std::unique_ptr<IEventLogReader> makeEvtFileReader(const std::string& fileName) {
    return std::make_unique<CEvtFileReader>(fileName);
}

}  // namespace vt
