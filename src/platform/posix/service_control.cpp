#include "platform/service_control.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

#include "platform/process.h"
#include "platform/registry.h"

extern char** environ;

namespace vt {
namespace {

constexpr uint32_t kErrorFailedServiceControllerConnect = 1063;
constexpr uintptr_t kSystemdStatusHandle = 1;

std::string unitDirectory() {
    std::string dir;
    if (environmentVariable("VTAGENT_SYSTEMD_DIR", dir) && !dir.empty()) return dir;
    return "/etc/systemd/system";
}

std::string unitPath(const char* name) {
    return unitDirectory() + "/" + name + ".service";
}

// The hive the installing process uses is the one the service will use.
std::string registryPath() {
    std::error_code ec;
    const std::filesystem::path absolute = std::filesystem::absolute(regHivePath(), ec);
    return ec ? regHivePath() : absolute.string();
}

// Runs systemctl without a shell; a failure is only a warning for the caller.
void systemctl(const char* verb, const std::string& unit) {
    std::string command = "systemctl";
    std::string verbText = verb;
    std::string unitText = unit;
    char* argv[] = {command.data(), verbText.data(), unit.empty() ? nullptr : unitText.data(),
                    nullptr};
    // The agent keeps SIGINT and SIGTERM blocked in every thread; a child must not inherit that.
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK);
    pid_t pid = 0;
    int status = 0;
    const int rc = ::posix_spawnp(&pid, "systemctl", nullptr, &attr, argv, environ);
    posix_spawnattr_destroy(&attr);
    if (rc == 0) ::waitpid(pid, &status, 0);
    if (rc != 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        std::fprintf(stderr, "Warning: 'systemctl %s%s%s' failed\n", verb, unit.empty() ? "" : " ",
                     unit.c_str());
}

std::atomic<ServiceControlHandler> g_userControlHandler{nullptr};

// Waits for SIGINT or SIGTERM, which every thread keeps blocked (prepareProcessSignals), and
// hands each one to `deliver` until `stop` is set; SIGHUP and SIGUSR1 go to the user control
// handler.
void waitForStopSignals(const std::atomic<bool>& stop, void (*deliver)()) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGHUP);
    sigaddset(&set, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    const timespec tick{0, 100 * 1000 * 1000};
    while (!stop.load()) {
        const int signal = ::sigtimedwait(&set, nullptr, &tick);
        if (signal == SIGHUP || signal == SIGUSR1) {
            if (ServiceControlHandler handler = g_userControlHandler.load())
                handler(signal == SIGHUP ? kReopenLogsControl : kWriteCountersControl);
        } else if (signal > 0) {
            deliver();
        }
    }
}

// Service mode: the control handler registered by the service main routine. A stop signal that
// arrives before registration is held until the handler exists, as the SCM would queue it.
std::atomic<ServiceControlHandler> g_controlHandler{nullptr};
std::atomic<bool> g_stopPending{false};

void deliverServiceStop() {
    if (ServiceControlHandler handler = g_controlHandler.load())
        handler(1);
    else
        g_stopPending = true;
}

}  // namespace

void installUserControlSignal(ServiceControlHandler handler) {
    g_userControlHandler = handler;
}

namespace {

// Console mode.
std::mutex g_consoleMutex;
std::thread g_consoleThread;
std::atomic<bool> g_consoleStop{false};
std::atomic<ConsoleStopHandler> g_consoleHandler{nullptr};

void deliverConsoleStop() {
    if (ConsoleStopHandler handler = g_consoleHandler.load()) handler();
}

const char* stateText(uint32_t state) {
    switch (state) {
        case 1:
            return "Stopped";
        case 2:
            return "Start pending";
        case 3:
            return "Stop pending";
        case 4:
            return "Running";
        case 5:
            return "Continue pending";
        case 6:
            return "Pause pending";
        case 7:
            return "Paused";
        default:
            return "Unknown";
    }
}

}  // namespace

bool serviceIsInstalled(const char* name) {
    std::error_code ec;
    return std::filesystem::exists(unitPath(name), ec);
}

bool serviceCreate(const char* name, const std::string& binaryPath) {
    const std::string path = unitPath(name);
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        if (!out) {
            if (errno == 0) errno = EIO;
            return false;
        }
        out << systemdUnitText(binaryPath, registryPath());
        out.flush();
        if (!out) {
            if (errno == 0) errno = EIO;
            return false;
        }
    }
    if (sd_booted() > 0) {
        systemctl("daemon-reload", "");
        systemctl("enable", std::string(name) + ".service");
    }
    return true;
}

bool serviceDelete(const char* name) {
    if (sd_booted() > 0) systemctl("disable", std::string(name) + ".service");
    if (std::remove(unitPath(name).c_str()) != 0) return false;
    if (sd_booted() > 0) systemctl("daemon-reload", "");
    return true;
}

bool runServiceDispatcher(const char* name, ServiceMainRoutine serviceMain) {
    std::string notifySocket;
    if (!environmentVariable("NOTIFY_SOCKET", notifySocket) || notifySocket.empty()) {
        std::fprintf(stderr,
                     "%s: not started by systemd (NOTIFY_SOCKET is not set); use -r to run in "
                     "the console or -h for help.\n",
                     name);
        errno = static_cast<int>(kErrorFailedServiceControllerConnect);
        return false;
    }
    std::atomic<bool> serviceMainDone{false};
    std::thread serviceThread([&] {
        char* argv[] = {const_cast<char*>(name), nullptr};
        serviceMain(1, argv);
        serviceMainDone = true;
    });
    waitForStopSignals(serviceMainDone, deliverServiceStop);
    serviceThread.join();
    g_controlHandler = nullptr;
    return true;
}

ServiceStatusHandle registerServiceControlHandler(const char*, ServiceControlHandler handler) {
    g_controlHandler = handler;
    if (g_stopPending.exchange(false)) handler(1);
    return kSystemdStatusHandle;
}

bool sendServiceStatus(ServiceStatusHandle handle, const ServiceStatus& status) {
    if (handle == 0) return false;
    std::string message;
    if (status.currentState == 4) message += "READY=1\n";
    if (status.currentState == 3) message += "STOPPING=1\n";
    message += "STATUS=";
    message += stateText(status.currentState);
    if (status.checkPoint != 0)
        message += " (checkpoint " + std::to_string(status.checkPoint) + ")";
    message += "\n";
    if (status.currentState == 3 && status.waitHint != 0)
        message += "EXTEND_TIMEOUT_USEC=" + std::to_string(uint64_t{status.waitHint} * 1000) + "\n";
    const int rc = sd_notify(0, message.c_str());
    if (rc < 0) errno = -rc;
    return rc > 0;
}

bool installConsoleStopHandler(ConsoleStopHandler handler) {
    std::lock_guard lock(g_consoleMutex);
    g_consoleHandler = handler;
    if (g_consoleThread.joinable()) return true;
    g_consoleStop = false;
    g_consoleThread = std::thread([] { waitForStopSignals(g_consoleStop, deliverConsoleStop); });
    return true;
}

void removeConsoleStopHandler() {
    std::lock_guard lock(g_consoleMutex);
    g_consoleStop = true;
    if (g_consoleThread.joinable()) g_consoleThread.join();
    g_consoleHandler = nullptr;
}

}  // namespace vt
