#include "platform/process.h"

#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "platform/registry.h"

namespace vt {

std::string executablePath() {
    char buffer[PATH_MAX];
    const ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (n <= 0) return {};
    return std::string(buffer, static_cast<size_t>(n));
}

std::string shortPathName(const std::string& path) {
    return path;
}

bool setProcessPriority(uint32_t code) {
    int niceValue = 0;
    switch (code) {
        case 1:
            niceValue = 19;
            break;
        case 2:
            niceValue = 10;
            break;
        case 4:
            niceValue = -5;
            break;
        default:
            return true;
    }
    return ::setpriority(PRIO_PROCESS, 0, niceValue) == 0;
}

bool environmentVariable(const char* name, std::string& value) {
    const char* v = std::getenv(name);
    if (!v) return false;
    value = v;
    return true;
}

bool currentUserName(std::string& name) {
    const char* v = std::getenv("USERNAME");
    if (!v || !*v) v = std::getenv("USER");
    if (!v || !*v) {
        const passwd* entry = ::getpwuid(::geteuid());
        v = entry ? entry->pw_name : nullptr;
    }
    if (!v || !*v) {
        errno = 203;
        return false;
    }
    name.assign(v, std::min<size_t>(std::strlen(v), 255));
    return true;
}

void prepareProcessSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGHUP);
    sigaddset(&set, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

std::string agentCountersPath() {
    return regHivePath() + ".counters";
}

bool writePrivateFile(const std::string& path, const std::string& text) noexcept {
    const std::string temporary = path + ".new";
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    const bool written = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::close(fd);
    return written && ::rename(temporary.c_str(), path.c_str()) == 0;
}

bool queryProcessUsage(uint64_t& residentKb, uint32_t& threads) noexcept {
    std::FILE* status = std::fopen("/proc/self/status", "r");
    if (!status) return false;
    char line[256];
    residentKb = 0;
    threads = 0;
    while (std::fgets(line, sizeof line, status)) {
        unsigned long long value = 0;
        if (std::sscanf(line, "VmRSS: %llu", &value) == 1) residentKb = value;
        if (std::sscanf(line, "Threads: %llu", &value) == 1) threads = static_cast<uint32_t>(value);
    }
    std::fclose(status);
    return true;
}

}  // namespace vt
