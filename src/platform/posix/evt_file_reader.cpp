#include "platform/posix/evt_file_reader.h"

#include <libevt.h>

#include <cerrno>

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

class CEvtFileReader final : public IEventLogReader {
  public:
    explicit CEvtFileReader(std::string fileName) : m_fileName(std::move(fileName)) {}
    ~CEvtFileReader() override {
        if (m_file) {
            libevt_file_close(m_file, nullptr);
            libevt_file_free(&m_file, nullptr);
        }
    }

    uint32_t open() override {
        if (libevt_file_initialize(&m_file, nullptr) != 1) return ENOMEM;
        libevt_error_t* error = nullptr;
        if (libevt_file_open(m_file, m_fileName.c_str(), LIBEVT_OPEN_READ, &error) != 1) {
            libevt_error_free(&error);
            libevt_file_free(&m_file, nullptr);
            m_file = nullptr;
            return ENOENT;
        }
        int count = 0;
        libevt_file_get_number_of_records(m_file, &count, nullptr);
        m_count = count;
        return 0;
    }

    uint32_t readFirst(const LogPosition& from, std::vector<EventRecord>& out) override {
        out.clear();
        m_next = 0;
        if (from.record != 0) {
            // Look for the saved record, stepping over records that cannot be read: they are
            // reported when reading reaches them, not when looking for another.
            int at = 0;
            bool targetCorrupt = false;
            for (EventRecord e; at < m_count; ++at) {
                if (read(at, e)) {
                    if (e.position.record == from.record) break;
                } else if (at > 0 && previousNumber(at) + 1 == from.record) {
                    targetCorrupt = true;
                    break;
                }
            }
            if (targetCorrupt) return kEventLogCorrupt;
            if (at == m_count) return kEventLogNoRecord;
            m_next = at;
        }
        return readNext(out);
    }

    uint32_t readNext(std::vector<EventRecord>& out) override {
        out.clear();
        while (m_next < m_count && out.size() < kBatch) {
            EventRecord e;
            if (!read(m_next, e)) return out.empty() ? kEventLogCorrupt : 0;
            ++m_next;
            out.push_back(std::move(e));
        }
        return out.empty() ? kEventLogEnd : 0;
    }

    // A backup file is read, never changed.
    uint32_t clear(const std::string&) override { return 50; }

  private:
    // The number of the last readable record before `index` (0 when none).
    uint32_t previousNumber(int index) const {
        EventRecord e;
        for (int i = index - 1; i >= 0; --i)
            if (read(i, e)) return e.position.record;
        return 0;
    }

    bool read(int index, EventRecord& e) const {
        libevt_record_t* record = nullptr;
        libevt_error_t* error = nullptr;
        if (libevt_file_get_record_by_index(m_file, index, &record, &error) != 1) {
            libevt_error_free(&error);
            return false;
        }
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
        libevt_record_free(&record, nullptr);
        return true;
    }

    std::string m_fileName;
    libevt_file_t* m_file = nullptr;
    int m_count = 0;
    int m_next = 0;
};

}  // namespace

std::unique_ptr<IEventLogReader> makeEvtFileReader(const std::string& fileName) {
    return std::make_unique<CEvtFileReader>(fileName);
}

}  // namespace vt
