#pragma once
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "platform/event_log.h"
#include "platform/service_control.h"

// The generic service host: command line, registration with the service manager, the control
// handler, status reporting and the life of the service thread. One instance per process,
// reachable through instance() for the static routines the service manager and the console
// interrupt call.
//
// Threads: the dispatcher thread runs Handler (console mode: the interrupt thread runs
// ConsoleBreak), the service thread runs OnInit, Run and OnShutdown. They share only the
// running flag (polled, no lock) and the status block (see m_statusMutex).
class CNTService {
  public:
    explicit CNTService(const char* serviceName);
    virtual ~CNTService();
    CNTService(const CNTService&) = delete;
    CNTService& operator=(const CNTService&) = delete;

    // The overridable steps, in this order.
    virtual void Run();
    virtual bool OnInstall();
    virtual bool OnInit();
    virtual void OnStop();
    virtual void OnInterrogate();
    virtual void OnPause();
    virtual void OnContinue();
    virtual void OnShutdown();
    virtual bool OnUserControl(uint32_t control);
    // Switches beyond the standard ones: their help lines (printed after the standard text) and
    // their handling; true when argv[1] was one (exitCode is then the process's).
    virtual std::vector<const char*> ExtraHelpLines() const;
    virtual bool OnExtraSwitch(int argc, char** argv, int& exitCode);

    // The process entry: runs what the first argument asks and returns the exit code.
    int ProcessCommandLine(int argc, char** argv);

    bool IsInstalled();
    bool Install();
    bool Uninstall();
    // Hands the process to the service manager; false when it was not started by one.
    bool StartService();
    // "-r": runs the service in the console until the interrupt; returns the exit code.
    int RunConsole();

    // One step of the shutdown: checkpoint +1, wait hint +1000 ms, then the status goes out
    // (console mode: printed).
    void StillInShutdown();
    void SetStatus(uint32_t state);
    // One event under the service name; nothing is held open between reports.
    void LogEvent(vt::EventType type, uint32_t eventId, const char* text = nullptr);

    // Writes "[<name>](<thread id>): <message>" at the Info level.
    void Trace(const char* format, ...) __attribute__((format(printf, 2, 3)));

    static CNTService* instance() noexcept { return s_instance.load(); }
    void makeInstance() noexcept { s_instance = this; }

    const char* serviceName() const noexcept { return m_serviceName; }
    bool isRunning() const noexcept { return m_running.load(std::memory_order_relaxed); }
    // Clearing the flag also ends Run's wait at once, so a stop does not wait out a poll.
    void setRunning(bool running);
    bool isConsoleMode() const noexcept { return m_consoleMode; }
    // "-r -o": run once (the event log monitors act on it).
    bool isRunOnce() const noexcept { return m_runOnce; }
    vt::ServiceStatus status() const;

    // The control handler's work for one control code (called by the static Handler).
    void HandleControl(uint32_t control);
    // The console interrupt's work (called by the static ConsoleBreak).
    void HandleConsoleBreak();

  protected:
    bool Initialize();
    // Applies `change` to the status block under its mutex and returns the result.
    template <typename Change>
    vt::ServiceStatus updateStatus(Change change) {
        std::lock_guard lock(m_statusMutex);
        change(m_status);
        return m_status;
    }
    void ServiceMainBody();

    uint32_t m_buildNumber;
    bool m_consoleMode = false;
    bool m_runOnce = false;
    char m_serviceName[64] = {};
    int32_t m_majorVersion;
    int32_t m_minorVersion;
    vt::ServiceStatusHandle m_statusHandle = 0;
    // Written by the service thread and the control handler; the mutex only keeps each update
    // whole (it is never held across a call into the service or the service manager).
    mutable std::mutex m_statusMutex;
    vt::ServiceStatus m_status;
    // Waited on by Run on the service thread, cleared by the control handler on another thread.
    std::atomic<bool> m_running{false};
    std::mutex m_runningMutex;
    std::condition_variable m_runningChanged;
    char m_releaseText[16] = {};

  private:
    static void ServiceMain(uint32_t argc, char** argv);
    static void Handler(uint32_t control);
    // A user control raised by a signal (SIGHUP), outside the control manager's dialogue.
    static void UserControl(uint32_t control);
    static void ConsoleBreak();
    static std::atomic<CNTService*> s_instance;
};
