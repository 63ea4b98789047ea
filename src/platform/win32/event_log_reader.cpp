#include <windows.h>
// The SID conversion header needs the Windows types first.
#include <sddl.h>

#include <map>
#include <vector>

#include "platform/event_log_reader.h"
#include "platform/utf_codec.h"

namespace vt {

namespace {

constexpr DWORD kFirstBufferSize = 10240;
constexpr size_t kMaxInsertionStrings = 100;  // %1 ... %99 may appear in a message text

std::wstring wide(const std::string& text) {
    const std::u16string w = utf8ToUtf16(text);
    return std::wstring(w.begin(), w.end());
}
std::string narrow(const wchar_t* text) {
    return utf16ToUtf8(std::u16string_view(reinterpret_cast<const char16_t*>(text)));
}

// The message libraries of the event sources, loaded once per path for the reader's life.
class CLibCacheList {
  public:
    ~CLibCacheList() {
        for (auto& [path, module] : m_modules)
            if (module) FreeLibrary(module);
    }
    HMODULE get(const std::wstring& path) {
        auto it = m_modules.find(path);
        if (it != m_modules.end()) return it->second;
        HMODULE module = LoadLibraryExW(path.c_str(), nullptr,
                                        DONT_RESOLVE_DLL_REFERENCES | LOAD_LIBRARY_AS_DATAFILE);
        m_modules[path] = module;
        return module;
    }

  private:
    std::map<std::wstring, HMODULE> m_modules;
};

class CWindowsEventLogReader final : public IEventLogReader {
  public:
    explicit CWindowsEventLogReader(const EventLogSource& source)
        : m_source(source), m_buffer(kFirstBufferSize) {}
    ~CWindowsEventLogReader() override {
        if (m_handle) CloseEventLog(m_handle);
    }

    uint32_t open() override {
        const std::wstring server = wide(m_source.server);
        const wchar_t* on = server.empty() ? nullptr : server.c_str();
        m_handle = m_source.backupFile ? OpenBackupEventLogW(on, wide(m_source.fileName).c_str())
                                       : OpenEventLogW(on, wide(m_source.logName).c_str());
        return m_handle ? 0 : GetLastError();
    }

    uint32_t readFirst(const LogPosition& from, std::vector<EventRecord>& out) override {
        const DWORD flags = from.record == 0 ? EVENTLOG_SEQUENTIAL_READ | EVENTLOG_FORWARDS_READ
                                             : EVENTLOG_SEEK_READ | EVENTLOG_FORWARDS_READ;
        return read(flags, from.record, out);
    }
    uint32_t readNext(std::vector<EventRecord>& out) override {
        return read(EVENTLOG_SEQUENTIAL_READ | EVENTLOG_FORWARDS_READ, 0, out);
    }
    uint32_t clear(const std::string& backupFile) override {
        const std::wstring backup = wide(backupFile);
        return ClearEventLogW(m_handle, backup.empty() ? nullptr : backup.c_str()) ? 0
                                                                                   : GetLastError();
    }

  private:
    uint32_t read(DWORD flags, DWORD offset, std::vector<EventRecord>& out) {
        out.clear();
        DWORD got = 0, needed = 0;
        while (!ReadEventLogW(m_handle, flags, offset, m_buffer.data(),
                              static_cast<DWORD>(m_buffer.size()), &got, &needed)) {
            const DWORD error = GetLastError();
            if (error != ERROR_INSUFFICIENT_BUFFER) return error;
            log("EVENTLOG Buffer too small - expanding (was " + std::to_string(m_buffer.size()) +
                ", new " + std::to_string(needed) + ").");
            m_buffer.resize(needed);
        }
        for (DWORD at = 0; at + sizeof(EVENTLOGRECORD) <= got;) {
            const auto* r = reinterpret_cast<const EVENTLOGRECORD*>(m_buffer.data() + at);
            if (r->Length < sizeof(EVENTLOGRECORD) || at + r->Length > got) break;
            out.push_back(convert(*r));
            at += r->Length;
        }
        return out.empty() ? kEventLogEnd : 0;
    }

