#include "platform/spawn_process.h"

#include <windows.h>

#include <map>

#include "platform/utf_codec.h"

namespace vt {

namespace {

// The agent's environment with the options' variables set over it, as a block of
// "name=value\0" entries ending in an empty one. Windows compares the names without case.
std::u16string environmentBlock(const SpawnOptions& options) {
    struct NoCase {
        bool operator()(const std::u16string& a, const std::u16string& b) const {
            return CompareStringOrdinal(reinterpret_cast<LPCWCH>(a.c_str()), -1,
                                        reinterpret_cast<LPCWCH>(b.c_str()), -1,
                                        TRUE) == CSTR_LESS_THAN;
        }
    };
    std::map<std::u16string, std::u16string, NoCase> vars;
    if (LPWCH block = GetEnvironmentStringsW()) {
        for (const char16_t* e = reinterpret_cast<const char16_t*>(block); *e;) {
            const std::u16string entry(e);
            const size_t eq = entry.find(u'=', 1);  // "=C:=C:\dir" entries start with '='
            if (eq != std::u16string::npos) vars[entry.substr(0, eq)] = entry.substr(eq + 1);
            e += entry.size() + 1;
        }
        FreeEnvironmentStringsW(block);
    }
    for (const auto& [name, value] : options.environment)
        vars[utf8ToUtf16(name)] = utf8ToUtf16(value);
    std::u16string out;
    for (const auto& [name, value] : vars) {
        out += name + u"=" + value;
        out.push_back(u'\0');
    }
    out.push_back(u'\0');
    return out;
}

}  // namespace

bool spawnProgram(const std::vector<std::string>& args, const SpawnOptions& options,
                  SpawnResult& result) {
    result = SpawnResult{};
    if (args.empty() || args[0].empty()) {
        result.error = ERROR_FILE_NOT_FOUND;
        return false;
    }
    std::u16string line = utf8ToUtf16(joinCommandLine(args));
    std::u16string environment = environmentBlock(options);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    // A job holds the program and everything it starts, so that a time-out ends them all.
    HANDLE job = CreateJobObjectW(nullptr, nullptr);
    const DWORD flags =
        CREATE_UNICODE_ENVIRONMENT | CREATE_NEW_PROCESS_GROUP | CREATE_SUSPENDED | CREATE_NO_WINDOW;
    if (!CreateProcessW(nullptr, reinterpret_cast<LPWSTR>(line.data()), nullptr, nullptr, FALSE,
                        flags, environment.data(), nullptr, &startup, &process)) {
        result.error = GetLastError();
        if (job) CloseHandle(job);
        return false;
    }
    if (job) AssignProcessToJobObject(job, process.hProcess);
    ResumeThread(process.hThread);
    CloseHandle(process.hThread);
    if (options.wait) {
        if (WaitForSingleObject(process.hProcess, options.timeoutMs) == WAIT_OBJECT_0) {
            DWORD code = 0;
            GetExitCodeProcess(process.hProcess, &code);
            result.finished = true;
            result.exitCode = static_cast<int>(code);
        } else {
            if (!job || !TerminateJobObject(job, 1)) TerminateProcess(process.hProcess, 1);
            WaitForSingleObject(process.hProcess, 5000);
            result.killed = true;
        }
    }
    CloseHandle(process.hProcess);
    if (job) CloseHandle(job);
    return true;
}

}  // namespace vt
