#include "platform/spawn_process.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <thread>

extern char** environ;

namespace vt {

namespace {

// The agent's environment with the options' variables set over it.
std::vector<std::string> environmentOf(const SpawnOptions& options) {
    std::map<std::string, std::string> vars;
    for (char** e = environ; e && *e; ++e) {
        const char* eq = std::strchr(*e, '=');
        if (eq) vars[std::string(*e, static_cast<size_t>(eq - *e))] = eq + 1;
    }
    for (const auto& [name, value] : options.environment) vars[name] = value;
    std::vector<std::string> out;
    for (const auto& [name, value] : vars) out.push_back(name + "=" + value);
    return out;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& t : texts) pointers.push_back(t.data());
    pointers.push_back(nullptr);
    return pointers;
}

struct SpawnAttributes {
    posix_spawnattr_t attr;
    SpawnAttributes() {
        posix_spawnattr_init(&attr);
        // A group of its own, so that a time-out kills whatever the program started too; no
        // blocked signals and default dispositions, whatever the agent's threads had.
        sigset_t none, defaults;
        sigemptyset(&none);
        sigemptyset(&defaults);
        for (int s : {SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGCHLD}) sigaddset(&defaults, s);
        posix_spawnattr_setsigmask(&attr, &none);
        posix_spawnattr_setsigdefault(&attr, &defaults);
        posix_spawnattr_setpgroup(&attr, 0);
        posix_spawnattr_setflags(
            &attr, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnAttributes() { posix_spawnattr_destroy(&attr); }
};

void waitFor(pid_t pid, const SpawnOptions& options, SpawnResult& result) {
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(options.timeoutMs);
    int status = 0;
    for (;;) {
        const pid_t done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid) {
            result.finished = true;
            result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            return;
        }
        if (done < 0 && errno != EINTR) return;
        if (std::chrono::steady_clock::now() >= deadline) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ::kill(-pid, SIGKILL);
    ::waitpid(pid, &status, 0);
    result.killed = true;
}

}  // namespace

bool spawnProgram(const std::vector<std::string>& args, const SpawnOptions& options,
                  SpawnResult& result) {
    result = SpawnResult{};
    if (args.empty() || args[0].empty()) {
        result.error = ENOENT;
        return false;
    }
    std::vector<std::string> argTexts = args, envTexts = environmentOf(options);
    std::vector<char*> argv = pointersTo(argTexts), envp = pointersTo(envTexts);
    SpawnAttributes attributes;
    pid_t pid = 0;
    const int r =
        args[0].find('/') == std::string::npos
            ? posix_spawnp(&pid, argv[0], nullptr, &attributes.attr, argv.data(), envp.data())
            : posix_spawn(&pid, argv[0], nullptr, &attributes.attr, argv.data(), envp.data());
    if (r != 0) {
        result.error = static_cast<uint32_t>(r);
        return false;
    }
    if (options.wait) {
        waitFor(pid, options, result);
    } else {
        std::thread([pid] {
            int status = 0;
            ::waitpid(pid, &status, 0);
        }).detach();
    }
    return true;
}

}  // namespace vt