    EventRecord convert(const EVENTLOGRECORD& r) {
        const char* base = reinterpret_cast<const char*>(&r);
        EventRecord e;
        e.position.record = r.RecordNumber;
        e.eventId = r.EventID;
        e.type = r.EventType;
        e.category = r.EventCategory;
        e.timeGenerated = r.TimeGenerated;
        e.timeWritten = r.TimeWritten;
        const auto* source = reinterpret_cast<const wchar_t*>(base + sizeof(EVENTLOGRECORD));
        e.source = narrow(source);
        e.computer = narrow(source + wcslen(source) + 1);
        const wchar_t* s = reinterpret_cast<const wchar_t*>(base + r.StringOffset);
        for (WORD i = 0; i < r.NumStrings; ++i, s += wcslen(s) + 1) e.strings.push_back(narrow(s));
        if (r.DataLength) e.data.assign(base + r.DataOffset, r.DataLength);
        if (r.UserSidLength) e.user = accountOf(const_cast<char*>(base) + r.UserSidOffset);
        e.message = expand(e, r.EventID);
        return e;
    }

    std::string accountOf(void* sid) const {
        wchar_t name[256], domain[256];
        DWORD nameLength = 256, domainLength = 256;
        SID_NAME_USE use;
        const std::wstring server = wide(m_source.server);
        if (LookupAccountSidW(server.empty() ? nullptr : server.c_str(), sid, name, &nameLength,
                              domain, &domainLength, &use))
            return narrow(domain) + "\\" + narrow(name);
        wchar_t* text = nullptr;
        if (!ConvertSidToStringSidW(sid, &text)) return "";
        const std::string out = narrow(text);
        LocalFree(text);
        return out;
    }

    // The message text through the source's message libraries; "" when none has it.
    std::string expand(const EventRecord& e, DWORD eventId) {
        const std::wstring key = L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\" +
                                 wide(m_source.logName) + L"\\" + wide(e.source);
        wchar_t files[1024];
        DWORD size = sizeof files;
        if (RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"EventMessageFile",
                         RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND, nullptr, files,
                         &size) != ERROR_SUCCESS)
            return "";
        wchar_t expanded[2048];
        if (!ExpandEnvironmentStringsW(files, expanded, 2048)) return "";
        std::vector<std::wstring> strings;
        for (const std::string& s : e.strings) strings.push_back(wide(s));
        std::vector<DWORD_PTR> args(kMaxInsertionStrings, reinterpret_cast<DWORD_PTR>(L""));
        for (size_t i = 0; i < strings.size() && i < args.size(); ++i)
            args[i] = reinterpret_cast<DWORD_PTR>(strings[i].c_str());
        std::wstring list = expanded;
        for (size_t start = 0; start <= list.size();) {
            const size_t end = std::min(list.find(L';', start), list.size());
            HMODULE module = m_libraries.get(list.substr(start, end - start));
            wchar_t* text = nullptr;
            if (module &&
                FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ALLOCATE_BUFFER |
                                   FORMAT_MESSAGE_ARGUMENT_ARRAY,
                               module, eventId, 0, reinterpret_cast<LPWSTR>(&text), 0,
                               reinterpret_cast<va_list*>(args.data()))) {
                std::string out = narrow(text);
                LocalFree(text);
                while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
                return out;
            }
            start = end + 1;
        }
        return "";
    }

    EventLogSource m_source;
    std::vector<char> m_buffer;
    HANDLE m_handle = nullptr;
    CLibCacheList m_libraries;
};

}  // namespace

bool eventLogNamesReadable() {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\EventLog", 0,
                      KEY_READ, &key) != ERROR_SUCCESS)
        return false;
    RegCloseKey(key);
    return true;
}

std::unique_ptr<IEventLogReader> makeEventLogReader(const EventLogSource& source) {
    return std::make_unique<CWindowsEventLogReader>(source);
}

}  // namespace vt
